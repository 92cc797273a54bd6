#include "library_check.h"

#include <qmkvhost/FileSource.h>

#include "dropped_tracks.h"
#include "plugin_formats.h"
#include "probe_util.h"
#include "qextractorcmn/ExtMediaFormatDef.h"

using nlohmann::ordered_json;

namespace qmkvprobe {

ordered_json refusedFile(const std::string &path, const std::string &reason) {
    return ordered_json{{"path", path},
                        {"verdict", "refused"},
                        {"tracks", ordered_json::array()},
                        {"dropped", ordered_json::array()},
                        {"reason", reason}};
}

ordered_json checkLibraryFile(qmkvhost::Plugin &plugin, const std::string &path) {
    const std::string problem = inputProblem(path);
    if (!problem.empty()) return refusedFile(path, problem);
    qmkvhost::FileSource file(path.c_str());
    if (file.initCheck() != android::OK) return refusedFile(path, "cannot be opened");
    Formats formats;
    std::string why;
    if (openFormats(plugin, file.wrap(), &formats, &why) == nullptr) return refusedFile(path, why);

    ordered_json tracks = ordered_json::array();
    size_t playing = 0;
    for (size_t i = 0; i < formats.tracks.size(); ++i) {
        const ordered_json t = trackJson(formats.tracks[i]);
        const ordered_json errorType = t.value(AMEDIAFORMAT_KEY_ERROR_TYPE, ordered_json());
        if (errorType == 0) playing++;
        tracks.push_back({{"track", i},
                          {"mime", t.value(AMEDIAFORMAT_KEY_MIME, "")},
                          {"error-type", errorType},
                          {"status", t.at("status")}});
    }
    const ordered_json dropped = droppedOfFile(path);
    const char *verdict = playing == 0                                          ? "none"
                          : playing == formats.tracks.size() && dropped.empty() ? "plays"
                                                                                : "partly";
    return ordered_json{{"path", path}, {"verdict", verdict}, {"tracks", tracks}, {"dropped", dropped}, {"reason", ""}};
}

}  // namespace qmkvprobe
