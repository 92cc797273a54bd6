#include <stddef.h>
#include <string.h>

#include "demux/qmkvd_float.h"
#include "demux/qmkvd_parse.h"
#include "demux/qmkvd_walk.h"

namespace {

const uint32_t kDefaultTimecodeScale = 1000000;

// Duration is a float count of ticks. A 4-byte one keeps only its integer
// part; a zero duration, or one of an odd width with none before it, is
// taken as one tick.
int32_t on_duration(qmkvd_fields *f, const qmkvd_io *io, qmkvd_child *child) {
    qmkvd_segment_info *info = static_cast<qmkvd_segment_info *>(f->record);
    uint64_t bits;
    if (qmkvd_read_uint(io, child, &bits) != 0) return -1;
    if (child->size == 8) {
        memcpy(&info->duration, &bits, sizeof(info->duration));
        info->duration_ticks = qmkvd_d2u64(info->duration);
    } else if (child->size == 4) {
        const uint32_t b32 = (uint32_t)bits;
        float f32;
        memcpy(&f32, &b32, sizeof(f32));
        info->duration_ticks = qmkvd_d2u64(f32);
        info->duration = (double)info->duration_ticks;
    } else if (info->duration_ticks != 0) {
        return 0;
    }
    if (info->duration_ticks == 0) {
        info->duration_ticks = 1;
        info->duration = 1.0;
    }
    return 0;
}

#define FIELD(id, kind, member) {id, kind, (uint32_t)offsetof(qmkvd_segment_info, member), 0, nullptr}
#define SIZED(id, kind, member) \
    {id, kind, (uint32_t)offsetof(qmkvd_segment_info, member), \
     (uint32_t)sizeof(((qmkvd_segment_info *)0)->member), nullptr}

const qmkvd_syntax kInfoSyntax[] = {
    SIZED(0x7384, QMKVD_FIELD_STRING, segment_filename),
    SIZED(0x73A4, QMKVD_FIELD_RAW, segment_uid),
    SIZED(0x3C83AB, QMKVD_FIELD_STRING, prev_filename),
    SIZED(0x3CB923, QMKVD_FIELD_RAW, prev_uid),
    SIZED(0x3E83BB, QMKVD_FIELD_STRING, next_filename),
    SIZED(0x3EB923, QMKVD_FIELD_RAW, next_uid),
    FIELD(0x2AD7B1, QMKVD_FIELD_U32, timecode_scale),
    {0x4489, QMKVD_FIELD_CALL, 0, 0, on_duration},
    SIZED(0x7BA9, QMKVD_FIELD_STRING, title),
    SIZED(0x4D80, QMKVD_FIELD_STRING, muxing_app),
    SIZED(0x5741, QMKVD_FIELD_STRING, writing_app),
    FIELD(0x4461, QMKVD_FIELD_U64, date_utc),
};

}  // namespace

int32_t parse_segmentinfo(qmkvd *inst, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, qmkvd_segment_info *info) {
    const qmkvd_io io = {mfal, fp};
    const int32_t r = qmkvd_parse_fields(inst, &io, info->info_pos, info->info_size, QMKVD_WALK_STOP_OVERSIZED | QMKVD_WALK_PASS_EMPTY,
                                         kInfoSyntax, QMKVD_SYNTAX_COUNT(kInfoSyntax), info);
    if (info->timecode_scale == 0) info->timecode_scale = kDefaultTimecodeScale;
    return r;
}
