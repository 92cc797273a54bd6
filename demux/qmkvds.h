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

// Where the block of the frame last read (or held by a size query) lies:
// the file position of its data, how many frames are laced in it, and the
// data position and start time (100 ns) of its Cluster. 0; -3 before the
// first block; -2 not open; -7 bad handle or a missing argument.
QCMN_API int32_t qmkvds_get_block_pos(qmkvds *stream, int64_t *block_pos, uint32_t *frames, int64_t *cluster_pos,
                                      int64_t *cluster_time);

// Block time from its timecodes; synthetic time from the frame count.
QCMN_API int64_t get_time_pts(qmkvds *stream, uint64_t cluster_timecode, int16_t relative_timecode);
QCMN_API int64_t get_time_dts(qmkvds *stream, uint64_t cluster_timecode, int16_t relative_timecode);

// Seek modes: the sync point at or before the time, at or after it, one cue
// before the cue the last seek used, the nearest.
enum {
    QMKVDS_SEEK_PREVIOUS = 0,
    QMKVDS_SEEK_NEXT = 1,
    QMKVDS_SEEK_PREVIOUS_CUE = 2,
    QMKVDS_SEEK_CLOSEST = 3,
};

// Positions the stream so that the next frame read is the chosen point;
// *result_time (100 ns) gets its time. 0, 1 (nothing at or after the time),
// -1 read failure, -2 not open or no key frame in reach, -3 impossible
// (mode, cues, cluster), -7 bad handle.
QCMN_API int32_t qmkvds_seek(qmkvds *stream, const uint64_t *time, int64_t *result_time, int32_t mode);
// Without cues: to the first frame of the track at or after the time that
// is a key frame (any frame for non-video tracks).
QCMN_API int32_t qmkvds_seek_crawl(qmkvds *stream, const uint64_t *time, int64_t *result_time, int32_t mode);
// Builds the list of the file's Clusters with their start times, shared by
// its streams (demux->cluster_list), through this stream's file object;
// nothing when it exists already.
QCMN_API int32_t qmkvds_make_cluster_list(qmkvds *stream);
// The last Cluster starting at or before `time_ns` (the first when all start
// later), or null for an empty list.
QCMN_API qmkvd_cluster_node *qmkvds_find_cluster_list(qmkvd_cluster_node *head, int64_t time_ns);

// Key-frame times (cue times of a video track) as 16-byte entries: a size
// query with a null table, then the table. 0, -2, -3 (no cues for this
// track / not video), -7, -8 (capacity too small).
typedef struct qmkvd_idx_entry {
    uint32_t flags;
    uint32_t reserved;
    int64_t time;  // 100 ns
} qmkvd_idx_entry;

QCMN_API int32_t qmkvd_get_idx_table(struct qmkvd *handle, int32_t index, qmkvd_idx_entry *table, uint32_t capacity,
                                     uint32_t *size, uint32_t *count);
QCMN_API int32_t qmkvds_get_idx_table(qmkvds *stream, qmkvd_idx_entry *table, uint32_t capacity, uint32_t *size,
                                      uint32_t *count);

#endif  // QMKVDS_H_
