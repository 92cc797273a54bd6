// Internal: the device profile behind qvid_get_mm_spec.
#ifndef QEXTRACTORCMN_QCMN_DEVICE_PROFILE_H_
#define QEXTRACTORCMN_QCMN_DEVICE_PROFILE_H_

#include <stddef.h>
#include <stdint.h>

#include "qextractorcmn/qcmn_vcodec.h"
#include "qextractorcmn/qextractorcmn.h"

namespace qcmn {

constexpr int kFamilyCount = (int)VFamily::kMsMpeg4v3 + 1;

struct DeviceProfile {
    bool supported[kFamilyCount];
    qvid_mm_max_dims limits[kFamilyCount];
};

// The compiled-in profile: a current phone SoC.
void default_device_profile(DeviceProfile *p);

// Parses the text form (see README.md). On failure returns false and
// names the first bad line (1-based) in *bad_line; *p is then unspecified.
bool parse_device_profile(const char *text, size_t len, DeviceProfile *p, int *bad_line);

// The profile in effect: the file named by QMKV_DEVICE_PROFILE when it is
// set and valid, else the default.
void current_device_profile(DeviceProfile *p);

}  // namespace qcmn

#endif  // QEXTRACTORCMN_QCMN_DEVICE_PROFILE_H_
