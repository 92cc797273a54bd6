// How many reads of the data source the frame path makes on real files:
// block headers, lacing and small frames come out of the stream's window,
// so a frame costs well under one read where it once cost five to thirteen.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <vector>

#include "demux/qmkvds.h"
#include "tests/support/corpus.h"
#include "tests/support/mkv_builder.h"

using namespace qmkv_test;

namespace {

struct CostCase {
    const char *file;
    double max_reads_per_frame;  // over all tracks, read one after the other
};

const CostCase kCosts[] = {
    {"opus.mka", 0.2},              // 20 ms frames, one track
    {"laced_vorbis.mka", 0.3},      // Xiph lacing
    {"laced_ebml_opus.mka", 0.3},   // EBML lacing
    {"mkvmerge_h264_aac.mkv", 1.2}, // H.264 read whole and rewritten in place
    {"vp8_vorbis.mkv", 1.3},
};

Bytes slurp(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

TEST(ReadCost, FramesCostLessThanARead) {
    QMKV_REQUIRE_CORPUS();
    for (const CostCase &c : kCosts) {
        SCOPED_TRACE(c.file);
        CoreFile f(slurp(corpusFile(c.file)));
        ASSERT_NE(nullptr, f.inst);
        const int before = f.file.mem.readCalls;
        uint64_t frames = 0;
        std::vector<uint8_t> buf(8 << 20);
        for (int t = 0; t < f.format.track_count; ++t) {
            qmkvds *s = qmkvds_open(f.inst, t, nullptr);
            ASSERT_NE(nullptr, s);
            uint32_t size = 0, key = 0;
            int64_t pts = 0, end = 0;
            while (qmkvds_get_frm(s, buf.data(), (uint32_t)buf.size(), &size, &pts, &end, &key) == 0) frames++;
            qmkvds_close(s);
        }
        ASSERT_GT(frames, 50u);
        const double perFrame = (double)(f.file.mem.readCalls - before) / (double)frames;
        EXPECT_LE(perFrame, c.max_reads_per_frame) << frames << " frames";
    }
}

}  // namespace

// Without cues the first crawl lists the Clusters with one small read per
// Cluster head, and every later seek of any track of the file reuses it.
TEST(ReadCost, SeekingWithoutCuesReadsEachClusterHeadOnceForAllTracks) {
    QMKV_REQUIRE_CORPUS();
    CoreFile f(slurp(corpusFile("mkvmerge_nocues.mkv")));
    ASSERT_NE(nullptr, f.inst);
    ASSERT_EQ(0, f.inst->found_cues);
    qmkvds *first = qmkvds_open(f.inst, 0, nullptr);
    ASSERT_NE(nullptr, first);
    int before = f.file.mem.readCalls;
    ASSERT_EQ(0, qmkvds_make_cluster_list(first));
    const int listReads = f.file.mem.readCalls - before;
    int clusters = 0;
    for (const qmkvd_cluster_node *n = f.inst->cluster_list; n != nullptr; n = n->next) clusters++;
    ASSERT_GT(clusters, 5);
    EXPECT_LE(listReads, clusters + 1);
    qmkvds_close(first);
    for (int t = 0; t < f.format.track_count; ++t) {
        qmkvds *s = qmkvds_open(f.inst, t, nullptr);
        ASSERT_NE(nullptr, s);
        before = f.file.mem.readCalls;
        const uint64_t target = (uint64_t)f.format.duration / 2;
        int64_t found = 0;
        ASSERT_EQ(0, qmkvds_seek(s, &target, &found, QMKVDS_SEEK_PREVIOUS));
        EXPECT_LT(f.file.mem.readCalls - before, clusters) << "track " << t << " lists the Clusters again";
        qmkvds_close(s);
    }
}
