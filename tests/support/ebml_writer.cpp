#include "tests/support/ebml_writer.h"

#include <string.h>

namespace qmkv_test {

Bytes cat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes &p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

Bytes ebml_id(uint32_t id) {
    Bytes out;
    bool started = false;
    for (int shift = 24; shift >= 0; shift -= 8) {
        uint8_t b = (uint8_t)(id >> shift);
        if (b != 0 || started || shift == 0) {
            out.push_back(b);
            started = true;
        }
    }
    return out;
}

Bytes ebml_size(uint64_t size, int length) {
    if (length == 0) {
        length = 1;
        while (length < 8 && size >= (1ull << (7 * length)) - 1) ++length;
    }
    Bytes out((size_t)length);
    for (int i = length - 1; i >= 0; --i) {
        out[(size_t)i] = (uint8_t)size;
        size >>= 8;
    }
    out[0] |= (uint8_t)(0x80 >> (length - 1));
    return out;
}

Bytes ebml_unknown_size(int length) {
    Bytes out((size_t)length, 0xFF);
    out[0] = (uint8_t)(0xFF >> (length - 1));
    return out;
}

Bytes el_header(uint32_t id, uint64_t size, int size_length) {
    return cat({ebml_id(id), ebml_size(size, size_length)});
}

Bytes el(uint32_t id, const Bytes &payload, int size_length) {
    return cat({el_header(id, payload.size(), size_length), payload});
}

Bytes el(uint32_t id, std::initializer_list<Bytes> children) {
    return el(id, cat(children));
}

Bytes uint_el(uint32_t id, uint64_t value, int width) {
    if (width == 0) {
        width = 1;
        while (width < 8 && (value >> (8 * width)) != 0) ++width;
    }
    Bytes data((size_t)width);
    for (int i = width - 1; i >= 0; --i) {
        data[(size_t)i] = (uint8_t)value;
        value >>= 8;
    }
    return el(id, data);
}

Bytes str_el(uint32_t id, const std::string &text) {
    return el(id, Bytes(text.begin(), text.end()));
}

Bytes f32_el(uint32_t id, float value) {
    uint32_t bits;
    memcpy(&bits, &value, 4);
    return uint_el(id, bits, 4);
}

Bytes f64_el(uint32_t id, double value) {
    uint64_t bits;
    memcpy(&bits, &value, 8);
    return uint_el(id, bits, 8);
}

Bytes bin_el(uint32_t id, const Bytes &data) { return el(id, data); }

}  // namespace qmkv_test
