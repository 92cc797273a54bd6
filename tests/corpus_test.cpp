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
    {"h264_aac.mkv", "h264+aac", "va"}, {"h264_aac_cues_front.mkv", "h264+aac", "va"},
    {"h264_aac_30s.mkv", "h264+aac", "va"}, {"hevc_aac.mkv", "hevc+aac", "va"}, {"h264_uhd.mkv", "h264", "v"},
    {"vp8_vorbis.mkv", "vp8+vorbis", "va"},
    {"vp9_opus.webm", "vp9+opus", "va"}, {"av1_opus.mkv", "av1+opus", "va"}, {"mpeg4_mp3.mkv", "mpeg4+mp3", "va"},
    {"mpeg2_ac3.mkv", "mpeg2video+ac3", "va"}, {"eac3.mka", "eac3", "a"}, {"flac.mka", "flac", "a"},
    {"vorbis.mka", "vorbis", "a"}, {"opus.mka", "opus", "a"}, {"mp3.mka", "mp3", "a"},
    {"pcm_s16le.mka", "pcm_s16le", "a"}, {"pcm_s24le.mka", "pcm_s24le", "a"}, {"pcm_s32le.mka", "pcm_s32le", "a"},
    {"pcm_u8.mka", "pcm_u8", "a"}, {"pcm_s16be.mka", "pcm_s16be", "a"}, {"pcm_s24be.mka", "pcm_s24be", "a"},
    {"pcm_s32be.mka", "pcm_s32be", "a"}, {"pcm_f32le.mka", "pcm_f32le", "a"}, {"h264_srt.mkv", "h264+subrip", "vs"},
    {"h264_ass.mkv", "h264+ass", "vs"}, {"tags_ffmpeg.mkv", "h264+aac", "va"},
    {"mkvmerge_meta.mkv", "h264+aac+none", "vat"}, {"mkvmerge_h264_aac.mkv", "h264+aac", "va"},
    {"mkvmerge_h264_mp3.mkv", "h264+mp3", "va"}, {"mkvmerge_nocues.mkv", "h264+aac", "va"},
    {"mkvmerge_blockgroups.mkv", "h264+aac", "va"}, {"laced_vorbis.mka", "vorbis", "a"},
    {"laced_ebml_opus.mka", "opus", "a"}, {"laced_xiph_ac3.mka", "ac3", "a"},
    {"zlib_aac_srt.mkv", "h264+aac+subrip", "vas"}, {"hdrstrip_mpeg4.mkv", "mpeg4+mp3", "va"},
    {"hdrstrip_h264.mkv", "h264+aac", "va"}, {"hdrstrip_mp3.mkv", "h264+mp3", "va"},
    {"colour_hdr.mkv", "h264+aac", "va"}, {"theora_alac.mkv", "theora+alac", "va"},
    {"mkvmerge_mono.mka", "opus+pcm_s16le+eac3", "aaa"}, {"gst_h264_aac.mkv", "h264+aac", "va"},
    {"gst_hevc_mp3.mkv", "hevc+mp3", "va"}, {"gst_vp8_vorbis.mkv", "vp8+vorbis", "va"},
    {"gst_vp9_opus.mkv", "vp9+opus", "va"}, {"gst_theora_flac.mkv", "theora+flac", "va"},
    {"gst_ac3.mka", "ac3", "a"}, {"gst_pcm.mka", "pcm_s16le", "a"}, {"long_doctype.mkv", "h264+aac", "va"},
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

// The whole file as the parent of its top-level elements.
Element fileOf(const FileBytes &b) {
    Element e;
    e.end = b.size();
    return e;
}

// The children of `parent`, clipped to its end.
std::vector<Element> kidsOf(const FileBytes &b, const Element &parent) {
    std::vector<Element> out;
    size_t pos = parent.data;
    const size_t end = parent.end;
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

// Every element reached from `parents` through children of the IDs in `path`, in file order.
std::vector<Element> under(const FileBytes &b, std::vector<Element> parents, std::initializer_list<uint32_t> path) {
    for (uint32_t id : path) {
        std::vector<Element> next;
        for (const Element &p : parents)
            for (const Element &k : kidsOf(b, p))
                if (k.id == id) next.push_back(k);
        parents = next;
    }
    return parents;
}

// The first child of `parent` with ID `id`; id 0 when there is none.
Element child(const FileBytes &b, const Element &parent, uint32_t id) {
    const std::vector<Element> all = under(b, {parent}, {id});
    return all.empty() ? Element() : all.front();
}

uint64_t uintOf(const FileBytes &b, const Element &e) {
    uint64_t v = 0;
    for (size_t i = e.data; i < e.end; ++i) v = (v << 8) | b[i];
    return v;
}

const uint32_t kSegment = 0x18538067, kCluster = 0x1F43B675, kCues = 0x1C53BB6B, kSimpleBlock = 0xA3,
               kBlockGroup = 0xA0, kBlock = 0xA1;

struct BlockInfo {
    uint64_t track;
    int lacing;  // 0 none, 1 Xiph, 2 fixed, 3 EBML
    bool in_group;
    size_t frames;
};

std::vector<BlockInfo> blocksOf(const FileBytes &b) {
    std::vector<BlockInfo> out;
    const Element file = fileOf(b);
    for (bool group : {false, true}) {
        for (const Element &blk : group ? under(b, {file}, {kSegment, kCluster, kBlockGroup, kBlock})
                                        : under(b, {file}, {kSegment, kCluster, kSimpleBlock})) {
            uint64_t track;
            const int n = readVint(b, blk.data, false, &track);
            if (!n || blk.data + n + 3 >= blk.end) continue;
            const int lacing = (b[blk.data + n + 2] >> 1) & 3;
            out.push_back({track, lacing, group, lacing ? size_t(b[blk.data + n + 3]) + 1 : 1});
        }
    }
    return out;
}

// Track number -> ContentCompAlgo of each track that has a ContentCompression; an algorithm left out is the
// default, 0 (zlib).
std::map<uint64_t, int> trackCompression(const FileBytes &b) {
    std::map<uint64_t, int> out;
    for (const Element &entry : under(b, {fileOf(b)}, {kSegment, 0x1654AE6B, 0xAE})) {
        const std::vector<Element> comp = under(b, {entry}, {0x6D80, 0x6240, 0x5034});
        if (comp.empty()) continue;
        const Element algo = child(b, comp.front(), 0x4254);
        out[uintOf(b, child(b, entry, 0xD7))] = algo.id ? int(uintOf(b, algo)) : 0;
    }
    return out;
}

// The element that starts at `offset` inside `parent`; id 0 when none does.
Element elementAt(const FileBytes &b, const Element &parent, uint64_t offset) {
    Element from = parent;
    from.data = parent.data + offset;
    const std::vector<Element> one = kidsOf(b, from);
    return one.empty() ? Element() : one.front();
}

// Every SeekHead entry must point at an element of the ID it names, and
// every cue at a Cluster and, inside it, at a block of the cue's track.
void checkPositions(const FileBytes &b) {
    const Element seg = child(b, fileOf(b), kSegment);
    for (const Element &seek : under(b, {seg}, {0x114D9B74, 0x4DBB})) {
        const Element id = child(b, seek, 0x53AB), pos = child(b, seek, 0x53AC);
        ASSERT_TRUE(id.id && pos.id);
        EXPECT_EQ(uintOf(b, id), elementAt(b, seg, uintOf(b, pos)).id) << "SeekHead entry at " << seek.offset;
    }
    for (const Element &tp : under(b, {seg}, {kCues, 0xBB, 0xB7})) {
        const Element track = child(b, tp, 0xF7), cpos = child(b, tp, 0xF1), rpos = child(b, tp, 0xF0);
        ASSERT_TRUE(track.id && cpos.id);
        const Element cluster = elementAt(b, seg, uintOf(b, cpos));
        ASSERT_EQ(kCluster, cluster.id) << "cue at " << tp.offset;
        if (!rpos.id) continue;
        Element blk = elementAt(b, cluster, uintOf(b, rpos));
        if (blk.id == kBlockGroup) blk = child(b, blk, kBlock);
        ASSERT_TRUE(blk.id == kSimpleBlock || blk.id == kBlock) << "cue at " << tp.offset;
        uint64_t block_track;
        ASSERT_NE(0, readVint(b, blk.data, false, &block_track));
        EXPECT_EQ(uintOf(b, track), block_track) << "cue at " << tp.offset;
    }
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

TEST(Corpus, EveryFileHasTheExpectedLayoutStreamsAndPackets) {
    QMKV_REQUIRE_CORPUS();
    for (const Expected &x : kExpected) {
        SCOPED_TRACE(x.name);
        const std::string name = x.name;
        const FileBytes b = readBytes(corpusFile(name));
        const bool webm = name.size() > 5 && name.compare(name.size() - 5, 5, ".webm") == 0;
        const Element doc_type = child(b, child(b, fileOf(b), 0x1A45DFA3), 0x4282);
        // GStreamer (and long_doctype.mkv) pad the text with zero bytes.
        std::string doc(b.begin() + doc_type.data, b.begin() + doc_type.end);
        if (name.rfind("gst_", 0) == 0 || name == "long_doctype.mkv") {
            EXPECT_EQ('\0', doc.back());
        }
        EXPECT_EQ(webm ? "webm" : "matroska", doc.substr(0, doc.find('\0')));
        checkPositions(b);

        const AvFile f = avOpen(corpusFile(name));
        if (!f.ok) continue;
        EXPECT_EQ("matroska,webm", f.format_name);
        EXPECT_EQ(x.codecs, f.codecSummary());
        std::string kinds;
        for (const AvStream &st : f.streams) kinds += "vasot"[std::min(st.media_type, 4)];
        EXPECT_EQ(x.kinds, kinds);
        EXPECT_GT(f.duration_us, 1000000);
        EXPECT_LT(f.duration_us, 31000000);

        const std::vector<AvPacket> packets = f.readAll();
        for (const AvStream &st : f.streams) {
            if (st.media_type == kAvVideo) {
                const bool uhd = name == "h264_uhd.mkv";
                EXPECT_EQ(uhd ? 3840 : 160, st.width);
                EXPECT_EQ(uhd ? 2160 : 120, st.height);
            } else if (st.media_type == kAvAudio) {
                EXPECT_GE(st.sample_rate, 8000);
                EXPECT_GE(st.channels, 1);
            }
            if (st.media_type == kAvAttachment) continue;
            auto first = std::find_if(packets.begin(), packets.end(),
                                      [&](const AvPacket &p) { return p.stream == st.index; });
            ASSERT_NE(packets.end(), first) << "no packet in stream " << st.index;
            // GStreamer leaves the key flag off the frames of some audio codecs.
            const bool gstAudio = name.rfind("gst_", 0) == 0 && st.media_type == kAvAudio;
            EXPECT_TRUE(first->key || gstAudio) << "stream " << st.index << " starts without a key frame";
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
        const FileBytes b = readBytes(corpusFile(c.name));
        const Element seg = child(b, fileOf(b), kSegment);
        const Element cues = child(b, seg, kCues), cluster = child(b, seg, kCluster);
        ASSERT_EQ(kCluster, cluster.id);
        ASSERT_EQ(c.where != 0, cues.id == kCues);
        EXPECT_EQ(c.where < 0, c.where != 0 && cues.offset < cluster.offset);
    }
}

TEST(Corpus, LacingAndBlockGroupsAreReallyWritten) {
    QMKV_REQUIRE_CORPUS();
    // lacing: the one kind a track's laced blocks use, -1 any, 0 none.
    struct { const char *name; uint64_t track; int lacing; } cases[] = {
        {"laced_xiph_ac3.mka", 1, 1}, {"laced_ebml_opus.mka", 1, 3}, {"mkvmerge_h264_mp3.mkv", 2, 2},
        {"mkvmerge_h264_aac.mkv", 2, -1}, {"laced_vorbis.mka", 1, -1}, {"hdrstrip_mp3.mkv", 2, 2},
        {"zlib_aac_srt.mkv", 2, -1}, {"h264_aac.mkv", 2, 0} /* ffmpeg never laces */};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        std::set<int> used;
        size_t frames = 0;
        for (const BlockInfo &bi : blocksOf(readBytes(corpusFile(c.name)))) {
            if (bi.track != c.track) continue;
            if (bi.lacing) used.insert(bi.lacing);
            frames += bi.frames;
        }
        if (c.lacing >= 0) {
            EXPECT_EQ(c.lacing ? std::set<int>{c.lacing} : std::set<int>{}, used);
        } else {
            EXPECT_FALSE(used.empty()) << "track " << c.track << " is not laced";
        }
        // The oracle splits laces: one packet per frame (tracks are numbered
        // from 1 in stream order in these files).
        const std::vector<AvPacket> packets = avOpen(corpusFile(c.name)).readAll();
        EXPECT_EQ(frames, size_t(std::count_if(packets.begin(), packets.end(),
                                               [&](const AvPacket &p) { return p.stream == int(c.track) - 1; })));
    }
    const std::vector<BlockInfo> blocks = blocksOf(readBytes(corpusFile("mkvmerge_blockgroups.mkv")));
    ASSERT_FALSE(blocks.empty());
    for (const BlockInfo &bi : blocks) ASSERT_TRUE(bi.in_group);
}

TEST(Corpus, HeaderStrippingIsReallyWritten) {
    QMKV_REQUIRE_CORPUS();
    struct { const char *name; std::map<uint64_t, int> algos; } cases[] = {
        {"hdrstrip_h264.mkv", {{1, 3}}}, {"hdrstrip_mp3.mkv", {{2, 3}}}, {"hdrstrip_mpeg4.mkv", {{1, 3}}},
        {"zlib_aac_srt.mkv", {{2, 0}, {3, 0}}}, {"h264_aac.mkv", {}}, {"mkvmerge_h264_aac.mkv", {}}};
    for (const auto &c : cases) EXPECT_EQ(c.algos, trackCompression(readBytes(corpusFile(c.name)))) << c.name;
}

// The header-stripping rewrite must change nothing but the storage: the
// oracle, which undoes the stripping, reads the very same frames and index.
TEST(Corpus, HeaderStrippedFilesCarryTheSourceFrames) {
    QMKV_REQUIRE_CORPUS();
    struct { const char *stripped, *source; } cases[] = {{"hdrstrip_h264.mkv", "mkvmerge_h264_aac.mkv"},
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
            ASSERT_TRUE(op[i].stream == sp[i].stream && op[i].pts_us == sp[i].pts_us && op[i].key == sp[i].key &&
                        op[i].data == sp[i].data)
                << "packet " << i;
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
        size_t bytes = 0;
        for (const AvPacket &p : f.readAll()) bytes += p.data.size();
        EXPECT_EQ(size_t(2) * c.rate * c.channels * c.bytes, bytes);
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
    // stream -1: the file's own metadata.
    struct { const char *file; int stream; const char *key, *value; } cases[] = {
        {"tags_ffmpeg.mkv", -1, "title", "Corpus Title"}, {"tags_ffmpeg.mkv", -1, "ARTIST", "Corpus Artist"},
        {"tags_ffmpeg.mkv", -1, "ALBUM", "Corpus Album"}, {"tags_ffmpeg.mkv", 1, "language", "fre"},
        {"tags_ffmpeg.mkv", 1, "title", "Main audio"}, {"mkvmerge_meta.mkv", -1, "title", "Segment Title"},
        {"mkvmerge_meta.mkv", -1, "ARTIST", "Tag Artist"}, {"mkvmerge_meta.mkv", -1, "GENRE", "Test"},
        {"mkvmerge_meta.mkv", -1, "ALBUM", "<absent>"},  // the source's tags were dropped
        {"mkvmerge_meta.mkv", 0, "title", "Picture"}, {"mkvmerge_meta.mkv", 1, "language", "ger"},
        {"mkvmerge_meta.mkv", 2, "filename", "notes.txt"}};
    for (const auto &c : cases) {
        const AvFile f = avOpen(corpusFile(c.file));
        ASSERT_TRUE(f.ok && c.stream < int(f.streams.size())) << c.file;
        const std::map<std::string, std::string> &m = c.stream < 0 ? f.metadata : f.streams[c.stream].metadata;
        const auto it = m.find(c.key);
        EXPECT_EQ(c.value, it == m.end() ? "<absent>" : it->second) << c.file << " " << c.stream << " " << c.key;
    }
}

}  // namespace
