// Checks the generated corpus and the libavformat oracle, so that a broken
// generator (a codec ffmpeg silently dropped, a mkvmerge option that stopped
// doing what we rely on) fails here rather than as a puzzling demuxer test.
// These tests look at the files only through the oracle and a tiny EBML
// scanner of their own, never through the demuxer under test.
#include <gtest/gtest.h>

#include <stdint.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "tests/support/av_oracle.h"
#include "tests/support/corpus.h"

using namespace qmkv_test;

namespace {

using FileBytes = std::vector<uint8_t>;

struct Expected {
    const char *name;
    const char *codecs;  // the oracle's codec names, '+'-joined in stream order
    const char *kinds;   // v(ideo) a(udio) s(ubtitle) t (attachment), in stream order
};

const Expected kExpected[] = {
    {"h264_aac.mkv", "h264+aac", "va"},
    {"h264_aac_cues_front.mkv", "h264+aac", "va"},
    {"h264_aac_30s.mkv", "h264+aac", "va"},
    {"hevc_aac.mkv", "hevc+aac", "va"},
    {"vp8_vorbis.mkv", "vp8+vorbis", "va"},
    {"vp9_opus.webm", "vp9+opus", "va"},
    {"av1_opus.mkv", "av1+opus", "va"},
    {"mpeg4_mp3.mkv", "mpeg4+mp3", "va"},
    {"mpeg2_ac3.mkv", "mpeg2video+ac3", "va"},
    {"eac3.mka", "eac3", "a"},
    {"flac.mka", "flac", "a"},
    {"vorbis.mka", "vorbis", "a"},
    {"opus.mka", "opus", "a"},
    {"mp3.mka", "mp3", "a"},
    {"pcm_s16le.mka", "pcm_s16le", "a"},
    {"pcm_s24le.mka", "pcm_s24le", "a"},
    {"pcm_s32le.mka", "pcm_s32le", "a"},
    {"pcm_u8.mka", "pcm_u8", "a"},
    {"pcm_s16be.mka", "pcm_s16be", "a"},
    {"pcm_s24be.mka", "pcm_s24be", "a"},
    {"pcm_s32be.mka", "pcm_s32be", "a"},
    {"pcm_f32le.mka", "pcm_f32le", "a"},
    {"h264_srt.mkv", "h264+subrip", "vs"},
    {"h264_ass.mkv", "h264+ass", "vs"},
    {"tags_ffmpeg.mkv", "h264+aac", "va"},
    {"mkvmerge_meta.mkv", "h264+aac+none", "vat"},
    {"mkvmerge_h264_aac.mkv", "h264+aac", "va"},
    {"mkvmerge_h264_mp3.mkv", "h264+mp3", "va"},
    {"mkvmerge_nocues.mkv", "h264+aac", "va"},
    {"mkvmerge_blockgroups.mkv", "h264+aac", "va"},
    {"laced_vorbis.mka", "vorbis", "a"},
    {"laced_ebml_opus.mka", "opus", "a"},
    {"laced_xiph_ac3.mka", "ac3", "a"},
    {"zlib_aac_srt.mkv", "h264+aac+subrip", "vas"},
    {"hdrstrip_mpeg4.mkv", "mpeg4+mp3", "va"},
    {"hdrstrip_h264.mkv", "h264+aac", "va"},
    {"hdrstrip_mp3.mkv", "h264+mp3", "va"},
    {"colour_hdr.mkv", "h264+aac", "va"},
    {"theora_alac.mkv", "theora+alac", "va"},
};

FileBytes readBytes(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return FileBytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// --- a minimal EBML scanner, just enough to look at the file layout ---------

struct Element {
    uint32_t id = 0;
    size_t offset = 0;  // of the ID
    size_t data = 0;    // of the payload
    size_t end = 0;     // one past the payload
};

// Reads a variable-length integer; `keep_marker` for IDs. Returns its length, 0 if invalid.
int readVint(const FileBytes &b, size_t pos, bool keep_marker, uint64_t *value) {
    if (pos >= b.size() || b[pos] == 0) return 0;
    int len = 1;
    while (!(b[pos] & (0x80 >> (len - 1)))) ++len;
    if (pos + len > b.size()) return 0;
    uint64_t v = keep_marker ? b[pos] : (b[pos] & (0xFF >> len));
    for (int i = 1; i < len; ++i) v = (v << 8) | b[pos + i];
    *value = v;
    return len;
}

std::vector<Element> children(const FileBytes &b, size_t start, size_t end) {
    std::vector<Element> out;
    size_t pos = start;
    while (pos < end) {
        uint64_t id, size;
        const int il = readVint(b, pos, true, &id);
        const int sl = il ? readVint(b, pos + il, false, &size) : 0;
        if (!il || !sl) break;
        Element e;
        e.id = uint32_t(id);
        e.offset = pos;
        e.data = pos + il + sl;
        const bool unknown = size == (uint64_t(1) << (7 * sl)) - 1;
        e.end = unknown ? end : std::min<size_t>(end, e.data + size);
        out.push_back(e);
        pos = e.end;
    }
    return out;
}

const uint32_t kEbmlHeader = 0x1A45DFA3, kDocType = 0x4282, kSegment = 0x18538067;
const uint32_t kCluster = 0x1F43B675, kCues = 0x1C53BB6B, kSimpleBlock = 0xA3, kBlockGroup = 0xA0,
               kBlock = 0xA1;

struct Layout {
    std::string doc_type;
    size_t segment_data = 0;
    std::vector<Element> top;  // children of the first Segment
};

Layout layoutOf(const FileBytes &b) {
    Layout l;
    for (const Element &e : children(b, 0, b.size())) {
        if (e.id == kEbmlHeader) {
            for (const Element &h : children(b, e.data, e.end))
                if (h.id == kDocType) l.doc_type.assign(b.begin() + h.data, b.begin() + h.end);
        } else if (e.id == kSegment) {
            l.segment_data = e.data;
            l.top = children(b, e.data, e.end);
            break;
        }
    }
    return l;
}

size_t firstOffset(const Layout &l, uint32_t id) {
    for (const Element &e : l.top)
        if (e.id == id) return e.offset;
    return SIZE_MAX;
}

struct BlockInfo {
    uint64_t track;
    int lacing;  // 0 none, 1 Xiph, 2 fixed, 3 EBML
    bool in_group;
    size_t frames;
};

std::vector<BlockInfo> blocksOf(const FileBytes &b, const Layout &l) {
    std::vector<BlockInfo> out;
    auto add = [&](const Element &blk, bool group) {
        uint64_t track;
        const int n = readVint(b, blk.data, false, &track);
        if (!n || blk.data + n + 3 >= blk.end) return;
        const int lacing = (b[blk.data + n + 2] >> 1) & 3;
        out.push_back({track, lacing, group, lacing ? size_t(b[blk.data + n + 3]) + 1 : 1});
    };
    for (const Element &c : l.top) {
        if (c.id != kCluster) continue;
        for (const Element &e : children(b, c.data, c.end)) {
            if (e.id == kSimpleBlock) add(e, false);
            if (e.id == kBlockGroup)
                for (const Element &g : children(b, e.data, e.end))
                    if (g.id == kBlock) add(g, true);
        }
    }
    return out;
}

// Lacing kinds used by one track's blocks.
std::set<int> lacings(const std::vector<BlockInfo> &blocks, uint64_t track) {
    std::set<int> s;
    for (const BlockInfo &bi : blocks)
        if (bi.track == track) s.insert(bi.lacing);
    return s;
}

// ContentCompression elements (ID 0x5034) and the ContentCompAlgo (0x4254)
// each holds, found by a plain byte search (so it does not depend on
// walking the track headers right); -1 when the algorithm is left at its
// default. A hit counts only when its payload is exactly ContentCompAlgo
// and ContentCompSettings children, which frame data never mimics.
std::vector<int> compressionAlgos(const FileBytes &b) {
    std::vector<int> algos;
    for (size_t i = 0; i + 2 < b.size(); ++i) {
        if (b[i] != 0x50 || b[i + 1] != 0x34) continue;
        uint64_t size;
        const int sl = readVint(b, i + 2, false, &size);
        if (!sl || size == 0 || size > 64 || i + 2 + sl + size > b.size()) continue;
        const size_t data = i + 2 + sl, end = data + size;
        const std::vector<Element> kids = children(b, data, end);
        bool valid = !kids.empty() && kids.back().end == end;
        int algo = -1;
        for (const Element &k : kids) {
            if (k.id == 0x4254 && k.end - k.data == 1) algo = b[k.data];
            else if (k.id != 0x4255) valid = false;
        }
        if (valid) algos.push_back(algo);
    }
    return algos;
}

uint64_t uintOf(const FileBytes &b, const Element &e);
const Element *find(const std::vector<Element> &els, uint32_t id);

// Track number -> ContentCompAlgo of each track that has a
// ContentCompression, walking Tracks/TrackEntry/ContentEncodings; an
// algorithm left out is the default, 0 (zlib).
std::map<uint64_t, int> trackCompression(const FileBytes &b) {
    std::map<uint64_t, int> out;
    const Layout l = layoutOf(b);
    const Element *tracks = find(l.top, 0x1654AE6B);
    if (tracks == nullptr) return out;
    for (const Element &entry : children(b, tracks->data, tracks->end)) {
        if (entry.id != 0xAE) continue;
        const std::vector<Element> fields = children(b, entry.data, entry.end);
        const Element *number = find(fields, 0xD7), *encodings = find(fields, 0x6D80);
        if (number == nullptr || encodings == nullptr) continue;
        for (const Element &enc : children(b, encodings->data, encodings->end)) {
            const std::vector<Element> parts = children(b, enc.data, enc.end);
            const Element *comp = find(parts, 0x5034);
            if (comp == nullptr) continue;
            const std::vector<Element> settings = children(b, comp->data, comp->end);
            const Element *algo = find(settings, 0x4254);
            out[uintOf(b, *number)] = algo ? int(uintOf(b, *algo)) : 0;
        }
    }
    return out;
}

uint64_t uintOf(const FileBytes &b, const Element &e) {
    uint64_t v = 0;
    for (size_t i = e.data; i < e.end; ++i) v = (v << 8) | b[i];
    return v;
}

const Element *find(const std::vector<Element> &els, uint32_t id) {
    for (const Element &e : els)
        if (e.id == id) return &e;
    return nullptr;
}

// The element that starts at `offset`, if one does.
bool elementAt(const FileBytes &b, size_t offset, size_t end, Element *out) {
    std::vector<Element> one = children(b, offset, end);
    if (one.empty()) return false;
    *out = one.front();
    return true;
}

// Every SeekHead entry must point at an element of the ID it names, and
// every cue at a Cluster and, inside it, at a block of the cue's track.
void checkPositions(const FileBytes &b) {
    const Layout l = layoutOf(b);
    const size_t seg_end = l.top.empty() ? b.size() : l.top.back().end;
    for (const Element &head : l.top) {
        if (head.id != 0x114D9B74) continue;
        for (const Element &seek : children(b, head.data, head.end)) {
            if (seek.id != 0x4DBB) continue;  // CRC-32, Void
            const std::vector<Element> kids = children(b, seek.data, seek.end);
            const Element *id = find(kids, 0x53AB), *pos = find(kids, 0x53AC);
            ASSERT_TRUE(id && pos);
            uint64_t want = 0;
            for (size_t i = id->data; i < id->end; ++i) want = (want << 8) | b[i];
            Element target;
            ASSERT_TRUE(elementAt(b, l.segment_data + uintOf(b, *pos), seg_end, &target));
            EXPECT_EQ(want, target.id) << "SeekHead entry at " << seek.offset;
        }
    }
    const Element *cues = find(l.top, kCues);
    if (cues == nullptr) return;
    for (const Element &point : children(b, cues->data, cues->end)) {
        if (point.id != 0xBB) continue;
        for (const Element &tp : children(b, point.data, point.end)) {
            if (tp.id != 0xB7) continue;
            const std::vector<Element> kids = children(b, tp.data, tp.end);
            const Element *track = find(kids, 0xF7), *cpos = find(kids, 0xF1), *rpos = find(kids, 0xF0);
            ASSERT_TRUE(track && cpos);
            Element cluster;
            ASSERT_TRUE(elementAt(b, l.segment_data + uintOf(b, *cpos), seg_end, &cluster));
            ASSERT_EQ(kCluster, cluster.id) << "cue at " << point.offset;
            if (rpos == nullptr) continue;
            Element blk;
            ASSERT_TRUE(elementAt(b, cluster.data + uintOf(b, *rpos), cluster.end, &blk));
            if (blk.id == kBlockGroup) {
                const std::vector<Element> group = children(b, blk.data, blk.end);
                const Element *inner = find(group, kBlock);
                ASSERT_NE(nullptr, inner);
                blk = *inner;
            }
            ASSERT_TRUE(blk.id == kSimpleBlock || blk.id == kBlock) << "cue at " << point.offset;
            uint64_t block_track;
            ASSERT_NE(0, readVint(b, blk.data, false, &block_track));
            EXPECT_EQ(uintOf(b, *track), block_track) << "cue at " << point.offset;
        }
    }
}

std::string kindsOf(const AvFile &f) {
    std::string s;
    for (const AvStream &st : f.streams) s += "vasot"[std::min(st.media_type, 4)];
    return s;
}

size_t streamBytes(const std::vector<AvPacket> &packets, int stream) {
    size_t n = 0;
    for (const AvPacket &p : packets)
        if (p.stream == stream) n += p.data.size();
    return n;
}

std::string meta(const std::map<std::string, std::string> &m, const std::string &key) {
    auto it = m.find(key);
    return it == m.end() ? "<absent>" : it->second;
}

// --- the corpus as a whole ------------------------------------------------------

TEST(Corpus, ManifestListsExactlyTheExpectedFiles) {
    QMKV_REQUIRE_CORPUS();
    std::set<std::string> listed, expected;
    for (const CorpusEntry &e : corpusFiles()) {
        EXPECT_FALSE(e.description.empty()) << e.name;
        EXPECT_TRUE(listed.insert(e.name).second) << "listed twice: " << e.name;
    }
    for (const Expected &x : kExpected) expected.insert(x.name);
    EXPECT_EQ(expected, listed);
}

TEST(Corpus, EveryFileHasTheExpectedStreamsAndPackets) {
    QMKV_REQUIRE_CORPUS();
    for (const Expected &x : kExpected) {
        SCOPED_TRACE(x.name);
        const AvFile f = avOpen(corpusFile(x.name));
        if (!f.ok) continue;
        EXPECT_EQ("matroska,webm", f.format_name);
        EXPECT_EQ(x.codecs, f.codecSummary());
        EXPECT_EQ(x.kinds, kindsOf(f));
        EXPECT_GT(f.duration_us, 1000000);
        EXPECT_LT(f.duration_us, 31000000);

        const std::vector<AvPacket> packets = f.readAll();
        for (const AvStream &st : f.streams) {
            if (st.media_type == kAvVideo) {
                EXPECT_EQ(160, st.width);
                EXPECT_EQ(120, st.height);
            } else if (st.media_type == kAvAudio) {
                EXPECT_GE(st.sample_rate, 8000);
                EXPECT_GE(st.channels, 1);
            }
            if (st.media_type == kAvAttachment) continue;
            auto first = std::find_if(packets.begin(), packets.end(),
                                      [&](const AvPacket &p) { return p.stream == st.index; });
            ASSERT_NE(packets.end(), first) << "no packet in stream " << st.index;
            EXPECT_TRUE(first->key) << "stream " << st.index << " starts without a key frame";
            EXPECT_NE(kAvNoTime, first->pts_us);
        }
    }
}

// --- what individual files are there for ---------------------------------------

TEST(Corpus, CuesSitBeforeOrAfterTheClustersOrNowhere) {
    QMKV_REQUIRE_CORPUS();
    struct { const char *name; int where; } cases[] = {  // -1 before, 1 after, 0 none
        {"h264_aac.mkv", 1}, {"h264_aac_30s.mkv", 1}, {"h264_aac_cues_front.mkv", -1},
        {"mkvmerge_h264_aac.mkv", 1}, {"mkvmerge_nocues.mkv", 0}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const std::string path = corpusFile(c.name);
        const Layout l = layoutOf(readBytes(path));
        const size_t cues = firstOffset(l, kCues), cluster = firstOffset(l, kCluster);
        ASSERT_NE(SIZE_MAX, cluster);
        if (c.where == 0) {
            EXPECT_EQ(SIZE_MAX, cues);
        } else {
            ASSERT_NE(SIZE_MAX, cues);
            EXPECT_EQ(c.where < 0, cues < cluster);
        }
    }
}

TEST(Corpus, SeekHeadAndCuePositionsHitTheirTargets) {
    QMKV_REQUIRE_CORPUS();
    for (const Expected &x : kExpected) {
        SCOPED_TRACE(x.name);
        checkPositions(readBytes(corpusFile(x.name)));
    }
}

TEST(Corpus, DocTypes) {
    QMKV_REQUIRE_CORPUS();
    for (const Expected &x : kExpected) {
        const std::string name = x.name;
        const bool webm = name.size() > 5 && name.compare(name.size() - 5, 5, ".webm") == 0;
        EXPECT_EQ(webm ? "webm" : "matroska", layoutOf(readBytes(corpusFile(name))).doc_type) << name;
    }
}

TEST(Corpus, MkvmergeLacesAudio) {
    QMKV_REQUIRE_CORPUS();
    struct { const char *name; uint64_t track; int must; } cases[] = {
        {"laced_xiph_ac3.mka", 1, 1}, {"laced_ebml_opus.mka", 1, 3}, {"mkvmerge_h264_mp3.mkv", 2, 2},
        {"mkvmerge_h264_aac.mkv", 2, -1}, {"laced_vorbis.mka", 1, -1}, {"hdrstrip_mp3.mkv", 2, 2},
        {"zlib_aac_srt.mkv", 2, -1}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const FileBytes b = readBytes(corpusFile(c.name));
        const std::vector<BlockInfo> blocks = blocksOf(b, layoutOf(b));
        std::set<int> used = lacings(blocks, c.track);
        used.erase(0);
        EXPECT_FALSE(used.empty()) << "track " << c.track << " is not laced";
        // The oracle splits laces: one packet per frame (tracks are numbered
        // from 1 in stream order in these files).
        size_t frames = 0;
        for (const BlockInfo &bi : blocks)
            if (bi.track == c.track) frames += bi.frames;
        const AvFile f = avOpen(corpusFile(c.name));
        const std::vector<AvPacket> packets = f.readAll();
        EXPECT_EQ(frames, size_t(std::count_if(packets.begin(), packets.end(), [&](const AvPacket &p) {
                      return p.stream == int(c.track) - 1;
                  })));
        if (c.must > 0) {
            EXPECT_EQ(std::set<int>{c.must}, used);
        }
    }
    // ffmpeg never laces.
    const FileBytes b = readBytes(corpusFile("h264_aac.mkv"));
    for (const BlockInfo &bi : blocksOf(b, layoutOf(b))) ASSERT_EQ(0, bi.lacing);
}

TEST(Corpus, BlockGroupsFileHasNoSimpleBlocks) {
    QMKV_REQUIRE_CORPUS();
    const FileBytes b = readBytes(corpusFile("mkvmerge_blockgroups.mkv"));
    const std::vector<BlockInfo> blocks = blocksOf(b, layoutOf(b));
    ASSERT_FALSE(blocks.empty());
    for (const BlockInfo &bi : blocks) ASSERT_TRUE(bi.in_group);
}

TEST(Corpus, HeaderStrippingIsReallyWritten) {
    QMKV_REQUIRE_CORPUS();
    struct { const char *name; std::map<uint64_t, int> algos; } cases[] = {
        {"hdrstrip_h264.mkv", {{1, 3}}}, {"hdrstrip_mp3.mkv", {{2, 3}}}, {"hdrstrip_mpeg4.mkv", {{1, 3}}},
        {"zlib_aac_srt.mkv", {{2, 0}, {3, 0}}}, {"h264_aac.mkv", {}}, {"mkvmerge_h264_aac.mkv", {}}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const FileBytes b = readBytes(corpusFile(c.name));
        EXPECT_EQ(c.algos, trackCompression(b));
        // The same seen by a raw byte search for ContentCompression with
        // ContentCompAlgo 3, independent of the walk above.
        const std::vector<int> found = compressionAlgos(b);
        const bool stripped = !c.algos.empty() && c.algos.begin()->second == 3;
        EXPECT_EQ(stripped ? 1 : 0, std::count(found.begin(), found.end(), 3));
    }
}

// The header-stripping rewrite must change nothing but the storage: the
// oracle, which undoes the stripping, reads the very same frames and index.
TEST(Corpus, HeaderStrippedFilesCarryTheSourceFrames) {
    QMKV_REQUIRE_CORPUS();
    struct { const char *stripped, *source; } cases[] = {
        {"hdrstrip_h264.mkv", "mkvmerge_h264_aac.mkv"},
        {"hdrstrip_mp3.mkv", "mkvmerge_h264_mp3.mkv"},
        {"hdrstrip_mpeg4.mkv", "mpeg4_mp3.mkv"}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.stripped);
        const AvFile s = avOpen(corpusFile(c.stripped)), o = avOpen(corpusFile(c.source));
        ASSERT_TRUE(s.ok && o.ok);
        EXPECT_EQ(o.duration_us, s.duration_us);
        ASSERT_EQ(o.streams.size(), s.streams.size());
        for (size_t i = 0; i < o.streams.size(); ++i) {
            EXPECT_EQ(o.streams[i].extradata, s.streams[i].extradata) << i;
            // Seeking goes through the cues, whose positions were rewritten.
            for (int64_t t : {0, 700000, 1500000, 2600000}) {
                const AvPacket a = o.seekFirst(int(i), t), z = s.seekFirst(int(i), t);
                EXPECT_EQ(a.pts_us, z.pts_us) << "stream " << i << " seek to " << t;
                EXPECT_EQ(a.data, z.data) << "stream " << i << " seek to " << t;
            }
        }
        const std::vector<AvPacket> sp = s.readAll(), op = o.readAll();
        ASSERT_EQ(op.size(), sp.size());
        for (size_t i = 0; i < op.size(); ++i) {
            ASSERT_EQ(op[i].stream, sp[i].stream) << i;
            ASSERT_EQ(op[i].pts_us, sp[i].pts_us) << i;
            ASSERT_EQ(op[i].key, sp[i].key) << i;
            ASSERT_EQ(op[i].data, sp[i].data) << "packet " << i;
        }
    }
}

TEST(Corpus, PcmFilesHoldEverySample) {
    QMKV_REQUIRE_CORPUS();
    // Two seconds each: rate * channels * bytes per sample * 2.
    struct { const char *name; int rate, channels, bytes; } cases[] = {
        {"pcm_u8.mka", 8000, 1, 1},      {"pcm_s16le.mka", 44100, 2, 2}, {"pcm_s16be.mka", 22050, 2, 2},
        {"pcm_s24le.mka", 48000, 2, 3},  {"pcm_s24be.mka", 48000, 1, 3}, {"pcm_s32le.mka", 32000, 2, 4},
        {"pcm_s32be.mka", 16000, 2, 4},  {"pcm_f32le.mka", 44100, 2, 4}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const AvFile f = avOpen(corpusFile(c.name));
        ASSERT_TRUE(f.ok);
        EXPECT_EQ(c.rate, f.streams[0].sample_rate);
        EXPECT_EQ(c.channels, f.streams[0].channels);
        EXPECT_EQ(size_t(2) * c.rate * c.channels * c.bytes, streamBytes(f.readAll(), 0));
    }
}

TEST(Corpus, LongFileHasAKeyFrameEverySecond) {
    QMKV_REQUIRE_CORPUS();
    const AvFile f = avOpen(corpusFile("h264_aac_30s.mkv"));
    ASSERT_TRUE(f.ok);
    EXPECT_NEAR(30000000, f.duration_us, 100000);
    const std::vector<int64_t> keys = f.keyFrameTimesUs(0);
    ASSERT_GE(keys.size(), 30u);
    EXPECT_TRUE(std::is_sorted(keys.begin(), keys.end()));
    // ffmpeg shifts everything by the AAC priming delay, so the video
    // starts a little after 0.
    const int64_t start = keys.front();
    EXPECT_GE(start, 0);
    EXPECT_LT(start, 100000);
    const std::set<int64_t> key_set(keys.begin(), keys.end());
    for (int s = 0; s < 30; ++s) EXPECT_EQ(1u, key_set.count(start + s * 1000000)) << s;

    const AvPacket landed = f.seekFirst(0, start + 10500000);
    EXPECT_EQ(start + 10000000, landed.pts_us);
    EXPECT_TRUE(landed.key);
}

TEST(Corpus, SubtitlesCarryTheirText) {
    QMKV_REQUIRE_CORPUS();
    for (const char *name : {"h264_srt.mkv", "h264_ass.mkv", "zlib_aac_srt.mkv"}) {
        SCOPED_TRACE(name);
        const AvFile f = avOpen(corpusFile(name));
        ASSERT_TRUE(f.ok);
        const int sub = int(f.streams.size()) - 1;
        ASSERT_EQ(kAvSubtitle, f.streams[sub].media_type);
        std::vector<std::string> texts;
        std::vector<int64_t> times;
        for (const AvPacket &p : f.readAll())
            if (p.stream == sub) {
                texts.emplace_back(p.data.begin(), p.data.end());
                times.push_back(p.pts_us);
            }
        ASSERT_EQ(3u, texts.size());
        EXPECT_EQ((std::vector<int64_t>{500000, 1400000, 2300000}), times);
        EXPECT_NE(std::string::npos, texts[0].find("First")) << texts[0];
        EXPECT_NE(std::string::npos, texts[1].find("Second")) << texts[1];
    }
}

TEST(Corpus, TagsAndTitles) {
    QMKV_REQUIRE_CORPUS();
    const AvFile ff = avOpen(corpusFile("tags_ffmpeg.mkv"));
    ASSERT_TRUE(ff.ok);
    EXPECT_EQ("Corpus Title", meta(ff.metadata, "title"));
    EXPECT_EQ("Corpus Artist", meta(ff.metadata, "ARTIST"));
    EXPECT_EQ("Corpus Album", meta(ff.metadata, "ALBUM"));
    EXPECT_EQ("fre", meta(ff.streams[1].metadata, "language"));
    EXPECT_EQ("Main audio", meta(ff.streams[1].metadata, "title"));

    const AvFile mm = avOpen(corpusFile("mkvmerge_meta.mkv"));
    ASSERT_TRUE(mm.ok);
    EXPECT_EQ("Segment Title", meta(mm.metadata, "title"));
    EXPECT_EQ("Tag Artist", meta(mm.metadata, "ARTIST"));
    EXPECT_EQ("Test", meta(mm.metadata, "GENRE"));
    EXPECT_EQ("<absent>", meta(mm.metadata, "ALBUM"));  // the source's tags were dropped
    EXPECT_EQ("Picture", meta(mm.streams[0].metadata, "title"));
    EXPECT_EQ("ger", meta(mm.streams[1].metadata, "language"));
    EXPECT_EQ("notes.txt", meta(mm.streams[2].metadata, "filename"));
}

}  // namespace
