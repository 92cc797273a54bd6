#include "probe_util.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>

#include <zlib.h>

namespace qmkvprobe {

bool checkInput(const std::string &path, std::string *why) {
    struct stat st;
    if (stat(path.c_str(), &st) != 0) {
        *why = path + ": " + strerror(errno);
        return false;
    }
    if (S_ISDIR(st.st_mode)) {
        *why = path + " is a directory";
        return false;
    }
    FILE *f = fopen(path.c_str(), "rb");
    if (f == nullptr) {
        *why = "cannot read " + path + ": " + strerror(errno);
        return false;
    }
    fclose(f);
    if (st.st_size == 0) {
        *why = path + " is empty";
        return false;
    }
    return true;
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

}  // namespace qmkvprobe
