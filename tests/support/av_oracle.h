// An independent reading of a media file through libavformat, used as the
// oracle our demuxer is compared against: container duration, streams with
// their codec parameters, every packet in file order and key-frame times.
//
// libavformat already undoes what the container adds: laces are split,
// header stripping and zlib compression are reversed, so its packets are
// the frames as the codec sees them (length-prefixed for AVC/HEVC).
#ifndef QMKV_TEST_AV_ORACLE_H_
#define QMKV_TEST_AV_ORACLE_H_

#include <stdint.h>

#include <limits>
#include <map>
#include <string>
#include <vector>

namespace qmkv_test {

// A time libavformat did not know.
constexpr int64_t kAvNoTime = std::numeric_limits<int64_t>::min();

// AvStream::media_type. Attachments appear as streams too (libavformat's
// view), so that stream indices match its packets.
enum AvMediaType { kAvVideo = 0, kAvAudio = 1, kAvSubtitle = 2, kAvOther = 3, kAvAttachment = 4 };

struct AvStream {
    int index = -1;
    int id = -1;  // the container's own number: Matroska's TrackNumber
    std::string codec_name;  // libavcodec's short name: "h264", "aac", "pcm_s16be", ...
    int media_type = kAvOther;
    int width = 0, height = 0;
    int sample_rate = 0, channels = 0;
    std::vector<uint8_t> extradata;  // CodecPrivate as libavformat exposes it
    std::map<std::string, std::string> metadata;  // "language", "title", ...
};

struct AvPacket {
    int stream = -1;
    int64_t pts_us = kAvNoTime;
    int64_t duration_us = 0;  // 0 when libavformat does not know it
    int64_t pos = -1;  // byte offset of the block, when known
    bool key = false;
    std::vector<uint8_t> data;
};

struct AvFile {
    std::string path;
    bool ok = false;
    std::string error;  // why opening failed
    int64_t duration_us = kAvNoTime;
    std::vector<AvStream> streams;

    // Every packet in file order. Reads the file afresh on each call.
    std::vector<AvPacket> readAll() const;
    // Presentation times of the key frames of one stream, in file order.
    std::vector<int64_t> keyFrameTimesUs(int stream) const;
    // The streams' codec names in index order, joined with '+': "h264+aac".
    std::string codecSummary() const;
};

// What libavcodec makes of a video stream's sequence headers (after
// avformat_find_stream_info, which decodes the first frames). -1 where it
// does not say.
struct AvVideoParams {
    int width = -1, height = -1, profile = -1, level = -1;
    int bit_depth = -1;
    int chroma_format = -1;  // 0 monochrome (or 4:4:0), 1 4:2:0, 2 4:2:2, 3 4:4:4 (and RGB)
    int interlaced = -1;     // from the field order: 0 progressive, 1 fields
};

// The parameters of the first stream of the elementary stream or file at
// `path`; ok false (with a test failure recorded) when it cannot be probed.
bool avProbeVideo(const std::string &path, AvVideoParams *out);

// Opens and probes `path`. On failure the result has ok == false and error
// set, and a non-fatal test failure is recorded.
AvFile avOpen(const std::string &path);

}  // namespace qmkv_test

#endif  // QMKV_TEST_AV_ORACLE_H_
