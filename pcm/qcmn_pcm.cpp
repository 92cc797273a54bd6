// PCM sample-format conversions.
//
// Samples go through in fixed blocks: a block's source is copied into a
// local array before any of its destination is written. That makes a block
// correct both for separate buffers and for a destination at the source's
// address (walking backwards when samples widen, forwards when they narrow),
// without restrict or run-time overlap checks, and gives the compiler
// fixed-size loops over local arrays that it turns into vector code. The
// samples left over after the last whole block use the same per-sample
// function, so both paths give identical results.
#include "pcm/qcmn_pcm.h"

#include <string.h>

namespace {

constexpr size_t kBlock = 16;

constexpr float kScale15 = 1.0f / 32768.0f;       // 2^-15
constexpr float kScale7 = 1.0f / 128.0f;          // 2^-7
constexpr float kScale31 = 1.0f / 2147483648.0f;  // 2^-31

// Source layouts: the bytes one sample takes and the value a converter
// works on. Bytes are copied, never read through a typed pointer, since in
// place the same memory is also written as the destination type.
template <typename T>
struct Native {
    using Sample = T;
    static constexpr size_t kBytes = sizeof(T);
    static Sample get(const uint8_t *p) {
        T v;
        memcpy(&v, p, sizeof v);
        return v;
    }
};

struct Packed24 {
    using Sample = int32_t;  // the 24 bits in the top of a 32-bit word
    static constexpr size_t kBytes = 3;
    static Sample get(const uint8_t *p) {
        return (int32_t)((uint32_t)p[0] << 8 | (uint32_t)p[1] << 16 | (uint32_t)p[2] << 24);
    }
};

inline uint32_t float_bits(float f) {
    uint32_t u;
    memcpy(&u, &f, sizeof u);
    return u;
}

inline float bits_float(uint32_t u) {
    float f;
    memcpy(&f, &u, sizeof f);
    return f;
}

// a when keep, else b; spelled with masks because a branch here would stop
// the compiler from vectorising the loop it sits in.
inline float select(bool keep, float a, float b) {
    const uint32_t m = 0u - (uint32_t)keep;
    return bits_float((float_bits(a) & m) | (float_bits(b) & ~m));
}

inline int16_t i16_of_u8(uint8_t s) { return (int16_t)(((int32_t)s - 128) * 256); }

inline int16_t i16_of_i32(int32_t s) { return (int16_t)(s >> 16); }

inline int16_t i16_of_p24(int32_t top) { return (int16_t)(top >> 16); }

inline int16_t i16_of_float(float s) {
    float x = s * 32768.0f;
    // A NaN fails the first comparison and saturates to 32767.
    x = select(x < 32767.0f, x, 32767.0f);
    x = select(x > -32768.0f, x, -32768.0f);
    // Round half away from zero without a rounding instruction the baseline
    // vector units lack: truncate, then look at the remainder, which is
    // exact for values this small.
    int32_t t = (int32_t)x;
    const float frac = x - (float)t;
    t += (int32_t)(frac >= 0.5f) - (int32_t)(frac <= -0.5f);
    return (int16_t)t;
}

inline float float_of_i16(int16_t s) { return (float)s * kScale15; }

inline float float_of_u8(uint8_t s) { return (float)((int32_t)s - 128) * kScale7; }

// 24 significant bits: the conversion to float is exact.
inline float float_of_p24(int32_t top) { return (float)top * kScale31; }

inline float float_of_i32(int32_t s) { return (float)s * kScale31; }

template <typename D, typename Src, D (*kConv)(typename Src::Sample)>
inline void convert_block(D *dst, const uint8_t *src) {
    uint8_t raw[kBlock * Src::kBytes];
    memcpy(raw, src, sizeof raw);
    // Unpacking first and converting in a loop of its own keeps the
    // arithmetic vectorisable even where the unpacking is not (packed 24-bit
    // needs byte shuffles).
    typename Src::Sample in[kBlock];
    for (size_t j = 0; j < kBlock; ++j) in[j] = Src::get(raw + j * Src::kBytes);
    D out[kBlock];
    for (size_t j = 0; j < kBlock; ++j) out[j] = kConv(in[j]);
    memcpy(dst, out, sizeof out);
}

template <typename D, typename Src, D (*kConv)(typename Src::Sample)>
inline void convert_one(D *dst, const uint8_t *src) {
    const D out = kConv(Src::get(src));
    memcpy(dst, &out, sizeof out);
}

// Destination samples wider than source ones: from the end, so the unread
// source below stays intact when the buffers coincide.
template <typename D, typename Src, D (*kConv)(typename Src::Sample)>
inline void widen(D *dst, const void *src_v, size_t count) {
    const uint8_t *src = static_cast<const uint8_t *>(src_v);
    size_t i = count;
    while (i >= kBlock) {
        i -= kBlock;
        convert_block<D, Src, kConv>(dst + i, src + i * Src::kBytes);
    }
    while (i > 0) {
        --i;
        convert_one<D, Src, kConv>(dst + i, src + i * Src::kBytes);
    }
}

// Destination samples no wider than source ones: from the start, so writes
// trail the reads when the buffers coincide.
template <typename D, typename Src, D (*kConv)(typename Src::Sample)>
inline void narrow(D *dst, const void *src_v, size_t count) {
    const uint8_t *src = static_cast<const uint8_t *>(src_v);
    size_t i = 0;
    for (; count - i >= kBlock; i += kBlock) convert_block<D, Src, kConv>(dst + i, src + i * Src::kBytes);
    for (; i < count; ++i) convert_one<D, Src, kConv>(dst + i, src + i * Src::kBytes);
}

}  // namespace

void memcpy_to_i16_from_u8(int16_t *dst, const uint8_t *src, size_t count) {
    widen<int16_t, Native<uint8_t>, i16_of_u8>(dst, src, count);
}

void memcpy_to_float_from_i16(float *dst, const int16_t *src, size_t count) {
    widen<float, Native<int16_t>, float_of_i16>(dst, src, count);
}

void memcpy_to_float_from_u8(float *dst, const uint8_t *src, size_t count) {
    widen<float, Native<uint8_t>, float_of_u8>(dst, src, count);
}

void memcpy_to_float_from_p24(float *dst, const uint8_t *src, size_t count) {
    widen<float, Packed24, float_of_p24>(dst, src, count);
}

void memcpy_to_i16_from_i32(int16_t *dst, const int32_t *src, size_t count) {
    narrow<int16_t, Native<int32_t>, i16_of_i32>(dst, src, count);
}

void memcpy_to_i16_from_float(int16_t *dst, const float *src, size_t count) {
    narrow<int16_t, Native<float>, i16_of_float>(dst, src, count);
}

void memcpy_to_i16_from_p24(int16_t *dst, const uint8_t *src, size_t count) {
    narrow<int16_t, Packed24, i16_of_p24>(dst, src, count);
}

void memcpy_to_float_from_i32(float *dst, const int32_t *src, size_t count) {
    narrow<float, Native<int32_t>, float_of_i32>(dst, src, count);
}
