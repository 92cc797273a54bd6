// Host copy of the platform's colour helpers that extractor plug-ins use:
// turning ISO/IEC 23001-8 colour codes into the MediaFormat colour values
// ("color-range", "color-standard", "color-transfer"), and writing HDR static
// metadata into a format. Constants and mappings follow the platform.
#ifndef COLOR_UTILS_H_
#define COLOR_UTILS_H_

#include <stdint.h>

#include <media/hardware/VideoAPI.h>
#include <utils/Errors.h>

struct AMediaFormat;

namespace android {

struct ColorUtils {
    // MediaFormat colour values. From each "ExtendedStart" on lie the values
    // that carry combinations the platform has no constant for; from
    // 0x10000 on, values built from "Other" aspects.
    enum ColorStandard : uint32_t {
        kColorStandardUnspecified = 0,
        kColorStandardBT709 = 1,
        kColorStandardBT601_625 = 2,
        kColorStandardBT601_625_Unadjusted = 3,
        kColorStandardBT601_525 = 4,
        kColorStandardBT601_525_Unadjusted = 5,
        kColorStandardBT2020 = 6,
        kColorStandardBT2020Constant = 7,
        kColorStandardBT470M = 8,
        kColorStandardFilm = 9,
        kColorStandardExtendedStart = 64,
        kColorStandardVendorStart = 0x10000,
    };

    enum ColorTransfer : uint32_t {
        kColorTransferUnspecified = 0,
        kColorTransferLinear = 1,
        kColorTransferSRGB = 2,
        kColorTransferSMPTE_170M = 3,
        kColorTransferGamma22 = 4,
        kColorTransferGamma28 = 5,
        kColorTransferST2084 = 6,
        kColorTransferHLG = 7,
        kColorTransferExtendedStart = 32,
        kColorTransferVendorStart = 0x10000,
    };

    enum ColorRange : uint32_t {
        kColorRangeUnspecified = 0,
        kColorRangeFull = 1,
        kColorRangeLimited = 2,
        kColorRangeExtendedStart = 8,
        kColorRangeVendorStart = 0x10000,
    };

    // Codec aspects to MediaFormat values; values outside the enumerations
    // become Unspecified (0).
    static int32_t wrapColorAspectsIntoColorStandard(ColorAspects::Primaries primaries,
                                                     ColorAspects::MatrixCoeffs coeffs);
    static int32_t wrapColorAspectsIntoColorRange(ColorAspects::Range range);
    static int32_t wrapColorAspectsIntoColorTransfer(ColorAspects::Transfer transfer);
    static status_t convertCodecColorAspectsToPlatformAspects(const ColorAspects &aspects, int32_t *range,
                                                              int32_t *standard, int32_t *transfer);

    // ISO/IEC 23001-8 colour_primaries, transfer_characteristics and
    // matrix_coefficients (as in Matroska's Colour element) to codec aspects;
    // codes without a meaning here become Unspecified.
    static void convertIsoColorAspectsToCodecAspects(int32_t primaries, int32_t transfer, int32_t coeffs,
                                                     bool fullRange, ColorAspects &aspects);
    // The same, on to MediaFormat values. The range is always Full or Limited.
    static void convertIsoColorAspectsToPlatformAspects(int32_t primaries, int32_t isotransfer, int32_t coeffs,
                                                        bool fullRange, int32_t *range, int32_t *standard,
                                                        int32_t *transfer);

    // Writes `info` as the 25-byte little-endian blob of "hdr-static-info":
    // the ID, then R, G, B and white point (x, y), max and min display
    // luminance, max content and max frame-average light level.
    static void setHDRStaticInfoIntoAMediaFormat(const HDRStaticInfo &info, AMediaFormat *format);
};

}  // namespace android

#endif  // COLOR_UTILS_H_
