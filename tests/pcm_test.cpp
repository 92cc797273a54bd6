#include <gtest/gtest.h>

#include <math.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "pcm/qcmn_pcm.h"

namespace {

using Bytes = std::vector<uint8_t>;

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

struct P24 {
    uint8_t b[3];
};

// Reference conversions, one sample, written from the arithmetic of each
// format rather than from the routines' shape.
int32_t p24_value(P24 p) {  // sign-extended 24-bit
    int32_t v = p.b[0] | p.b[1] << 8 | p.b[2] << 16;
    return v >= 0x800000 ? v - 0x1000000 : v;
}

int16_t ref_i16_from_u8(uint8_t s) { return (int16_t)((s - 128) * 256); }
int16_t ref_i16_from_i32(int32_t s) { return (int16_t)floor(s / 65536.0); }
int16_t ref_i16_from_p24(P24 p) { return (int16_t)floor(p24_value(p) / 256.0); }
int16_t ref_i16_from_float(float s) {
    double x = (double)s * 32768.0;
    x = fmin(x, 32767.0);  // fmin/fmax return the number when the other is NaN
    x = fmax(x, -32768.0);
    return (int16_t)lround(x);  // halves away from zero
}
float ref_float_from_i16(int16_t s) { return (float)(s / 32768.0); }
float ref_float_from_u8(uint8_t s) { return (float)((s - 128) / 128.0); }
float ref_float_from_p24(P24 p) { return (float)(p24_value(p) / 8388608.0); }
float ref_float_from_i32(int32_t s) { return ldexpf((float)s, -31); }

struct Routine {
    const char *name;
    size_t dst_bytes, src_bytes;
    void (*run)(void *dst, const void *src, size_t n);
    void (*ref)(uint8_t *dst, const uint8_t *src);  // one sample
};

// A routine and its reference; the reference's source type gives the
// source sample size.
template <typename D, typename S, void (*F)(D *, const S *, size_t), typename R, D (*Ref)(R)>
Routine routine(const char *name) {
    return {name, sizeof(D), sizeof(R), [](void *d, const void *s, size_t n) { F((D *)d, (const S *)s, n); },
            [](uint8_t *d, const uint8_t *s) { put(d, Ref(get<R>(s))); }};
}

const Routine kRoutines[] = {
    routine<int16_t, uint8_t, memcpy_to_i16_from_u8, uint8_t, ref_i16_from_u8>("i16_from_u8"),
    routine<int16_t, int32_t, memcpy_to_i16_from_i32, int32_t, ref_i16_from_i32>("i16_from_i32"),
    routine<int16_t, float, memcpy_to_i16_from_float, float, ref_i16_from_float>("i16_from_float"),
    routine<int16_t, uint8_t, memcpy_to_i16_from_p24, P24, ref_i16_from_p24>("i16_from_p24"),
    routine<float, int16_t, memcpy_to_float_from_i16, int16_t, ref_float_from_i16>("float_from_i16"),
    routine<float, uint8_t, memcpy_to_float_from_u8, uint8_t, ref_float_from_u8>("float_from_u8"),
    routine<float, uint8_t, memcpy_to_float_from_p24, P24, ref_float_from_p24>("float_from_p24"),
    routine<float, int32_t, memcpy_to_float_from_i32, int32_t, ref_float_from_i32>("float_from_i32"),
};

// Random bytes: for float sources a spread of bit patterns, NaNs and
// infinities included; values are swept more finely further down.
Bytes random_source(const Routine &r, size_t n, std::mt19937 &rng) {
    Bytes b(n * r.src_bytes);
    for (uint8_t &v : b) v = (uint8_t)rng();
    return b;
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

// Converts on heap blocks of exactly the sizes the count needs, so that
// AddressSanitizer sees any access beyond them: in place, or into a separate
// destination followed by guard bytes that must stay untouched.
Bytes run_on_heap(const Routine &r, const Bytes &src, size_t n, bool in_place) {
    const size_t sb = n * r.src_bytes, db = n * r.dst_bytes, guard = 64;
    uint8_t *s = static_cast<uint8_t *>(malloc(in_place ? std::max(sb, db) : sb));
    uint8_t *d = in_place ? s : static_cast<uint8_t *>(malloc(db + guard));
    if (sb > 0) memcpy(s, src.data(), sb);
    if (!in_place) memset(d, 0xA5, db + guard);
    r.run(d, s, n);
    const Bytes out(d, d + db);
    for (size_t i = db; !in_place && i < db + guard; ++i) EXPECT_EQ(0xA5, d[i]) << "written past the count: " << i;
    if (!in_place) free(d);
    free(s);
    return out;
}

TEST(Pcm, MatchesTheReferenceAtEverySizeInAndOutOfPlace) {
    std::mt19937 rng(7);
    for (const Routine &r : kRoutines) {
        r.run(nullptr, nullptr, 0);  // a zero count touches neither pointer
        for (size_t n = 0; n <= 41; ++n) {
            if (n == 41) n = 1000;  // every leftover count around a few blocks, then a long run
            SCOPED_TRACE(std::string(r.name) + " n=" + std::to_string(n));
            const Bytes src = random_source(r, n, rng);
            const Bytes want = reference(r, src, n);
            EXPECT_EQ(-1, first_mismatch(want, run_on_heap(r, src, n, false), r.dst_bytes));
            EXPECT_EQ(-1, first_mismatch(want, run_on_heap(r, src, n, true), r.dst_bytes));
        }
    }
}

// Every value of the integer sources up to 24 bits, in chunks whose size
// leaves a remainder so that the block path and the leftover path both see
// every kind of value, then one sample at a time (the leftover path alone).
TEST(Pcm, IntegerSourcesExhaustive) {
    const size_t kChunk = 4099;
    for (const Routine &r : kRoutines) {
        if (r.src_bytes > 3) continue;  // the integer sources up to 24 bits
        const uint32_t count = 1u << (8 * r.src_bytes);
        Bytes src(kChunk * r.src_bytes);
        for (uint32_t base = 0; base < count; base += kChunk) {
            const size_t n = std::min<size_t>(kChunk, count - base);
            for (size_t k = 0; k < n; ++k)
                for (size_t j = 0; j < r.src_bytes; ++j) src[k * r.src_bytes + j] = (uint8_t)((base + k) >> (8 * j));
            const Bytes want = reference(r, src, n);
            Bytes got(n * r.dst_bytes);
            r.run(got.data(), src.data(), n);
            ASSERT_EQ(-1, first_mismatch(want, got, r.dst_bytes)) << r.name << " from " << base;
            for (size_t k = 0; k < n; ++k) r.run(&got[k * r.dst_bytes], &src[k * r.src_bytes], 1);
            ASSERT_EQ(-1, first_mismatch(want, got, r.dst_bytes)) << r.name << " singly from " << base;
        }
    }
}

// The 32-bit sources over a spread of bit patterns, plus every half-step of
// the 16-bit output range (the float rounding ties) and its neighbours.
TEST(Pcm, ThirtyTwoBitSourcesSweep) {
    std::vector<float> in;
    for (uint64_t u = 0; u < (1ull << 32); u += 40009) in.push_back(get<float>((const uint8_t *)&u));
    for (int32_t k = -65540; k <= 65540; ++k) {
        const float v = (float)k * 0.5f / 32768.0f;
        in.insert(in.end(), {v, nextafterf(v, 0.0f), nextafterf(v, v > 0.0f ? 2.0f : -2.0f)});
    }
    const Bytes src((const uint8_t *)in.data(), (const uint8_t *)(in.data() + in.size()));
    for (const Routine &r : kRoutines) {
        if (r.src_bytes != 4) continue;
        Bytes got(in.size() * r.dst_bytes);
        r.run(got.data(), src.data(), in.size());
        EXPECT_EQ(-1, first_mismatch(reference(r, src, in.size()), got, r.dst_bytes)) << r.name;
    }
}

TEST(Pcm, FloatRoundingAndSaturationEdges) {
    const float inf = std::numeric_limits<float>::infinity(), nan = std::numeric_limits<float>::quiet_NaN();
    const float tiny = std::numeric_limits<float>::denorm_min();
    const struct {
        float in;
        int16_t out;
    } floats[] = {
        {1.5f, 32767}, {-1.5f, -32768}, {0.99999f, 32767}, {-0.0f, 0}, {0.0f, 0},
        {1.5f / 32768, 2}, {-1.5f / 32768, -2}, {0.5f / 32768, 1}, {-0.5f / 32768, -1},
        {2.5f / 32768, 3}, {-2.5f / 32768, -3}, {nextafterf(0.5f, 0.0f) / 32768, 0},
        {nextafterf(-0.5f, 0.0f) / 32768, 0}, {nextafterf(1.5f, 0.0f) / 32768, 1},
        {32766.5f / 32768, 32767}, {-32767.5f / 32768, -32768}, {1.0f, 32767}, {-1.0f, -32768},
        {32767.0f / 32768, 32767}, {-32767.0f / 32768, -32767}, {1e38f, 32767}, {-1e38f, -32768},
        {inf, 32767}, {-inf, -32768}, {nan, 32767}, {-nan, 32767},
        {std::numeric_limits<float>::signaling_NaN(), 32767}, {tiny, 0}, {-tiny, 0},
    };
    // Each value alone (leftover path) and in a run of 16 copies (block path).
    for (const auto &c : floats) {
        int16_t one = 0x1234;
        memcpy_to_i16_from_float(&one, &c.in, 1);
        EXPECT_EQ(c.out, one) << c.in;
        std::vector<float> run(16, c.in);
        std::vector<int16_t> out(16, 0x1234);
        memcpy_to_i16_from_float(out.data(), run.data(), 16);
        for (int16_t v : out) EXPECT_EQ(c.out, v) << c.in;
    }

}

}  // namespace
