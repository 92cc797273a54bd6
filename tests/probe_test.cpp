// qmkvprobe run as a person runs it: the built tool on files it must refuse,
// a damaged file, and what it says about each track for a device.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "tests/support/corpus.h"
#include "tests/support/mkv_builder.h"
#include "tests/support/temp_dir.h"

using namespace qmkv_test;

namespace {

std::string slurp(const std::string &path) {
    std::ostringstream s;
    s << std::ifstream(path).rdbuf();
    return s.str();
}

void write(const std::string &path, const std::string &text) { std::ofstream(path, std::ios::binary) << text; }

struct ProbeRun {
    std::string args;
    int status;                         // the exit status; an abort is none
    std::vector<std::string> out, err;  // texts stdout and stderr must hold
};

void expectRuns(const std::vector<ProbeRun> &runs, const std::string &dir) {
    for (const ProbeRun &c : runs) {
        const int r = std::system((std::string(QMKV_PROBE) + " " + c.args + " >" + dir + "/out 2>" + dir + "/err").c_str());
        const std::string out = slurp(dir + "/out"), err = slurp(dir + "/err");
        EXPECT_TRUE(WIFEXITED(r) && WEXITSTATUS(r) == c.status) << c.args << ": status " << r;
        for (const std::string &s : c.out) EXPECT_NE(std::string::npos, out.find(s)) << c.args << ": " << s;
        for (const std::string &s : c.err) EXPECT_NE(std::string::npos, err.find(s)) << c.args << ": " << s;
        if (::testing::Test::HasFailure()) FAIL() << "stdout:\n" << out << "stderr:\n" << err;
    }
}

TEST(Probe, RefusesWhatItCannotReadAndNeverAborts) {
    TempDir d;
    write(d.path + "/empty.mkv", "");
    write(d.path + "/locked.mkv", std::string(200, 'x'));
    chmod((d.path + "/locked.mkv").c_str(), 0);
    // A Cluster of zero bytes: the formats are there, no track's stream opens.
    const Bytes damaged = cat({file({segmentInfo(), tracks({trackEntry(1, 2, "A_MPEG/L3"), trackEntry(2, 2, "A_AC3")}),
                                     el(mkv::Cluster, Bytes(16, 0))}),
                               el(mkv::Void, Bytes(128, 0))});
    write(d.path + "/bad_cluster.mka", std::string(damaged.begin(), damaged.end()));
    std::vector<ProbeRun> runs = {
        {"--help", 0, {"usage: qmkvprobe [--core]", "[--device LIST] [--map OUT.svg|OUT.png] FILE"}, {}},
        {d.path, 1, {}, {d.path + " is a directory"}},
        {d.path + "/empty.mkv", 1, {}, {"empty.mkv is empty"}},
        {"--packets --json " + d.path + "/bad_cluster.mka", 1,
         {"\"error-type\":0", "{\"track\":0,\"error\":-10002}", "{\"track\":1,\"error\":-10002}"},
         {"track 0 did not start", "track 1 did not start"}},
    };
    // Root reads it anyway.
    if (geteuid() != 0) runs.push_back({d.path + "/locked.mkv", 1, {}, {"cannot read " + d.path + "/locked.mkv"}});
    expectRuns(runs, d.path);
}

TEST(Probe, SaysWhyEachTrackPlaysOrNotOnADevice) {
    QMKV_REQUIRE_CORPUS();
    TempDir d;
    const std::string small = d.path + "/small.xml", big = d.path + "/big.xml";
    write(small, R"(<MediaCodecs><Decoders><MediaCodec name="c2.vendor.avc.decoder" type="video/avc">
                    <Limit name="size" max="1920x1088"/></MediaCodec></Decoders></MediaCodecs>)");
    write(big, R"(<MediaCodecs><Decoders><MediaCodec name="c2.vendor.decoder"><Limit name="size" max="4096x2304"/>
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
