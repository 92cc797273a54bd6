// The time rows of the picture of a file: one lane per track with its
// frames, and the shared rows of Cluster starts and cue points. Everything
// is thinned to pixel columns; a column with a key frame or a cue always
// shows it.
#ifndef QMKVPROBE_MAP_LANES_H_
#define QMKVPROBE_MAP_LANES_H_

#include <cairo.h>

#include "map_canvas.h"
#include "map_data.h"

namespace qmkvprobe {

// Frames as bars as high as their size (the track's largest fills the
// lane), key frames dark with a tick above when the track has other
// frames too, laced blocks on an orange strip below, gaps shaded red (up
// to `end`, where the file says it ends).
void drawLane(cairo_t *cr, const MapTrack &track, int index, const TimeAxis &axis, int64_t end, double top,
              double height);

// A tick per pixel column holding a Cluster start.
void drawClusterRow(cairo_t *cr, const FileMap &map, const TimeAxis &axis, double top, double height);
// A tick per pixel column holding a cue point, in its track's colour
// (split when cues of several tracks share the column).
void drawCueRow(cairo_t *cr, const FileMap &map, const TimeAxis &axis, double top, double height);

}  // namespace qmkvprobe

#endif  // QMKVPROBE_MAP_LANES_H_
