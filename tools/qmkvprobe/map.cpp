#include "map.h"

#include <stdio.h>

#include <media/MediaExtractorPluginHelper.h>
#include <qmkvhost/FileSource.h>

#include "demux/qmkvd.h"
#include "extractor/mfal/qcmn_mfal_android_q.h"
#include "map_data.h"
#include "map_draw.h"

namespace qmkvprobe {

namespace {

bool endsWith(const std::string &s, const char *tail) {
    const std::string t = tail;
    return s.size() > t.size() && s.compare(s.size() - t.size(), t.size(), t) == 0;
}

std::string baseName(const std::string &path) {
    const size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

}  // namespace

bool isMapPath(const std::string &path) { return endsWith(path, ".svg") || endsWith(path, ".png"); }

int writeMap(const std::string &file, const std::string &out) {
    qmkvhost::FileSource fileSource(file.c_str());
    if (fileSource.initCheck() != android::OK) {
        fprintf(stderr, "qmkvprobe: --map: cannot open %s\n", file.c_str());
        return 1;
    }
    android::DataSourceHelper source(fileSource.wrap());
    QCMN_MFAL mfal;
    if (qcmn_mfal_init(&mfal, &source) != 0) {
        fprintf(stderr, "qmkvprobe: out of memory\n");
        return 1;
    }
    const uint32_t openParams = QMKVD_OPEN_NO_DTS;
    qmkvd_format format;
    int32_t error = 0;
    qmkvd *inst = qmkvd_create(&mfal, &openParams, &format, &error);
    if (inst == nullptr) {
        fprintf(stderr, "qmkvprobe: --map: the demuxer cannot open %s (error %d)\n", file.c_str(), error);
        qcmn_mfal_deinit(&mfal);
        return 1;
    }
    const FileMap map = collectMap(inst, format, baseName(file));
    qmkvd_delete(inst);
    qcmn_mfal_deinit(&mfal);
    std::string why;
    if (!drawMap(map, out, &why)) {
        fprintf(stderr, "qmkvprobe: --map: cannot write %s: %s\n", out.c_str(), why.c_str());
        return 1;
    }
    return 0;
}

}  // namespace qmkvprobe
