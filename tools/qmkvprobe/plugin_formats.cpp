#include "plugin_formats.h"

#include "format_json.h"
#include "qextractorcmn/ExtMediaFormatDef.h"

using nlohmann::ordered_json;

namespace qmkvprobe {

Formats::~Formats() {
    AMediaFormat_delete(file);
    for (AMediaFormat *f : tracks) AMediaFormat_delete(f);
}

std::unique_ptr<qmkvhost::Extractor> openFormats(qmkvhost::Plugin &plugin, android::CDataSource *source,
                                                 Formats *f, std::string *why) {
    std::unique_ptr<qmkvhost::Extractor> ex = plugin.open(source);
    if (ex == nullptr) {
        *why = "not claimed by the plug-in";
        return nullptr;
    }
    f->file = AMediaFormat_new();
    ex->getMetaData(f->file);
    const size_t n = ex->countTracks();
    for (size_t i = 0; i < n; ++i) {
        AMediaFormat *meta = AMediaFormat_new();
        ex->getTrackMetaData(meta, i, 0);
        f->tracks.push_back(meta);
    }
    if (f->tracks.empty()) {
        *why = "the extractor lists no track";
        return nullptr;
    }
    return ex;
}

ordered_json trackJson(AMediaFormat *format) {
    const ordered_json keys = formatToJson(format);
    const auto words = keys.find(AMEDIAFORMAT_KEY_TRACK_STATUS);
    const ordered_json status = words != keys.end() ? *words : ordered_json("not reported by the plug-in");
    ordered_json j = ordered_json::object();
    for (auto &[key, value] : keys.items()) {
        if (key == AMEDIAFORMAT_KEY_TRACK_STATUS) continue;
        j[key] = value;
        if (key == AMEDIAFORMAT_KEY_ERROR_TYPE) j["status"] = status;
    }
    if (!j.contains("status")) j["status"] = status;
    return j;
}

ordered_json formatsJson(const Formats &f) {
    ordered_json tracks = ordered_json::array();
    for (AMediaFormat *t : f.tracks) tracks.push_back(trackJson(t));
    return ordered_json{{"file", formatToJson(f.file)}, {"tracks", tracks}};
}

}  // namespace qmkvprobe
