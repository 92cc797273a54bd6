// The ordinary build: no copy counting.
#include "bench_io.h"

namespace qmkvbench {
void copyCountingEnable(bool) {}
uint64_t copyCountedBytes() { return 0; }
uint64_t copyCountedCalls() { return 0; }
bool copyCountingAvailable() { return false; }
}  // namespace qmkvbench
