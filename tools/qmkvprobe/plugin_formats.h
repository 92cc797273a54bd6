// Opening a file through the plug-in as the framework does, up to every
// format: shared by the single-file probe and the library check, so both
// give the same words for the same file.
#ifndef QMKVPROBE_PLUGIN_FORMATS_H_
#define QMKVPROBE_PLUGIN_FORMATS_H_

#include <memory>
#include <string>
#include <vector>

#include <media/NdkMediaFormat.h>
#include <nlohmann/json.hpp>
#include <qmkvhost/ExtractorHost.h>

namespace qmkvprobe {

struct Formats {
    AMediaFormat *file = nullptr;
    std::vector<AMediaFormat *> tracks;
    Formats() = default;
    Formats(const Formats &) = delete;
    Formats &operator=(const Formats &) = delete;
    ~Formats();
};

// Sniffs and creates the extractor over `source` and reads the file's and
// every track's format. Null, with the reason in words in `why`, when the
// plug-in does not claim the source or lists no track.
std::unique_ptr<qmkvhost::Extractor> openFormats(qmkvhost::Plugin &plugin, android::CDataSource *source,
                                                 Formats *formats, std::string *why);

// A track's format with the plug-in's words for its status under "status",
// next to the status code.
nlohmann::ordered_json trackJson(AMediaFormat *format);

// {"file": {...}, "tracks": [...]}.
nlohmann::ordered_json formatsJson(const Formats &f);

}  // namespace qmkvprobe

#endif  // QMKVPROBE_PLUGIN_FORMATS_H_
