// qmkvprobe run as a person runs it: the built tool on files it must refuse,
// a damaged file, what it says about each track for a device, about dropped
// tracks and the plug-in's log; and --library over a generated tree.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <sstream>

#include <nlohmann/json.hpp>

#include "tests/support/corpus.h"
#include "tests/support/mkv_builder.h"
#include "tests/support/probe_run.h"
#include "tests/support/temp_dir.h"

using namespace qmkv_test;
using nlohmann::json;

namespace {

const char kSmallDevice[] = R"(<MediaCodecs><Decoders><MediaCodec name="c2.vendor.avc.decoder" type="video/avc">
    <Limit name="size" max="1920x1088"/></MediaCodec></Decoders></MediaCodecs>)";
const char kBigDevice[] = R"(<MediaCodecs><Decoders><MediaCodec name="c2.vendor.decoder"><Limit name="size" max="4096x2304"/>
    <Type name="video/avc"/><Type name="video/hevc"/></MediaCodec></Decoders></MediaCodecs>)";

// An MP3 track that plays and an AAC track encrypted (no muxer here writes
// ContentEncryption); `withCrypt` false leaves the second entry out.
Bytes mp3AndEncrypted(bool withCrypt) {
    const Bytes crypt = encodings({encryption()});
    const Bytes mp3 = trackEntry(1, 2, "A_MPEG/L3", {el(mkv::Audio, {f64_el(mkv::SamplingFrequency, 44100)})});
    const Bytes aac = trackEntry(2, 2, "A_AAC", {str_el(mkv::Name, "Commentary"), str_el(mkv::Language, "fre"), crypt});
    // The Void makes the file longer than the bytes the plug-in sniffs.
    return file({segmentInfo(), withCrypt ? tracks({mp3, aac}) : tracks({mp3}), cluster(), el(mkv::Void, Bytes(128, 0))});
}

void copy(const std::string &from, const std::string &to) {
    std::filesystem::copy_file(from, to, std::filesystem::copy_options::overwrite_existing);
}

// A library with the corpus's answers for two devices, damaged and foreign
// files, and what a walk must pass over.
struct Library {
    TempDir d;
    std::string root = d.path + "/lib";
    size_t regularFiles = 0;
    Library() {
        const std::string sub = root + "/sub/deeper";
        std::filesystem::create_directories(sub);
        for (const char *name : {"h264_aac.mkv", "hevc_aac.mkv", "h264_uhd.mkv", "zlib_aac_srt.mkv"})
            copy(corpusFile(name), root + "/" + name);
        copy(corpusFile("vp9_opus.webm"), sub + "/webm_named.mkv");
        const std::string head = slurp(corpusFile("h264_aac.mkv"));
        writeText(sub + "/cut_in_sniff.mkv", head.substr(0, 100));
        writeText(root + "/sub/notes.mkv", "not a film\n");
        writeText(root + "/sub/empty.mka", "");
        writeText(root + "/sub/locked.mkv", "locked text");
        chmod((root + "/sub/locked.mkv").c_str(), 0);
        writeBytes(root + "/crypt.mka", mp3AndEncrypted(true));
        const std::string mp4 = sub + "/phone_video.mkv";
        EXPECT_EQ(0, std::system(("ffmpeg -v error -f lavfi -i testsrc=d=0.2:s=64x48 -c:v mpeg4 -f mp4 -y " + mp4).c_str()));
        regularFiles = 11;
        symlink("..", (sub + "/loop").c_str());
        symlink("nowhere", (root + "/dangling").c_str());
        mkfifo((root + "/fifo").c_str(), 0600);
        writeText(d.path + "/small.xml", kSmallDevice);
        writeText(d.path + "/big.xml", kBigDevice);
    }
    // The JSON Lines of a run: every file's object, then the summary.
    std::vector<json> run(const std::string &args, ProbeOutput *o) const {
        *o = runProbe("--library " + root + " --json " + args, d.path);
        std::vector<json> lines;
        std::istringstream in(o->out);
        for (std::string line; std::getline(in, line);) lines.push_back(json::parse(line, nullptr, false));
        return lines;
    }
};

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
    writeText(small, kSmallDevice);
    writeText(big, kBigDevice);
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

TEST(ProbeLibrary, CountsEachVerdictForEachDevice) {
    QMKV_REQUIRE_CORPUS();
    Library lib;
    struct { const char *device; size_t plays, partly, none; } cases[] = {
        // h264_aac plays; hevc_aac's video has no decoder; h264_uhd is too
        // large; zlib_aac_srt and crypt.mka lose tracks.
        {"small.xml", 1, 3, 1},
        {"big.xml", 3, 2, 0},
    };
    const size_t refused = 6;  // WebM, MP4, cut in the sniffed bytes, text, empty, locked text
    for (const auto &c : cases) {
        SCOPED_TRACE(c.device);
        ProbeOutput o;
        const std::vector<json> lines = lib.run("--jobs 2 --device " + lib.d.path + "/" + c.device, &o);
        EXPECT_EQ(0, o.status) << o.err;
        ASSERT_EQ(lib.regularFiles + 1, lines.size()) << o.out;
        std::map<std::string, size_t> seen;
        for (size_t i = 0; i + 1 < lines.size(); ++i) seen[lines[i].at("path")]++;
        EXPECT_EQ(lib.regularFiles, seen.size()) << "one line per file";
        const json &s = lines.back().at("summary");
        // Skipped: the loop, the broken link and the fifo.
        const json want = {{"files", lib.regularFiles}, {"plays", c.plays},     {"partly", c.partly},
                           {"none", c.none},           {"refused", refused}, {"skipped", 3}};
        for (const auto &kv : want.items()) EXPECT_EQ(kv.value(), s.at(kv.key())) << kv.key();
        for (const char *skipped : {"sub/deeper/loop: folder already walked", "dangling: No such file",
                                    "fifo: not a regular file"})
            EXPECT_NE(std::string::npos, o.err.find(skipped)) << skipped;
    }
}

// The library's verdict and words for each file are what the single-file
// probe says about it, over the whole corpus, truncated copies and copies
// damaged in their headers.
TEST(ProbeLibrary, AgreesWithTheSingleFileProbe) {
    QMKV_REQUIRE_CORPUS();
    Library lib;
    for (const std::string &name : corpusFiles()) {
        const std::string bytes = slurp(corpusFile(name));
        copy(corpusFile(name), lib.root + "/corpus_" + name);
        writeText(lib.root + "/half_" + name, bytes.substr(0, bytes.size() / 2));
        writeText(lib.root + "/head_" + name, bytes.substr(0, 600));
        std::string damaged = bytes;
        for (size_t i = 60; i < 90 && i < damaged.size(); ++i) damaged[i] = (char)0xFF;
        writeText(lib.root + "/damaged_" + name, damaged);
    }
    ProbeOutput o;
    const std::vector<json> lines = lib.run("", &o);
    EXPECT_EQ(0, o.status);
    ASSERT_FALSE(lines.empty());
    for (size_t i = 0; i + 1 < lines.size(); ++i) {
        const json &f = lines[i];
        const std::string path = f.at("path");
        SCOPED_TRACE(path);
        const ProbeOutput single = runProbe("--json " + path, lib.d.path);
        if (single.status != 0) {
            EXPECT_EQ("refused", f.at("verdict"));
            EXPECT_NE(std::string::npos, single.err.find(path + ": " + f.at("reason").get<std::string>())) << single.err;
            continue;
        }
        const json view = json::parse(single.out);
        size_t playing = 0;
        ASSERT_EQ(view.at("tracks").size(), f.at("tracks").size());
        for (size_t t = 0; t < view.at("tracks").size(); ++t) {
            EXPECT_EQ(view["tracks"][t].at("status"), f["tracks"][t].at("status"));
            playing += view["tracks"][t].at("error-type") == 0;
        }
        EXPECT_EQ(view.at("dropped"), f.at("dropped"));
        const bool whole = playing == view["tracks"].size() && view["dropped"].empty();
        EXPECT_EQ(playing == 0 ? "none" : whole ? "plays" : "partly", f.at("verdict"));
    }
}

TEST(ProbeLibrary, PlainLinesNameEveryTrackThatWillNotPlay) {
    QMKV_REQUIRE_CORPUS();
    Library lib;
    expectRuns({{"--library " + lib.root + " --jobs 1 --device " + lib.d.path + "/small.xml", 0,
                 {"plays   " + lib.root + "/h264_aac.mkv\n",
                  "none    " + lib.root + "/h264_uhd.mkv | tracks[0] video/avc: too large: 3840x2160 exceeds",
                  "partly  " + lib.root + "/crypt.mka | track 2 A_AAC dropped: encryption is not supported\n",
                  "refused " + lib.root + "/sub/notes.mkv | not claimed by the plug-in\n",
                  "refused " + lib.root + "/sub/empty.mka | is empty\n",
                  "refused " + lib.root + "/sub/deeper/phone_video.mkv | not claimed by the plug-in\n",
                  "summary: 11 files, 1 plays, 3 partly, 1 none, 6 refused; 3 skipped;",
                  "  dropped: zlib compression is not supported: 1 file\n"},
                 {}}},
               lib.d.path);
}

TEST(ProbeLibrary, BadUsage) {
    TempDir d;
    const std::string empty = d.path + "/empty";
    mkdir(empty.c_str(), 0700);
    expectRuns({{"--library " + empty + " " + d.path + "/x.mkv", 2, {}, {"--library takes a folder"}},
                {"--library " + empty + " --count", 2, {}, {"--library goes only with"}},
                {"--library " + empty + " --jobs 0", 2, {}, {"bad --jobs value: 0"}},
                {"--jobs 2 " + d.path + "/x.mkv", 2, {}, {"--jobs goes with --library"}},
                {"--library " + d.path + "/none", 1, {}, {"none: not a folder"}},
                {"--library " + empty, 0, {"summary: 0 files, 0 plays"}, {}}},
               d.path);
}

// Dropped entries are listed after the tracks, from the core in either mode;
// the plug-in's formats are the ones of the file without the entry.
TEST(ProbeDropped, ListedWithTheirReasonAndTheFormatsUnchanged) {
    TempDir d;
    writeBytes(d.path + "/crypt.mka", mp3AndEncrypted(true));
    writeBytes(d.path + "/plain.mka", mp3AndEncrypted(false));
    const json crypt = json::parse(runProbe("--json " + d.path + "/crypt.mka", d.path).out);
    const json plain = json::parse(runProbe("--json " + d.path + "/plain.mka", d.path).out);
    const json expected = json::array({{{"track_number", 2}, {"codec_id", "A_AAC"}, {"name", "Commentary"},
                                        {"language", "fre"}, {"reason", "encryption is not supported"}}});
    EXPECT_EQ(expected, crypt.at("dropped"));
    EXPECT_EQ(json::array(), plain.at("dropped"));
    EXPECT_EQ(plain.at("file"), crypt.at("file"));
    EXPECT_EQ(plain.at("tracks"), crypt.at("tracks"));
    const json core = json::parse(runProbe("--core --json " + d.path + "/crypt.mka", d.path).out);
    EXPECT_EQ(expected, core.at("dropped"));
    expectRuns({{d.path + "/crypt.mka", 0, {"dropped[0].reason: encryption is not supported\n"}, {}}}, d.path);
    // A name that is not UTF-8 is printed with its bad bytes replaced.
    Bytes bad = mp3AndEncrypted(true);
    const Bytes name = {'C', 'o', 'm', 'm'};
    std::search(bad.begin(), bad.end(), name.begin(), name.end())[0] = 0xFF;
    writeBytes(d.path + "/bad_name.mka", bad);
    const ProbeOutput o = runProbe("--json " + d.path + "/bad_name.mka", d.path);
    EXPECT_EQ(0, o.status) << o.err;
    EXPECT_EQ("\xEF\xBF\xBDommentary", json::parse(o.out, nullptr, false).value("dropped", json::array())[0].value("name", ""));
    expectRuns({{"--library " + d.path + " --json", 0, {"\"name\":\"\xEF\xBF\xBDommentary\""}, {}}}, d.path);
}

TEST(ProbeDropped, ZlibTracksOfMkvmerge) {
    QMKV_REQUIRE_CORPUS();
    TempDir d;
    const json view = json::parse(runProbe("--json " + corpusFile("zlib_aac_srt.mkv"), d.path).out);
    ASSERT_EQ(2u, view.at("dropped").size());
    EXPECT_EQ("S_TEXT/UTF8", view["dropped"][1].at("codec_id"));
    EXPECT_EQ("zlib compression is not supported", view["dropped"][1].at("reason"));
    EXPECT_EQ(1u, view.at("tracks").size());
}

// A normal run's teardown logs harmless errors; stderr shows them only with
// --log.
TEST(ProbeLog, OnlyWithLog) {
    QMKV_REQUIRE_CORPUS();
    TempDir d;
    const std::string f = corpusFile("h264_aac.mkv");
    const ProbeOutput quiet = runProbe("--packets " + f, d.path);
    EXPECT_EQ(0, quiet.status);
    EXPECT_EQ("", quiet.err);
    const ProbeOutput logged = runProbe("--log --packets " + f, d.path);
    EXPECT_NE(std::string::npos, logged.err.find("ERR: stream 0 already closed!")) << logged.err;
    expectRuns({{"--seek-count 5 " + f, 0, {"{\"seeks\": 5, \"failed\": 0, \"tracks\": 2,"}, {}},
                {"--core --seek-count 5 " + f, 0, {"{\"seeks\": 5, \"failed\": 0, \"tracks\": 2,"}, {}}},
               d.path);
}

}  // namespace
