// The framework's view: the plug-in loaded and driven as Android does.
#ifndef QMKVPROBE_PLUGIN_MODE_H_
#define QMKVPROBE_PLUGIN_MODE_H_

#include <string>

#include "options.h"

namespace qmkvprobe {

// Runs the probe through the plug-in at `pluginPath`; returns the exit status.
int runPlugin(const Options &opts, const std::string &pluginPath);

}  // namespace qmkvprobe

#endif  // QMKVPROBE_PLUGIN_MODE_H_
