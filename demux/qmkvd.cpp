// Demuxer instance: creation, stream-slot set-up, metadata, release.
#include "demux/qmkvd.h"

#include <stdlib.h>
#include <string.h>

#include <android/log.h>

#include "demux/qmkvd_codec.h"
#include "demux/qmkvd_float.h"
#include "demux/qmkvd_parse.h"
#include "demux/qmkvd_tail.h"
#include "demux/qmkvds.h"

namespace {

const char kTag[] = "qmkvd";
// Nanoseconds in a 365-day year: DateUTC counts from 2001-01-01.
const int64_t kNanosPerYear = 31536000000000000LL;

// The codec ID is compared over its own length only, so a shorter ID that
// is a prefix of `name` matches too.
bool codec_id_matches(const char *codec_id, const char *name) {
    return strncmp(codec_id, name, strlen(codec_id)) == 0;
}

uint32_t nal_length_size_of(const qmkvd_track *t) {
    if (codec_id_matches(t->codec_id, "V_MPEG4/ISO/AVC") && t->codec_private_size > 5)
        return (t->codec_private[4] & 3u) + 1;
    if (codec_id_matches(t->codec_id, "V_MPEGH/ISO/HEVC") && t->codec_private_size > 22)
        return (t->codec_private[21] & 3u) + 1;
    return 0;
}

void setup_streams(qmkvd *inst, uint32_t open_flags, qmkvd_format *format) {
    for (int32_t i = 0; i < inst->stream_count; ++i) {
        qmkvds *s = &inst->streams[i];
        const qmkvd_track *t = &s->track;
        s->get_frm = qmkvds_get_frm_default;
        s->get_time = get_time_pts;
        s->magic = QMKVDS_MAGIC;
        s->demux = inst;
        s->index = i;
        s->timecode_scale = inst->info.timecode_scale;
        s->default_duration_100ns = t->default_duration / 100;
        s->comp_algo = t->content_encodings.encoding.compression.comp_algo;
        s->comp_settings = t->content_encodings.encoding.compression.comp_settings;
        s->comp_settings_size = t->content_encodings.encoding.compression.comp_settings_size;
        switch (t->track_type) {
            case QMKVD_TRACK_SUBTITLE:
                format->subtitle_count++;
                s->stream_type = QMKVD_TRACK_SUBTITLE;
                break;
            case QMKVD_TRACK_AUDIO:
                format->audio_count++;
                s->stream_type = QMKVD_TRACK_AUDIO;
                break;
            case QMKVD_TRACK_VIDEO:
                format->video_count++;
                s->stream_type = QMKVD_TRACK_VIDEO;
                if (t->default_duration >= 100 && !(open_flags & QMKVD_OPEN_NO_DTS)) s->get_time = get_time_dts;
                s->nal_length_size = nal_length_size_of(t);
                break;
            default:
                break;
        }
        format->track_type[i] = s->stream_type;
        qmkvd_media_info(inst, s, format, i);
        if (s->stream_type == QMKVD_TRACK_AUDIO && !qmkvd_support_lacing(s->codec_type)) s->get_frm = qmkvds_get_frm_onebyone;
    }
}

// Matroska leaves an absent Duration unknown, not zero: recordings written
// as they go have none, and their length is the end of their last frame.
void find_duration(qmkvd *inst) {
    if (inst->info.duration_ticks != 0) return;
    const int64_t end_ns = qmkvd_find_end_ns(inst);
    if (end_ns <= 0) return;
    inst->info.duration = (double)end_ns / (double)inst->info.timecode_scale;
    inst->info.duration_ticks = qmkvd_d2u64(inst->info.duration);
    inst->duration_from_frames = 1;
}

int64_t duration_100ns(const qmkvd *inst) {
    const int64_t ns = qmkvd_d2i64(inst->info.duration * (double)inst->info.timecode_scale);
    if (ns > INT64_MAX - 500) return INT64_MAX / 1000 * 10;
    return (ns + 500) / 1000 * 10;
}

bool set_item(qmkvd_metadata_item *item, const char *text) {
    const size_t n = strlen(text);
    item->data = static_cast<uint8_t *>(malloc(n > 0 ? n : 1));
    if (item->data == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "alloc failed");
        return false;
    }
    memcpy(item->data, text, n);
    item->type = QMKVD_STRING_UTF8;
    item->length = (uint32_t)n;
    return true;
}

int item_of_tag(const char *name) {
    static const struct {
        const char *name;
        int item;
    } kTagItems[] = {
        {"TITLE", QMKVD_META_TITLE},       {"ARTIST", QMKVD_META_ARTIST},
        {"BAND", QMKVD_META_ARTIST},       {"ALBUM", QMKVD_META_ALBUM},
        {"GENRE", QMKVD_META_GENRE},       {"COMMENT", QMKVD_META_GENRE},
        {"DESCRIPTION", QMKVD_META_GENRE}, {"COMPOSER", QMKVD_META_COMPOSER},
        {"WRITTEN_BY", QMKVD_META_WRITER}, {"SCREENPLAY_BY", QMKVD_META_WRITER},
        {"DATE_RELEASE", QMKVD_META_DATE},
    };
    for (const auto &row : kTagItems)
        if (strcmp(name, row.name) == 0) return row.item;
    return -1;
}

// Metadata items from Info and the simple tags; the first value wins.
void collect_metadata(qmkvd *inst) {
    if (inst->found_info) {
        if (inst->info.title[0] != '\0') {
            inst->has_metadata = 1;
            if (!set_item(&inst->meta.items[QMKVD_META_TITLE], inst->info.title)) return;
        }
        if (inst->info.date_utc != 0) {
            inst->release_year = (uint32_t)(2001 + inst->info.date_utc / kNanosPerYear);
            inst->has_metadata = 1;
        }
    }
    if (!inst->found_tags) return;
    inst->has_metadata = 1;
    for (uint32_t i = 0; i < inst->tags.simple_tag_count; ++i) {
        const qmkvd_simple_tag *t = &inst->tags.simple_tags[i];
        const int item = item_of_tag(t->tag_name);
        if (item < 0 || t->tag_string[0] == '\0' || inst->meta.items[item].data != nullptr) continue;
        if (!set_item(&inst->meta.items[item], t->tag_string)) return;
    }
}

}  // namespace

bool qmkvd_support_lacing(uint32_t codec_type) {
    switch (codec_type) {
        case 1: case 3: case 0x50: case 0x55: case 0x2000: case 0xF1AC:
        case QMKVD_FOURCC('e', 'c', '-', '3'):
        case QMKVD_FOURCC('l', 'p', 'c', 'm'):
            return true;
        default:
            return false;
    }
}

qmkvd *qmkvd_create(QCMN_MFAL *mfal, const uint32_t *open_params, qmkvd_format *format, int32_t *error_out) {
    int32_t unused_error;
    if (error_out == nullptr) error_out = &unused_error;
    if (mfal == nullptr || format == nullptr || mfal->open == nullptr) {
        *error_out = QMKVD_ERR_IO;
        return nullptr;
    }
    QCMN_MFAL_FP *probe = mfal->open(mfal, 0);
    if (probe == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "[qmkv_create] file open failed");
        *error_out = QMKVD_ERR_IO;
        return nullptr;
    }
    mfal->close(probe);

    qmkvd *inst = static_cast<qmkvd *>(calloc(1, sizeof(qmkvd)));
    if (inst == nullptr) {
        *error_out = QMKVD_ERR_BUFFER;
        return nullptr;
    }
    memset(format, 0, sizeof(*format));
    inst->self = inst;
    inst->magic = QMKVD_MAGIC;
    pthread_mutex_init(&inst->seek_lock, nullptr);
    pthread_mutex_init(&inst->window_lock, nullptr);
    inst->mfal = *mfal;

    if (qmkvd_header_parse(inst) != 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "[qmkvd_create] header parsing failed");
        qmkvd_delete(inst);
        *error_out = QMKVD_ERR_HEADER;
        return nullptr;
    }
    if (inst->stream_count == 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "stream count == 0!!!");
        qmkvd_delete(inst);
        *error_out = QMKVD_ERR_NOT_OPEN;
        return nullptr;
    }

    find_duration(inst);
    setup_streams(inst, open_params != nullptr ? *open_params : 0, format);
    format->track_count = inst->stream_count;
    format->duration = duration_100ns(inst);
    format->seekable = 1;

    inst->meta.year = inst->meta.track_number = inst->meta.track_total = -1;
    inst->meta.disc_number = inst->meta.compilation = -1;
    collect_metadata(inst);
    if (inst->release_year != 0) inst->meta.year = (int32_t)inst->release_year;
    format->meta = inst->has_metadata ? &inst->meta : nullptr;
    if (inst->found_cluster) {
        format->index_entries[format->index_count++] = qmkvd_index_entry{
            QMKVD_INDEX_FIRST_CLUSTER, (uint64_t)inst->first_cluster_pos, inst->first_cluster_size};
    }
    if (inst->found_cues) {
        format->index_entries[format->index_count++] =
            qmkvd_index_entry{QMKVD_INDEX_CUES, (uint64_t)inst->cues.cues_pos, inst->cues.cues_size};
    }
    *error_out = QMKVD_OK;
    return inst;
}

void qmkvd_delete(qmkvd *handle) {
    if (handle == nullptr || handle->magic != QMKVD_MAGIC) return;
    free(handle->cues.cue_points);
    free(handle->tags.simple_tags);
    for (qmkvd_metadata_item &item : handle->meta.items) free(item.data);
    // Scratch records own the buffers of kept tracks (the slots hold copies).
    for (uint32_t i = 0; i < handle->track_scratch_count; ++i) qmkvd_track_free(&handle->track_scratch[i]);
    for (int32_t i = 0; i < handle->stream_count; ++i)
        if (handle->streams[i].opened) qmkvds_close(&handle->streams[i]);
    for (qmkvd_cluster_node *node = handle->cluster_list; node != nullptr;) {
        qmkvd_cluster_node *next = node->next;
        free(node);
        node = next;
    }
    handle->magic = 0;
    pthread_mutex_destroy(&handle->seek_lock);
    pthread_mutex_destroy(&handle->window_lock);
    free(handle);
}
