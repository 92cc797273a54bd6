// --map: a picture of a file, drawn from what the demuxer core reads in it.
#ifndef QMKVPROBE_MAP_H_
#define QMKVPROBE_MAP_H_

#include <string>

namespace qmkvprobe {

// Whether `path` names a picture --map can write (".svg" or ".png").
bool isMapPath(const std::string &path);

// Reads every frame of `file` through the core and draws the picture to
// `out`. Returns the exit status: 0, or 1 (with the reason on stderr) when
// the file cannot be opened or the picture cannot be written.
int writeMap(const std::string &file, const std::string &out);

}  // namespace qmkvprobe

#endif  // QMKVPROBE_MAP_H_
