// --core: the demuxer core's own view of a file.
#ifndef QMKVPROBE_CORE_MODE_H_
#define QMKVPROBE_CORE_MODE_H_

#include <media/MediaExtractorPluginHelper.h>

#include "counted_source.h"
#include "options.h"

namespace qmkvprobe {

// Runs the probe's core mode over `source`, which reads through `counted`;
// returns the exit status.
int runCore(const Options &opts, android::DataSourceHelper *source, const CountedSource &counted);

// The core's seek mode for each of the framework's.
int32_t coreSeekMode(const std::string &mode);

}  // namespace qmkvprobe

#endif  // QMKVPROBE_CORE_MODE_H_
