#include <gtest/gtest.h>

#include <math.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <limits>
#include <random>
#include <vector>

#include "pcm/qcmn_pcm.h"

namespace {

using Bytes = std::vector<uint8_t>;

// ---- Reference conversions, one sample, written from the arithmetic of
// each format rather than from the routines' shape.

int32_t p24_value(const uint8_t *p) {  // sign-extended 24-bit
    int32_t v = p[0] | p[1] << 8 | p[2] << 16;
    return v >= 0x800000 ? v - 0x1000000 : v;
}

int16_t ref_i16_from_u8(uint8_t s) { return (int16_t)((s - 128) * 256); }
int16_t ref_i16_from_i32(int32_t s) { return (int16_t)floor(s / 65536.0); }
int16_t ref_i16_from_p24(const uint8_t *p) { return (int16_t)floor(p24_value(p) / 256.0); }
int16_t ref_i16_from_float(float s) {
    double x = (double)s * 32768.0;
    x = fmin(x, 32767.0);  // fmin/fmax return the number when the other is NaN
    x = fmax(x, -32768.0);
    return (int16_t)lround(x);  // halves away from zero
}
float ref_float_from_i16(int16_t s) { return (float)(s / 32768.0); }
float ref_float_from_u8(uint8_t s) { return (float)((s - 128) / 128.0); }
float ref_float_from_p24(const uint8_t *p) { return (float)(p24_value(p) / 8388608.0); }
float ref_float_from_i32(int32_t s) { return ldexpf((float)s, -31); }

template <typename T>
T get(const uint8_t *p) {
    T v;
    memcpy(&v, p, sizeof v);
    return v;
}

template <typename T>
void put(uint8_t *p, T v) {
    memcpy(p, &v, sizeof v);
}

struct Routine {
    const char *name;
    size_t dst_bytes, src_bytes;
    void (*run)(void *dst, const void *src, size_t n);
    void (*ref)(uint8_t *dst, const uint8_t *src);  // one sample
    bool float_src;
};

const Routine kRoutines[] = {
    {"i16_from_u8", 2, 1,
     [](void *d, const void *s, size_t n) { memcpy_to_i16_from_u8((int16_t *)d, (const uint8_t *)s, n); },
     [](uint8_t *d, const uint8_t *s) { put(d, ref_i16_from_u8(s[0])); }, false},
    {"i16_from_i32", 2, 4,
     [](void *d, const void *s, size_t n) { memcpy_to_i16_from_i32((int16_t *)d, (const int32_t *)s, n); },
     [](uint8_t *d, const uint8_t *s) { put(d, ref_i16_from_i32(get<int32_t>(s))); }, false},
    {"i16_from_float", 2, 4,
     [](void *d, const void *s, size_t n) { memcpy_to_i16_from_float((int16_t *)d, (const float *)s, n); },
     [](uint8_t *d, const uint8_t *s) { put(d, ref_i16_from_float(get<float>(s))); }, true},
    {"i16_from_p24", 2, 3,
     [](void *d, const void *s, size_t n) { memcpy_to_i16_from_p24((int16_t *)d, (const uint8_t *)s, n); },
     [](uint8_t *d, const uint8_t *s) { put(d, ref_i16_from_p24(s)); }, false},
    {"float_from_i16", 4, 2,
     [](void *d, const void *s, size_t n) { memcpy_to_float_from_i16((float *)d, (const int16_t *)s, n); },
     [](uint8_t *d, const uint8_t *s) { put(d, ref_float_from_i16(get<int16_t>(s))); }, false},
    {"float_from_u8", 4, 1,
     [](void *d, const void *s, size_t n) { memcpy_to_float_from_u8((float *)d, (const uint8_t *)s, n); },
     [](uint8_t *d, const uint8_t *s) { put(d, ref_float_from_u8(s[0])); }, false},
    {"float_from_p24", 4, 3,
     [](void *d, const void *s, size_t n) { memcpy_to_float_from_p24((float *)d, (const uint8_t *)s, n); },
     [](uint8_t *d, const uint8_t *s) { put(d, ref_float_from_p24(s)); }, false},
    {"float_from_i32", 4, 4,
     [](void *d, const void *s, size_t n) { memcpy_to_float_from_i32((float *)d, (const int32_t *)s, n); },
     [](uint8_t *d, const uint8_t *s) { put(d, ref_float_from_i32(get<int32_t>(s))); }, false},
};

// Source samples: random bytes, or for float sources a mix of in-range
// values, exact halves, out-of-range values and the special values.
Bytes random_source(const Routine &r, size_t n, std::mt19937 &rng) {
    Bytes b(n * r.src_bytes);
    if (!r.float_src) {
        for (uint8_t &v : b) v = (uint8_t)rng();
        return b;
    }
    const float specials[] = {std::numeric_limits<float>::quiet_NaN(), -std::numeric_limits<float>::quiet_NaN(),
                              std::numeric_limits<float>::infinity(), -std::numeric_limits<float>::infinity(),
                              0.0f, -0.0f, 1.0f, -1.0f, 1e30f, -1e30f, std::numeric_limits<float>::denorm_min()};
    std::uniform_real_distribution<float> uni(-1.25f, 1.25f);
    for (size_t i = 0; i < n; ++i) {
        float f;
        switch (rng() % 4) {
        case 0: f = specials[rng() % (sizeof specials / sizeof specials[0])]; break;
        case 1: f = ((float)(int32_t)(rng() % 131072) - 65536.0f) * 0.5f / 32768.0f; break;
        default: f = uni(rng); break;
        }
        put(&b[i * 4], f);
    }
    return b;
}

// Out of place, from a source and into a destination of exactly the sizes
// the count needs, so that AddressSanitizer sees any access beyond them.
Bytes convert(const Routine &r, const Bytes &src, size_t n) {
    uint8_t *s = static_cast<uint8_t *>(calloc(n * r.src_bytes, 1));
    uint8_t *d = static_cast<uint8_t *>(malloc(n * r.dst_bytes));
    if (n > 0) memcpy(s, src.data(), n * r.src_bytes);
    r.run(d, s, n);
    Bytes out(d, d + n * r.dst_bytes);
    free(s);
    free(d);
    return out;
}

Bytes reference(const Routine &r, const Bytes &src, size_t n) {
    Bytes out(n * r.dst_bytes);
    for (size_t i = 0; i < n; ++i) r.ref(&out[i * r.dst_bytes], &src[i * r.src_bytes]);
    return out;
}

// Index of the first differing sample, or -1.
long first_mismatch(const Bytes &a, const Bytes &b, size_t sample_bytes) {
    if (a.size() != b.size()) return 0;
    for (size_t i = 0; i < a.size(); i += sample_bytes)
        if (memcmp(&a[i], &b[i], sample_bytes) != 0) return (long)(i / sample_bytes);
    return -1;
}

const std::vector<size_t> kSizes = [] {
    std::vector<size_t> v;
    for (size_t n = 0; n <= 40; ++n) v.push_back(n);
    v.push_back(1000);
    return v;
}();

TEST(Pcm, MatchesTheReferenceAtEverySize) {
    std::mt19937 rng(7);
    for (const Routine &r : kRoutines) {
        for (size_t n : kSizes) {
            const Bytes src = random_source(r, n, rng);
            EXPECT_EQ(-1, first_mismatch(reference(r, src, n), convert(r, src, n), r.dst_bytes))
                << r.name << " n=" << n;
        }
    }
}

TEST(Pcm, InPlaceEqualsOutOfPlace) {
    std::mt19937 rng(11);
    for (const Routine &r : kRoutines) {
        for (size_t n : kSizes) {
            const Bytes src = random_source(r, n, rng);
            const Bytes expected = convert(r, src, n);
            const size_t size = n * (r.src_bytes > r.dst_bytes ? r.src_bytes : r.dst_bytes);
            uint8_t *buf = static_cast<uint8_t *>(malloc(size));
            if (n > 0) memcpy(buf, src.data(), n * r.src_bytes);
            r.run(buf, buf, n);
            const Bytes got(buf, buf + n * r.dst_bytes);
            free(buf);
            EXPECT_EQ(-1, first_mismatch(expected, got, r.dst_bytes)) << r.name << " n=" << n;
        }
    }
}

TEST(Pcm, WritesExactlyCountSamples) {
    std::mt19937 rng(3);
    for (const Routine &r : kRoutines) {
        for (size_t n : kSizes) {
            const Bytes src = random_source(r, n, rng);
            Bytes dst(n * r.dst_bytes + 64, 0xA5);
            r.run(dst.data(), src.data(), n);
            for (size_t i = n * r.dst_bytes; i < dst.size(); ++i)
                ASSERT_EQ(0xA5, dst[i]) << r.name << " n=" << n << " byte " << i;
        }
    }
}

TEST(Pcm, CountZeroTouchesNothing) {
    for (const Routine &r : kRoutines) {
        r.run(nullptr, nullptr, 0);
        uint8_t dst[8];
        memset(dst, 0x5A, sizeof dst);
        const uint8_t src[8] = {1, 2, 3, 4, 5, 6, 7, 8};
        r.run(dst, src, 0);
        for (uint8_t v : dst) EXPECT_EQ(0x5A, v) << r.name;
    }
}

TEST(Pcm, EightBitExhaustive) {
    Bytes src(256);
    for (int i = 0; i < 256; ++i) src[i] = (uint8_t)i;
    std::vector<int16_t> i16(256);
    std::vector<float> f(256);
    memcpy_to_i16_from_u8(i16.data(), src.data(), 256);
    memcpy_to_float_from_u8(f.data(), src.data(), 256);
    for (int i = 0; i < 256; ++i) {
        EXPECT_EQ((i - 128) * 256, i16[i]) << i;
        EXPECT_EQ((float)(i - 128) / 128.0f, f[i]) << i;
        // One sample at a time takes the path for leftovers.
        int16_t one16;
        float onef;
        const uint8_t s = (uint8_t)i;
        memcpy_to_i16_from_u8(&one16, &s, 1);
        memcpy_to_float_from_u8(&onef, &s, 1);
        EXPECT_EQ(i16[i], one16) << i;
        EXPECT_EQ(f[i], onef) << i;
    }
    EXPECT_EQ(-32768, i16[0x00]);
    EXPECT_EQ(0, i16[0x80]);
    EXPECT_EQ(32512, i16[0xFF]);
    EXPECT_EQ(-1.0f, f[0x00]);
    EXPECT_EQ(0.0f, f[0x80]);
    EXPECT_EQ(0.9921875f, f[0xFF]);
}

TEST(Pcm, SixteenBitToFloatExhaustive) {
    std::vector<int16_t> src(65536);
    for (int i = 0; i < 65536; ++i) src[i] = (int16_t)(i - 32768);
    std::vector<float> f(65536);
    memcpy_to_float_from_i16(f.data(), src.data(), src.size());
    for (int i = 0; i < 65536; ++i) ASSERT_EQ((float)(i - 32768) / 32768.0f, f[i]) << i;
    EXPECT_EQ(-1.0f, f[0]);
    EXPECT_EQ(3.0517578125e-5f, f[32769]);
}

// All 2^24 packed values, in chunks whose size leaves a remainder so that
// both the block path and the leftover path see every kind of value.
TEST(Pcm, Packed24Exhaustive) {
    const size_t kChunk = 4099;
    Bytes src(kChunk * 3);
    std::vector<int16_t> i16(kChunk);
    std::vector<float> f(kChunk);
    for (uint32_t base = 0; base < (1u << 24); base += kChunk) {
        const size_t n = (1u << 24) - base < kChunk ? (1u << 24) - base : kChunk;
        for (size_t k = 0; k < n; ++k) {
            const uint32_t v = base + (uint32_t)k;
            src[3 * k] = (uint8_t)v;
            src[3 * k + 1] = (uint8_t)(v >> 8);
            src[3 * k + 2] = (uint8_t)(v >> 16);
        }
        memcpy_to_i16_from_p24(i16.data(), src.data(), n);
        memcpy_to_float_from_p24(f.data(), src.data(), n);
        for (size_t k = 0; k < n; ++k) {
            ASSERT_EQ(ref_i16_from_p24(&src[3 * k]), i16[k]) << base + k;
            ASSERT_EQ(ref_float_from_p24(&src[3 * k]), f[k]) << base + k;
        }
    }
}

TEST(Pcm, EdgeCases) {
    struct F {
        float in;
        int16_t out;
    };
    const F floats[] = {
        {1.5f, 32767},
        {-1.5f, -32768},
        {0.99999f, 32767},
        {-0.0f, 0},
        {0.0f, 0},
        {1.5f / 32768, 2},
        {-1.5f / 32768, -2},
        {0.5f / 32768, 1},
        {-0.5f / 32768, -1},
        {2.5f / 32768, 3},
        {-2.5f / 32768, -3},
        {nextafterf(0.5f, 0.0f) / 32768, 0},
        {nextafterf(-0.5f, 0.0f) / 32768, 0},
        {nextafterf(1.5f, 0.0f) / 32768, 1},
        {32766.5f / 32768, 32767},
        {-32767.5f / 32768, -32768},
        {1.0f, 32767},
        {-1.0f, -32768},
        {32767.0f / 32768, 32767},
        {-32767.0f / 32768, -32767},
        {1e38f, 32767},
        {-1e38f, -32768},
        {std::numeric_limits<float>::infinity(), 32767},
        {-std::numeric_limits<float>::infinity(), -32768},
        {std::numeric_limits<float>::quiet_NaN(), 32767},
        {-std::numeric_limits<float>::quiet_NaN(), 32767},
        {std::numeric_limits<float>::signaling_NaN(), 32767},
        {std::numeric_limits<float>::denorm_min(), 0},
        {-std::numeric_limits<float>::denorm_min(), 0},
    };
    // Each value alone (leftover path) and in a run of 16 copies (block path).
    for (const F &c : floats) {
        int16_t one = 0x1234;
        memcpy_to_i16_from_float(&one, &c.in, 1);
        EXPECT_EQ(c.out, one) << c.in;
        std::vector<float> run(16, c.in);
        std::vector<int16_t> out(16, 0x1234);
        memcpy_to_i16_from_float(out.data(), run.data(), 16);
        for (int16_t v : out) EXPECT_EQ(c.out, v) << c.in;
    }

    const int16_t m = -32768;
    float fm = 0;
    memcpy_to_float_from_i16(&fm, &m, 1);
    EXPECT_EQ(-1.0f, fm);

    const uint8_t p24[] = {0xFF, 0xFF, 0x7F, 0x00, 0x00, 0x80, 0x12, 0x34, 0x56, 0xFF, 0xFF, 0xFF};
    int16_t i16[4];
    memcpy_to_i16_from_p24(i16, p24, 4);
    EXPECT_EQ(32767, i16[0]);
    EXPECT_EQ(-32768, i16[1]);
    EXPECT_EQ(0x5634, i16[2]);
    EXPECT_EQ(-1, i16[3]);  // no rounding toward zero
    float f24[4];
    memcpy_to_float_from_p24(f24, p24, 4);
    EXPECT_EQ(8388607.0f / 8388608.0f, f24[0]);
    EXPECT_EQ(-1.0f, f24[1]);
    EXPECT_EQ(-1.0f / 8388608.0f, f24[3]);

    const int32_t i32[] = {INT32_MIN, INT32_MAX, -1, 0xFFFF, 0x10000, -65536, -65537, 1, 16777219};
    int16_t n16[9];
    memcpy_to_i16_from_i32(n16, i32, 9);
    const int16_t expected16[] = {-32768, 32767, -1, 0, 1, -1, -2, 0, 256};
    for (int k = 0; k < 9; ++k) EXPECT_EQ(expected16[k], n16[k]) << i32[k];
    float f32[9];
    memcpy_to_float_from_i32(f32, i32, 9);
    EXPECT_EQ(-1.0f, f32[0]);
    EXPECT_EQ(1.0f, f32[1]);  // 2^31 - 1 rounds to 2^31
    EXPECT_EQ(-0x1p-31f, f32[2]);
    EXPECT_EQ(0x1p-31f, f32[7]);
    EXPECT_EQ(16777220.0f * 0x1p-31f, f32[8]);  // to nearest (even), not truncated
}

// Float to 16-bit over a spread of bit patterns and over every half-step
// of the output range (the rounding ties), in blocks and singly.
TEST(Pcm, FloatToI16Sweep) {
    std::vector<float> in;
    for (uint64_t u = 0; u < (1ull << 32); u += 65521) {
        float f;
        const uint32_t b = (uint32_t)u;
        memcpy(&f, &b, sizeof f);
        in.push_back(f);
    }
    for (int32_t k = -65540; k <= 65540; ++k) {
        const float v = (float)k * 0.5f / 32768.0f;
        in.push_back(v);
        in.push_back(nextafterf(v, 0.0f));
        in.push_back(nextafterf(v, v > 0.0f ? 2.0f : -2.0f));
    }
    std::vector<int16_t> out(in.size());
    memcpy_to_i16_from_float(out.data(), in.data(), in.size());
    for (size_t i = 0; i < in.size(); ++i) ASSERT_EQ(ref_i16_from_float(in[i]), out[i]) << in[i];
}

TEST(Pcm, I32ToBothSweep) {
    std::vector<int32_t> in;
    for (uint64_t u = 0; u < (1ull << 32); u += 40009) in.push_back((int32_t)(uint32_t)u);
    for (int32_t e : {INT32_MIN, INT32_MIN + 1, -65537, -65536, -65535, -1, 0, 1, 65535, 65536, INT32_MAX})
        in.push_back(e);
    std::vector<int16_t> i16(in.size());
    std::vector<float> f(in.size());
    memcpy_to_i16_from_i32(i16.data(), in.data(), in.size());
    memcpy_to_float_from_i32(f.data(), in.data(), in.size());
    for (size_t i = 0; i < in.size(); ++i) {
        ASSERT_EQ(ref_i16_from_i32(in[i]), i16[i]) << in[i];
        ASSERT_EQ(ref_float_from_i32(in[i]), f[i]) << in[i];
    }
}

}  // namespace
