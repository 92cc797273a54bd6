// Structure-aware mutation of Matroska inputs for the libFuzzer targets:
// the input is read as an element tree as far as it parses, changed the way
// hostile and broken files differ from good ones (sizes, dropped, repeated
// or moved elements, swapped IDs, damaged lacing, elements from another
// input), and written back with every other size consistent.
#ifndef QMKV_FUZZ_EBML_MUTATOR_H_
#define QMKV_FUZZ_EBML_MUTATOR_H_

#include <stddef.h>
#include <stdint.h>

namespace qmkv_fuzz {

// libFuzzer's own byte mutation (LLVMFuzzerMutate): changes `data` in place
// and returns its new size, at most `maxSize`.
using ByteMutator = size_t (*)(uint8_t *data, size_t size, size_t maxSize);

// Mutates `data` (of `size` bytes, room for `maxSize`) in place and returns
// the new size; the same seed gives the same result.
size_t mutateEbml(uint8_t *data, size_t size, size_t maxSize, unsigned seed, ByteMutator bytes);
// The first input with an element of the second spliced in, written to
// `out`; its size, or 0 when nothing fits.
size_t crossOverEbml(const uint8_t *data1, size_t size1, const uint8_t *data2, size_t size2, uint8_t *out,
                     size_t maxOutSize, unsigned seed);

}  // namespace qmkv_fuzz

#endif  // QMKV_FUZZ_EBML_MUTATOR_H_
