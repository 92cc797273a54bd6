// The pseudo-random seek targets of --seek-count, the same for every run.
#ifndef QMKVPROBE_SEEK_TARGETS_H_
#define QMKVPROBE_SEEK_TARGETS_H_

#include <stdint.h>

#include <vector>

namespace qmkvprobe {

// n targets in [0, durationUs): the i-th is floor((x_i >> 11) * 2^-53 * D),
// x_i the i-th output of splitmix64 started from state 0.
std::vector<int64_t> seekTargets(int64_t n, int64_t durationUs);

}  // namespace qmkvprobe

#endif  // QMKVPROBE_SEEK_TARGETS_H_
