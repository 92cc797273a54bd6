// The files of a library: every regular file under a folder, links followed.
#ifndef QMKVPROBE_LIBRARY_WALK_H_
#define QMKVPROBE_LIBRARY_WALK_H_

#include <string>
#include <vector>

namespace qmkvprobe {

struct LibraryWalk {
    std::vector<std::string> files;    // in name order, depth first
    std::vector<std::string> skipped;  // "PATH: why", for what is not checked
};

// Walks `dir`. A folder reached twice (a link loop, or two links to one
// folder), a folder that cannot be read, a broken link and anything that is
// neither a folder nor a regular file is listed in `skipped` and passed over.
LibraryWalk walkLibrary(const std::string &dir);

}  // namespace qmkvprobe

#endif  // QMKVPROBE_LIBRARY_WALK_H_
