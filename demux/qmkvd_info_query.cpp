// Video, audio and subtitle parameter records, and the stream-handle twins.
#include <string.h>

#include "common/qcmn_fcc2mt.h"
#include "demux/qmkvd.h"
#include "demux/qmkvd_stream_info.h"

namespace {

const qmkvds *track_of(const qmkvd *h, int32_t index) {
    if (h == nullptr || h->magic != QMKVD_MAGIC || index < 0 || index >= h->stream_count) return nullptr;
    return &h->streams[index];
}

void copy_language(char out[4], const char *language) {
    const size_t n = strnlen(language, 3);
    memcpy(out, language, n);
    out[n] = '\0';
}

// Language and name, as audio and subtitle records both carry them.
template <typename Info>
void describe_text(const qmkvd_track &t, Info *info) {
    copy_language(info->language, t.language);
    info->name_encoding = QMKVD_STRING_UTF8;
    info->name_length = (int32_t)strlen(t.name);
    info->name = t.name;
}

int32_t check_stream(const qmkvds *s) {
    if (s == nullptr || s->magic != QMKVDS_MAGIC) return QMKVD_ERR_ARGUMENT;
    if (s->opened != 1) return QMKVD_ERR_NOT_OPEN;
    return 0;
}

}  // namespace

int32_t qmkvd_get_info_vid(qmkvd *h, int32_t index, qmkvd_info_vid *info) {
    const qmkvds *s = track_of(h, index);
    if (s == nullptr || info == nullptr) return QMKVD_ERR_ARGUMENT;
    const qmkvd_track &t = s->track;
    memset(info, 0, sizeof(*info));
    info->index = index;
    info->fourcc = s->codec_type;
    // 32-bit signed product, as the decoders that read it expect.
    info->max_frame_size = (int32_t)(t.video.pixel_width * t.video.pixel_height * 3u) / 2;
    info->width = (int32_t)t.video.pixel_width;
    info->height = (int32_t)t.video.pixel_height;
    info->valid = 1;
    if (t.default_duration != 0) {
        const uint64_t ns = h->info.duration_ticks * (uint64_t)h->info.timecode_scale;
        info->frame_count = (int32_t)((int64_t)ns / (int64_t)t.default_duration);
        info->frame_rate = 1000000000u / t.default_duration;
    }
    info->media_type = qcmn_fcc2mt_vid((int32_t)s->codec_type);
    info->colour = t.video.colour;
    return 0;
}

int32_t qmkvd_get_info_aud(qmkvd *h, int32_t index, qmkvd_info_aud *info) {
    const qmkvds *s = track_of(h, index);
    if (s == nullptr || info == nullptr) return QMKVD_ERR_ARGUMENT;
    const qmkvd_track &t = s->track;
    memset(info, 0, sizeof(*info));
    info->index = index;
    info->fourcc = s->codec_type;
    info->sample_rate = (int32_t)t.audio.sampling_frequency;
    info->bits_per_sample = t.audio.bit_depth != 0 ? (int32_t)t.audio.bit_depth : 16;
    info->channels = (int32_t)t.audio.channels;
    info->valid = 1;
    info->media_type = qcmn_fcc2mt_aud((int32_t)s->codec_type);
    describe_text(t, info);
    info->seek_pre_roll = t.seek_pre_roll;
    info->codec_delay = t.codec_delay;
    return 0;
}

int32_t qmkvd_get_info_txt(qmkvd *h, int32_t index, qmkvd_info_txt *info) {
    const qmkvds *s = track_of(h, index);
    if (s == nullptr || info == nullptr) return QMKVD_ERR_ARGUMENT;
    const qmkvd_track &t = s->track;
    memset(info, 0, sizeof(*info));
    info->index = index;
    info->fourcc = s->codec_type;
    info->valid = 1;
    info->media_type = qcmn_fcc2mt_sub((int32_t)s->codec_type);
    describe_text(t, info);
    return 0;
}

int32_t qmkvds_get_format(qmkvds *s, uint8_t *buffer, int32_t *size) {
    const int32_t r = check_stream(s);
    return r != 0 ? r : qmkvd_get_format(s->demux, s->index, buffer, size);
}

int32_t qmkvds_get_info_vid(qmkvds *s, qmkvd_info_vid *info) {
    const int32_t r = check_stream(s);
    return r != 0 ? r : qmkvd_get_info_vid(s->demux, s->index, info);
}

int32_t qmkvds_get_info_aud(qmkvds *s, qmkvd_info_aud *info) {
    const int32_t r = check_stream(s);
    return r != 0 ? r : qmkvd_get_info_aud(s->demux, s->index, info);
}

int32_t qmkvds_get_info_txt(qmkvds *s, qmkvd_info_txt *info) {
    const int32_t r = check_stream(s);
    return r != 0 ? r : qmkvd_get_info_txt(s->demux, s->index, info);
}
