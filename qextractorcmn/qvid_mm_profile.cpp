// The device's multimedia capabilities: which video codecs it decodes and
// up to what frame size, from a compiled-in profile or a text file.
#include <android/log.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "qextractorcmn/qcmn_device_profile.h"
#include "qextractorcmn/qextractorcmn.h"

namespace qcmn {

namespace {

const char kTag[] = "qextractorcmn";
const char kEnv[] = "QMKV_DEVICE_PROFILE";
// A profile is a handful of lines; anything bigger is not one.
constexpr size_t kMaxProfileBytes = 64 * 1024;

bool is_space(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f'; }

// Splits [b, e) into at most `max` whitespace-separated words; returns the
// count, or max + 1 when there are more.
int split_words(const char *b, const char *e, const char **word, size_t *word_len, int max) {
    int count = 0;
    while (b < e) {
        while (b < e && is_space(*b)) ++b;
        if (b == e) break;
        const char *s = b;
        while (b < e && !is_space(*b)) ++b;
        if (count == max) return max + 1;
        word[count] = s;
        word_len[count] = (size_t)(b - s);
        ++count;
    }
    return count;
}

// Decimal 1..kMaxDimension.
bool parse_dimension(const char *s, size_t len, int32_t *v) {
    if (len == 0 || len > 6) return false;
    uint32_t x = 0;
    for (size_t i = 0; i < len; ++i) {
        if (s[i] < '0' || s[i] > '9') return false;
        x = x * 10 + (uint32_t)(s[i] - '0');
    }
    if (x < 1 || x > kMaxDimension) return false;
    *v = (int32_t)x;
    return true;
}

bool word_is(const char *s, size_t len, const char *lit) { return strlen(lit) == len && memcmp(s, lit, len) == 0; }

bool read_file(const char *path, char *buf, size_t cap, size_t *len) {
    FILE *f = fopen(path, "rb");
    if (f == nullptr) return false;
    const size_t got = fread(buf, 1, cap, f);
    const bool ok = !ferror(f) && got < cap;  // a full buffer means the file is too big
    fclose(f);
    *len = got;
    return ok;
}

}  // namespace

void default_device_profile(DeviceProfile *p) {
    memset(p, 0, sizeof(*p));
    const qvid_mm_max_dims limits = {4096, 2176, 2176, 4096};
    static const VFamily kDecoded[] = {VFamily::kAvc,   VFamily::kHevc, VFamily::kMpeg4, VFamily::kH263,
                                       VFamily::kMpeg2, VFamily::kVp8,  VFamily::kVp9,   VFamily::kAv1};
    for (VFamily f : kDecoded) {
        p->supported[(int)f] = true;
        p->limits[(int)f] = limits;
    }
}

bool parse_device_profile(const char *text, size_t len, DeviceProfile *p, int *bad_line) {
    memset(p, 0, sizeof(*p));
    const char *s = text;
    const char *end = text + len;
    int line = 0;
    while (s < end) {
        ++line;
        const char *e = static_cast<const char *>(memchr(s, '\n', (size_t)(end - s)));
        if (e == nullptr) e = end;
        const char *hash = static_cast<const char *>(memchr(s, '#', (size_t)(e - s)));
        const char *word[5];
        size_t word_len[5];
        const int n = split_words(s, hash ? hash : e, word, word_len, 5);
        s = e < end ? e + 1 : end;
        if (n == 0) continue;
        const VFamily f = vfamily_of_name(word[0], word_len[0]);
        bool ok = f != VFamily::kUnknown;
        if (ok && n == 2 && word_is(word[1], word_len[1], "unsupported")) {
            p->supported[(int)f] = false;
            continue;
        }
        qvid_mm_max_dims d = {};
        ok = ok && n == 5 && parse_dimension(word[1], word_len[1], &d.landscape_width) &&
             parse_dimension(word[2], word_len[2], &d.landscape_height) &&
             parse_dimension(word[3], word_len[3], &d.portrait_width) &&
             parse_dimension(word[4], word_len[4], &d.portrait_height);
        if (!ok) {
            if (bad_line) *bad_line = line;
            return false;
        }
        p->supported[(int)f] = true;
        p->limits[(int)f] = d;
    }
    return true;
}

void current_device_profile(DeviceProfile *p) {
    const char *path = getenv(kEnv);
    if (path == nullptr || path[0] == '\0') {
        default_device_profile(p);
        return;
    }
    char *buf = static_cast<char *>(malloc(kMaxProfileBytes));
    size_t len = 0;
    int bad_line = 0;
    if (buf == nullptr || !read_file(path, buf, kMaxProfileBytes, &len)) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "%s: cannot read %s, using the built-in profile", kEnv, path);
        default_device_profile(p);
    } else if (!parse_device_profile(buf, len, p, &bad_line)) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "%s: %s line %d is malformed, using the built-in profile", kEnv,
                            path, bad_line);
        default_device_profile(p);
    }
    free(buf);
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
