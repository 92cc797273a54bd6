#include "fuzz/fuzz_entries.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <string>
#include <vector>

#include <android/log.h>
#include <media/MediaExtractorPluginHelper.h>
#include <media/NdkMediaFormat.h>
#include <qmkvhost/CallingUid.h>
#include <qmkvhost/ExtractorHost.h>
#include <qmkvhost/FormatEntries.h>

#include "demux/qmkvd.h"
#include "demux/qmkvd_codec.h"
#include "demux/qmkvd_ebml.h"
#include "demux/qmkvd_stream_info.h"
#include "demux/qmkvd_walk.h"
#include "demux/qmkvd_window.h"
#include "demux/qmkvd_window_io.h"
#include "demux/qmkvds.h"
#include "extractor/mfal/qcmn_mfal_android_q.h"
#include "qextractorcmn/qextractorcmn.h"
#include "tests/support/memory_file.h"

extern "C" android::ExtractorDef GETEXTRACTORDEF();

namespace qmkv_fuzz {

namespace {

// Bounds that keep one input well inside the 5 s timeout.
const int kMaxFramesPerInput = 4096, kMaxSamplesPerInput = 2048, kFramesAfterSeek = 4;
// What one EBML input is taken through: more children, more steps of the
// descent or more window positions repeat the same readers over more
// bytes, which costs time and finds no new path.
const int kMaxWalkDepth = 8, kMaxWalkChildren = 96, kMaxDescentSteps = 64;
const size_t kWindowPositions = 32;
const size_t kMaxWindow = 12;  // longest element header: 4-byte ID, 8-byte size
const uint32_t kViewWindow = 40;  // small, so that headers straddle its refills
const size_t kMaxPluginTracks = 130;
const uint64_t kSmallChild = 4096;
const uint32_t kFixedBuffer = 16 * 1024;
const int32_t kMaxAlloc = 64 * 1024 * 1024;

// Reading every byte the code under test hands out lets the sanitizers see
// dangling or short buffers; the sum goes somewhere the compiler must keep.
// The loop is no path of the code under test: traced (and it would be,
// inlined into a traced caller), each byte costs more than reading it did.
volatile uint32_t gSink;

#if defined(__clang__)
__attribute__((noinline, no_sanitize("coverage")))
#endif
void touch(const void *p, size_t n) {
    if (p == nullptr) return;
    uint32_t s = 0;
    for (size_t i = 0; i < n; ++i) s += static_cast<const uint8_t *>(p)[i];
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
using Exact = std::unique_ptr<uint8_t[]>;
Exact exact(size_t n) { return Exact(new uint8_t[n == 0 ? 1 : n]); }

uint64_t readU64(const uint8_t *data, size_t size, size_t at) {
    uint64_t v = 0;
    for (size_t i = 0; i < 8 && at + i < size; ++i) v = (v << 8) | data[at + i];
    return v;
}

std::vector<uint8_t> copy(const uint8_t *data, size_t size) { return std::vector<uint8_t>(data, data + size); }

// Reads the live streams in turn, as a player interleaves them, until all
// have ended or the budget is spent; `read(i)` returns whether i goes on.
template <typename Read>
void interleave(std::vector<bool> live, int *budget, Read read) {
    for (bool any = true; any && *budget > 0;) {
        any = false;
        for (size_t i = 0; i < live.size() && *budget > 0; ++i) {
            if (!live[i]) continue;
            any = true;
            --*budget;
            live[i] = read(i);
        }
    }
}

// Seeks to one of the kSeekTargets targets in each of `modes` modes, a
// different one in each, turned by `turn` (a stream's number and an input
// byte), so that over the inputs every target comes up in every mode;
// replays take them all. `seek(mode, target)`.
const size_t kSeekTargets = 6;
bool gEverySeek = false;
template <typename Seek>
void seekSome(size_t turn, uint32_t modes, Seek seek) {
    const size_t step = gEverySeek ? 1 : kSeekTargets;
    for (uint32_t mode = 0; mode < modes; ++mode)
        for (size_t k = 0; k < kSeekTargets; k += step) seek(mode, (turn + mode + k) % kSeekTargets);
}

// ---------------------------------------------------------------------------
// Core

void touchColour(const qmkvd_colour *c) {
    if (c == nullptr) return;
    touch(c, sizeof(*c));
    if (const qmkvd_mastering *m = c->mastering) {
        touch(m, sizeof(*m));
        for (const qmkvd_chromaticity *p : {m->primary_r, m->primary_g, m->primary_b, m->white_point})
            touch(p, sizeof(*p));
    }
}

// Every info, format and index query of a track, by index (`s` null) or
// through its open stream. Sizes are asked first, then the bytes go into
// exactly that room, then into one byte (or entry) less, which must be
// refused, not overrun.
void queryTrack(qmkvd *inst, qmkvds *s, int32_t i) {
    qmkvd_info_vid vid = {};
    if ((s ? qmkvds_get_info_vid(s, &vid) : qmkvd_get_info_vid(inst, i, &vid)) == 0) touchColour(vid.colour);
    qmkvd_info_aud aud = {};
    if ((s ? qmkvds_get_info_aud(s, &aud) : qmkvd_get_info_aud(inst, i, &aud)) == 0 && aud.name_length > 0)
        touch(aud.name, (size_t)aud.name_length);
    qmkvd_info_txt txt = {};
    if ((s ? qmkvds_get_info_txt(s, &txt) : qmkvd_get_info_txt(inst, i, &txt)) == 0 && txt.name_length > 0)
        touch(txt.name, (size_t)txt.name_length);

    auto format = [&](uint8_t *b, int32_t *n) {
        return s ? qmkvds_get_format(s, b, n) : qmkvd_get_format(inst, i, b, n);
    };
    int32_t n = 0;
    if (format(nullptr, &n) == 0 && n > 0 && n <= kMaxAlloc) {
        Exact buf = exact((size_t)n);
        int32_t got = n;
        if (format(buf.get(), &got) == 0) {
            if (got > n) broken("qmkvd_get_format wrote more than the size it asked for");
            touch(buf.get(), (size_t)got);
        }
        got = n - 1;
        format(exact((size_t)n - 1).get(), &got);
    }

    auto index = [&](qmkvd_idx_entry *t, uint32_t cap, uint32_t *bytes, uint32_t *count) {
        return s ? qmkvds_get_idx_table(s, t, cap, bytes, count) : qmkvd_get_idx_table(inst, i, t, cap, bytes, count);
    };
    uint32_t bytes = 0, count = 0;
    if (index(nullptr, 0, &bytes, &count) == 0 && count > 0 && count < (uint32_t)kMaxAlloc / sizeof(qmkvd_idx_entry)) {
        for (uint32_t room : {count, count - 1}) {
            std::unique_ptr<qmkvd_idx_entry[]> table(new qmkvd_idx_entry[room == 0 ? 1 : room]);
            index(table.get(), (uint32_t)(room * sizeof(qmkvd_idx_entry)), &bytes, &count);
        }
    }
}

// One frame the two-step way: its size, then the frame into exactly that.
int32_t readSized(qmkvds *s) {
    uint32_t size = 0, key = 0;
    int64_t pts = 0, end = 0;
    int32_t r = qmkvds_get_frm(s, nullptr, 0, &size, &pts, &end, &key);
    if (r != 0) return r;
    if (size > (uint32_t)kMaxAlloc) return -1;
    // An empty frame is read into a buffer said to hold nothing.
    Exact buf = exact(size);
    uint32_t got = 0;
    r = qmkvds_get_frm(s, buf.get(), size, &got, &pts, &end, &key);
    if (r == 0 && got > size) broken("qmkvds_get_frm delivered more than the buffer holds");
    if (r == 0) touch(buf.get(), got);
    return r;
}

// One frame straight into a fixed buffer; a frame too large for it is then
// taken the two-step way.
int32_t readDirect(qmkvds *s, uint8_t *fixed) {
    uint32_t size = 0, key = 0;
    int64_t pts = 0, end = 0;
    const int32_t r = qmkvds_get_frm(s, fixed, kFixedBuffer, &size, &pts, &end, &key);
    if (r == QMKVD_ERR_BUFFER) return readSized(s);
    if (r == 0 && size > kFixedBuffer) broken("qmkvds_get_frm delivered more than the buffer holds");
    if (r == 0) touch(fixed, size);
    return r;
}

// ---------------------------------------------------------------------------
// Plug-in

using qmkvhost::Sample;

const qmkvhost::Plugin *plugin() {
    static std::string error;
    static std::unique_ptr<qmkvhost::Plugin> p = qmkvhost::Plugin::fromEntry(GETEXTRACTORDEF, &error);
    if (p == nullptr) broken(("no plug-in: " + error).c_str());
    return p.get();
}

// Every string and buffer entry, read back through the typed getters. The
// list is made for every sample: its room is kept.
void touchMediaFormat(AMediaFormat *f) {
    static std::vector<qmkvhost::FormatEntry> entries;
    qmkvhost::formatEntries(f, &entries);
    for (const qmkvhost::FormatEntry &e : entries) {
        const char *s = nullptr;
        void *d = nullptr;
        size_t n = 0;
        if (e.type == qmkvhost::FormatType::kString && AMediaFormat_getString(f, e.name, &s)) touchString(s);
        if (e.type == qmkvhost::FormatType::kBuffer && AMediaFormat_getBuffer(f, e.name, &d, &n)) touch(d, n);
    }
}

void touchSample(const Sample &s) {
    if (s == nullptr) return;
    if (s->range_offset() > s->size() || s->range_length() > s->size() - s->range_offset())
        broken("a sample's range lies outside its buffer");
    touch(static_cast<uint8_t *>(s->data()) + s->range_offset(), s->range_length());
    touchMediaFormat(s->meta_data());
}

// ---------------------------------------------------------------------------
// Codec configuration

constexpr uint32_t fcc(const char (&s)[5]) { return QMKVD_FOURCC(s[0], s[1], s[2], s[3]); }

// The video codes the plug-in hands to the parser.
const uint32_t kVideoCodes[] = {
    fcc("MPG2"), fcc("mpg2"), fcc("MP43"), fcc("H263"), fcc("S263"), fcc("h263"), fcc("s263"), fcc("AVC1"),
    fcc("avc1"), fcc("hvc1"), fcc("hev1"), fcc("VP80"), fcc("VP90"), fcc("av01"), fcc("H264"), fcc("X264"),
    fcc("h264"), fcc("x264"), fcc("FMP4"), fcc("fmp4"), fcc("XVID"), fcc("xvid"), fcc("MP4V"), fcc("mp4v"),
};
// The AAC tags, "unspecified", and one that is no AAC tag.
const uint32_t kAudioTags[] = {0, 0xFF, fcc("mp4a"), fcc("MP4A"), fcc("aac "), fcc("Opus")};

// ---------------------------------------------------------------------------
// EBML

struct WalkState {
    int64_t fileSize;
    int depth, children;
    uint32_t flags;
};

// Each value reader from the child's data (each may fail, none may read
// past what it was given), then the child taken for a parent.
int32_t walkChild(void *ctx, const qmkvd_io *io, qmkvd_child *child) {
    WalkState *w = static_cast<WalkState *>(ctx);
    if (++w->children > kMaxWalkChildren) return QMKVD_WALK_DONE;
    // Each read starts at the child's data.
    auto at = [&] {
        io->mfal->setpos(io->fp, &child->pos);
        return io;
    };
    uint64_t u = 0;
    qmkvd_read_uint(at(), child, &u);
    float f = 0;
    qmkvd_read_float_bits32(at(), child, &f);
    char small[5], text[QMKVD_STRING_SIZE];
    if (qmkvd_read_string(at(), child, small, sizeof(small)) == 0) touchString(small);
    if (qmkvd_read_string(at(), child, text, sizeof(text)) == 0) touchString(text);
    uint8_t raw[16];
    qmkvd_read_raw(at(), child, raw, sizeof(raw));
    // Copies of large children only now and then: they cost time, not paths.
    uint8_t *heap = nullptr;
    uint32_t heapSize = 0;
    if ((child->size <= kSmallChild || w->children <= 4) &&
        qmkvd_read_alloc(at(), child, w->fileSize, &heap, &heapSize) == 0) {
        touch(heap, heapSize);
        free(heap);
    }
    if (w->depth < kMaxWalkDepth) {
        ++w->depth;
        qmkvd_walk(io, child->pos, child->size, w->flags, walkChild, w);
        --w->depth;
    }
    return QMKVD_WALK_CONTINUE;
}

// Fatal messages (failed assertions) still reach stderr: they explain the abort.
void discard(const struct __android_logger_data *d, const char *message) {
    touchString(message);
    if (d != nullptr && d->priority >= ANDROID_LOG_FATAL) __android_log_stderr_logger(d, message);
}
}  // namespace

// ---------------------------------------------------------------------------
// The targets

int fuzzCore(const uint8_t *data, size_t size) {
    qmkv_test::MemoryFile in(copy(data, size));
    // The last byte picks the time source, so both get explored.
    uint32_t params = (size > 0 && (data[size - 1] & 1)) ? QMKVD_OPEN_NO_DTS : 0;
    qmkvd_format format;
    int32_t err = 0;
    qmkvd *inst = qmkvd_create(&in.mfal, &params, &format, &err);
    if (inst == nullptr) return 0;
    if (format.meta != nullptr)
        for (const qmkvd_metadata_item &item : format.meta->items) touch(item.data, item.length);

    const int32_t tracks = format.track_count;
    if (tracks < 0 || tracks > QMKVD_MAX_TRACKS) broken("qmkvd_create reported an impossible track count");
    // One index past the end and a negative one check the argument checks.
    for (int32_t i = -1; i <= tracks; ++i) queryTrack(inst, nullptr, i);

    // Made once: it is the same block of the same size for every input.
    static const Exact fixed = exact(kFixedBuffer);
    int budget = kMaxFramesPerInput;
    // All streams open at once, read in turn (size query first, or straight
    // into the fixed buffer).
    std::vector<qmkvds *> streams((size_t)tracks, nullptr);
    std::vector<bool> open((size_t)tracks, false);
    for (int32_t i = 0; i < tracks; ++i) {
        int32_t e = 0;
        streams[(size_t)i] = qmkvds_open(inst, i, &e);
        if (streams[(size_t)i] != nullptr) queryTrack(inst, streams[(size_t)i], i);
        open[(size_t)i] = streams[(size_t)i] != nullptr;
    }
    interleave(open, &budget, [&](size_t i) {
        return ((budget & 2) ? readSized(streams[i]) : readDirect(streams[i], fixed.get())) == 0;
    });

    // Seek targets: the start, inside, the end and past it, and two taken
    // from the input so that odd values come up too (100 ns units).
    const uint64_t d = format.duration > 0 ? (uint64_t)format.duration : 0;
    const uint64_t times[] = {0, d ? d / 3 : 10000000u, d, d ? d + 10000000u : 20000000u,
                              readU64(data, size, size >= 8 ? size - 8 : 0) % (d ? 2 * d + 1 : 600000000u), UINT64_MAX};
    static_assert(sizeof(times) / sizeof(times[0]) == kSeekTargets, "one time per seek target");
    size_t turn = size >= 9 ? data[size - 9] : 0;
    for (qmkvds *s : streams) {
        ++turn;
        if (s == nullptr) continue;
        // Modes 0-3 are the defined ones; 4 must be refused.
        seekSome(turn, 5, [&](uint32_t mode, size_t k) {
            uint64_t t = times[k];
            int64_t found = 0;
            if (qmkvds_seek(s, &t, &found, (int32_t)mode) != 0) return;
            for (int i = 0; i < kFramesAfterSeek && budget > 0; ++i, --budget)
                if ((i & 1 ? readSized(s) : readDirect(s, fixed.get())) != 0) break;
        });
        seekSome(turn, 1, [&](uint32_t, size_t k) {
            uint64_t t = times[k];
            int64_t found = 0;
            if (qmkvds_seek_crawl(s, &t, &found, QMKVDS_SEEK_PREVIOUS) == 0 && budget-- > 0) readDirect(s, fixed.get());
        });
    }
    for (qmkvds *s : streams)
        if (s != nullptr) qmkvds_close(s);
    qmkvd_delete(inst);
    return 0;
}

int fuzzPlugin(const uint8_t *data, size_t size) {
    qmkv_test::MemorySource bytes(copy(data, size));
    // The media server's uid gets float PCM for deep audio; any other the
    // integer kinds.
    HostCallingUidScope uid(size > 2 && (data[size - 3] & 1) ? 1013 : 10000);
    qmkvhost::SniffResult sniffed = plugin()->sniff(bytes.source());
    if (!sniffed) return 0;
    std::unique_ptr<qmkvhost::Extractor> ex = plugin()->create(bytes.source(), sniffed);
    if (ex == nullptr) return 0;
    // A new format, filled by `fill`, then read back.
    std::vector<std::unique_ptr<AMediaFormat, decltype(&AMediaFormat_delete)>> formats;
    auto describe = [&formats](auto fill) {
        formats.emplace_back(AMediaFormat_new(), AMediaFormat_delete);
        fill(formats.back().get());
        touchMediaFormat(formats.back().get());
        return formats.back().get();
    };

    const size_t count = ex->countTracks();
    if (count > kMaxPluginTracks) broken("countTracks() beyond the demuxer's track limit");
    AMediaFormat *fileMeta = describe([&](AMediaFormat *f) { ex->getMetaData(f); });
    gSink = gSink + ex->flags();
    touchString(ex->name());
    // The flags (kIncludeExtensiveMetaData or none) from the input.
    const uint32_t flags = size > 3 ? data[size - 4] & 1u : 0;
    for (size_t i = 0; i <= count; ++i) describe([&](AMediaFormat *f) { ex->getTrackMetaData(f, i, flags); });

    std::vector<std::unique_ptr<qmkvhost::Track>> tracks;
    for (size_t i = 0; i < count; ++i) tracks.push_back(ex->getTrack(i));
    // The plug-in keeps what its tracks need alive past the extractor.
    if (size > 1 && (data[size - 2] & 1)) ex.reset();

    std::vector<bool> started(tracks.size(), false);
    for (size_t i = 0; i < tracks.size(); ++i) {
        if (tracks[i] == nullptr) continue;
        describe([&](AMediaFormat *f) { tracks[i]->getFormat(f); });
        started[i] = tracks[i]->start() == AMEDIA_OK;
    }
    int budget = kMaxSamplesPerInput;
    interleave(started, &budget, [&](size_t i) {
        Sample s;
        const bool ok = tracks[i]->read(&s) == AMEDIA_OK;
        touchSample(s);
        return ok;
    });

    // Seeks through the read options, in every mode the interface defines
    // for a seek to a time (SEEK_FRAME_INDEX is an assertion by design);
    // the seek is honoured only on a seekable file or at 0.
    int64_t durationUs = 0;
    AMediaFormat_getInt64(fileMeta, AMEDIAFORMAT_KEY_DURATION, &durationUs);
    const int64_t picked = (int64_t)(readU64(data, size, size >= 8 ? size - 8 : 0) % 120000000u);
    const int64_t times[] = {0, durationUs / 2, durationUs, durationUs + 1000000, picked, -1};
    static_assert(sizeof(times) / sizeof(times[0]) == kSeekTargets, "one time per seek target");
    const size_t turn = size >= 9 ? data[size - 9] : 0;
    for (size_t i = 0; i < tracks.size(); ++i) {
        if (!started[i]) continue;
        seekSome(turn + i, android::SEEK_CLOSEST - android::SEEK_PREVIOUS_SYNC + 1, [&](uint32_t mode, size_t k) {
            Sample s;
            const uint32_t options = android::SEEK | (android::SEEK_PREVIOUS_SYNC + mode);
            if (budget-- <= 0 || tracks[i]->read(&s, options, times[k]) != AMEDIA_OK) return;
            touchSample(s);
            for (int n = 1; n < kFramesAfterSeek && budget > 0 && tracks[i]->read(&s) == AMEDIA_OK; ++n, --budget)
                touchSample(s);
        });
    }

    for (size_t i = 0; i < tracks.size(); ++i)
        if (started[i]) tracks[i]->stop();
    // A second start after a stop, as when playback resumes: it costs a
    // start's buffers again, so half the inputs take it (replays all).
    const bool restart = gEverySeek || (size > 1 && (data[size - 2] & 2));
    for (size_t i = 0; restart && i < tracks.size(); ++i) {
        if (!started[i] || tracks[i]->start() != AMEDIA_OK) continue;
        Sample s;
        if (tracks[i]->read(&s) == AMEDIA_OK) touchSample(s);
        s.reset();
        tracks[i]->stop();
    }
    return 0;
}

int fuzzConfig(const uint8_t *data, size_t size) {
    for (uint32_t code : kVideoCodes) {
        qvid_config_in in = {data, (uint32_t)size, code, {}};
        qvid_config_out out = {};
        const int32_t r = qvid_config_parser(&in, &out);
        if (r != QVID_CFG_OK && r != QVID_CFG_NEED_MORE && r != QVID_CFG_ERR_MALFORMED && r != QVID_CFG_ERR_ARG)
            broken("qvid_config_parser returned an undocumented result");
        if (r == QVID_CFG_OK && (out.width < 0 || out.height < 0)) broken("qvid_config_parser: negative dimensions");
        if ((r == QVID_CFG_ERR_MALFORMED) != (qcmn_config_error() != nullptr))
            broken("qvid_config_parser: a reason exactly with a malformed result");
    }
    for (uint32_t tag : kAudioTags) {
        qaud_config_in in = {data, (uint32_t)size, tag};
        qaud_config_out out = {};
        const int32_t r = qaud_config_parser(&in, &out);
        if (r != QAUD_CFG_OK && r != QAUD_CFG_ERR_MALFORMED && r != QAUD_CFG_ERR_ARG && r != QAUD_CFG_ERR_UNSUPPORTED)
            broken("qaud_config_parser returned an undocumented result");
        if ((r == QAUD_CFG_ERR_MALFORMED) != (qcmn_config_error() != nullptr))
            broken("qaud_config_parser: a reason exactly with a malformed result");
        if (r == QAUD_CFG_OK && (out.sample_rate <= 0 || out.channels < 0)) broken("qaud_config_parser: bad rate or channels");
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

int fuzzEbml(const uint8_t *data, size_t size) {
    // The memory reader and the byte converters over windows copied into
    // blocks of their exact length, so an overread reaches a redzone.
    // One block per window length, made once.
    static Exact windows[kMaxWindow + 1];
    if (!windows[0])
        for (size_t len = 0; len <= kMaxWindow; ++len) windows[len] = exact(len);
    for (int32_t i = 0; i < 256; ++i) gSink = gSink + (uint32_t)qmkvd_get_clz((uint8_t)i);
    for (size_t at = 0; at < size && at < kWindowPositions; ++at) {
        for (size_t len = 0; len <= kMaxWindow && at + len <= size; ++len) {
            const Exact &window = windows[len];
            if (len > 0) memcpy(window.get(), data + at, len);
            uint32_t id = 0;
            uint64_t sz = 0;
            if (qmkvd_ebml_get_id_len64_buff(window.get(), (int32_t)len, &id, &sz) > (int32_t)len)
                broken("qmkvd_ebml_get_id_len64_buff claims more bytes than it was given");
            if (len <= 8) gSink = gSink + (uint32_t)qmkvd_b2v_u64(window.get(), (int32_t)len);
            if (len <= 4) gSink = gSink + qmkvd_b2v_u32(window.get(), (int32_t)len);
        }
    }

    qmkv_test::MemoryFile in(copy(data, size));
    QCMN_MFAL_FP *fp = in.fp;
    if (fp == nullptr) return 0;
    int64_t fileSize = 0;
    in.mfal.getsize(fp, &fileSize);

    // The window view the parsers read through, over the same file.
    static const Exact viewBytes = exact(kViewWindow);
    qmkvd_window window;
    qmkvd_window_init(&window, viewBytes.get(), kViewWindow);
    qmkvd_window_io view;
    qmkvd_window_io_init_on(&view, &in.mfal, fp, &window);
    QCMN_MFAL_FP *viewFp = qmkvd_window_io_fp(&view);

    // Every file reader at each point of a descent that takes every element
    // for a parent, stepping one byte on a failure; the header read again
    // through the view must come out the same.
    int64_t pos = 0;
    for (int steps = 0; pos < (int64_t)size && steps < kMaxDescentSteps; ++steps) {
        uint32_t id32 = 0, size32 = 0, length = 0;
        uint64_t size64 = 0;
        // Each read starts at pos.
        auto at = [&] {
            in.mfal.setpos(fp, &pos);
            return &in.mfal;
        };
        qmkvd_ebml_get_len64(at(), fp, &size64);
        qmkvd_ebml_get_len32(at(), fp, &size32);
        qmkvd_ebml_get_len32_rel(at(), fp, &size32, &length);
        qmkvd_ebml_get_id_len32(at(), fp, &id32, &size32);
        const int64_t before = pos;
        const int32_t direct = qmkvd_ebml_get_id_len64(at(), fp, &id32, &size64);
        uint32_t viewId = 0;
        uint64_t viewSize = 0;
        int64_t viewPos = before;
        view.mfal.setpos(viewFp, &before);
        const int32_t viewed = qmkvd_ebml_get_id_len64(&view.mfal, viewFp, &viewId, &viewSize);
        in.mfal.getpos(fp, &pos);
        view.mfal.getpos(viewFp, &viewPos);
        if (viewed != direct || (direct == 0 && (viewId != id32 || viewSize != size64 || viewPos != pos)))
            broken("an EBML header read through the window view differs from the file's");
        if (direct != 0) pos = before + 1;
        else if (pos <= before) broken("an EBML header read did not move forward");
    }

    // The shared child walk with one of the flag combinations the parsers
    // use, picked by the last byte, over the file or through the view.
    const bool throughView = size > 0 && (data[size - 1] & 8);
    qmkvd_io io = {throughView ? &view.mfal : &in.mfal, throughView ? viewFp : fp};
    const uint32_t flags = size > 0 ? data[size - 1] & 7u : 0;
    WalkState w = {fileSize, 0, 0, flags};
    qmkvd_walk(&io, 0, (uint64_t)size, flags, walkChild, &w);
    return 0;
}

Entry entryByName(const char *name) {
    if (strcmp(name, "fuzz_core") == 0) return fuzzCore;
    if (strcmp(name, "fuzz_plugin") == 0) return fuzzPlugin;
    if (strcmp(name, "fuzz_config") == 0) return fuzzConfig;
    if (strcmp(name, "fuzz_ebml") == 0) return fuzzEbml;
    return nullptr;
}

void seekEverywhere(bool on) { gEverySeek = on; }

void silenceLogs() {
    __android_log_set_logger(discard);
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
}

}  // namespace qmkv_fuzz
