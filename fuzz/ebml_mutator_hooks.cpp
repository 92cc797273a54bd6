// libFuzzer's mutation hooks for the Matroska targets: element-aware
// changes most of the time, its own byte mutation the rest.
#include <stddef.h>
#include <stdint.h>

#include "fuzz/ebml_mutator.h"

extern "C" size_t LLVMFuzzerMutate(uint8_t *data, size_t size, size_t maxSize);

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t *data, size_t size, size_t maxSize, unsigned int seed) {
    return qmkv_fuzz::mutateEbml(data, size, maxSize, seed, LLVMFuzzerMutate);
}

extern "C" size_t LLVMFuzzerCustomCrossOver(const uint8_t *data1, size_t size1, const uint8_t *data2, size_t size2,
                                            uint8_t *out, size_t maxOutSize, unsigned int seed) {
    return qmkv_fuzz::crossOverEbml(data1, size1, data2, size2, out, maxOutSize, seed);
}
