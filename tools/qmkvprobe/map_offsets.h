// The lower part of the picture of a file: where each frame lies in the
// file against its time, so that tracks stored far apart show as lines
// apart and a well interleaved file as one line.
#ifndef QMKVPROBE_MAP_OFFSETS_H_
#define QMKVPROBE_MAP_OFFSETS_H_

#include <cairo.h>

#include "map_canvas.h"
#include "map_data.h"

namespace qmkvprobe {

// Byte offset upwards, one dot per pixel a track's frames fall in, the
// Cues element as a dashed line.
void drawOffsets(cairo_t *cr, const FileMap &map, const TimeAxis &axis, double top, double height);

}  // namespace qmkvprobe

#endif  // QMKVPROBE_MAP_OFFSETS_H_
