#include "seek_targets.h"

#include <math.h>

namespace qmkvprobe {

namespace {

uint64_t splitmix64(uint64_t *state) {
    uint64_t z = (*state += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

}  // namespace

std::vector<int64_t> seekTargets(int64_t n, int64_t durationUs) {
    std::vector<int64_t> out;
    uint64_t state = 0;
    for (int64_t i = 0; i < n; ++i) {
        const double unit = (double)(splitmix64(&state) >> 11) * 0x1.0p-53;
        out.push_back((int64_t)floor(unit * (double)durationUs));
    }
    return out;
}

}  // namespace qmkvprobe
