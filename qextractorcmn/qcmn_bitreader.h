// Bounded MSB-first bit reader for codec headers. Reading past the end
// never touches memory beyond the input: it sets a sticky error flag and
// yields zeros, so a parser can read a whole header and test ok() once
// before trusting any value. Optionally drops H.264/HEVC emulation
// prevention bytes (00 00 03) on the fly, which avoids copying the NAL unit.
#ifndef QEXTRACTORCMN_QCMN_BITREADER_H_
#define QEXTRACTORCMN_QCMN_BITREADER_H_

#include <stddef.h>
#include <stdint.h>

namespace qcmn {

class BitReader {
public:
    BitReader(const uint8_t *data, size_t size, bool drop_emulation_prevention = false)
        : data_(data), size_(data ? size : 0), ep_(drop_emulation_prevention) {}

    bool ok() const { return !err_; }
    void fail() { err_ = true; }

    uint32_t bit() {
        if (left_ == 0 && !load()) return 0;
        --left_;
        return (cur_ >> left_) & 1u;
    }

    // n in 0..32.
    uint32_t bits(unsigned n) {
        if (n > 32) {
            err_ = true;
            return 0;
        }
        uint32_t v = 0;
        for (unsigned i = 0; i < n; ++i) v = (v << 1) | bit();
        return err_ ? 0 : v;
    }

    void skip(uint64_t n) {
        while (n > 0 && !err_) {
            if (left_ == 0 && !load()) return;
            const unsigned k = n < left_ ? (unsigned)n : left_;
            left_ -= k;
            n -= k;
        }
    }

    // Unsigned Exp-Golomb; codes longer than 32 bits are malformed.
    uint32_t ue() {
        unsigned zeros = 0;
        while (bit() == 0) {
            if (err_ || ++zeros > 31) {
                err_ = true;
                return 0;
            }
        }
        const uint64_t v = ((uint64_t)1 << zeros) - 1 + bits(zeros);
        return err_ ? 0 : (uint32_t)v;
    }

    int32_t se() {
        const uint32_t k = ue();
        const int64_t mag = ((int64_t)k + 1) / 2;
        return (int32_t)((k & 1) ? mag : -mag);
    }

    // AV1 uvlc(): up to 32 leading zeros means the maximum value.
    uint32_t uvlc() {
        unsigned zeros = 0;
        while (bit() == 0) {
            if (err_) return 0;
            ++zeros;
        }
        if (zeros >= 32) return UINT32_MAX;
        const uint64_t v = ((uint64_t)1 << zeros) - 1 + bits(zeros);
        return err_ ? 0 : (uint32_t)v;
    }

    void byte_align() { left_ = 0; }

    // Raw input bytes consumed so far (partially read byte included).
    size_t byte_pos() const { return pos_; }

    // Bits still available, counting dropped emulation bytes as data; only
    // an upper bound when emulation prevention is on.
    uint64_t bits_left() const { return err_ ? 0 : (uint64_t)(size_ - pos_) * 8 + left_; }

private:
    bool load() {
        if (pos_ >= size_) {
            err_ = true;
            return false;
        }
        uint8_t b = data_[pos_++];
        if (ep_ && zeros_ >= 2 && b == 3) {
            zeros_ = 0;
            if (pos_ >= size_) {
                err_ = true;
                return false;
            }
            b = data_[pos_++];
        }
        if (ep_) zeros_ = b == 0 ? zeros_ + 1 : 0;
        cur_ = b;
        left_ = 8;
        return true;
    }

    const uint8_t *data_;
    size_t size_;
    size_t pos_ = 0;
    bool ep_;
    bool err_ = false;
    unsigned zeros_ = 0;
    unsigned left_ = 0;
    uint8_t cur_ = 0;
};

}  // namespace qcmn

#endif  // QEXTRACTORCMN_QCMN_BITREADER_H_
