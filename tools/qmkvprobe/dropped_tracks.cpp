#include "dropped_tracks.h"

#include <vector>

#include <media/MediaExtractorPluginHelper.h>
#include <qmkvhost/FileSource.h>

#include "demux/qmkvd.h"
#include "demux/qmkvd_dropped.h"
#include "extractor/mfal/qcmn_mfal_android_q.h"

using nlohmann::ordered_json;

namespace qmkvprobe {

ordered_json droppedJson(const qmkvd *inst) {
    ordered_json list = ordered_json::array();
    uint32_t count = 0;
    if (qmkvd_get_dropped_tracks(inst, nullptr, 0, &count) != 0 || count == 0) return list;
    std::vector<qmkvd_dropped_track> table(count);
    if (qmkvd_get_dropped_tracks(inst, table.data(), count, &count) != 0) return list;
    for (const qmkvd_dropped_track &d : table)
        list.push_back({{"track_number", d.track_number}, {"codec_id", d.codec_id}, {"name", d.name},
                        {"language", d.language}, {"reason", d.reason}});
    return list;
}

ordered_json droppedOfFile(const std::string &path) {
    qmkvhost::FileSource file(path.c_str());
    if (file.initCheck() != android::OK) return ordered_json::array();
    android::DataSourceHelper source(file.wrap());
    QCMN_MFAL mfal;
    if (qcmn_mfal_init(&mfal, &source) != 0) return ordered_json::array();
    const uint32_t openParams = QMKVD_OPEN_NO_DTS;
    qmkvd_format format;
    int32_t error = 0;
    qmkvd *inst = qmkvd_create(&mfal, &openParams, &format, &error);
    ordered_json list = inst != nullptr ? droppedJson(inst) : ordered_json::array();
    qmkvd_delete(inst);
    qcmn_mfal_deinit(&mfal);
    return list;
}

}  // namespace qmkvprobe
