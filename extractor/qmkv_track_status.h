// A track's status in words: why it will or will not play, from the
// decisions the format mapping made.
#ifndef QMKV_EXTRACTOR_QMKV_TRACK_STATUS_H_
#define QMKV_EXTRACTOR_QMKV_TRACK_STATUS_H_

#include <stdint.h>

#include <media/NdkMediaFormat.h>

namespace android {

// What the mapping found, beyond the status code itself.
struct TrackFindings {
    int32_t type = 0;                  // the demuxer's track type
    uint32_t code = 0;                 // the codec code
    bool noDecoder = false;            // unsupported: the device has no decoder for it
    const char *badConfig = nullptr;   // what is wrong with the codec configuration
    int32_t width = 0, height = 0;     // a video's size
    int32_t limitWidth = 0, limitHeight = 0;  // the device's limit for that orientation
};

// Sets AMEDIAFORMAT_KEY_TRACK_STATUS in `meta`, whose error type and MIME
// type are set already.
void setTrackStatus(AMediaFormat *meta, const TrackFindings &found);

}  // namespace android

#endif  // QMKV_EXTRACTOR_QMKV_TRACK_STATUS_H_
