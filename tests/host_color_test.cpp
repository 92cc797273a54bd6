// ISO colour codes become the platform's MediaFormat colour values, and HDR
// static metadata becomes the platform's 25-byte blob.
#include <gtest/gtest.h>

#include <vector>

#include <media/NdkMediaFormat.h>
#include <media/stagefright/foundation/ColorUtils.h>

using android::ColorUtils;
using android::HDRStaticInfo;

namespace {

// ISO codes and range, then the expected MediaFormat range, standard and transfer.
const struct IsoRow {
    int32_t primaries, transfer, coeffs;
    bool fullRange;
    int32_t range, standard, colorTransfer;
    const char *what;
} kIsoRows[] = {
    {1, 1, 1, false, 2, 1, 3, "BT.709 SDR, limited range"},
    {5, 6, 5, false, 2, 2, 3, "BT.601 625 lines (PAL)"},
    {6, 6, 6, false, 2, 4, 3, "BT.601 525 lines (NTSC)"},
    {5, 1, 1, false, 2, 3, 3, "PAL primaries, BT.709 matrix: BT601_625 unadjusted"},
    {7, 6, 7, false, 2, 5, 3, "SMPTE 240M primaries and matrix: BT601_525 unadjusted"},
    {9, 16, 9, false, 2, 6, 6, "BT.2020 with PQ (HDR10)"},
    {9, 18, 9, false, 2, 6, 7, "BT.2020 with HLG"},
    {9, 14, 10, false, 2, 7, 3, "BT.2020 constant luminance, 10-bit transfer"},
    {9, 15, 9, false, 2, 6, 3, "BT.2020, 12-bit transfer"},
    {4, 4, 4, false, 2, 8, 4, "BT.470 M, gamma 2.2"},
    {8, 5, 9, false, 2, 9, 5, "generic film, gamma 2.8"},
    {1, 8, 1, false, 2, 1, 1, "linear"},
    {1, 13, 1, true, 1, 1, 2, "sRGB"},
    {2, 2, 2, true, 1, 0, 0, "all unspecified: only the range is known"},
    {0, 0, 3, false, 2, 0, 0, "reserved codes count as unspecified"},
    {3, 19, 11, false, 2, 0, 0, "codes beyond the table count as unspecified"},
    {-1, -1, -1, false, 2, 0, 0, "negative codes count as unspecified"},
    // Combinations without a platform constant: 64 + primaries + matrix * 7.
    {1, 1, 6, false, 2, 64 + 1 + 3 * 7, 3, "BT.709 primaries with the BT.601 matrix"},
    {2, 1, 1, false, 2, 64 + 0 + 1 * 7, 3, "unspecified primaries with the BT.709 matrix"},
    {9, 1, 1, false, 2, 64 + 6 + 1 * 7, 3, "BT.2020 primaries with the BT.709 matrix"},
    // "Other" aspects: 0x10000 + primaries + matrix * 256.
    {10, 1, 1, false, 2, 0x10000 + 0xff + 0x100, 3, "CIE XYZ primaries"},
    {1, 1, 0, false, 2, 0x10000 + 1 + 0xff * 0x100, 3, "identity (RGB) matrix"},
    {1, 1, 8, false, 2, 0x10000 + 1 + 0xff * 0x100, 3, "YCgCo matrix"},
    // Transfers without a platform constant: 32 + aspect, or 0x10000 + 0xff.
    {1, 7, 1, false, 2, 1, 32 + 0x40, "SMPTE 240M transfer"},
    {1, 11, 1, false, 2, 1, 32 + 0x41, "xvYCC transfer"},
    {1, 12, 1, false, 2, 1, 32 + 0x42, "BT.1361 transfer"},
    {1, 17, 1, false, 2, 1, 32 + 0x43, "SMPTE ST 428 transfer"},
    {1, 9, 1, false, 2, 1, 0x10000 + 0xff, "logarithmic 100:1 transfer"},
    {1, 10, 1, false, 2, 1, 0x10000 + 0xff, "logarithmic 316:1 transfer"},
};

TEST(HostColor, IsoCodesMapToPlatformColorValues) {
    for (const IsoRow &row : kIsoRows) {
        int32_t range = -1, standard = -1, transfer = -1;
        ColorUtils::convertIsoColorAspectsToPlatformAspects(row.primaries, row.transfer, row.coeffs, row.fullRange,
                                                            &range, &standard, &transfer);
        EXPECT_EQ(row.range, range) << row.what;
        EXPECT_EQ(row.standard, standard) << row.what;
        EXPECT_EQ(row.colorTransfer, transfer) << row.what;
    }
}

TEST(HostColor, HdrStaticInfoIsTheLittleEndianType1Blob) {
    HDRStaticInfo info = {};
    info.mID = HDRStaticInfo::kType1;
    info.sType1 = {{34000, 16000}, {13250, 34500}, {7500, 3000}, {15635, 16450}, 1000, 50, 0x1234, 0xABCD};
    // Type 1, then R, G, B and white x/y, max and min display luminance, MaxCLL and MaxFALL.
    const std::vector<uint8_t> expected = {0x00, 0xD0, 0x84, 0x80, 0x3E, 0xC2, 0x33, 0xC4, 0x86, 0x4C, 0x1D, 0xB8, 0x0B,
                                           0x13, 0x3D, 0x42, 0x40, 0xE8, 0x03, 0x32, 0x00, 0x34, 0x12, 0xCD, 0xAB};
    AMediaFormat *format = AMediaFormat_new();
    AMediaFormat_setInt32(format, AMEDIAFORMAT_KEY_HDR_STATIC_INFO, 7);  // replaced, type and all
    ColorUtils::setHDRStaticInfoIntoAMediaFormat(info, format);
    void *data = nullptr;
    size_t size = 0;
    ASSERT_TRUE(AMediaFormat_getBuffer(format, "hdr-static-info", &data, &size));
    ASSERT_EQ(25u, size);
    EXPECT_EQ(expected, std::vector<uint8_t>(static_cast<uint8_t *>(data), static_cast<uint8_t *>(data) + size));
    AMediaFormat_delete(format);
}

}  // namespace
