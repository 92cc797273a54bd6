// Small helpers shared by the probe's core and plug-in modes.
#ifndef QMKVPROBE_PROBE_UTIL_H_
#define QMKVPROBE_PROBE_UTIL_H_

#include <stdint.h>

#include <string>

#include "counted_source.h"

namespace qmkvprobe {

// Why `path` cannot be probed (missing, a directory, unreadable, empty), in
// words; empty when it can.
std::string inputProblem(const std::string &path);
// False, with the path and the reason in `why`, when it cannot be probed.
bool checkInput(const std::string &path, std::string *why);
// Monotonic wall time in seconds.
double now();
// zlib CRC-32 of the bytes, 8 lowercase hex digits.
std::string crc32Hex(const uint8_t *data, size_t size);
// What the open cost: wall time and data-source reads from loading the
// file to knowing every track's format.
struct OpenCost {
    double seconds = 0;
    uint64_t reads = 0;
};
// The --count line: frames and bytes delivered, the reading's wall time,
// the open's cost, and the data-source reads made so far.
void printCountLine(uint64_t frames, uint64_t bytes, double seconds, const OpenCost &open, const CountedSource &counted);

// The --seek-count line: seeks asked per track, those (over every track)
// that gave no sample or an error, the tracks and the wall time.
void printSeekCountLine(int64_t seeks, int64_t failed, int64_t tracks, double seconds);

}  // namespace qmkvprobe

#endif  // QMKVPROBE_PROBE_UTIL_H_
