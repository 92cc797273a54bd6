// Where the plug-in's log lines go.
#ifndef QMKVPROBE_PLUGIN_LOG_H_
#define QMKVPROBE_PLUGIN_LOG_H_

namespace qmkvprobe {

// With `show` (--log) the plug-in's log lines are copied to stderr as a
// device's log would show them; otherwise they are dropped, so that stderr
// holds only the tool's own reasons (a normal teardown logs errors that are
// harmless). Fatal lines are always shown.
void showPluginLog(bool show);

}  // namespace qmkvprobe

#endif  // QMKVPROBE_PLUGIN_LOG_H_
