// TrackEntries the demuxer could not carry, kept so that a tool can say why
// a track is missing; the framework never sees them.
#ifndef QMKVD_DROPPED_H_
#define QMKVD_DROPPED_H_

#include "common/qcmn_export.h"
#include "demux/qmkvd_types.h"

// Adds `track`, whose entry is being dropped, to the instance's list.
void qmkvd_note_dropped(struct qmkvd *inst, const qmkvd_track *track);

// The dropped TrackEntries in file order: a count query with a null table,
// then the table. 0, -7 (bad handle or arguments), -8 (capacity too small).
// *count is set in every case but -7.
QCMN_API int32_t qmkvd_get_dropped_tracks(const struct qmkvd *handle, qmkvd_dropped_track *table, uint32_t capacity,
                                          uint32_t *count);

#endif  // QMKVD_DROPPED_H_
