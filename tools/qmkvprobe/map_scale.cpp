#include "map_scale.h"

#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>

#include <vector>

namespace qmkvprobe {

namespace {

const int64_t kMs = 10000;  // in 100 ns
const int64_t kSecond = 1000 * kMs;
const int64_t kMinute = 60 * kSecond;
const int64_t kHour = 60 * kMinute;
const int64_t kKiB = 1024;

// Ascending round steps; past the last, its multiples by 1-2-5 decades.
int64_t pickStep(const std::vector<int64_t> &steps, int64_t span, int most) {
    if (span <= 0 || most < 1) return steps.front();
    for (int64_t decade = 1; decade <= INT64_MAX / 1000 / steps.back(); decade *= 10)
        for (int64_t s : steps) {
            const int64_t step = s * decade;
            if (decade > 1 && step <= steps.back()) continue;
            if (span / step < most) return step;
        }
    return span;
}

std::string format(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
std::string format(const char *fmt, ...) {
    char buf[64];
    va_list args;
    va_start(args, fmt);
    vsnprintf(buf, sizeof(buf), fmt, args);
    va_end(args);
    return buf;
}

}  // namespace

int64_t timeStep(int64_t span, int most) {
    static const std::vector<int64_t> kSteps = {
        kMs,           2 * kMs,       5 * kMs,      10 * kMs,     20 * kMs,     50 * kMs,     100 * kMs,
        200 * kMs,     500 * kMs,     kSecond,      2 * kSecond,  5 * kSecond,  10 * kSecond, 15 * kSecond,
        30 * kSecond,  kMinute,       2 * kMinute,  5 * kMinute,  10 * kMinute, 15 * kMinute, 30 * kMinute,
        kHour,         2 * kHour,     5 * kHour,    10 * kHour,   24 * kHour,   48 * kHour};
    return pickStep(kSteps, span, most);
}

std::string timeLabel(int64_t t, int64_t step) {
    const char *sign = t < 0 ? "-" : "";
    const uint64_t a = t < 0 ? 0 - (uint64_t)t : (uint64_t)t;
    if (step < kSecond) {
        const int decimals = step % (100 * kMs) == 0 ? 1 : step % (10 * kMs) == 0 ? 2 : 3;
        return format("%s%.*f s", sign, decimals, (double)a / kSecond);
    }
    const uint64_t s = a / kSecond;
    if (step < kMinute && s < 60) return format("%s%llu s", sign, (unsigned long long)s);
    if (s < 3600) return format("%s%llu:%02llu", sign, (unsigned long long)(s / 60), (unsigned long long)(s % 60));
    return format("%s%llu:%02llu:%02llu", sign, (unsigned long long)(s / 3600), (unsigned long long)(s / 60 % 60),
                  (unsigned long long)(s % 60));
}

std::string durationText(int64_t t) {
    const char *sign = t < 0 ? "-" : "";
    const uint64_t a = t < 0 ? 0 - (uint64_t)t : (uint64_t)t;
    const uint64_t s = a / kSecond;
    const unsigned ms = (unsigned)(a % kSecond / kMs);
    if (s < 60) return format("%s%llu.%03u s", sign, (unsigned long long)s, ms);
    if (s < 3600)
        return format("%s%llu:%02llu.%03u", sign, (unsigned long long)(s / 60), (unsigned long long)(s % 60), ms);
    return format("%s%llu:%02llu:%02llu.%03u", sign, (unsigned long long)(s / 3600),
                  (unsigned long long)(s / 60 % 60), (unsigned long long)(s % 60), ms);
}

int64_t byteStep(int64_t span, int most) {
    static const std::vector<int64_t> kSteps = {
        1,         2,         5,         10,         20,         50,         100,         200,         500,
        kKiB,      2 * kKiB,  5 * kKiB,  10 * kKiB,  20 * kKiB,  50 * kKiB,  100 * kKiB,  200 * kKiB,  500 * kKiB,
        kKiB * kKiB, 2 * kKiB * kKiB, 5 * kKiB * kKiB, 10 * kKiB * kKiB, 20 * kKiB * kKiB, 50 * kKiB * kKiB,
        100 * kKiB * kKiB, 200 * kKiB * kKiB, 500 * kKiB * kKiB, kKiB * kKiB * kKiB};
    return pickStep(kSteps, span, most);
}

std::string byteLabel(int64_t bytes, int64_t step) {
    const char *units[] = {"B", "KiB", "MiB", "GiB"};
    int u = 0;
    int64_t unit = 1;
    while (u < 3 && step >= unit * kKiB) {
        unit *= kKiB;
        u++;
    }
    return format("%lld %s", (long long)(bytes / unit), units[u]);
}

std::string sizeText(int64_t bytes) {
    if (bytes < kKiB) return format("%lld B", (long long)bytes);
    if (bytes < kKiB * kKiB) return format("%.1f KiB", (double)bytes / kKiB);
    if (bytes < kKiB * kKiB * kKiB) return format("%.1f MiB", (double)bytes / (kKiB * kKiB));
    return format("%.2f GiB", (double)bytes / (kKiB * kKiB * kKiB));
}

}  // namespace qmkvprobe
