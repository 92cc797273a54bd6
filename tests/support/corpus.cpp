#include "tests/support/corpus.h"

#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <ctype.h>

#include <algorithm>
#include <fstream>
#include <iterator>

namespace qmkv_test {

std::string corpusDir() {
    const char *dir = getenv("QMKV_CORPUS_DIR");
    return dir != nullptr ? dir : "";
}

std::string corpusFile(const std::string &name) {
    const std::string dir = corpusDir();
    if (dir.empty()) {
        ADD_FAILURE() << "QMKV_CORPUS_DIR is not set; start the test with QMKV_REQUIRE_CORPUS()";
        return name;
    }
    const std::string path = dir + "/" + name;
    struct stat st;
    if (stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode) || st.st_size == 0)
        ADD_FAILURE() << "corpus file missing or empty: " << path;
    return path;
}

std::vector<std::string> corpusFiles() {
    std::vector<std::string> names;
    const std::string manifest = corpusFile("manifest.txt");
    std::ifstream in(manifest);
    // Each line: a file name, then its description.
    for (std::string line; std::getline(in, line);)
        if (!line.empty()) names.push_back(line.substr(0, line.find(' ')));
    if (names.empty()) ADD_FAILURE() << manifest << " cannot be read or lists no file";
    return names;
}

const std::vector<KnownFile> kKnownFiles = {
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
    {"live_gst_h264_aac.mkv", "h264+aac", "va"}, {"live_gst_vp8_opus.mkv", "vp8+opus", "va"},
    {"live_ff_h264_aac.mkv", "h264+aac", "va"}, {"live_pipe_vp9_opus.mkv", "vp9+opus", "va"},
    {"live_gst_h264_aac_cues.mkv", "h264+aac", "va"}, {"live_gst_vp8_opus_cues.mkv", "vp8+opus", "va"},
    {"live_ff_h264_aac_cues.mkv", "h264+aac", "va"}, {"live_pipe_vp9_opus_cues.mkv", "vp9+opus", "va"},
};

std::vector<std::string> knownNamesBut(std::initializer_list<std::string> except) {
    std::vector<std::string> names;
    for (const KnownFile &f : kKnownFiles)
        if (std::none_of(except.begin(), except.end(),
                         [&](const std::string &e) { return std::string(f.name).rfind(e, 0) == 0; }))
            names.push_back(f.name);
    return names;
}

std::vector<uint8_t> readBytes(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void writeBytes(const std::string &path, const std::vector<uint8_t> &bytes) {
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char *>(bytes.data()), (long)bytes.size());
}

std::vector<uint8_t> commandOutput(const std::string &command) {
    std::vector<uint8_t> out;
    FILE *p = popen(command.c_str(), "r");
    uint8_t buf[65536];
    for (size_t n; p != nullptr && (n = fread(buf, 1, sizeof buf, p)) > 0;) out.insert(out.end(), buf, buf + n);
    if (p != nullptr) pclose(p);
    return out;
}

std::string testName(const ::testing::TestParamInfo<std::string> &info) {
    std::string n = info.param;
    for (char &c : n)
        if (!isalnum((unsigned char)c)) c = '_';
    return n;
}

}  // namespace qmkv_test
