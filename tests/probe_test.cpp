// qmkvprobe run as a person runs it: the built tool on files it must refuse,
// a damaged file, and what it says about each track for a device.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/corpus.h"
#include "tests/support/mkv_builder.h"
#include "tests/support/probe_run.h"
#include "tests/support/temp_dir.h"

using namespace qmkv_test;

namespace {

TEST(Probe, RefusesWhatItCannotReadAndNeverAborts) {
    TempDir d;
    writeText(d.path + "/empty.mkv", "");
    writeText(d.path + "/locked.mkv", std::string(200, 'x'));
    chmod((d.path + "/locked.mkv").c_str(), 0);
    // A Cluster of zero bytes: the formats are there, no track's stream opens.
    const Bytes damaged = cat({file({segmentInfo(), tracks({trackEntry(1, 2, "A_MPEG/L3"), trackEntry(2, 2, "A_AC3")}),
                                     el(mkv::Cluster, Bytes(16, 0))}),
                               el(mkv::Void, Bytes(128, 0))});
    writeText(d.path + "/bad_cluster.mka", std::string(damaged.begin(), damaged.end()));
    std::vector<ProbeRun> runs = {
        {"--help", 0, {"usage: qmkvprobe [--core]", "[--device LIST] [--map OUT.svg|OUT.png] [--log] FILE", "qmkvprobe --library DIR"}, {}},
        {d.path, 1, {}, {d.path + ": is a directory"}},
        {d.path + "/empty.mkv", 1, {}, {"empty.mkv: is empty"}},
        {"--packets --json " + d.path + "/bad_cluster.mka", 1,
         {"\"error-type\":0", "{\"track\":0,\"error\":-10002}", "{\"track\":1,\"error\":-10002}"},
         {"track 0 did not start", "track 1 did not start"}},
    };
    // Root reads it anyway.
    if (geteuid() != 0) runs.push_back({d.path + "/locked.mkv", 1, {}, {d.path + "/locked.mkv: cannot be read (Permission denied)"}});
    expectRuns(runs, d.path);
}

TEST(Probe, SaysWhyEachTrackPlaysOrNotOnADevice) {
    QMKV_REQUIRE_CORPUS();
    TempDir d;
    const std::string small = d.path + "/small.xml", big = d.path + "/big.xml";
    writeText(small, R"(<MediaCodecs><Decoders><MediaCodec name="c2.vendor.avc.decoder" type="video/avc">
                    <Limit name="size" max="1920x1088"/></MediaCodec></Decoders></MediaCodecs>)");
    writeText(big, R"(<MediaCodecs><Decoders><MediaCodec name="c2.vendor.decoder"><Limit name="size" max="4096x2304"/>
                  <Type name="video/avc"/><Type name="video/hevc"/></MediaCodec></Decoders></MediaCodecs>)");
    const std::string hevc = corpusFile("hevc_aac.mkv"), uhd = corpusFile("h264_uhd.mkv");
    expectRuns(
        {
            {"--device " + small + " --json " + hevc, 0,
             {R"("error-type":-1002,"status":"unsupported: no decoder for video/hevc on this device")",
              R"("error-type":0,"status":"plays","mime":"audio/mp4a-latm")"},
             {}},
            {"--device " + small + " " + uhd, 0,
             {"tracks[0].error-type: -1004\ntracks[0].status: too large: 3840x2160 exceeds the device's 1920x1088"},
             {}},
            {"--device " + big + " --json " + hevc, 0, {R"("error-type":0,"status":"plays","mime":"video/hevc")"}, {}},
            {"--device " + big + " --json " + uhd, 0, {R"("error-type":0,"status":"plays","mime":"video/avc")"}, {}},
            {"--device " + d.path + "/none.xml " + uhd, 1, {}, {"none.xml: No such file or directory"}},
        },
        d.path);
}


TEST(Probe, SaysWhereAFilesLengthCameFrom) {
    QMKV_REQUIRE_CORPUS();
    TempDir d;
    expectRuns({{"--core --json " + corpusFile("live_gst_h264_aac.mkv"), 0,
                 {"\"duration_100ns\":60210000,\"duration_from\":\"frames\""}, {}},
                {"--core --json " + corpusFile("live_gst_h264_aac_cues.mkv"), 0, {"\"duration_from\":\"info\""}, {}},
                {"--seek-count 20 " + corpusFile("live_gst_h264_aac.mkv"), 0, {"\"seeks\": 20"}, {}}},
               d.path);
}

}  // namespace
