// The demuxer core's own view of a file, as JSON.
#ifndef QMKVPROBE_CORE_VIEW_H_
#define QMKVPROBE_CORE_VIEW_H_

#include <nlohmann/json.hpp>

#include "demux/qmkvd_types.h"

namespace qmkvprobe {

// {"file": {...}, "tracks": [...]} for an open instance.
nlohmann::ordered_json coreView(const qmkvd *inst, const qmkvd_format &format);

// Prints `view` as JSON, or as "key: value" lines for people.
void printView(const nlohmann::ordered_json &view, bool json);

}  // namespace qmkvprobe

#endif  // QMKVPROBE_CORE_VIEW_H_
