#include "fuzz/fuzz_entries.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <string>
#include <vector>

#include <android/log.h>
#include <host/CallingUid.h>
#include <host/ExtractorHost.h>
#include <host/FormatEntries.h>
#include <media/MediaExtractorPluginHelper.h>
#include <media/NdkMediaFormat.h>

#include "demux/qmkvd.h"
#include "demux/qmkvd_codec.h"
#include "demux/qmkvd_ebml.h"
#include "demux/qmkvd_stream_info.h"
#include "demux/qmkvd_walk.h"
#include "demux/qmkvds.h"
#include "extractor/mfal/qcmn_mfal_android_q.h"
#include "fuzz/fuzz_source.h"
#include "qextractorcmn/qextractorcmn.h"

extern "C" android::ExtractorDef GETEXTRACTORDEF();

namespace qmkv_fuzz {

namespace {

// Bounds that keep one input well inside the 5 s timeout.
const int kMaxFramesPerInput = 4096;
const int kFramesAfterSeek = 4;
const uint32_t kFixedBuffer = 16 * 1024;
const int32_t kMaxAlloc = 64 * 1024 * 1024;

// Reading every byte the code under test hands out lets the sanitizers see
// dangling or short buffers; the sum goes somewhere the compiler must keep.
volatile uint32_t gSink;

void touch(const void *p, size_t n) {
    if (p == nullptr) return;
    const uint8_t *b = static_cast<const uint8_t *>(p);
    uint32_t s = 0;
    for (size_t i = 0; i < n; ++i) s += b[i];
    gSink = gSink + s;
}

void touchString(const char *s) {
    if (s != nullptr) touch(s, strlen(s));
}

// A broken promise of an interface: report it and stop like a crash, so
// that libFuzzer keeps the input.
[[noreturn]] void broken(const char *what) {
    fprintf(stderr, "qmkv fuzz: broken promise: %s\n", what);
    abort();
}

// A heap block of exactly `n` bytes (at least one byte to be valid), so that
// a write past what the callee was told overflows into a redzone.
struct Exact {
    explicit Exact(size_t n) : p(static_cast<uint8_t *>(malloc(n == 0 ? 1 : n))), size(n) {}
    ~Exact() { free(p); }
    Exact(const Exact &) = delete;
    Exact &operator=(const Exact &) = delete;
    uint8_t *p;
    size_t size;
};

uint64_t readU64(const uint8_t *data, size_t size, size_t at) {
    uint64_t v = 0;
    for (size_t i = 0; i < 8 && at + i < size; ++i) v = (v << 8) | data[at + i];
    return v;
}

// ---------------------------------------------------------------------------
// Core

// The file-access layer over the bytes, as the plug-in sets it up.
struct CoreInput {
    CoreInput(const uint8_t *data, size_t size) : bytes(data, size), helper(bytes.source()) {
        memset(&mfal, 0, sizeof(mfal));
        ok = qcmn_mfal_init(&mfal, &helper) == 0;
    }
    ~CoreInput() { qcmn_mfal_deinit(&mfal); }
    BytesSource bytes;
    android::DataSourceHelper helper;
    QCMN_MFAL mfal;
    bool ok;
};

void touchColour(const qmkvd_colour *c) {
    if (c == nullptr) return;
    touch(c, sizeof(*c));
    if (c->mastering == nullptr) return;
    touch(c->mastering, sizeof(*c->mastering));
    touch(c->mastering->primary_r, sizeof(qmkvd_chromaticity));
    touch(c->mastering->primary_g, sizeof(qmkvd_chromaticity));
    touch(c->mastering->primary_b, sizeof(qmkvd_chromaticity));
    touch(c->mastering->white_point, sizeof(qmkvd_chromaticity));
}

void touchFormat(const qmkvd_format &f) {
    if (f.meta == nullptr) return;
    for (const qmkvd_metadata_item &item : f.meta->items) touch(item.data, item.length);
}

// Size query, then the bytes into exactly that room, then one byte short.
void queryCodecConfig(qmkvd *inst, qmkvds *stream, int32_t index) {
    int32_t n = 0;
    const int32_t r = stream != nullptr ? qmkvds_get_format(stream, nullptr, &n) : qmkvd_get_format(inst, index, nullptr, &n);
    if (r != 0 || n <= 0 || n > kMaxAlloc) return;
    Exact buf((size_t)n);
    int32_t got = n;
    if (qmkvd_get_format(inst, index, buf.p, &got) == 0) {
        if (got > n) broken("qmkvd_get_format wrote more than the size it asked for");
        touch(buf.p, (size_t)got);
    }
    Exact shorter((size_t)n - 1);
    got = n - 1;
    qmkvd_get_format(inst, index, shorter.p, &got);
}

void queryInfo(qmkvd *inst, int32_t index) {
    qmkvd_info_vid vid;
    memset(&vid, 0, sizeof(vid));
    if (qmkvd_get_info_vid(inst, index, &vid) == 0) touchColour(vid.colour);
    qmkvd_info_aud aud;
    memset(&aud, 0, sizeof(aud));
    if (qmkvd_get_info_aud(inst, index, &aud) == 0 && aud.name_length > 0) touch(aud.name, (size_t)aud.name_length);
    qmkvd_info_txt txt;
    memset(&txt, 0, sizeof(txt));
    if (qmkvd_get_info_txt(inst, index, &txt) == 0 && txt.name_length > 0) touch(txt.name, (size_t)txt.name_length);
    queryCodecConfig(inst, nullptr, index);

    uint32_t bytes = 0, count = 0;
    if (qmkvd_get_idx_table(inst, index, nullptr, 0, &bytes, &count) == 0 && count > 0 &&
        count < (uint32_t)kMaxAlloc / sizeof(qmkvd_idx_entry)) {
        Exact table(count * sizeof(qmkvd_idx_entry));
        qmkvd_get_idx_table(inst, index, reinterpret_cast<qmkvd_idx_entry *>(table.p), (uint32_t)table.size, &bytes,
                            &count);
        // One entry short must be refused, not overrun.
        Exact shorter((count - 1) * sizeof(qmkvd_idx_entry));
        qmkvd_get_idx_table(inst, index, reinterpret_cast<qmkvd_idx_entry *>(shorter.p), (uint32_t)shorter.size,
                            &bytes, &count);
    }
}

struct OpenStream {
    qmkvds *s = nullptr;
    bool ended = false;
};

// One frame the two-step way: its size, then the frame into exactly that.
int32_t readSized(qmkvds *s) {
    uint32_t size = 0, key = 0;
    int64_t pts = 0, end = 0;
    int32_t r = qmkvds_get_frm(s, nullptr, 0, &size, &pts, &end, &key);
    if (r != 0) return r;
    if (size > (uint32_t)kMaxAlloc) return -1;
    // An empty frame is read into a buffer said to hold nothing.
    Exact buf(size);
    uint32_t got = 0;
    r = qmkvds_get_frm(s, buf.p, size, &got, &pts, &end, &key);
    if (r == 0) {
        if (got > size) broken("qmkvds_get_frm delivered more than the buffer holds");
        touch(buf.p, got);
    }
    return r;
}

// One frame straight into a fixed buffer; a frame too large for it is then
// taken the two-step way.
int32_t readDirect(qmkvds *s, uint8_t *fixed) {
    uint32_t size = 0, key = 0;
    int64_t pts = 0, end = 0;
    int32_t r = qmkvds_get_frm(s, fixed, kFixedBuffer, &size, &pts, &end, &key);
    if (r == 0) {
        if (size > kFixedBuffer) broken("qmkvds_get_frm delivered more than the buffer holds");
        touch(fixed, size);
    } else if (r == QMKVD_ERR_BUFFER) {
        r = readSized(s);
    }
    return r;
}

void seekAndRead(qmkvds *s, uint64_t time, int32_t mode, uint8_t *fixed, int *budget) {
    int64_t found = 0;
    const int32_t r = qmkvds_seek(s, &time, &found, mode);
    if (r != 0) return;
    for (int i = 0; i < kFramesAfterSeek && *budget > 0; ++i, --*budget)
        if ((i & 1 ? readSized(s) : readDirect(s, fixed)) != 0) break;
}

}  // namespace

int fuzzCore(const uint8_t *data, size_t size) {
    CoreInput in(data, size);
    if (!in.ok) return 0;
    // The last byte picks the time source, so both get explored.
    uint32_t params = (size > 0 && (data[size - 1] & 1)) ? QMKVD_OPEN_NO_DTS : 0;
    qmkvd_format format;
    int32_t err = 0;
    qmkvd *inst = qmkvd_create(&in.mfal, &params, &format, &err);
    if (inst == nullptr) return 0;
    touchFormat(format);

    int32_t tracks = format.track_count;
    if (tracks < 0 || tracks > QMKVD_MAX_TRACKS) broken("qmkvd_create reported an impossible track count");
    // One index past the end and a negative one check the argument checks.
    for (int32_t i = -1; i <= tracks; ++i) queryInfo(inst, i);

    Exact fixed(kFixedBuffer);
    int budget = kMaxFramesPerInput;

    // All streams open at once, read in turn, as a player interleaves them.
    std::vector<OpenStream> streams((size_t)tracks);
    for (int32_t i = 0; i < tracks; ++i) {
        int32_t e = 0;
        qmkvds *s = streams[(size_t)i].s = qmkvds_open(inst, i, &e);
        if (s == nullptr) continue;
        queryCodecConfig(inst, s, i);
        qmkvd_info_vid vid;
        memset(&vid, 0, sizeof(vid));
        if (qmkvds_get_info_vid(s, &vid) == 0) touchColour(vid.colour);
        qmkvd_info_aud aud;
        memset(&aud, 0, sizeof(aud));
        if (qmkvds_get_info_aud(s, &aud) == 0 && aud.name_length > 0) touch(aud.name, (size_t)aud.name_length);
        qmkvd_info_txt txt;
        memset(&txt, 0, sizeof(txt));
        if (qmkvds_get_info_txt(s, &txt) == 0 && txt.name_length > 0) touch(txt.name, (size_t)txt.name_length);
    }
    for (bool any = true; any && budget > 0;) {
        any = false;
        for (size_t i = 0; i < streams.size() && budget > 0; ++i) {
            OpenStream &o = streams[i];
            if (o.s == nullptr || o.ended) continue;
            any = true;
            --budget;
            const int32_t r = (budget & 2) ? readSized(o.s) : readDirect(o.s, fixed.p);
            if (r != 0) o.ended = true;
        }
    }

    // Seek targets: the start, inside, the end and past it, and two taken
    // from the input so that odd values come up too (100 ns units).
    const int64_t duration = format.duration;
    const uint64_t times[] = {
        0,
        duration > 0 ? (uint64_t)duration / 3 : 10000000u,
        duration > 0 ? (uint64_t)duration : 0,
        duration > 0 ? (uint64_t)duration + 10000000u : 20000000u,
        readU64(data, size, size >= 8 ? size - 8 : 0) % (uint64_t)(duration > 0 ? 2 * duration + 1 : 600000000),
        UINT64_MAX,
    };
    for (OpenStream &o : streams) {
        if (o.s == nullptr) continue;
        uint32_t bytes = 0, count = 0;
        if (qmkvds_get_idx_table(o.s, nullptr, 0, &bytes, &count) == 0 && count > 0 &&
            count < (uint32_t)kMaxAlloc / sizeof(qmkvd_idx_entry)) {
            Exact table(count * sizeof(qmkvd_idx_entry));
            qmkvds_get_idx_table(o.s, reinterpret_cast<qmkvd_idx_entry *>(table.p), (uint32_t)table.size, &bytes,
                                 &count);
        }
        // Modes 0-3 are the defined ones; 4 must be refused.
        for (int32_t mode = 0; mode <= 4; ++mode)
            for (uint64_t t : times) seekAndRead(o.s, t, mode, fixed.p, &budget);
        for (uint64_t t : times) {
            int64_t found = 0;
            if (qmkvds_seek_crawl(o.s, &t, &found, QMKVDS_SEEK_PREVIOUS) == 0 && budget > 0) {
                --budget;
                readDirect(o.s, fixed.p);
            }
        }
    }
    for (OpenStream &o : streams)
        if (o.s != nullptr) qmkvds_close(o.s);
    qmkvd_delete(inst);
    return 0;
}

// ---------------------------------------------------------------------------
// Plug-in

namespace {

using qmkvhost::Extractor;
using qmkvhost::Plugin;
using qmkvhost::Sample;
using qmkvhost::Track;

const size_t kMaxPluginTracks = 130;
const int kMaxSamplesPerInput = 2048;

const Plugin *plugin() {
    static std::unique_ptr<Plugin> p = [] {
        std::string error;
        std::unique_ptr<Plugin> loaded = Plugin::fromEntry(GETEXTRACTORDEF, &error);
        if (loaded == nullptr) {
            fprintf(stderr, "qmkv fuzz: no plug-in: %s\n", error.c_str());
            abort();
        }
        return loaded;
    }();
    return p.get();
}

// Every value of every entry, read back through the typed getters.
void touchMediaFormat(AMediaFormat *f) {
    for (const qmkvhost::FormatEntry &e : qmkvhost::formatEntries(f)) {
        const char *key = e.name.c_str();
        switch (e.type) {
            case qmkvhost::FormatType::kString: {
                const char *s = nullptr;
                if (AMediaFormat_getString(f, key, &s)) touchString(s);
                break;
            }
            case qmkvhost::FormatType::kBuffer: {
                void *d = nullptr;
                size_t n = 0;
                if (AMediaFormat_getBuffer(f, key, &d, &n)) touch(d, n);
                break;
            }
            default:
                break;
        }
    }
}

void touchSample(const Sample &s) {
    if (s == nullptr) return;
    if (s->range_offset() > s->size() || s->range_length() > s->size() - s->range_offset())
        broken("a sample's range lies outside its buffer");
    touch(static_cast<uint8_t *>(s->data()) + s->range_offset(), s->range_length());
    touchMediaFormat(s->meta_data());
}

struct Formats {
    ~Formats() {
        for (AMediaFormat *f : all) AMediaFormat_delete(f);
    }
    AMediaFormat *add() {
        all.push_back(AMediaFormat_new());
        return all.back();
    }
    std::vector<AMediaFormat *> all;
};

}  // namespace

int fuzzPlugin(const uint8_t *data, size_t size) {
    BytesSource bytes(data, size);
    // The media server's uid gets float PCM for deep audio; any other the
    // integer kinds.
    HostCallingUidScope uid(size > 2 && (data[size - 3] & 1) ? 1013 : 10000);
    qmkvhost::SniffResult sniffed = plugin()->sniff(bytes.source());
    if (!sniffed) return 0;
    std::unique_ptr<Extractor> ex = plugin()->create(bytes.source(), sniffed);
    if (ex == nullptr) return 0;
    Formats formats;

    const size_t count = ex->countTracks();
    if (count > kMaxPluginTracks) broken("countTracks() beyond the demuxer's track limit");
    touchMediaFormat(formats.add());
    ex->getMetaData(formats.all.back());
    touchMediaFormat(formats.all.back());
    const uint32_t flags = ex->flags();
    touchString(ex->name());
    for (size_t i = 0; i <= count; ++i) {
        for (uint32_t f = 0; f <= 1; ++f) {
            AMediaFormat *meta = formats.add();
            ex->getTrackMetaData(meta, i, f);
            touchMediaFormat(meta);
        }
    }

    std::vector<std::unique_ptr<Track>> tracks;
    for (size_t i = 0; i < count; ++i) tracks.push_back(ex->getTrack(i));
    // The plug-in keeps what its tracks need alive past the extractor.
    if (size > 1 && (data[size - 2] & 1)) ex.reset();

    std::vector<bool> started(tracks.size(), false);
    for (size_t i = 0; i < tracks.size(); ++i) {
        if (tracks[i] == nullptr) continue;
        AMediaFormat *f = formats.add();
        tracks[i]->getFormat(f);
        touchMediaFormat(f);
        started[i] = tracks[i]->start() == AMEDIA_OK;
    }

    int budget = kMaxSamplesPerInput;
    std::vector<bool> ended(tracks.size(), false);
    for (bool any = true; any && budget > 0;) {
        any = false;
        for (size_t i = 0; i < tracks.size() && budget > 0; ++i) {
            if (!started[i] || ended[i]) continue;
            any = true;
            --budget;
            Sample s;
            if (tracks[i]->read(&s) != AMEDIA_OK) ended[i] = true;
            touchSample(s);
        }
    }

    // Seeks through the read options, in every mode the interface defines
    // for a seek to a time (SEEK_FRAME_INDEX is an assertion by design);
    // the seek is honoured only on a seekable file or at 0.
    int64_t durationUs = 0;
    if (!formats.all.empty()) AMediaFormat_getInt64(formats.all.front(), AMEDIAFORMAT_KEY_DURATION, &durationUs);
    const int64_t picked = (int64_t)(readU64(data, size, size >= 8 ? size - 8 : 0) % 120000000u);
    const int64_t times[] = {0, durationUs / 2, durationUs, durationUs + 1000000, picked, -1};
    (void)flags;
    for (size_t i = 0; i < tracks.size(); ++i) {
        if (!started[i]) continue;
        for (uint32_t mode = android::SEEK_PREVIOUS_SYNC; mode <= android::SEEK_CLOSEST; ++mode) {
            for (int64_t t : times) {
                if (budget <= 0) break;
                Sample s;
                --budget;
                if (tracks[i]->read(&s, android::SEEK | mode, t) != AMEDIA_OK) continue;
                touchSample(s);
                for (int n = 0; n < kFramesAfterSeek - 1 && budget > 0; ++n, --budget) {
                    if (tracks[i]->read(&s) != AMEDIA_OK) break;
                    touchSample(s);
                }
            }
        }
    }

    for (size_t i = 0; i < tracks.size(); ++i)
        if (started[i]) tracks[i]->stop();
    // A second start after a stop, as when playback resumes.
    for (size_t i = 0; i < tracks.size(); ++i) {
        if (!started[i] || tracks[i]->start() != AMEDIA_OK) continue;
        Sample s;
        if (tracks[i]->read(&s) == AMEDIA_OK) touchSample(s);
        s.reset();
        tracks[i]->stop();
    }
    tracks.clear();
    return 0;
}

// ---------------------------------------------------------------------------
// Codec configuration

namespace {

constexpr uint32_t fcc(const char (&s)[5]) { return QMKVD_FOURCC(s[0], s[1], s[2], s[3]); }

// The video codes the plug-in hands to the parser.
const uint32_t kVideoCodes[] = {
    fcc("MPG2"), fcc("mpg2"), fcc("MP43"), fcc("H263"), fcc("S263"), fcc("h263"), fcc("s263"), fcc("AVC1"),
    fcc("avc1"), fcc("hvc1"), fcc("hev1"), fcc("VP80"), fcc("VP90"), fcc("av01"), fcc("H264"), fcc("X264"),
    fcc("h264"), fcc("x264"), fcc("FMP4"), fcc("fmp4"), fcc("XVID"), fcc("xvid"), fcc("MP4V"), fcc("mp4v"),
};
// The AAC tags, "unspecified", and one that is no AAC tag.
const uint32_t kAudioTags[] = {0, 0xFF, fcc("mp4a"), fcc("MP4A"), fcc("aac "), fcc("Opus")};

}  // namespace

int fuzzConfig(const uint8_t *data, size_t size) {
    for (uint32_t code : kVideoCodes) {
        qvid_config_in in;
        memset(&in, 0, sizeof(in));
        in.data = data;
        in.size = (uint32_t)size;
        in.fourcc = code;
        qvid_config_out out;
        memset(&out, 0, sizeof(out));
        const int32_t r = qvid_config_parser(&in, &out);
        if (r != QVID_CFG_OK && r != QVID_CFG_NEED_MORE && r != QVID_CFG_ERR_MALFORMED && r != QVID_CFG_ERR_ARG)
            broken("qvid_config_parser returned an undocumented result");
        if (r == QVID_CFG_OK && (out.width < 0 || out.height < 0)) broken("qvid_config_parser: negative dimensions");
    }
    for (uint32_t tag : kAudioTags) {
        qaud_config_in in;
        memset(&in, 0, sizeof(in));
        in.data = data;
        in.size = (uint32_t)size;
        in.tag = tag;
        qaud_config_out out;
        memset(&out, 0, sizeof(out));
        const int32_t r = qaud_config_parser(&in, &out);
        if (r != QAUD_CFG_OK && r != QAUD_CFG_ERR_MALFORMED && r != QAUD_CFG_ERR_ARG && r != QAUD_CFG_ERR_UNSUPPORTED)
            broken("qaud_config_parser returned an undocumented result");
    }
    // The device profile, asked about a code taken from the input.
    if (size >= 4) {
        const uint32_t code = QMKVD_FOURCC(data[0], data[1], data[2], data[3]);
        int32_t supported = 0;
        qvid_get_mm_spec(QVID_MMSPEC_QUERY_SUPPORTED, code, &supported, sizeof(supported));
        qvid_mm_max_dims dims;
        qvid_get_mm_spec(QVID_MMSPEC_QUERY_MAX_DIMS, code, &dims, sizeof(dims));
        qvid_get_mm_spec(QVID_MMSPEC_QUERY_MAX_DIMS, code, &dims, sizeof(dims) - 1);
    }
    return 0;
}

// ---------------------------------------------------------------------------
// EBML

namespace {

const int kMaxWalkDepth = 8;
const int kMaxWalkChildren = 256;
const uint64_t kSmallChild = 4096;

struct WalkState {
    int64_t fileSize;
    int depth;
    int children;
    uint32_t flags;
};

int32_t walkChild(void *ctx, const qmkvd_io *io, qmkvd_child *child) {
    WalkState *w = static_cast<WalkState *>(ctx);
    if (++w->children > kMaxWalkChildren) return QMKVD_WALK_DONE;
    // Each value reader from the child's data; each may fail, none may
    // read past what it was given.
    uint64_t u = 0;
    io->mfal->setpos(io->fp, &child->pos);
    qmkvd_read_uint(io, child, &u);
    float f = 0;
    io->mfal->setpos(io->fp, &child->pos);
    qmkvd_read_float_bits32(io, child, &f);
    char small[5];
    io->mfal->setpos(io->fp, &child->pos);
    if (qmkvd_read_string(io, child, small, sizeof(small)) == 0) touchString(small);
    char text[QMKVD_STRING_SIZE];
    io->mfal->setpos(io->fp, &child->pos);
    if (qmkvd_read_string(io, child, text, sizeof(text)) == 0) touchString(text);
    uint8_t raw[16];
    io->mfal->setpos(io->fp, &child->pos);
    qmkvd_read_raw(io, child, raw, sizeof(raw));
    // Copies of large children only now and then: they cost time, not paths.
    uint8_t *heap = nullptr;
    uint32_t heapSize = 0;
    io->mfal->setpos(io->fp, &child->pos);
    if ((child->size <= kSmallChild || w->children <= 4) &&
        qmkvd_read_alloc(io, child, w->fileSize, &heap, &heapSize) == 0) {
        touch(heap, heapSize);
        free(heap);
    }
    // Every child is also taken for a parent.
    if (w->depth < kMaxWalkDepth) {
        ++w->depth;
        qmkvd_walk(io, child->pos, child->size, w->flags, walkChild, w);
        --w->depth;
    }
    return QMKVD_WALK_CONTINUE;
}

}  // namespace

int fuzzEbml(const uint8_t *data, size_t size) {
    // The memory reader and the byte converters over windows copied into
    // blocks of their exact length, so an overread reaches a redzone.
    for (int32_t i = 0; i < 256; ++i) gSink = gSink + (uint32_t)qmkvd_get_clz((uint8_t)i);
    for (size_t at = 0; at < size && at < 64; ++at) {
        for (size_t len = 0; len <= 12 && at + len <= size; ++len) {
            Exact window(len);
            if (len > 0) memcpy(window.p, data + at, len);
            uint32_t id = 0;
            uint64_t sz = 0;
            const int32_t r = qmkvd_ebml_get_id_len64_buff(window.p, (int32_t)len, &id, &sz);
            if (r > (int32_t)len) broken("qmkvd_ebml_get_id_len64_buff claims more bytes than it was given");
            if (len <= 8) gSink = gSink + (uint32_t)qmkvd_b2v_u64(window.p, (int32_t)len);
            if (len <= 4) gSink = gSink + qmkvd_b2v_u32(window.p, (int32_t)len);
        }
    }

    CoreInput in(data, size);
    if (!in.ok) return 0;
    QCMN_MFAL_FP *fp = in.mfal.open(&in.mfal, 0);
    if (fp == nullptr) return 0;
    int64_t fileSize = 0;
    in.mfal.getsize(fp, &fileSize);

    // Every file reader at each point of a descent that takes every element
    // for a parent, stepping one byte on a failure.
    int64_t pos = 0;
    for (int steps = 0; pos < (int64_t)size && steps < 1024; ++steps) {
        uint32_t id32 = 0, size32 = 0, length = 0;
        uint64_t size64 = 0;
        in.mfal.setpos(fp, &pos);
        qmkvd_ebml_get_len64(&in.mfal, fp, &size64);
        in.mfal.setpos(fp, &pos);
        qmkvd_ebml_get_len32(&in.mfal, fp, &size32);
        in.mfal.setpos(fp, &pos);
        qmkvd_ebml_get_len32_rel(&in.mfal, fp, &size32, &length);
        in.mfal.setpos(fp, &pos);
        qmkvd_ebml_get_id_len32(&in.mfal, fp, &id32, &size32);
        in.mfal.setpos(fp, &pos);
        const int64_t before = pos;
        if (qmkvd_ebml_get_id_len64(&in.mfal, fp, &id32, &size64) == 0) {
            in.mfal.getpos(fp, &pos);
            if (pos <= before) broken("an EBML header read did not move forward");
        } else {
            pos = before + 1;
        }
    }

    // The shared child walk with every flag combination the parsers use.
    qmkvd_io io = {&in.mfal, fp};
    for (uint32_t flags = 0; flags < 8; ++flags) {
        WalkState w = {fileSize, 0, 0, flags};
        qmkvd_walk(&io, 0, (uint64_t)size, flags, walkChild, &w);
    }
    in.mfal.close(fp);
    return 0;
}

// ---------------------------------------------------------------------------

Entry entryByName(const char *name) {
    if (strcmp(name, "fuzz_core") == 0) return fuzzCore;
    if (strcmp(name, "fuzz_plugin") == 0) return fuzzPlugin;
    if (strcmp(name, "fuzz_config") == 0) return fuzzConfig;
    if (strcmp(name, "fuzz_ebml") == 0) return fuzzEbml;
    return nullptr;
}

namespace {
// Fatal messages (failed assertions) still reach stderr: they explain the abort.
void discard(const struct __android_logger_data *d, const char *message) {
    touchString(message);
    if (d != nullptr && d->priority >= ANDROID_LOG_FATAL) __android_log_stderr_logger(d, message);
}
}  // namespace

void silenceLogs() {
    __android_log_set_logger(discard);
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
}

}  // namespace qmkv_fuzz
