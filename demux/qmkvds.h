// Stream handles: one track's frames, one at a time, with times and key flags.
#ifndef QMKVDS_H_
#define QMKVDS_H_

#include "common/qcmn_export.h"
#include "demux/qmkvd_types.h"

// Opens the stream of track `index`; *err (optional) gets 0, -3 or -4.
QCMN_API qmkvds *qmkvds_open(struct qmkvd *demux, int32_t index, int32_t *err);
QCMN_API void qmkvds_close(qmkvds *stream);

// The next frame into `buf` (or, with `buf` null, only its size: the same
// frame is delivered by the next call with a buffer). 0 frame, 1 end of
// stream, negative error (-1 read, -2 not open or no key frame after a
// seek, -3 laced NAL track, -4 read/allocation, -7 argument, -8 buffer too
// small). `pts`/`end` (100 ns) are set only when both are given.
QCMN_API int32_t qmkvds_get_frm(qmkvds *stream, uint8_t *buf, uint32_t buf_size, uint32_t *size, int64_t *pts,
                                int64_t *end, uint32_t *key);
// Whole block per call (video, subtitles, audio that takes many frames at once).
QCMN_API int32_t qmkvds_get_frm_default(qmkvds *stream, uint8_t *buf, uint32_t buf_size, uint32_t *size,
                                        int64_t *pts, int64_t *end, uint32_t *key);
// One laced frame per call.
QCMN_API int32_t qmkvds_get_frm_onebyone(qmkvds *stream, uint8_t *buf, uint32_t buf_size, uint32_t *size,
                                         int64_t *pts, int64_t *end, uint32_t *key);

// Block time from its timecodes; synthetic time from the frame count.
QCMN_API int64_t get_time_pts(qmkvds *stream, uint64_t cluster_timecode, int16_t relative_timecode);
QCMN_API int64_t get_time_dts(qmkvds *stream, uint64_t cluster_timecode, int16_t relative_timecode);

#endif  // QMKVDS_H_
