// The Cues index: loading it into the instance, per-track cue lists, and
// the time searches over both.
#ifndef QMKVD_CUES_H_
#define QMKVD_CUES_H_

#include "common/qcmn_export.h"
#include "demux/qmkvd_types.h"

// Search modes of qmkvd_get_searchidx / qmkvd_get_searchidx2; any other
// value means "the last entry at or before the time".
enum {
    QMKVD_SEARCH_AT_OR_AFTER = 1,
    QMKVD_SEARCH_NEAREST = 3,
};

#define QMKVD_SEARCH_NONE 0xFFFFFFFFu

// Reads the whole Cues element at cues->cues_pos/cues_size into
// cues->cue_points. 0, or -1 for a damaged element.
QCMN_API int32_t parse_cues_ctx_fast(struct qmkvd *inst, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, qmkvd_cue_table *cues);

// Fills `list` (owned by the caller, freed with free(list->entries)) with
// the cue points of one track, in table order. 0 or -1.
QCMN_API int32_t get_seek_from_cues(struct qmkvd *inst, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, qmkvd_cue_table *cues,
                                    qmkvd_cue_list *list, uint32_t track_number);

// Index of the cue for `time` (100 ns) or QMKVD_SEARCH_NONE.
QCMN_API uint32_t qmkvd_get_searchidx(struct qmkvd *inst, int64_t time, int32_t mode);
QCMN_API uint32_t qmkvd_get_searchidx2(struct qmkvd *inst, int64_t time, qmkvd_cue_list *list, int32_t mode);

#endif  // QMKVD_CUES_H_
