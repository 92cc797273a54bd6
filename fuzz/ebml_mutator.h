// Structure-aware mutation of Matroska inputs for the libFuzzer targets:
// the input is read as an element tree as far as it parses, changed the way
// hostile and broken files differ from good ones (sizes, dropped, repeated
// or moved elements, swapped IDs, damaged lacing, elements from another
// input), and written back with every other size consistent.
#ifndef QMKV_FUZZ_EBML_MUTATOR_H_
#define QMKV_FUZZ_EBML_MUTATOR_H_

#include <stddef.h>
#include <stdint.h>

#include <vector>

namespace qmkv_fuzz {

// libFuzzer's own byte mutation (LLVMFuzzerMutate): changes `data` in place
// and returns its new size, at most `maxSize`.
using ByteMutator = size_t (*)(uint8_t *data, size_t size, size_t maxSize);

// A size field's bytes as written (1 to 8), held inline: a tree has an
// element per few bytes of input, and a heap block each would make a
// mutation cost as much as an execution.
struct SizeField {
    uint8_t bytes[8] = {};
    uint8_t length = 0;
    size_t size() const { return length; }
    const uint8_t *begin() const { return bytes; }
    const uint8_t *end() const { return bytes + length; }
    uint8_t operator[](size_t i) const { return bytes[i]; }
};

// An element as written: ID and size field bytes are kept as they stand
// unless the element's data changes length. An entry without an ID holds
// bytes that did not parse as an element.
struct EbmlElement {
    uint32_t id = 0;
    uint8_t idLength = 0;
    SizeField sizeField;
    bool sizeFixed = false;  // written as it stands even if it does not match
    bool master = false;
    std::vector<uint8_t> data;  // a leaf's data, or what follows a master's children
    std::vector<EbmlElement> children;
};

std::vector<EbmlElement> parseEbml(const uint8_t *data, size_t size);
std::vector<uint8_t> serializeEbml(const std::vector<EbmlElement> &elements);

// Mutates `data` (of `size` bytes, room for `maxSize`) in place and returns
// the new size; the same seed gives the same result.
size_t mutateEbml(uint8_t *data, size_t size, size_t maxSize, unsigned seed, ByteMutator bytes);
// The first input with an element of the second spliced in, written to
// `out`; its size, or 0 when nothing fits.
size_t crossOverEbml(const uint8_t *data1, size_t size1, const uint8_t *data2, size_t size2, uint8_t *out,
                     size_t maxOutSize, unsigned seed);

}  // namespace qmkv_fuzz

#endif  // QMKV_FUZZ_EBML_MUTATOR_H_
