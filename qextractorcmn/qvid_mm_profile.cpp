// The device's multimedia capabilities: which video codecs it decodes and
// up to what frame size, from the device's own codec list or a compiled-in
// profile.
#include <android/log.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <string>

#include "qextractorcmn/qcmn_device_profile.h"
#include "qextractorcmn/qextractorcmn.h"

namespace qcmn {

namespace {

const char kTag[] = "qextractorcmn";
const char kEnv[] = "QMKV_CODEC_LIST";

// The platform's own codec list: the first of these, in the order the
// platform looks for it.
const char *platform_codec_list() {
#ifdef __ANDROID__
    static const char *const kLists[] = {"/odm/etc/media_codecs.xml", "/vendor/etc/media_codecs.xml",
                                         "/system/etc/media_codecs.xml"};
    for (const char *path : kLists)
        if (access(path, F_OK) == 0) return path;
#endif
    return nullptr;
}

}  // namespace

void default_device_profile(DeviceProfile *p) {
    memset(p, 0, sizeof(*p));
    static const VFamily kDecoded[] = {VFamily::kAvc,   VFamily::kHevc, VFamily::kMpeg4, VFamily::kH263,
                                       VFamily::kMpeg2, VFamily::kVp8,  VFamily::kVp9,   VFamily::kAv1};
    for (VFamily f : kDecoded) {
        p->supported[(int)f] = true;
        p->limits[(int)f] = kDefaultLimits;
    }
}

namespace {

// The list at `path` (none: the built-in profile); an unusable list logs why
// and gives the built-in profile.
void read_device_profile(const char *path, DeviceProfile *p) {
    std::string why;
    if (path == nullptr) {
        default_device_profile(p);
    } else if (!read_codec_list(path, p, &why)) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "codec list %s: %s; using the built-in profile", path, why.c_str());
        default_device_profile(p);
    }
}

}  // namespace

void current_device_profile(DeviceProfile *p) {
    const char *path = getenv(kEnv);
    if (path != nullptr && path[0] != '\0') {
        // A list named for this run (one pulled from a device) is read at each query: it may change.
        read_device_profile(path, p);
        return;
    }
    // The platform's own list sits on a read-only partition: read once per process, not twice per
    // video track of every file the media scanner opens.
    static const DeviceProfile platform = [] {
        DeviceProfile d;
        read_device_profile(platform_codec_list(), &d);
        return d;
    }();
    *p = platform;
}

}  // namespace qcmn

using namespace qcmn;

QCMN_API int32_t qvid_get_mm_spec(int32_t query, uint32_t fourcc, void *out, uint32_t out_size) {
    if (query != QVID_MMSPEC_QUERY_SUPPORTED && query != QVID_MMSPEC_QUERY_MAX_DIMS) return QVID_MMSPEC_ERR_QUERY;
    const uint32_t need = query == QVID_MMSPEC_QUERY_SUPPORTED ? sizeof(int32_t) : sizeof(qvid_mm_max_dims);
    if (out == nullptr || out_size < need) return QVID_MMSPEC_ERR_ARG;
    const VFamily f = vfamily_of_fourcc(fourcc);
    DeviceProfile profile;
    current_device_profile(&profile);
    const bool supported = f != VFamily::kUnknown && profile.supported[(int)f];
    if (query == QVID_MMSPEC_QUERY_SUPPORTED) {
        const int32_t flag = supported ? 1 : 0;
        memcpy(out, &flag, sizeof(flag));
        return f == VFamily::kUnknown ? QVID_MMSPEC_ERR_NOT_SUPPORTED : QVID_MMSPEC_OK;
    }
    if (!supported) return QVID_MMSPEC_ERR_NOT_SUPPORTED;
    memcpy(out, &profile.limits[(int)f], sizeof(qvid_mm_max_dims));
    return QVID_MMSPEC_OK;
}
