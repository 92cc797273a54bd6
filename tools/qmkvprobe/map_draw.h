// The picture of a file, laid out and written as SVG or PNG.
#ifndef QMKVPROBE_MAP_DRAW_H_
#define QMKVPROBE_MAP_DRAW_H_

#include <string>

#include "map_data.h"

namespace qmkvprobe {

// Writes the picture of `map` to `path`: PNG when it ends in ".png", else
// SVG. False, with `error` set, when it cannot be written.
bool drawMap(const FileMap &map, const std::string &path, std::string *error);

}  // namespace qmkvprobe

#endif  // QMKVPROBE_MAP_DRAW_H_
