// Small helpers shared by the probe's core and plug-in modes.
#ifndef QMKVPROBE_PROBE_UTIL_H_
#define QMKVPROBE_PROBE_UTIL_H_

#include <stdint.h>

#include <string>

namespace qmkvprobe {

// Monotonic wall time in seconds.
double now();
// zlib CRC-32 of the bytes, 8 lowercase hex digits.
std::string crc32Hex(const uint8_t *data, size_t size);

}  // namespace qmkvprobe

#endif  // QMKVPROBE_PROBE_UTIL_H_
