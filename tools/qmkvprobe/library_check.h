// One file of a library as the framework would open it (sniff, create,
// every format; no frame read), judged as a whole.
#ifndef QMKVPROBE_LIBRARY_CHECK_H_
#define QMKVPROBE_LIBRARY_CHECK_H_

#include <string>

#include <nlohmann/json.hpp>
#include <qmkvhost/ExtractorHost.h>

namespace qmkvprobe {

// {"path", "verdict", "tracks", "dropped", "reason"}: the verdict is "plays"
// (every track plays, none dropped), "partly", "none" (no track plays) or
// "refused" (not opened; the reason in words). Each track is
// {"track", "mime", "error-type", "status"}; each dropped entry as the
// single-file probe lists it.
nlohmann::ordered_json checkLibraryFile(qmkvhost::Plugin &plugin, const std::string &path);

// The entry of a file refused for `reason`.
nlohmann::ordered_json refusedFile(const std::string &path, const std::string &reason);

}  // namespace qmkvprobe

#endif  // QMKVPROBE_LIBRARY_CHECK_H_
