#include "demux/qmkvd_ebml.h"

#include <android/log.h>

namespace {

// Leading zero bits of a nibble.
const uint8_t kNibbleClz[16] = {4, 3, 2, 2, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0};

// Longest ID is 4 bytes, longest size 8; `max_extra` is the limit on the
// bytes after the first.
enum { kMaxIdExtra = 3, kMaxSize64Extra = 7, kMaxSize32Extra = 3 };

bool read_bytes(QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, uint8_t *buf, int32_t n) {
    return mfal->read(fp, buf, n) > 0;
}

// Reads the first byte of an integer and its length marker.
bool read_lead(QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, uint8_t *lead, int32_t *extra) {
    if (!read_bytes(mfal, fp, lead, 1) || *lead == 0) return false;
    *extra = qmkvd_get_clz(*lead);
    return true;
}

// Shifts `extra` more bytes into `value`, read in one call.
template <typename T>
bool read_tail(QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, int32_t extra, T *value) {
    if (extra == 0) return true;
    uint8_t tail[8] = {0};  // a read cut short by the end of the file leaves zeros, not stack bytes
    if (!read_bytes(mfal, fp, tail, extra)) return false;
    for (int32_t i = 0; i < extra; ++i) *value = (T)((*value << 8) | tail[i]);
    return true;
}

bool read_id(QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, uint32_t *id) {
    uint8_t lead;
    int32_t extra;
    if (!read_lead(mfal, fp, &lead, &extra) || extra > kMaxIdExtra) return false;
    *id = lead;
    return read_tail(mfal, fp, extra, id);
}

template <typename T>
bool read_size(QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, int32_t max_extra, T *size, uint32_t *length) {
    uint8_t lead;
    int32_t extra;
    if (!read_lead(mfal, fp, &lead, &extra)) return false;
    if (length != nullptr) *length = (uint32_t)extra + 1;
    if (extra > max_extra) return false;
    *size = (T)(lead & (0x7F >> extra));
    return read_tail(mfal, fp, extra, size);
}

}  // namespace

int32_t qmkvd_get_clz(uint8_t byte) {
    int32_t n = kNibbleClz[byte >> 4];
    if (n != 4) return n;
    return n + kNibbleClz[byte & 0x0F];
}

int32_t qmkvd_ebml_get_id_len64(QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, uint32_t *id, uint64_t *size) {
    uint32_t i = 0;
    uint64_t s = 0;
    if (!read_id(mfal, fp, &i) || !read_size(mfal, fp, kMaxSize64Extra, &s, nullptr)) return -1;
    *id = i;
    *size = s;
    return 0;
}

int32_t qmkvd_ebml_get_len64(QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, uint64_t *size) {
    uint64_t s = 0;
    if (!read_size(mfal, fp, kMaxSize64Extra, &s, nullptr)) return -1;
    *size = s;
    return 0;
}

int32_t qmkvd_ebml_get_len32(QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, uint32_t *size) {
    uint32_t s = 0;
    if (!read_size(mfal, fp, kMaxSize32Extra, &s, nullptr)) return -1;
    *size = s;
    return 0;
}

int32_t qmkvd_ebml_get_len32_rel(QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, uint32_t *size, uint32_t *length) {
    uint32_t s = 0;
    if (!read_size(mfal, fp, kMaxSize32Extra, &s, length)) return -1;
    *size = s;
    return 0;
}

int32_t qmkvd_ebml_get_id_len32(QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, uint32_t *id, uint32_t *size) {
    uint8_t lead;
    if (!read_bytes(mfal, fp, &lead, 1)) {
        __android_log_print(ANDROID_LOG_ERROR, "qmkvd_util", "get_id_len32 read buf error");
        return -1;
    }
    int32_t extra = qmkvd_get_clz(lead);
    if (lead == 0 || extra > kMaxIdExtra) return -1;
    uint32_t i = lead;
    uint32_t s = 0;
    if (!read_tail(mfal, fp, extra, &i) || !read_size(mfal, fp, kMaxSize32Extra, &s, nullptr)) return -1;
    *id = i;
    *size = s;
    return 0;
}

int32_t qmkvd_ebml_get_id_len64_buff(const uint8_t *buf, int32_t length, uint32_t *id, uint64_t *size) {
    if (buf == nullptr || length < 1) return -1;
    return qmkvd_ebml_header_in(buf, (uint64_t)length, id, size);
}

uint64_t qmkvd_b2v_u64(const uint8_t *bytes, int32_t count) { return qmkvd_b2v_in(bytes, count); }

uint32_t qmkvd_b2v_u32(const uint8_t *bytes, int32_t count) {
    uint32_t v = 0;
    for (int32_t i = 0; i < count; ++i) v = (v << 8) | bytes[i];
    return v;
}
