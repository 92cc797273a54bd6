// How many reads of the data source the frame path makes on real files,
// every track pulled at once as a player pulls them, and how many bytes they
// ask for: block headers, lacing and small frames come out of the streams'
// windows, which share what they hold, so a frame costs well under one read
// where it once cost five to thirteen, and the file is asked for about once.
#include <gtest/gtest.h>

#include <vector>

#include "demux/qmkvds.h"
#include "tests/support/corpus.h"
#include "tests/support/mkv_builder.h"
#include "tests/support/plugin_run.h"

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

TEST(ReadCost, FramesCostLessThanARead) {
    QMKV_REQUIRE_CORPUS();
    for (const CostCase &c : kCosts) {
        SCOPED_TRACE(c.file);
        CoreFile f(readBytes(corpusFile(c.file)));
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

struct OpenCase {
    const char *file;
    int max_core_reads;    // qmkvd_create
    int max_plugin_reads;  // sniff, create, the file's and every track's format
};

// Every read at open is a call into another process on a device. The head
// comes through one window: a few reads for the head, one or two for what a
// SeekHead points at near the end of the file. Read field by field, these
// files cost 140 to 220.
const OpenCase kOpens[] = {
    {"h264_aac.mkv", 4, 6},             // ffmpeg: Cues and Tags at the end
    {"mkvmerge_h264_aac.mkv", 4, 6},    // mkvmerge: Void between SeekHead and Info
    {"h264_aac_cues_front.mkv", 4, 6},  // Cues before the Clusters
    {"vp8_vorbis.mkv", 6, 8},           // Vorbis headers in CodecPrivate
    {"gst_h264_aac.mkv", 4, 6},         // GStreamer
};

TEST(ReadCost, TheOpenReadsTheHeadInAFewReads) {
    QMKV_REQUIRE_CORPUS();
    for (const OpenCase &c : kOpens) {
        SCOPED_TRACE(c.file);
        const Bytes bytes = readBytes(corpusFile(c.file));
        CoreFile f(bytes);
        ASSERT_NE(nullptr, f.inst);
        EXPECT_LE(f.file.mem.readCalls, c.max_core_reads);
        PluginRun plugin(bytes);
        ASSERT_NE(nullptr, plugin.ex);
        EXPECT_LE(plugin.memory->readCalls, c.max_plugin_reads);
    }
}

// Without Cues the open walks every Cluster head, one small read each (the
// bytes matter there too), and the rest of the open costs a few reads. The
// first crawl lists the Clusters with one small read per Cluster head, and
// every later seek of any track of the file reuses the list.
TEST(ReadCost, WithoutCuesEachClusterHeadIsReadOnceAtOpenAndOnceForAllSeeks) {
    QMKV_REQUIRE_CORPUS();
    CoreFile f(readBytes(corpusFile("mkvmerge_nocues.mkv")));
    ASSERT_NE(nullptr, f.inst);
    ASSERT_EQ(0, f.inst->found_cues);
    const int openReads = f.file.mem.readCalls;
    const uint64_t openBytes = f.file.mem.askedBytes;
    qmkvds *first = qmkvds_open(f.inst, 0, nullptr);
    ASSERT_NE(nullptr, first);
    const int before = f.file.mem.readCalls;
    ASSERT_EQ(0, qmkvds_make_cluster_list(first));
    const int listReads = f.file.mem.readCalls - before;
    qmkvds_close(first);
    int clusters = 0;
    for (const qmkvd_cluster_node *n = f.inst->cluster_list; n != nullptr; n = n->next) clusters++;
    ASSERT_GT(clusters, 5);
    EXPECT_LE(openReads, clusters + 4);
    EXPECT_LE(openBytes, 12u * (uint64_t)clusters + 2048u);
    EXPECT_LE(listReads, clusters + 1);
    for (int t = 0; t < f.format.track_count; ++t) {
        qmkvds *s = qmkvds_open(f.inst, t, nullptr);
        ASSERT_NE(nullptr, s);
        const int seekBefore = f.file.mem.readCalls;
        const uint64_t target = (uint64_t)f.format.duration / 2;
        int64_t found = 0;
        ASSERT_EQ(0, qmkvds_seek(s, &target, &found, QMKVDS_SEEK_PREVIOUS));
        EXPECT_LT(f.file.mem.readCalls - seekBefore, clusters) << "track " << t << " lists the Clusters again";
        qmkvds_close(s);
    }
}

// With Cues a seek reads the Cluster a cue names through the stream's
// window: one fill holds the Cluster's head and its first blocks, so a seek
// and the frame there cost about one read (read field by field, five).
TEST(ReadCost, WithCuesASeekAndItsFrameCostAboutOneRead) {
    QMKV_REQUIRE_CORPUS();
    for (const char *file : {"h264_aac.mkv", "vp8_vorbis.mkv"}) {
        SCOPED_TRACE(file);
        CoreFile f(readBytes(corpusFile(file)));
        ASSERT_TRUE(f.inst != nullptr && f.inst->found_cues);
        qmkvds *s = qmkvds_open(f.inst, 0, nullptr);
        ASSERT_NE(nullptr, s);
        std::vector<uint8_t> buf(8 << 20);
        const int before = f.file.mem.readCalls;
        for (uint64_t i = 0; i < 20; ++i) {
            const uint64_t target = (uint64_t)f.format.duration * (i * 7 % 20) / 20;
            uint32_t size = 0;
            ASSERT_EQ(0, qmkvds_seek(s, &target, nullptr, QMKVDS_SEEK_PREVIOUS));
            ASSERT_EQ(0, qmkvds_get_frm(s, buf.data(), (uint32_t)buf.size(), &size, nullptr, nullptr, nullptr));
        }
        EXPECT_LE(f.file.mem.readCalls - before, 25) << "20 seeks and their frames";
        qmkvds_close(s);
    }
}

}  // namespace
