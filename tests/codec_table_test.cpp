#include <gtest/gtest.h>

#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "demux/qmkvd_codec.h"

namespace {

const uint32_t kPreset = 0x12345678;  // a code left over from before the lookup

uint32_t fcc(const char *s) { return QMKVD_FOURCC(s[0], s[1], s[2], s[3]); }

// A stream slot and format record on the heap (both are large), with the
// CodecPrivate copied into a buffer of exactly its size so that ASan sees
// any read past it.
struct Slot {
    Slot(const std::string &codec_id, const std::vector<uint8_t> *priv, uint32_t preset) {
        memcpy(slot->track.codec_id, codec_id.data(), std::min<size_t>(codec_id.size(), QMKVD_STRING_SIZE));
        if (priv != nullptr) {
            slot->track.codec_private = static_cast<uint8_t *>(malloc(priv->empty() ? 1 : priv->size()));
            if (!priv->empty()) memcpy(slot->track.codec_private, priv->data(), priv->size());
            slot->track.codec_private_size = (uint32_t)priv->size();
        }
        slot->codec_type = preset;
    }
    ~Slot() { free(slot->track.codec_private); }

    std::unique_ptr<qmkvds, void (*)(void *)> slot{static_cast<qmkvds *>(calloc(1, sizeof(qmkvds))), free};
    std::unique_ptr<qmkvd_format, void (*)(void *)> format{
        static_cast<qmkvd_format *>(calloc(1, sizeof(qmkvd_format))), free};
};

std::vector<uint8_t> bitmap_info(const char *compression, size_t size = 40) {
    std::vector<uint8_t> b(size, 0xEE);
    b[0] = 40;
    b[1] = b[2] = b[3] = 0;
    if (size >= 20) memcpy(&b[16], compression, 4);
    return b;
}

struct Row {
    std::string codec_id;
    uint32_t expected;  // kPreset when the code must stay unchanged
    std::vector<uint8_t> priv = {};
    bool has_private = false;
};

const std::vector<Row> kRows = {
    // CodecPrivate-derived codes and the shortest CodecPrivate each needs.
    {"V_MS/VFW/FOURCC", 0x44495658, bitmap_info("XVID"), true},
    {"V_MS/VFW/FOURCC", fcc("DX50"), bitmap_info("DX50", 20), true},
    {"V_MS/VFW/FOURCC", kPreset, bitmap_info("XVID", 19), true},
    {"V_MS/VFW/FOURCC", kPreset, {}, true},
    {"V_MS/VFW/FOURCC", kPreset},
    {"A_MS/ACM", 0x161, {0x61, 0x01, 0x02, 0x00}, true},
    {"A_MS/ACM", 0x55, {0x55, 0x00}, true},
    {"A_MS/ACM", 0xFFFE, {0xFE, 0xFF}, true},
    {"A_MS/ACM", kPreset, {0x55}, true},
    {"A_MS/ACM", kPreset},
    // Codes from CodecID characters, which read zeroes past a short ID.
    {"V_REAL/RV40", fcc("RV40")}, {"V_REAL/RV", QMKVD_FOURCC('R', 'V', 0, 0)},
    {"V_REAL/RV3", QMKVD_FOURCC('R', 'V', '3', 0)}, {"A_REAL/COOK", fcc("COOK")}, {"A_REAL", 0},
    // Fixed codes; a row's text matches as a prefix, so longer IDs match it.
    {"V_MPEG2", 0x3267706D}, {"V_MPEG2/extra", 0x3267706D}, {"V_MPEG4/ISO/SP", 0x5634504D},
    {"V_MPEG4/ISO/ASP", 0x5634504D}, {"V_MPEG4/ISO/AVC", 0x31435641}, {"V_MPEG4/ISO/AVC1", 0x31435641},
    {"V_MPEGH/ISO/HEVC", 0x31766568}, {"V_MPEG4/MS/V3", 0x3334504D}, {"V_VP80", 0x30385056}, {"V_VP9", 0x30395056},
    {"V_AV1", 0x31307661}, {"A_AC3", 0x2000}, {"A_AC3/BSID10", 0x2000}, {"A_EAC3", 0x332D6365}, {"A_MPEG/L3", 0x55},
    {"A_MPEG/L1", 0x50}, {"A_AAC/MPEG4/LC/SBR", 0xFF}, {"A_PCM/INT/LIT", 1}, {"A_PCM/INT/BIG", 0x6D63706C},
    {"A_PCM/FLOAT/IEEE", 3}, {"A_TTA1", 0x77A1}, {"A_VORBIS", 0x2674F}, {"A_OPUS", 0x7375704F},
    {"S_TEXT/UTF8", 0x54525353}, {"S_TEXT/SSA", 0x41535353}, {"S_TEXT/ASS", 0x53534153},
    // Unknown video and audio: a marker, then CodecID characters 2 to 4, or "???" when shorter.
    {"V_MPEG4/ISO/AP", fcc("*MPE")}, {"V_ABC", fcc("*ABC")}, {"V_AB", 0x3F3F3F2A}, {"V_", 0x3F3F3F2A},
    {"V_vp8", fcc("*vp8")}, {"A_QUICKTIME/QDM2", fcc("#QUI")}, {"A_AC-3", fcc("#AC-")}, {"A_aac", fcc("#aac")},
    {"A_AB", 0x3F3F3F23}, {"A_", 0x3F3F3F23},
    // Everything else keeps the code.
    {"S_TEXT/ASCII", kPreset}, {"S_VOBSUB", kPreset}, {"S_", kPreset}, {"B_X", kPreset}, {"", kPreset},
    {"VP8", kPreset}, {"v_vp8", kPreset}, {"a_aac", kPreset}, {"V", kPreset},
};

TEST(CodecTable, SetsCodeAndCopiesItIntoTheFormat) {
    for (const Row &r : kRows) {
        Slot s(r.codec_id, r.has_private ? &r.priv : nullptr, kPreset);
        EXPECT_EQ(0, qmkvd_media_info(nullptr, s.slot.get(), s.format.get(), 3));
        EXPECT_EQ(r.expected, s.slot->codec_type) << r.codec_id << std::hex << " " << s.slot->codec_type;
        EXPECT_EQ(r.expected, s.format->track_codec_types[3]) << r.codec_id << ": the slot's code, changed or not";
    }
}

// Only the index's entry is written, and only inside the array; the slot
// gets its code whatever the index, and null arguments are no error.
TEST(CodecTable, ArrayIndexAndNullArguments) {
    for (int32_t index : {0, 3, QMKVD_MAX_TRACKS - 1, -1, QMKVD_MAX_TRACKS, 100000}) {
        Slot s("A_FLAC", nullptr, 0);
        EXPECT_EQ(0, qmkvd_media_info(nullptr, s.slot.get(), s.format.get(), index));
        EXPECT_EQ(0xF1ACu, s.slot->codec_type);
        for (int i = 0; i < QMKVD_MAX_TRACKS; ++i)
            EXPECT_EQ(i == index ? 0xF1ACu : 0u, s.format->track_codec_types[i]) << index << " " << i;
        EXPECT_EQ(0, s.format->track_type[QMKVD_MAX_TRACKS - 1]) << index;
        EXPECT_EQ(0, s.format->duration) << index;
    }
    Slot s("V_VP9", nullptr, 0);
    EXPECT_EQ(0, qmkvd_media_info(nullptr, s.slot.get(), nullptr, 0));
    EXPECT_EQ(0x30395056u, s.slot->codec_type);
    EXPECT_EQ(0, qmkvd_media_info(nullptr, nullptr, s.format.get(), 0));
    EXPECT_EQ(0u, s.format->track_codec_types[0]);
}

TEST(CodecTable, CodecIdFillingTheWholeBufferIsReadInBounds) {
    // No terminating NUL anywhere in the 256 bytes: the lookup must stay inside.
    Slot a(std::string("A_") + std::string(QMKVD_STRING_SIZE - 2, 'Z'), nullptr, 0);
    qmkvd_media_info(nullptr, a.slot.get(), a.format.get(), 0);
    EXPECT_EQ(fcc("#ZZZ"), a.slot->codec_type);
    Slot v(std::string("V_REAL/RV") + std::string(QMKVD_STRING_SIZE - 9, '4'), nullptr, 0);
    qmkvd_media_info(nullptr, v.slot.get(), v.format.get(), 0);
    EXPECT_EQ(fcc("RV44"), v.slot->codec_type);
}

}  // namespace
