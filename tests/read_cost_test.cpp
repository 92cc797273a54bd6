// How many reads of the data source the frame path makes on real files,
// every track pulled at once as a player pulls them, and how many bytes they
// ask for: block headers, lacing and small frames come out of the streams'
// windows, which share what they hold, so a frame costs well under one read
// where it once cost five to thirteen, and the file is asked for about once.
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
    double max_reads_per_frame;  // over all tracks, pulled interleaved
};

const CostCase kCosts[] = {
    {"opus.mka", 0.04},               // 20 ms frames, one track
    {"laced_vorbis.mka", 0.04},       // Xiph lacing
    {"laced_ebml_opus.mka", 0.04},    // EBML lacing
    {"mkvmerge_h264_aac.mkv", 0.05},  // H.264 read whole and rewritten in place
    {"vp8_vorbis.mkv", 0.07},
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
        uint64_t frames = 0, payload = 0;
        std::vector<uint8_t> buf(8 << 20);
        std::vector<qmkvds *> streams;
        std::vector<int64_t> last;
        for (int t = 0; t < f.format.track_count; ++t) {
            streams.push_back(qmkvds_open(f.inst, t, nullptr));
            ASSERT_NE(nullptr, streams.back());
            last.push_back(0);
        }
        f.file.mem.askedBytes = 0;
        // Always from the track whose last frame is earliest.
        for (size_t open = streams.size(); open > 0;) {
            size_t t = 0;
            while (streams[t] == nullptr) t++;
            for (size_t i = t + 1; i < streams.size(); ++i)
                if (streams[i] != nullptr && last[i] < last[t]) t = i;
            uint32_t size = 0, key = 0;
            int64_t end = 0;
            if (qmkvds_get_frm(streams[t], buf.data(), (uint32_t)buf.size(), &size, &last[t], &end, &key) == 0) {
                frames++;
                payload += size;
                continue;
            }
            qmkvds_close(streams[t]);
            streams[t] = nullptr;
            open--;
        }
        ASSERT_GT(frames, 50u);
        const double perFrame = (double)(f.file.mem.readCalls - before) / (double)frames;
        EXPECT_LE(perFrame, c.max_reads_per_frame) << frames << " frames";
        EXPECT_LE((double)f.file.mem.askedBytes, 1.05 * (double)f.file.mem.bytes().size()) << payload << " payload bytes";
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
