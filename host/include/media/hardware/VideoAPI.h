// Host copy of the colour and HDR records of the platform's video HAL
// interface (media/hardware/VideoAPI.h); values and layouts follow the
// platform: both records are packed, as codecs exchange them as bytes.
#ifndef VIDEO_API_H_
#define VIDEO_API_H_

#include <stdint.h>

namespace android {

// Colour description as codecs exchange it.
struct __attribute__((__packed__, aligned(alignof(uint32_t)))) ColorAspects {
    enum Range : uint32_t {
        RangeUnspecified,
        RangeFull,
        RangeLimited,
        RangeOther = 0xff,
    };

    enum Primaries : uint32_t {
        PrimariesUnspecified,
        PrimariesBT709_5,      // ITU-R BT.709-5
        PrimariesBT470_6M,     // ITU-R BT.470-6 System M
        PrimariesBT601_6_625,  // ITU-R BT.601-6 625 lines
        PrimariesBT601_6_525,  // ITU-R BT.601-6 525 lines
        PrimariesGenericFilm,
        PrimariesBT2020,  // ITU-R BT.2020
        PrimariesOther = 0xff,
    };

    // The values up to HLG match the platform's transfer constants.
    enum Transfer : uint32_t {
        TransferUnspecified,
        TransferLinear,
        TransferSRGB,
        TransferSMPTE170M,  // also BT.601, BT.709, BT.2020
        TransferGamma22,
        TransferGamma28,
        TransferST2084,  // SMPTE ST 2084 (PQ)
        TransferHLG,     // ARIB STD-B67 hybrid log-gamma
        TransferSMPTE240M = 0x40,
        TransferXvYCC,   // IEC 61966-2-4
        TransferBT1361,  // ITU-R BT.1361 extended gamut
        TransferST428,   // SMPTE ST 428-1
        TransferOther = 0xff,
    };

    enum MatrixCoeffs : uint32_t {
        MatrixUnspecified,
        MatrixBT709_5,
        MatrixBT470_6M,  // KR 0.30, KB 0.11
        MatrixBT601_6,
        MatrixSMPTE240M,
        MatrixBT2020,          // non-constant luminance
        MatrixBT2020Constant,  // constant luminance
        MatrixOther = 0xff,
    };

    // Primaries and matrix together; the values match the platform's colour
    // standard constants.
    enum Standard : uint32_t {
        StandardUnspecified,
        StandardBT709,
        StandardBT601_625,
        StandardBT601_625_Unadjusted,
        StandardBT601_525,
        StandardBT601_525_Unadjusted,
        StandardBT2020,
        StandardBT2020Constant,
        StandardBT470M,
        StandardFilm,
        StandardOther = 0xff,
    };

    Range mRange;
    Primaries mPrimaries;
    Transfer mTransfer;
    MatrixCoeffs mMatrixCoeffs;
};

static_assert(sizeof(ColorAspects) == 16, "four 32-bit aspects");

// HDR static metadata (CTA-861.3).
struct __attribute__((__packed__)) HDRStaticInfo {
    enum ID : uint8_t {
        kType1 = 0,  // static metadata type 1
    } mID;

    struct __attribute__((__packed__)) Primaries1 {
        uint16_t x;  // units of 0.00002
        uint16_t y;
    };

    struct __attribute__((__packed__)) Type1 {
        Primaries1 mR;  // display primary 0
        Primaries1 mG;  // display primary 1
        Primaries1 mB;  // display primary 2
        Primaries1 mW;  // white point
        uint16_t mMaxDisplayLuminance;        // cd/m2
        uint16_t mMinDisplayLuminance;        // 0.0001 cd/m2
        uint16_t mMaxContentLightLevel;       // cd/m2
        uint16_t mMaxFrameAverageLightLevel;  // cd/m2
    };

    union {
        Type1 sType1;
    };
};

static_assert(sizeof(HDRStaticInfo) == 25, "the ID byte, then twelve 16-bit values");

}  // namespace android

#endif  // VIDEO_API_H_
