#include "probe_util.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>

#include <zlib.h>

namespace qmkvprobe {

std::string inputProblem(const std::string &path) {
    struct stat st;
    if (stat(path.c_str(), &st) != 0) return strerror(errno);
    if (S_ISDIR(st.st_mode)) return "is a directory";
    FILE *f = fopen(path.c_str(), "rb");
    if (f == nullptr) return std::string("cannot be read (") + strerror(errno) + ")";
    fclose(f);
    if (st.st_size == 0) return "is empty";
    return "";
}

bool checkInput(const std::string &path, std::string *why) {
    const std::string problem = inputProblem(path);
    if (problem.empty()) return true;
    *why = path + ": " + problem;
    return false;
}

double now() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return (double)ts.tv_sec + (double)ts.tv_nsec * 1e-9;
}

std::string crc32Hex(const uint8_t *data, size_t size) {
    char hex[9];
    snprintf(hex, sizeof(hex), "%08lx", crc32(crc32(0L, Z_NULL, 0), data, (uInt)size));
    return hex;
}

void printCountLine(uint64_t frames, uint64_t bytes, double seconds, const OpenCost &open, const CountedSource &counted) {
    printf("{\"frames\": %llu, \"bytes\": %llu, \"seconds\": %.6f, \"open_seconds\": %.6f, \"reads\": %llu, "
           "\"read_bytes\": %llu, \"open_reads\": %llu}\n",
           (unsigned long long)frames, (unsigned long long)bytes, seconds, open.seconds,
           (unsigned long long)counted.reads(), (unsigned long long)counted.readBytes(), (unsigned long long)open.reads);
}

void printSeekCountLine(int64_t seeks, int64_t failed, int64_t tracks, double seconds) {
    printf("{\"seeks\": %lld, \"failed\": %lld, \"tracks\": %lld, \"seconds\": %.6f}\n", (long long)seeks,
           (long long)failed, (long long)tracks, seconds);
}

}  // namespace qmkvprobe
