// A small EBML writer for exact byte layouts: well-formed elements, and the
// odd ones (over-long sizes, unknown sizes, wrong lengths) damaged files have.
#ifndef QMKV_TEST_EBML_WRITER_H_
#define QMKV_TEST_EBML_WRITER_H_

#include <stdint.h>

#include <initializer_list>
#include <string>
#include <vector>

namespace qmkv_test {

using Bytes = std::vector<uint8_t>;

Bytes cat(std::initializer_list<Bytes> parts);
// The ID as written in the file (marker bit included in `id`).
Bytes ebml_id(uint32_t id);
// A size field; `length` 0 picks the shortest form.
Bytes ebml_size(uint64_t size, int length = 0);
// A size field with every value bit set (the unknown size) of `length` bytes.
Bytes ebml_unknown_size(int length = 8);

// An element with `payload` as its data; `size_length` 0 picks the shortest.
Bytes el(uint32_t id, const Bytes &payload, int size_length = 0);
Bytes el(uint32_t id, std::initializer_list<Bytes> children);
// Unsigned integer element; `width` 0 picks the shortest (at least 1 byte).
Bytes uint_el(uint32_t id, uint64_t value, int width = 0);
Bytes str_el(uint32_t id, const std::string &text);
Bytes f32_el(uint32_t id, float value);
Bytes f64_el(uint32_t id, double value);
Bytes bin_el(uint32_t id, const Bytes &data);
// Header of an element whose data follows separately (or not at all).
Bytes el_header(uint32_t id, uint64_t size, int size_length = 0);

}  // namespace qmkv_test

#endif  // QMKV_TEST_EBML_WRITER_H_
