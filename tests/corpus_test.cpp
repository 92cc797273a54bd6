// Checks the generated corpus, so that a broken generator (a codec ffmpeg
// silently dropped, a mkvmerge option that stopped doing what we rely on)
// fails here rather than as a puzzling demuxer test, or not at all. These
// tests look at the files only through the libavformat oracle and a tiny
// EBML scanner of their own, never through the demuxer under test.
#include <gtest/gtest.h>

#include <stdint.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "tests/support/av_oracle.h"
#include "tests/support/corpus.h"

using namespace qmkv_test;

namespace {

using FileBytes = std::vector<uint8_t>;

// --- a minimal EBML scanner, just enough to look at the file layout ---------

struct Element {
    uint32_t id = 0;
    size_t offset = 0, data = 0, end = 0;  // of the ID, of the payload, one past the payload
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

// Every element reached from `from` (the whole file by default) through
// children of the IDs in `path`, in file order.
std::vector<Element> under(const FileBytes &b, std::initializer_list<uint32_t> path, Element from = {}) {
    if (from.end == 0) from.end = b.size();
    std::vector<Element> parents = {from};
    for (uint32_t want : path) {
        std::vector<Element> next;
        for (const Element &p : parents) {
            for (size_t pos = p.data; pos < p.end;) {
                uint64_t id, size;
                const int il = readVint(b, pos, true, &id);
                const int sl = il ? readVint(b, pos + il, false, &size) : 0;
                if (!il || !sl) break;
                const Element e = {uint32_t(id), pos, pos + il + sl,
                                   size == (uint64_t(1) << (7 * sl)) - 1 ? p.end
                                                                         : std::min<size_t>(p.end, pos + il + sl + size)};
                if (e.id == want) next.push_back(e);
                pos = e.end;
            }
        }
        parents = next;
    }
    return parents;
}

uint64_t uintOf(const FileBytes &b, const Element &e) {
    uint64_t v = 0;
    for (size_t i = e.data; i < e.end; ++i) v = (v << 8) | b[i];
    return v;
}

const uint32_t kSegment = 0x18538067, kCluster = 0x1F43B675, kCues = 0x1C53BB6B;

TEST(Corpus, EveryExpectedFileHasItsDocTypeAndStreams) {
    QMKV_REQUIRE_CORPUS();
    std::set<std::string> listed, expected;
    for (const std::string &name : corpusFiles()) EXPECT_TRUE(listed.insert(name).second) << "listed twice: " << name;
    for (const KnownFile &x : kKnownFiles) expected.insert(x.name);
    EXPECT_EQ(expected, listed);

    for (const KnownFile &x : kKnownFiles) {
        SCOPED_TRACE(x.name);
        const std::string name = x.name;
        const FileBytes b = readBytes(corpusFile(name));
        const std::vector<Element> doc = under(b, {0x1A45DFA3, 0x4282});
        ASSERT_EQ(1u, doc.size());
        // GStreamer (and long_doctype.mkv) pad the text with zero bytes.
        const std::string text(b.begin() + doc[0].data, b.begin() + doc[0].end);
        const bool gstreamer = name.find("gst_") != std::string::npos && name.find("_cues") == std::string::npos;
        EXPECT_EQ(gstreamer || name == "long_doctype.mkv", text.back() == '\0');
        EXPECT_EQ(name.find(".webm") != std::string::npos ? "webm" : "matroska", text.substr(0, text.find('\0')));

        const AvFile f = avOpen(corpusFile(name));
        ASSERT_TRUE(f.ok);
        EXPECT_EQ(x.codecs, f.codecSummary());
        std::string kinds;
        for (const AvStream &st : f.streams) kinds += "vasot"[std::min(st.media_type, 4)];
        EXPECT_EQ(x.kinds, kinds);
    }
}

TEST(Corpus, LacingBlockGroupsCompressionAndFrontCuesAreReallyWritten) {
    QMKV_REQUIRE_CORPUS();
    // lacing: the one kind a track's laced blocks use (1 Xiph, 2 fixed, 3 EBML), -1 any, 0 none.
    struct { const char *name; uint64_t track; int lacing; } cases[] = {
        {"laced_xiph_ac3.mka", 1, 1}, {"laced_ebml_opus.mka", 1, 3}, {"mkvmerge_h264_mp3.mkv", 2, 2},
        {"mkvmerge_h264_aac.mkv", 2, -1}, {"laced_vorbis.mka", 1, -1}, {"hdrstrip_mp3.mkv", 2, 2},
        {"zlib_aac_srt.mkv", 2, -1}, {"h264_aac.mkv", 2, 0} /* ffmpeg never laces */};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const FileBytes b = readBytes(corpusFile(c.name));
        std::set<int> used;
        size_t frames = 0;
        std::vector<Element> blocks = under(b, {kSegment, kCluster, 0xA3});
        for (const Element &grouped : under(b, {kSegment, kCluster, 0xA0, 0xA1})) blocks.push_back(grouped);
        for (const Element &blk : blocks) {
            uint64_t track;
            const int n = readVint(b, blk.data, false, &track);
            if (!n || track != c.track || blk.data + n + 3 >= blk.end) continue;
            const int lacing = (b[blk.data + n + 2] >> 1) & 3;
            if (lacing) used.insert(lacing);
            frames += lacing ? b[blk.data + n + 3] + 1u : 1u;
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
    // ffmpeg's reserved index space puts the Cues before the first Cluster.
    const FileBytes front = readBytes(corpusFile("h264_aac_cues_front.mkv"));
    const std::vector<Element> cues = under(front, {kSegment, kCues}), clusters = under(front, {kSegment, kCluster});
    ASSERT_TRUE(!cues.empty() && !clusters.empty());
    EXPECT_LT(cues[0].offset, clusters[0].offset);
    const FileBytes groups = readBytes(corpusFile("mkvmerge_blockgroups.mkv"));
    EXPECT_TRUE(under(groups, {kSegment, kCluster, 0xA3}).empty());
    EXPECT_FALSE(under(groups, {kSegment, kCluster, 0xA0, 0xA1}).empty());

    // Track number -> ContentCompAlgo (left out: 0, zlib).
    struct { const char *name; std::map<uint64_t, uint64_t> algos; } compressed[] = {
        {"hdrstrip_h264.mkv", {{1, 3}}}, {"hdrstrip_mp3.mkv", {{2, 3}}}, {"hdrstrip_mpeg4.mkv", {{1, 3}}},
        {"zlib_aac_srt.mkv", {{2, 0}, {3, 0}}}, {"h264_aac.mkv", {}}};
    for (const auto &c : compressed) {
        const FileBytes b = readBytes(corpusFile(c.name));
        std::map<uint64_t, uint64_t> algos;
        for (const Element &entry : under(b, {kSegment, 0x1654AE6B, 0xAE})) {
            const std::vector<Element> comp = under(b, {0x6D80, 0x6240, 0x5034}, entry);
            if (comp.empty()) continue;
            const std::vector<Element> algo = under(b, {0x4254}, comp[0]);
            algos[uintOf(b, under(b, {0xD7}, entry).at(0))] = algo.empty() ? 0 : uintOf(b, algo[0]);
        }
        EXPECT_EQ(c.algos, algos) << c.name;
    }
}

}  // namespace
