#include "extractor/qmkv_track_status.h"

#include <ctype.h>
#include <stdio.h>
#include <strings.h>

#include "demux/qmkvd.h"
#include "extractor/qmkv_extractor.h"
#include "qextractorcmn/ExtMediaFormatDef.h"
#include "qextractorcmn/qcmn_fcc2mime.h"

namespace android {

namespace {

bool knownMime(const char *mime) {
    return mime != nullptr && mime[0] != '\0' && strcasecmp(mime, QCMN_MIMETYPE_UNKNOWN) != 0 &&
           strcasecmp(mime, QCMN_MIMETYPE_VIDEO_UNKNOWN) != 0 && strcasecmp(mime, QCMN_MIMETYPE_AUDIO_UNKNOWN) != 0;
}

// A codec as a person can look it up: its media type, else its code.
void describeCodec(const char *mime, uint32_t code, char *out, size_t size) {
    if (knownMime(mime) || code == 0) {
        snprintf(out, size, "%s", code == 0 ? "an unidentified codec" : mime);
        return;
    }
    const char chars[5] = {(char)code, (char)(code >> 8), (char)(code >> 16), (char)(code >> 24), '\0'};
    bool printable = true;
    for (int i = 0; i < 4; ++i) printable = printable && isprint((unsigned char)chars[i]);
    if (printable) {
        snprintf(out, size, "codec %s", chars);
    } else {
        snprintf(out, size, "codec 0x%x", code);
    }
}

const char *kindOf(int32_t type) {
    return type == QMKVD_TRACK_VIDEO ? "video" : type == QMKVD_TRACK_AUDIO ? "audio" : "subtitle";
}

}  // namespace

void setTrackStatus(AMediaFormat *meta, const TrackFindings &found) {
    int32_t status = QMKV_TRACK_OK;
    AMediaFormat_getInt32(meta, AMEDIAFORMAT_KEY_ERROR_TYPE, &status);
    const char *mime = nullptr;
    AMediaFormat_getString(meta, AMEDIAFORMAT_KEY_MIME, &mime);
    const bool known = found.type == QMKVD_TRACK_VIDEO || found.type == QMKVD_TRACK_AUDIO ||
                       found.type == QMKVD_TRACK_SUBTITLE;
    char codec[64];
    char text[256];
    switch (status) {
        case QMKV_TRACK_OK:
            if (known) {
                snprintf(text, sizeof(text), "plays");
            } else {
                snprintf(text, sizeof(text), "not played: track type %d is neither video, audio nor subtitles",
                         found.type);
            }
            break;
        case QMKV_TRACK_UNSUPPORTED:
            describeCodec(mime, found.code, codec, sizeof(codec));
            if (found.noDecoder) {
                snprintf(text, sizeof(text), "unsupported: no decoder for %s on this device", codec);
            } else {
                snprintf(text, sizeof(text), "unsupported: %s is not in the %s whitelist", codec, kindOf(found.type));
            }
            break;
        case QMKV_TRACK_BAD_CONFIG:
            snprintf(text, sizeof(text), "bad codec configuration: %s",
                     found.badConfig != nullptr ? found.badConfig : "rejected");
            break;
        case QMKV_TRACK_TOO_LARGE:
            snprintf(text, sizeof(text), "too large: %dx%d exceeds the device's %dx%d", found.width, found.height,
                     found.limitWidth, found.limitHeight);
            break;
        default:
            describeCodec(mime, found.code, codec, sizeof(codec));
            snprintf(text, sizeof(text), "does not play: the device's size limits for %s cannot be read (%d)", codec,
                     status);
            break;
    }
    AMediaFormat_setString(meta, AMEDIAFORMAT_KEY_TRACK_STATUS, text);
}

}  // namespace android
