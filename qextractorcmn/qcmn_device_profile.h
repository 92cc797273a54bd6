// Internal: the device profile behind qvid_get_mm_spec.
#ifndef QEXTRACTORCMN_QCMN_DEVICE_PROFILE_H_
#define QEXTRACTORCMN_QCMN_DEVICE_PROFILE_H_

#include <stddef.h>
#include <stdint.h>

#include <string>

#include "qextractorcmn/qcmn_vcodec.h"
#include "qextractorcmn/qextractorcmn.h"

namespace qcmn {

constexpr int kFamilyCount = (int)VFamily::kMsMpeg4v3 + 1;

struct DeviceProfile {
    bool supported[kFamilyCount];
    qvid_mm_max_dims limits[kFamilyCount];
};

// The size limit of the built-in profile, also taken for a decoder whose
// codec list declares no size.
constexpr qvid_mm_max_dims kDefaultLimits = {4096, 2176, 2176, 4096};

// The compiled-in profile: a current phone SoC.
void default_device_profile(DeviceProfile *p);

// Reads the device's codec list at `path` (the platform's media_codecs.xml
// format, with the files it includes): a codec is supported when a decoder
// that does not require secure playback declares its media type, up to the
// largest size such a decoder declares. False, with the reason in *why, when
// the list cannot be read or is malformed; *p is then unspecified. Included
// files that cannot be read are skipped with a log line.
bool read_codec_list(const char *path, DeviceProfile *p, std::string *why);

// The profile in effect: the codec list named by QMKV_CODEC_LIST, else on a
// device the platform's own list, else (or when the list is unusable) the
// default.
void current_device_profile(DeviceProfile *p);

}  // namespace qcmn

#endif  // QEXTRACTORCMN_QCMN_DEVICE_PROFILE_H_
