#include <media/stagefright/foundation/ColorUtils.h>

#include <stddef.h>

#include <media/NdkMediaFormat.h>

namespace android {

namespace {

typedef ColorAspects CA;
typedef ColorUtils CU;

struct StandardPair {
    CU::ColorStandard standard;
    CA::Primaries primaries;
    CA::MatrixCoeffs coeffs;
};

// The combinations the platform names; Film has no exact matrix and takes
// the closest one.
const StandardPair kStandards[] = {
    {CU::kColorStandardUnspecified, CA::PrimariesUnspecified, CA::MatrixUnspecified},
    {CU::kColorStandardBT709, CA::PrimariesBT709_5, CA::MatrixBT709_5},
    {CU::kColorStandardBT601_625, CA::PrimariesBT601_6_625, CA::MatrixBT601_6},
    {CU::kColorStandardBT601_625_Unadjusted, CA::PrimariesBT601_6_625, CA::MatrixBT709_5},
    {CU::kColorStandardBT601_525, CA::PrimariesBT601_6_525, CA::MatrixBT601_6},
    {CU::kColorStandardBT601_525_Unadjusted, CA::PrimariesBT601_6_525, CA::MatrixSMPTE240M},
    {CU::kColorStandardBT2020, CA::PrimariesBT2020, CA::MatrixBT2020},
    {CU::kColorStandardBT2020Constant, CA::PrimariesBT2020, CA::MatrixBT2020Constant},
    {CU::kColorStandardBT470M, CA::PrimariesBT470_6M, CA::MatrixBT470_6M},
    {CU::kColorStandardFilm, CA::PrimariesGenericFilm, CA::MatrixBT2020},
};

template <typename T>
struct IsoCode {
    int32_t iso;
    T aspect;
};

// ISO/IEC 23001-8 (ITU-T H.273) code points.
const IsoCode<CA::Primaries> kIsoPrimaries[] = {
    {1, CA::PrimariesBT709_5},     {2, CA::PrimariesUnspecified}, {4, CA::PrimariesBT470_6M},
    {5, CA::PrimariesBT601_6_625}, {6, CA::PrimariesBT601_6_525}, {7, CA::PrimariesBT601_6_525},
    {8, CA::PrimariesGenericFilm}, {9, CA::PrimariesBT2020},      {10, CA::PrimariesOther},  // CIE XYZ
};

const IsoCode<CA::Transfer> kIsoTransfers[] = {
    {1, CA::TransferSMPTE170M},  {2, CA::TransferUnspecified}, {4, CA::TransferGamma22},
    {5, CA::TransferGamma28},    {6, CA::TransferSMPTE170M},   {7, CA::TransferSMPTE240M},
    {8, CA::TransferLinear},     {9, CA::TransferOther},        // logarithmic 100:1
    {10, CA::TransferOther},                                    // logarithmic 316:1
    {11, CA::TransferXvYCC},     {12, CA::TransferBT1361},     {13, CA::TransferSRGB},
    {14, CA::TransferSMPTE170M},  // BT.2020 10 bit
    {15, CA::TransferSMPTE170M},  // BT.2020 12 bit
    {16, CA::TransferST2084},    {17, CA::TransferST428},      {18, CA::TransferHLG},
};

const IsoCode<CA::MatrixCoeffs> kIsoMatrixCoeffs[] = {
    {0, CA::MatrixOther},  // identity (RGB)
    {1, CA::MatrixBT709_5},   {2, CA::MatrixUnspecified}, {4, CA::MatrixBT470_6M}, {5, CA::MatrixBT601_6},
    {6, CA::MatrixBT601_6},   {7, CA::MatrixSMPTE240M},
    {8, CA::MatrixOther},  // YCgCo
    {9, CA::MatrixBT2020},    {10, CA::MatrixBT2020Constant},
};

template <typename T, size_t N>
T fromIso(const IsoCode<T> (&table)[N], int32_t iso, T otherwise) {
    for (const IsoCode<T> &entry : table) {
        if (entry.iso == iso) return entry.aspect;
    }
    return otherwise;
}

bool isValid(uint32_t aspect) { return aspect <= 0xff; }

}  // namespace

int32_t ColorUtils::wrapColorAspectsIntoColorStandard(ColorAspects::Primaries primaries,
                                                      ColorAspects::MatrixCoeffs coeffs) {
    for (const StandardPair &s : kStandards) {
        if (s.primaries == primaries && s.coeffs == coeffs) return s.standard;
    }
    if (!isValid(primaries) || !isValid(coeffs)) return kColorStandardUnspecified;
    if (primaries <= CA::PrimariesBT2020 && coeffs <= CA::MatrixBT2020Constant) {
        const uint32_t numPrimaries = CA::PrimariesBT2020 + 1;
        return kColorStandardExtendedStart + primaries + coeffs * numPrimaries;
    }
    return kColorStandardVendorStart + primaries + coeffs * 0x100;
}

int32_t ColorUtils::wrapColorAspectsIntoColorRange(ColorAspects::Range range) {
    switch (range) {
        case CA::RangeUnspecified: return kColorRangeUnspecified;
        case CA::RangeFull: return kColorRangeFull;
        case CA::RangeLimited: return kColorRangeLimited;
        default: break;
    }
    if (!isValid(range)) return kColorRangeUnspecified;
    return kColorRangeVendorStart + range;
}

int32_t ColorUtils::wrapColorAspectsIntoColorTransfer(ColorAspects::Transfer transfer) {
    // Unspecified to HLG have the same number on both sides.
    if (transfer <= CA::TransferHLG) return static_cast<int32_t>(transfer);
    if (!isValid(transfer)) return kColorTransferUnspecified;
    if (transfer >= CA::TransferSMPTE240M && transfer <= CA::TransferST428) {
        return kColorTransferExtendedStart + transfer;
    }
    return kColorTransferVendorStart + transfer;
}

status_t ColorUtils::convertCodecColorAspectsToPlatformAspects(const ColorAspects &aspects, int32_t *range,
                                                               int32_t *standard, int32_t *transfer) {
    *range = wrapColorAspectsIntoColorRange(aspects.mRange);
    *standard = wrapColorAspectsIntoColorStandard(aspects.mPrimaries, aspects.mMatrixCoeffs);
    *transfer = wrapColorAspectsIntoColorTransfer(aspects.mTransfer);
    bool valid = isValid(aspects.mRange) && isValid(aspects.mPrimaries) && isValid(aspects.mMatrixCoeffs) &&
                 isValid(aspects.mTransfer);
    return valid ? OK : BAD_VALUE;
}

void ColorUtils::convertIsoColorAspectsToCodecAspects(int32_t primaries, int32_t transfer, int32_t coeffs,
                                                      bool fullRange, ColorAspects &aspects) {
    aspects.mPrimaries = fromIso(kIsoPrimaries, primaries, CA::PrimariesUnspecified);
    aspects.mTransfer = fromIso(kIsoTransfers, transfer, CA::TransferUnspecified);
    aspects.mMatrixCoeffs = fromIso(kIsoMatrixCoeffs, coeffs, CA::MatrixUnspecified);
    aspects.mRange = fullRange ? CA::RangeFull : CA::RangeLimited;
}

void ColorUtils::convertIsoColorAspectsToPlatformAspects(int32_t primaries, int32_t isotransfer, int32_t coeffs,
                                                         bool fullRange, int32_t *range, int32_t *standard,
                                                         int32_t *transfer) {
    ColorAspects aspects;
    convertIsoColorAspectsToCodecAspects(primaries, isotransfer, coeffs, fullRange, aspects);
    convertCodecColorAspectsToPlatformAspects(aspects, range, standard, transfer);
}

void ColorUtils::setHDRStaticInfoIntoAMediaFormat(const HDRStaticInfo &info, AMediaFormat *format) {
    const HDRStaticInfo::Type1 &t = info.sType1;
    const uint16_t fields[] = {
        t.mR.x, t.mR.y, t.mG.x, t.mG.y, t.mB.x, t.mB.y, t.mW.x, t.mW.y,
        t.mMaxDisplayLuminance, t.mMinDisplayLuminance, t.mMaxContentLightLevel, t.mMaxFrameAverageLightLevel,
    };
    uint8_t blob[1 + 2 * sizeof(fields) / sizeof(fields[0])];
    static_assert(sizeof(blob) == 25, "type-1 static metadata is 25 bytes");
    blob[0] = info.mID;
    size_t at = 1;
    for (uint16_t v : fields) {
        blob[at++] = static_cast<uint8_t>(v & 0xff);
        blob[at++] = static_cast<uint8_t>(v >> 8);
    }
    AMediaFormat_setBuffer(format, AMEDIAFORMAT_KEY_HDR_STATIC_INFO, blob, sizeof(blob));
}

}  // namespace android
