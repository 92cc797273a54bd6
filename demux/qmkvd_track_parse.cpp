#include <stddef.h>
#include <stdlib.h>
#include <string.h>

#include <android/log.h>

#include "demux/qmkvd_dropped.h"
#include "demux/qmkvd_float.h"
#include "demux/qmkvd_parse.h"
#include "demux/qmkvd_walk.h"

namespace {

enum {
    ID_TRACK_ENTRY = 0xAE,
    ID_TRACK_TYPE = 0x83,
    ID_VIDEO = 0xE0,
    ID_AUDIO = 0xE1,
    ID_CONTENT_ENCODINGS = 0x6D80,
    ID_CONTENT_ENCODING = 0x6240,
    ID_CONTENT_COMPRESSION = 0x5034,
    ID_CONTENT_ENCRYPTION = 0x5035,
    ID_COLOUR = 0x55B0,
    ID_MASTERING = 0x55D0,
};

const float kChromaticityMax = 1.0f;
const float kLuminanceMaxMax = 9999.99f;
const float kLuminanceMinMax = 999.9999f;

qmkvd_io io_of(QCMN_MFAL *mfal, QCMN_MFAL_FP *fp) { return qmkvd_io{mfal, fp}; }

#define FIELD(id, kind, type, member) {id, kind, (uint32_t)offsetof(type, member), 0, nullptr}
#define STRING_FIELD(id, type, member) \
    {id, QMKVD_FIELD_STRING, (uint32_t)offsetof(type, member), (uint32_t)sizeof(((type *)0)->member), nullptr}
#define CALL(id, fn) {id, QMKVD_FIELD_CALL, 0, 0, fn}

// ---- Mastering metadata -------------------------------------------------

void free_mastering(qmkvd_mastering *m) {
    free(m->primary_r);
    free(m->primary_g);
    free(m->primary_b);
    free(m->white_point);
}

// Chromaticities come as X/Y element pairs; each pair is allocated when
// the first of its two elements is met.
int32_t on_chromaticity(qmkvd_fields *f, const qmkvd_io *io, qmkvd_child *child) {
    qmkvd_mastering *m = static_cast<qmkvd_mastering *>(f->record);
    qmkvd_chromaticity **pairs[] = {&m->primary_r, &m->primary_g, &m->primary_b, &m->white_point};
    const uint32_t k = child->id - 0x55D1;  // 0x55D1..0x55D8: R x/y, G x/y, B x/y, white x/y
    float v;
    if (qmkvd_read_float_bits32(io, child, &v) != 0) return -1;
    qmkvd_chromaticity **pair = pairs[k / 2];
    if (*pair == nullptr) {
        *pair = static_cast<qmkvd_chromaticity *>(calloc(1, sizeof(qmkvd_chromaticity)));
        if (*pair == nullptr) return -1;
    }
    if (v >= 0 && v <= kChromaticityMax) ((k & 1) ? (*pair)->y : (*pair)->x) = v;
    return 0;
}

int32_t on_luminance(qmkvd_fields *f, const qmkvd_io *io, qmkvd_child *child) {
    qmkvd_mastering *m = static_cast<qmkvd_mastering *>(f->record);
    float v;
    if (qmkvd_read_float_bits32(io, child, &v) != 0) return -1;
    const bool is_max = child->id == 0x55D9;
    if (!(v >= 0 && v <= (is_max ? kLuminanceMaxMax : kLuminanceMinMax))) return 0;
    memcpy(is_max ? &m->luminance_max : &m->luminance_min, &v, sizeof(v));
    return 0;
}

const qmkvd_syntax kMasteringSyntax[] = {
    CALL(0x55D1, on_chromaticity), CALL(0x55D2, on_chromaticity), CALL(0x55D3, on_chromaticity),
    CALL(0x55D4, on_chromaticity), CALL(0x55D5, on_chromaticity), CALL(0x55D6, on_chromaticity),
    CALL(0x55D7, on_chromaticity), CALL(0x55D8, on_chromaticity), CALL(0x55D9, on_luminance),
    CALL(0x55DA, on_luminance),
};

// ---- Colour ---------------------------------------------------------------

int32_t on_mastering(qmkvd_fields *f, const qmkvd_io *io, qmkvd_child *child) {
    qmkvd_colour *c = static_cast<qmkvd_colour *>(f->record);
    if (c->mastering == nullptr) {
        c->mastering = static_cast<qmkvd_mastering *>(calloc(1, sizeof(qmkvd_mastering)));
        if (c->mastering == nullptr) return -1;
    }
    c->mastering->mastering_pos = (uint64_t)child->pos;
    c->mastering->mastering_size = (int64_t)child->size;
    return parse_mastering_metadata(f->inst, io->mfal, io->fp, c->mastering);
}

#define COLOUR_VALUE(id, member) FIELD(id, QMKVD_FIELD_U64_LOW32, qmkvd_colour, member)

const qmkvd_syntax kColourSyntax[] = {
    COLOUR_VALUE(0x55B1, matrix_coefficients),
    COLOUR_VALUE(0x55B2, bits_per_channel),
    COLOUR_VALUE(0x55B3, chroma_subsampling_horz),
    COLOUR_VALUE(0x55B4, chroma_subsampling_vert),
    COLOUR_VALUE(0x55B5, cb_subsampling_horz),
    COLOUR_VALUE(0x55B6, cb_subsampling_vert),
    COLOUR_VALUE(0x55B7, chroma_siting_horz),
    COLOUR_VALUE(0x55B8, chroma_siting_vert),
    COLOUR_VALUE(0x55B9, range),
    COLOUR_VALUE(0x55BA, transfer_characteristics),
    COLOUR_VALUE(0x55BB, primaries),
    COLOUR_VALUE(0x55BC, max_cll),
    COLOUR_VALUE(0x55BD, max_fall),
    CALL(ID_MASTERING, on_mastering),
};

// ---- Video ----------------------------------------------------------------

int32_t on_colour(qmkvd_fields *f, const qmkvd_io *io, qmkvd_child *child) {
    qmkvd_video *v = static_cast<qmkvd_video *>(f->record);
    if (v->colour == nullptr) {
        v->colour = static_cast<qmkvd_colour *>(calloc(1, sizeof(qmkvd_colour)));
        if (v->colour == nullptr) return -1;
    }
    v->colour->colour_pos = child->pos;
    v->colour->colour_size = (int64_t)child->size;
    return parse_colour(f->inst, io->mfal, io->fp, v->colour);
}

const qmkvd_syntax kVideoSyntax[] = {
    FIELD(0xB0, QMKVD_FIELD_U32, qmkvd_video, pixel_width),
    FIELD(0xBA, QMKVD_FIELD_U32, qmkvd_video, pixel_height),
    FIELD(0x54AA, QMKVD_FIELD_U32, qmkvd_video, pixel_crop_bottom),
    FIELD(0x54BB, QMKVD_FIELD_U32, qmkvd_video, pixel_crop_top),
    FIELD(0x54CC, QMKVD_FIELD_U32, qmkvd_video, pixel_crop_left),
    FIELD(0x54DD, QMKVD_FIELD_U32, qmkvd_video, pixel_crop_right),
    FIELD(0x54B0, QMKVD_FIELD_U32, qmkvd_video, display_width),
    FIELD(0x54BA, QMKVD_FIELD_U32, qmkvd_video, display_height),
    FIELD(0x54B2, QMKVD_FIELD_U32, qmkvd_video, display_unit),
    CALL(ID_COLOUR, on_colour),
};

// ---- Audio ----------------------------------------------------------------

int32_t on_sampling_frequency(qmkvd_fields *f, const qmkvd_io *io, qmkvd_child *child) {
    qmkvd_audio *a = static_cast<qmkvd_audio *>(f->record);
    uint64_t bits;
    if (qmkvd_read_uint(io, child, &bits) != 0) return -1;
    double hz;
    if (child->size == 8) {
        memcpy(&hz, &bits, sizeof(hz));
    } else if (child->size == 4) {
        const uint32_t b32 = (uint32_t)bits;
        float f32;
        memcpy(&f32, &b32, sizeof(f32));
        hz = f32;
    } else {
        return 0;
    }
    a->sampling_frequency = (uint32_t)qmkvd_d2i32(hz);
    a->output_sampling_frequency = a->sampling_frequency;
    return 0;
}

int32_t on_output_sampling_frequency(qmkvd_fields *f, const qmkvd_io *io, qmkvd_child *child) {
    qmkvd_audio *a = static_cast<qmkvd_audio *>(f->record);
    float hz;
    if (qmkvd_read_float_bits32(io, child, &hz) != 0) return -1;
    a->output_sampling_frequency = (uint32_t)qmkvd_d2i32(hz);
    return 0;
}

const qmkvd_syntax kAudioSyntax[] = {
    CALL(0xB5, on_sampling_frequency),
    CALL(0x78B5, on_output_sampling_frequency),
    FIELD(0x9F, QMKVD_FIELD_U32, qmkvd_audio, channels),
    FIELD(0x6264, QMKVD_FIELD_U32, qmkvd_audio, bit_depth),
};

// ---- Content encodings ------------------------------------------------------

int32_t on_comp_settings(qmkvd_fields *f, const qmkvd_io *io, qmkvd_child *child) {
    qmkvd_compression *c = static_cast<qmkvd_compression *>(f->record);
    uint8_t *data = nullptr;
    uint32_t size = 0;
    if (qmkvd_read_alloc(io, child, f->inst != nullptr ? f->inst->file_size : 0, &data, &size) != 0) return -1;
    free(c->comp_settings);  // a repeated element replaces the earlier one
    c->comp_settings = data;
    c->comp_settings_size = size;
    return 0;
}

const qmkvd_syntax kContentCompSyntax[] = {
    FIELD(0x4254, QMKVD_FIELD_U32, qmkvd_compression, comp_algo),
    CALL(0x4255, on_comp_settings),
};

int32_t on_content_compression(qmkvd_fields *f, const qmkvd_io *io, qmkvd_child *child) {
    qmkvd_encoding *e = static_cast<qmkvd_encoding *>(f->record);
    e->compression.compression_pos = child->pos;
    e->compression.compression_size = (uint32_t)child->size;
    e->compression.comp_algo = 0;
    if (parse_contentcomp(f->inst, io->mfal, io->fp, &e->compression) != 0) return -1;
    if (e->compression.comp_algo != QMKVD_COMP_HEADER_STRIPPING) {
        e->unsupported = QMKVD_DROP_COMPRESSION;
        __android_log_print(ANDROID_LOG_WARN, nullptr, "parse_contentencoding : %d algorism is not supported",
                            (int)e->compression.comp_algo);
        return -1;
    }
    return 0;
}

int32_t on_content_encryption(qmkvd_fields *f, const qmkvd_io *, qmkvd_child *child) {
    qmkvd_encoding *e = static_cast<qmkvd_encoding *>(f->record);
    e->encryption_pos = child->pos;
    e->encryption_size = (uint32_t)child->size;
    e->unsupported = QMKVD_DROP_ENCRYPTION;
    __android_log_print(ANDROID_LOG_WARN, nullptr, "parse_contentencoding : encryption type is not supported");
    return -1;
}

const qmkvd_syntax kContentEncodingSyntax[] = {
    FIELD(0x5031, QMKVD_FIELD_U32, qmkvd_encoding, encoding_order),
    FIELD(0x5033, QMKVD_FIELD_U32, qmkvd_encoding, encoding_type),
    CALL(ID_CONTENT_COMPRESSION, on_content_compression),
    CALL(ID_CONTENT_ENCRYPTION, on_content_encryption),
};

int32_t on_content_encoding(qmkvd_fields *f, const qmkvd_io *io, qmkvd_child *child) {
    qmkvd_content_encodings *ce = static_cast<qmkvd_content_encodings *>(f->record);
    // Only the first encoding is read; the others are counted.
    if (ce->encoding_count++ > 0) return 0;
    ce->encoding.encoding_pos = child->pos;
    ce->encoding.encoding_size = (uint32_t)child->size;
    return parse_contentencoding(f->inst, io->mfal, io->fp, &ce->encoding);
}

const qmkvd_syntax kContentEncodingsSyntax[] = {
    CALL(ID_CONTENT_ENCODING, on_content_encoding),
};

// ---- Track entry ------------------------------------------------------------

// TrackType is taken from its first byte whatever its size, and the walk
// steps one byte on from there.
int32_t on_track_type(qmkvd_fields *f, const qmkvd_io *io, qmkvd_child *child) {
    qmkvd_track *t = static_cast<qmkvd_track *>(f->record);
    if (child->size == 0) {
        t->track_type = 0;
        return 0;
    }
    if (io->mfal->read(io->fp, &t->track_type, 1) != 1) return -1;
    child->next = child->pos + 1;
    return 0;
}

// TrackTimecodeScale is a float written where an integer is expected.
int32_t on_track_timecode_scale(qmkvd_fields *f, const qmkvd_io *io, qmkvd_child *child) {
    qmkvd_track *t = static_cast<qmkvd_track *>(f->record);
    float scale;
    if (qmkvd_read_float_bits32(io, child, &scale) != 0) return -1;
    t->track_timecode_scale = qmkvd_d2u32(scale);
    return 0;
}

int32_t on_codec_private(qmkvd_fields *f, const qmkvd_io *io, qmkvd_child *child) {
    qmkvd_track *t = static_cast<qmkvd_track *>(f->record);
    uint8_t *data = nullptr;
    uint32_t size = 0;
    if (qmkvd_read_alloc(io, child, f->inst != nullptr ? f->inst->file_size : 0, &data, &size) != 0) return -1;
    free(t->codec_private);  // a repeated element replaces the earlier one
    t->codec_private = data;
    t->codec_private_size = size;
    return 0;
}

int32_t on_video(qmkvd_fields *f, const qmkvd_io *io, qmkvd_child *child) {
    qmkvd_track *t = static_cast<qmkvd_track *>(f->record);
    t->video.video_pos = child->pos;
    t->video.video_size = (uint32_t)child->size;
    return parse_video(f->inst, io->mfal, io->fp, &t->video);
}

int32_t on_audio(qmkvd_fields *f, const qmkvd_io *io, qmkvd_child *child) {
    qmkvd_track *t = static_cast<qmkvd_track *>(f->record);
    t->audio.audio_pos = child->pos;
    t->audio.audio_size = (uint32_t)child->size;
    return parse_audio(f->inst, io->mfal, io->fp, &t->audio);
}

int32_t on_content_encodings(qmkvd_fields *f, const qmkvd_io *io, qmkvd_child *child) {
    qmkvd_track *t = static_cast<qmkvd_track *>(f->record);
    t->content_encodings.content_encodings_pos = child->pos;
    t->content_encodings.content_encodings_size = (uint32_t)child->size;
    return parse_contentencodings(f->inst, io->mfal, io->fp, &t->content_encodings);
}

const qmkvd_syntax kTrackEntrySyntax[] = {
    FIELD(0xD7, QMKVD_FIELD_U32, qmkvd_track, track_number),
    FIELD(0x73C5, QMKVD_FIELD_U64_LOW32, qmkvd_track, track_uid),
    CALL(ID_TRACK_TYPE, on_track_type),
    FIELD(0xB9, QMKVD_FIELD_U8, qmkvd_track, flag_enabled),
    FIELD(0x88, QMKVD_FIELD_U8, qmkvd_track, flag_default),
    FIELD(0x55AA, QMKVD_FIELD_U8, qmkvd_track, flag_forced),
    FIELD(0x9C, QMKVD_FIELD_U8, qmkvd_track, flag_lacing),
    FIELD(0x6DE7, QMKVD_FIELD_U32, qmkvd_track, min_cache),
    FIELD(0x6DF8, QMKVD_FIELD_U32, qmkvd_track, max_cache),
    FIELD(0x23E383, QMKVD_FIELD_U32, qmkvd_track, default_duration),
    CALL(0x23314F, on_track_timecode_scale),
    FIELD(0x55EE, QMKVD_FIELD_U32, qmkvd_track, max_block_addition_id),
    STRING_FIELD(0x536E, qmkvd_track, name),
    STRING_FIELD(0x22B59C, qmkvd_track, language),
    STRING_FIELD(0x86, qmkvd_track, codec_id),
    CALL(0x63A2, on_codec_private),
    STRING_FIELD(0x258688, qmkvd_track, codec_name),
    FIELD(0x7446, QMKVD_FIELD_U32, qmkvd_track, attachment_link),
    FIELD(0x6FAB, QMKVD_FIELD_U32, qmkvd_track, track_overlay),
    FIELD(0x56BB, QMKVD_FIELD_U64_LOW32, qmkvd_track, seek_pre_roll),
    FIELD(0x56AA, QMKVD_FIELD_U64_LOW32, qmkvd_track, codec_delay),
    CALL(ID_VIDEO, on_video),
    CALL(ID_AUDIO, on_audio),
    CALL(ID_CONTENT_ENCODINGS, on_content_encodings),
};

// ---- Tracks -------------------------------------------------------------------

int32_t on_track_entry(void *ctx, const qmkvd_io *io, qmkvd_child *child) {
    qmkvd *inst = static_cast<qmkvd *>(ctx);
    if (child->id != ID_TRACK_ENTRY) return QMKVD_WALK_CONTINUE;
    // The counter counts kept entries; reaching the table's size fails the file.
    if (++inst->track_scratch_count >= QMKVD_MAX_TRACKS) return -1;
    qmkvd_track *t = &inst->track_scratch[inst->track_scratch_count - 1];
    memset(t, 0, sizeof(*t));
    t->entry_pos = child->pos;
    t->entry_size = (uint32_t)child->size;
    if (parse_track_entry(inst, io->mfal, io->fp, t) == 0) {
        inst->streams[inst->stream_count].track = *t;
        inst->stream_count++;
    } else {
        // A broken or unsupported entry is dropped and gives its place back.
        qmkvd_note_dropped(inst, t);
        qmkvd_track_free(t);
        memset(t, 0, sizeof(*t));
        inst->track_scratch_count--;
    }
    return QMKVD_WALK_CONTINUE;
}

// Matroska's defaults for children a writer may leave out (mkvmerge omits
// those that hold their default): one audio channel at 8000 Hz, the output
// frequency following the sampling frequency, and a display size equal to
// the cropped picture when it is measured in pixels. Zero is outside the
// range of each of these elements, so a written zero reads as an omitted one.
void apply_defaults(qmkvd_track *t) {
    if (t->track_type == QMKVD_TRACK_AUDIO) {
        qmkvd_audio *a = &t->audio;
        if (a->channels == 0) a->channels = 1;
        if (a->sampling_frequency == 0) a->sampling_frequency = 8000;
        if (a->output_sampling_frequency == 0) a->output_sampling_frequency = a->sampling_frequency;
    } else if (t->track_type == QMKVD_TRACK_VIDEO && t->video.display_unit == 0) {
        qmkvd_video *v = &t->video;
        const uint64_t crop_w = (uint64_t)v->pixel_crop_left + v->pixel_crop_right;
        const uint64_t crop_h = (uint64_t)v->pixel_crop_top + v->pixel_crop_bottom;
        if (v->display_width == 0 && v->pixel_width > crop_w) v->display_width = (uint32_t)(v->pixel_width - crop_w);
        if (v->display_height == 0 && v->pixel_height > crop_h)
            v->display_height = (uint32_t)(v->pixel_height - crop_h);
    }
}

}  // namespace

void qmkvd_track_free(qmkvd_track *track) {
    free(track->codec_private);
    track->codec_private = nullptr;
    qmkvd_colour *colour = track->video.colour;
    if (colour != nullptr) {
        if (colour->mastering != nullptr) free_mastering(colour->mastering);
        free(colour->mastering);
        free(colour);
        track->video.colour = nullptr;
    }
    free(track->content_encodings.encoding.compression.comp_settings);
    track->content_encodings.encoding.compression.comp_settings = nullptr;
}

int32_t parse_track(qmkvd *inst, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, qmkvd_element *tracks) {
    if (inst->track_scratch_count >= QMKVD_MAX_TRACKS) return -1;
    const qmkvd_io io = io_of(mfal, fp);
    return qmkvd_walk(&io, tracks->pos, tracks->size, QMKVD_WALK_REFUSE_HUGE, on_track_entry, inst);
}

int32_t parse_track_entry(qmkvd *inst, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, qmkvd_track *track) {
    strcpy(track->language, "eng");
    const qmkvd_io io = io_of(mfal, fp);
    if (qmkvd_parse_fields(inst, &io, track->entry_pos, track->entry_size, 0, kTrackEntrySyntax,
                           QMKVD_SYNTAX_COUNT(kTrackEntrySyntax), track) != 0)
        return -1;
    apply_defaults(track);
    return 0;
}

int32_t parse_video(qmkvd *inst, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, qmkvd_video *video) {
    const qmkvd_io io = io_of(mfal, fp);
    return qmkvd_parse_fields(inst, &io, video->video_pos, video->video_size, QMKVD_WALK_STOP_OVERSIZED,
                              kVideoSyntax, QMKVD_SYNTAX_COUNT(kVideoSyntax), video);
}

int32_t parse_colour(qmkvd *inst, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, qmkvd_colour *colour) {
    uint64_t *values[] = {&colour->matrix_coefficients, &colour->bits_per_channel,
                          &colour->chroma_subsampling_horz, &colour->chroma_subsampling_vert,
                          &colour->cb_subsampling_horz, &colour->cb_subsampling_vert,
                          &colour->chroma_siting_horz, &colour->chroma_siting_vert,
                          &colour->range, &colour->transfer_characteristics,
                          &colour->primaries, &colour->max_cll, &colour->max_fall};
    for (uint64_t *v : values) *v = QMKVD_COLOUR_ABSENT;
    if (colour->mastering != nullptr) {  // a repeated Colour starts afresh
        free_mastering(colour->mastering);
        free(colour->mastering);
    }
    colour->mastering = nullptr;
    const qmkvd_io io = io_of(mfal, fp);
    return qmkvd_parse_fields(inst, &io, colour->colour_pos, (uint64_t)colour->colour_size,
                              QMKVD_WALK_STOP_OVERSIZED, kColourSyntax, QMKVD_SYNTAX_COUNT(kColourSyntax), colour);
}

int32_t parse_mastering_metadata(qmkvd *inst, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, qmkvd_mastering *mastering) {
    free_mastering(mastering);
    mastering->primary_r = mastering->primary_g = mastering->primary_b = mastering->white_point = nullptr;
    mastering->luminance_max = mastering->luminance_min = 0;
    const qmkvd_io io = io_of(mfal, fp);
    return qmkvd_parse_fields(inst, &io, (int64_t)mastering->mastering_pos, (uint64_t)mastering->mastering_size,
                              QMKVD_WALK_STOP_OVERSIZED, kMasteringSyntax, QMKVD_SYNTAX_COUNT(kMasteringSyntax),
                              mastering);
}

int32_t parse_audio(qmkvd *inst, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, qmkvd_audio *audio) {
    const qmkvd_io io = io_of(mfal, fp);
    return qmkvd_parse_fields(inst, &io, audio->audio_pos, audio->audio_size, QMKVD_WALK_REFUSE_HUGE, kAudioSyntax,
                              QMKVD_SYNTAX_COUNT(kAudioSyntax), audio);
}

int32_t parse_contentencodings(qmkvd *inst, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp,
                               qmkvd_content_encodings *encodings) {
    const qmkvd_io io = io_of(mfal, fp);
    return qmkvd_parse_fields(inst, &io, encodings->content_encodings_pos, encodings->content_encodings_size, 0,
                              kContentEncodingsSyntax, QMKVD_SYNTAX_COUNT(kContentEncodingsSyntax), encodings);
}

int32_t parse_contentencoding(qmkvd *inst, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, qmkvd_encoding *encoding) {
    const qmkvd_io io = io_of(mfal, fp);
    return qmkvd_parse_fields(inst, &io, encoding->encoding_pos, encoding->encoding_size, 0,
                              kContentEncodingSyntax, QMKVD_SYNTAX_COUNT(kContentEncodingSyntax), encoding);
}

int32_t parse_contentcomp(qmkvd *inst, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, qmkvd_compression *compression) {
    const qmkvd_io io = io_of(mfal, fp);
    return qmkvd_parse_fields(inst, &io, compression->compression_pos, compression->compression_size,
                              QMKVD_WALK_STOP_OVERSIZED, kContentCompSyntax, QMKVD_SYNTAX_COUNT(kContentCompSyntax),
                              compression);
}
