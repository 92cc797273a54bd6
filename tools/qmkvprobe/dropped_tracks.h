// The TrackEntries the demuxer core dropped (the framework never sees them),
// as JSON: [{"track_number", "codec_id", "name", "language", "reason"}, ...].
#ifndef QMKVPROBE_DROPPED_TRACKS_H_
#define QMKVPROBE_DROPPED_TRACKS_H_

#include <string>

#include <nlohmann/json.hpp>

#include "demux/qmkvd_types.h"

namespace qmkvprobe {

nlohmann::ordered_json droppedJson(const qmkvd *inst);

// The same for the file at `path`, opened by the core itself as the plug-in
// opens it; empty when the core cannot open it.
nlohmann::ordered_json droppedOfFile(const std::string &path);

}  // namespace qmkvprobe

#endif  // QMKVPROBE_DROPPED_TRACKS_H_
