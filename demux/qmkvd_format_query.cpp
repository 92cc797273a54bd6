// Codec configuration bytes of a track, in the form decoders take them.
#include <string.h>

#include <android/log.h>

#include "demux/qmkvd.h"
#include "demux/qmkvd_codec.h"
#include "demux/qmkvd_mp3_config.h"
#include "demux/qmkvd_stream_info.h"

namespace {

const char kTag[] = "qmkvd";
const uint8_t kStartCode[4] = {0, 0, 0, 1};

const int32_t kAacRates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025, 8000};

int32_t aac_index(int32_t rate) {
    for (int32_t i = 0; i < (int32_t)(sizeof(kAacRates) / sizeof(kAacRates[0])); ++i)
        if (kAacRates[i] == rate) return i;
    return -1;
}

// The CodecID matches when the literal begins with the whole CodecID.
bool codec_is(const qmkvd_track &t, const char *literal) {
    return strncmp(t.codec_id, literal, strlen(t.codec_id)) == 0;
}

int32_t finish(int32_t produced, int32_t capacity, int32_t *size) {
    *size = produced;
    return produced <= capacity ? 0 : -1;
}

int32_t generic_copy(const qmkvd_track &t, uint8_t *buffer, int32_t *size) {
    const int32_t capacity = *size;
    *size = (int32_t)t.codec_private_size;
    if (buffer == nullptr) return 0;
    // Bounded by the capacity: callers size the buffer by the query first.
    const uint32_t n = (int32_t)t.codec_private_size <= capacity ? t.codec_private_size
                                                                  : (capacity > 0 ? (uint32_t)capacity : 0);
    if (n > 0) memcpy(buffer, t.codec_private, n);
    return finish((int32_t)t.codec_private_size, capacity, size);
}

// A two-byte AudioSpecificConfig for AAC LC from the track's rate and channels.
int32_t aac_lc_config(const qmkvd_track &t, uint8_t *buffer, int32_t *size) {
    const int32_t capacity = *size;
    *size = 2;
    if (buffer == nullptr) return 0;
    const int32_t index = aac_index((int32_t)t.audio.sampling_frequency);
    if (index < 0) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "get_aac_default_format(): warning! frequency %d not supported",
                            (int)t.audio.sampling_frequency);
        *size = 0;
        return 0;
    }
    if (capacity < 2) return -1;
    buffer[0] = (uint8_t)(0x10 | (index >> 1));
    buffer[1] = (uint8_t)(((index & 1) << 7) | (t.audio.channels << 3));
    return 0;
}

// WAVEFORMATEX: the extra bytes after its 18-byte header, except for the
// Windows Media Audio tags, whose decoders take the whole structure.
int32_t acm_config(const qmkvds &s, uint8_t *buffer, int32_t *size) {
    const qmkvd_track &t = s.track;
    const uint32_t n = t.codec_private_size;
    if (n < 18 || (s.codec_type & ~3u) == 0x160) return generic_copy(t, buffer, size);
    const int32_t capacity = *size;
    *size = (int32_t)(n - 18);
    if (buffer == nullptr) return 0;
    if (n - 18 >= 1 && (int32_t)(n - 18) <= capacity) memcpy(buffer, t.codec_private + 18, n - 18);
    return finish((int32_t)(n - 18), capacity, size);
}

// avcC to start-code form: the first SPS and the first PPS only.
int32_t avc_config(const qmkvd_track &t, uint8_t *buffer, int32_t *size) {
    const uint8_t *p = t.codec_private;
    const uint32_t n = t.codec_private_size;
    const int32_t capacity = *size;
    if (n < 8) return finish(0, capacity, size);
    int32_t total = 0;
    uint32_t o = 6;
    // Two parameter-set lists: SPS (count in p[5] & 0x1F), then PPS (count in a byte).
    for (int list = 0; list < 2; ++list) {
        uint32_t count;
        if (list == 0) {
            count = p[5] & 0x1F;
        } else {
            count = p[o];
            if (count == 0) break;
            ++o;
        }
        for (uint32_t k = 0; k < count; ++k) {
            if (n <= o + 1) return finish(0, capacity, size);
            const uint32_t len = (uint32_t)(p[o] << 8 | p[o + 1]);
            if (k == 0) {
                const int32_t after = total + (int32_t)len + 4;
                if (buffer != nullptr) {
                    if (capacity < after || n < o + len + 2) {
                        *size = 0;
                        return 0;
                    }
                    memcpy(buffer + total, kStartCode, 4);
                    memcpy(buffer + total + 4, p + o + 2, len);
                }
                total = after;
            }
            o += len + 2;
            if (list == 0 && n <= o + 1) return finish(0, capacity, size);
        }
    }
    *size = total;
    return 0;
}

// hvcC to start-code form: every NAL unit of every array, in file order.
int32_t hevc_config(const qmkvd_track &t, uint8_t *buffer, int32_t *size) {
    const uint8_t *p = t.codec_private;
    const uint32_t n = t.codec_private_size;
    const int32_t capacity = *size;
    if (n < 23) return 0;
    int64_t r = n - 23;
    if (r < 4) {
        *size = 0;
        return 0;
    }
    const uint32_t arrays = p[22];
    uint32_t o = 23;
    int64_t total = 0;
    for (uint32_t a = 0; a < arrays && r >= 4; ++a) {
        r -= 3;
        const uint32_t nalus = (uint32_t)(p[o + 1] << 8 | p[o + 2]);
        o += 3;
        if (r < 3 || nalus == 0) continue;
        for (uint32_t k = 0; k < nalus && r > 2; ++k) {
            const uint32_t len = (uint32_t)(p[o] << 8 | p[o + 1]);
            o += 2;
            r -= 2;
            if (r < len) return 0;
            r -= len;
            if (len != 0) {
                if (total > 0x7FFFFFFB - (int64_t)len) return 0;
                if (buffer != nullptr) {
                    if (capacity < total + len + 4) return 0;
                    memcpy(buffer + total, kStartCode, 4);
                    memcpy(buffer + total + 4, p + o, len);
                }
                total += len + 4;
            }
            o += len;
        }
    }
    *size = (int32_t)total;
    return 0;
}

}  // namespace

int32_t get_aac_frequency_index(int32_t rate) { return aac_index(rate); }

int32_t qmkvd_get_format(qmkvd *h, int32_t index, uint8_t *buffer, int32_t *size) {
    if (h == nullptr || h->magic != QMKVD_MAGIC || index < 0 || index >= h->stream_count || size == nullptr)
        return QMKVD_ERR_ARGUMENT;
    const qmkvds &s = h->streams[index];
    const qmkvd_track &t = s.track;
    switch (s.stream_type) {
        case QMKVD_TRACK_SUBTITLE:
            if (s.codec_type == QMKVD_FOURCC('S', 'A', 'S', 'S') || s.codec_type == QMKVD_FOURCC('S', 'S', 'S', 'A'))
                return generic_copy(t, buffer, size);
            return 0;
        case QMKVD_TRACK_AUDIO:
            if (codec_is(t, "A_MPEG/L3")) return qmkvd_mp3_config(h, index, buffer, size);
            if (codec_is(t, "A_MS/ACM")) return acm_config(s, buffer, size);
            if (strncmp(t.codec_id, "A_AAC/MPEG2/LC", 14) == 0 || strncmp(t.codec_id, "A_AAC/MPEG4/LC", 14) == 0)
                return aac_lc_config(t, buffer, size);
            return generic_copy(t, buffer, size);
        case QMKVD_TRACK_VIDEO:
            if (codec_is(t, "V_MPEG4/ISO/AVC")) return avc_config(t, buffer, size);
            if (codec_is(t, "V_MPEGH/ISO/HEVC")) return hevc_config(t, buffer, size);
            if (codec_is(t, "V_MS/VFW/FOURCC") || codec_is(t, "V_MPEG4/MS/V3")) {
                *size = 0;
                return 0;
            }
            return generic_copy(t, buffer, size);
        default:
            return 0;
    }
}
