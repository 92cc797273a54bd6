// --library: every file under a folder checked as the framework would open
// it, one line each, then a summary.
#ifndef QMKVPROBE_LIBRARY_H_
#define QMKVPROBE_LIBRARY_H_

#include <string>

#include "options.h"

namespace qmkvprobe {

// Returns the exit status: 0 once the walk is done, whatever the verdicts.
int runLibrary(const Options &opts, const std::string &pluginPath);

}  // namespace qmkvprobe

#endif  // QMKVPROBE_LIBRARY_H_
