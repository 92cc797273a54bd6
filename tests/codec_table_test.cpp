#include <gtest/gtest.h>

#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "demux/qmkvd_codec.h"

namespace {

const uint32_t kPreset = 0x12345678;  // a code left over from before the lookup

uint32_t fcc(const char *s) { return QMKVD_FOURCC(s[0], s[1], s[2], s[3]); }

// A stream slot and format record on the heap (both are large), with the
// CodecPrivate copied into a buffer of exactly its size so that ASan sees
// any read past it.
class Slot {
public:
    Slot(const std::string &codec_id, const std::vector<uint8_t> *priv, uint32_t preset) {
        slot = static_cast<qmkvds *>(calloc(1, sizeof(qmkvds)));
        format = static_cast<qmkvd_format *>(calloc(1, sizeof(qmkvd_format)));
        memcpy(slot->track.codec_id, codec_id.data(), codec_id.size() < QMKVD_STRING_SIZE ? codec_id.size()
                                                                                            : QMKVD_STRING_SIZE);
        if (priv != nullptr) {
            slot->track.codec_private = static_cast<uint8_t *>(malloc(priv->empty() ? 1 : priv->size()));
            if (!priv->empty()) memcpy(slot->track.codec_private, priv->data(), priv->size());
            slot->track.codec_private_size = (uint32_t)priv->size();
        }
        slot->codec_type = preset;
    }
    ~Slot() {
        free(slot->track.codec_private);
        free(slot);
        free(format);
    }
    Slot(const Slot &) = delete;
    Slot &operator=(const Slot &) = delete;

    qmkvds *slot;
    qmkvd_format *format;
};

std::vector<uint8_t> bitmap_info(const char *compression, size_t size = 40) {
    std::vector<uint8_t> b(size, 0xEE);
    b[0] = 40;
    b[1] = b[2] = b[3] = 0;
    if (size >= 20) memcpy(&b[16], compression, 4);
    return b;
}

struct CodecCase {
    const char *name;
    std::string codec_id;
    bool has_private;
    std::vector<uint8_t> priv;
    uint32_t expected;  // kPreset when the code must stay unchanged
};

void PrintTo(const CodecCase &c, std::ostream *os) { *os << c.name; }

CodecCase plain(const char *name, const std::string &id, uint32_t expected) {
    return CodecCase{name, id, false, {}, expected};
}

CodecCase with_private(const char *name, const std::string &id, std::vector<uint8_t> priv, uint32_t expected) {
    return CodecCase{name, id, true, std::move(priv), expected};
}

class CodecTable : public ::testing::TestWithParam<CodecCase> {};

TEST_P(CodecTable, SetsCodeAndCopiesItIntoTheFormat) {
    const CodecCase &c = GetParam();
    Slot s(c.codec_id, c.has_private ? &c.priv : nullptr, kPreset);
    s.format->track_codec_types[2] = 0xAAAAAAAA;
    s.format->track_codec_types[4] = 0xBBBBBBBB;
    EXPECT_EQ(0, qmkvd_media_info(nullptr, s.slot, s.format, 3));
    EXPECT_EQ(c.expected, s.slot->codec_type) << std::hex << s.slot->codec_type;
    EXPECT_EQ(c.expected, s.format->track_codec_types[3]) << "the array gets the slot's code, changed or not";
    EXPECT_EQ(0xAAAAAAAAu, s.format->track_codec_types[2]);
    EXPECT_EQ(0xBBBBBBBBu, s.format->track_codec_types[4]);
    for (int i = 0; i < QMKVD_MAX_TRACKS; ++i) {
        if (i < 2 || i > 4) {
            EXPECT_EQ(0u, s.format->track_codec_types[i]) << i;
        }
    }
    if (c.has_private) {
        ASSERT_EQ(c.priv.size(), s.slot->track.codec_private_size);
        if (!c.priv.empty()) {
            EXPECT_EQ(0, memcmp(c.priv.data(), s.slot->track.codec_private, c.priv.size()));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Video, CodecTable,
    ::testing::Values(
        with_private("vfw_xvid", "V_MS/VFW/FOURCC", bitmap_info("XVID"), 0x44495658),
        with_private("vfw_exactly_20_bytes", "V_MS/VFW/FOURCC", bitmap_info("DX50", 20), fcc("DX50")),
        with_private("vfw_19_bytes_unchanged", "V_MS/VFW/FOURCC", bitmap_info("XVID", 19), kPreset),
        with_private("vfw_empty_private_unchanged", "V_MS/VFW/FOURCC", {}, kPreset),
        plain("vfw_no_private_unchanged", "V_MS/VFW/FOURCC", kPreset),
        plain("real_rv40", "V_REAL/RV40", fcc("RV40")),
        plain("real_rv10", "V_REAL/RV10", fcc("RV10")),
        plain("real_short_reads_zeroes", "V_REAL/RV", QMKVD_FOURCC('R', 'V', 0, 0)),
        plain("real_one_char", "V_REAL/RV3", QMKVD_FOURCC('R', 'V', '3', 0)),
        plain("mpeg1", "V_MPEG1", 0x3147504D), plain("mpeg2", "V_MPEG2", 0x3267706D),
        plain("theora", "V_THEORA", 0x4F454854), plain("snow", "V_SNOW", 0x574F4E53),
        plain("mpeg4_sp", "V_MPEG4/ISO/SP", 0x5634504D), plain("mpeg4_asp", "V_MPEG4/ISO/ASP", 0x5634504D),
        plain("avc", "V_MPEG4/ISO/AVC", 0x31435641), plain("hevc_is_hev1", "V_MPEGH/ISO/HEVC", 0x31766568),
        plain("vp8", "V_VP8", 0x30385056), plain("vp9", "V_VP9", 0x30395056),
        plain("mpeg4_ms_v3", "V_MPEG4/MS/V3", 0x3334504D), plain("av1", "V_AV1", 0x31307661),
        // Prefix matching: longer IDs that begin with a row's text match it.
        plain("mpeg2_prefix", "V_MPEG2/extra", 0x3267706D), plain("vp8_prefix", "V_VP80", 0x30385056),
        plain("avc_prefix", "V_MPEG4/ISO/AVC1", 0x31435641),
        // Fallback: "*" and CodecID characters 2 to 4.
        plain("mpeg4_ap_falls_back", "V_MPEG4/ISO/AP", fcc("*MPE")),
        plain("dirac_falls_back", "V_DIRAC", fcc("*DIR")), plain("five_chars", "V_ABC", fcc("*ABC")),
        plain("four_chars", "V_AB", 0x3F3F3F2A), plain("prefix_only", "V_", 0x3F3F3F2A),
        plain("video_case_sensitive", "V_vp8", fcc("*vp8")), plain("vp7_unknown", "V_VP7", fcc("*VP7"))));

INSTANTIATE_TEST_SUITE_P(
    Audio, CodecTable,
    ::testing::Values(
        plain("ac3", "A_AC3", 0x2000), plain("ac3_bsid", "A_AC3/BSID10", 0x2000),
        plain("eac3_not_ac3", "A_EAC3", 0x332D6365), plain("mp3", "A_MPEG/L3", 0x55),
        plain("mp2", "A_MPEG/L2", 0x50), plain("mp1", "A_MPEG/L1", 0x50), plain("aac", "A_AAC", 0xFF),
        plain("aac_mpeg2_lc", "A_AAC/MPEG2/LC", 0xFF), plain("aac_mpeg4_sbr", "A_AAC/MPEG4/LC/SBR", 0xFF),
        plain("dts", "A_DTS", 0x2001), plain("dts_express", "A_DTS/EXPRESS", 0x2001),
        plain("pcm_little", "A_PCM/INT/LIT", 1), plain("pcm_big", "A_PCM/INT/BIG", 0x6D63706C),
        plain("pcm_float", "A_PCM/FLOAT/IEEE", 3), plain("alac", "A_ALAC", 0x63616C61),
        plain("tta", "A_TTA1", 0x77A1), plain("wavpack", "A_WAVPACK4", 0x5756), plain("vorbis", "A_VORBIS", 0x2674F),
        plain("flac", "A_FLAC", 0xF1AC), plain("opus", "A_OPUS", 0x7375704F),
        plain("real_cook", "A_REAL/COOK", fcc("COOK")), plain("real_sipr", "A_REAL/SIPR", fcc("SIPR")),
        plain("real_28_8", "A_REAL/28_8", fcc("28_8")),
        plain("real_bare_reads_zeroes", "A_REAL", 0),
        with_private("acm_tag", "A_MS/ACM", {0x61, 0x01, 0x02, 0x00}, 0x161),
        with_private("acm_exactly_2_bytes", "A_MS/ACM", {0x55, 0x00}, 0x55),
        with_private("acm_tag_high_byte", "A_MS/ACM", {0xFE, 0xFF}, 0xFFFE),
        with_private("acm_1_byte_unchanged", "A_MS/ACM", {0x55}, kPreset),
        plain("acm_no_private_unchanged", "A_MS/ACM", kPreset),
        plain("unknown_audio", "A_QUICKTIME/QDM2", fcc("#QUI")), plain("short_audio", "A_AB", 0x3F3F3F23),
        plain("audio_prefix_only", "A_", 0x3F3F3F23), plain("audio_case_sensitive", "A_aac", fcc("#aac")),
        plain("ac_3_is_not_ac3", "A_AC-3", fcc("#AC-"))));

INSTANTIATE_TEST_SUITE_P(
    SubtitleAndOther, CodecTable,
    ::testing::Values(
        plain("ascii_unchanged", "S_TEXT/ASCII", kPreset), plain("utf8", "S_TEXT/UTF8", 0x54525353),
        plain("ssa", "S_TEXT/SSA", 0x41535353), plain("ass", "S_TEXT/ASS", 0x53534153),
        plain("usf_unchanged", "S_TEXT/USF", kPreset), plain("vobsub_unchanged", "S_VOBSUB", kPreset),
        plain("pgs_unchanged", "S_HDMV/PGS", kPreset), plain("subtitle_short_unchanged", "S_", kPreset),
        plain("other_group_unchanged", "B_X", kPreset), plain("empty_unchanged", "", kPreset),
        plain("no_underscore_unchanged", "VP8", kPreset), plain("lowercase_group_unchanged", "v_vp8", kPreset),
        plain("lowercase_audio_unchanged", "a_aac", kPreset), plain("single_char_unchanged", "V", kPreset)));

TEST(CodecTable, FourccKeepsFirstCharacterInLowestByte) {
    Slot s("V_MPEG4/ISO/AVC", nullptr, 0);
    qmkvd_media_info(nullptr, s.slot, s.format, 0);
    EXPECT_EQ(0, memcmp(&s.slot->codec_type, "AVC1", 4));
}

TEST(CodecTable, FreshSlotWithUnknownIdCarriesZero) {
    Slot s("S_VOBSUB", nullptr, 0);
    s.format->track_codec_types[0] = 0xFFFFFFFF;
    EXPECT_EQ(0, qmkvd_media_info(nullptr, s.slot, s.format, 0));
    EXPECT_EQ(0u, s.slot->codec_type);
    EXPECT_EQ(0u, s.format->track_codec_types[0]);
}

TEST(CodecTable, VfwWithoutPrivateKeepsZero) {
    Slot s("V_MS/VFW/FOURCC", nullptr, 0);
    EXPECT_EQ(0, qmkvd_media_info(nullptr, s.slot, s.format, 0));
    EXPECT_EQ(0u, s.slot->codec_type);
}

TEST(CodecTable, IndexAtBothEndsOfTheArray) {
    for (int32_t index : {0, QMKVD_MAX_TRACKS - 1}) {
        Slot s("A_FLAC", nullptr, 0);
        EXPECT_EQ(0, qmkvd_media_info(nullptr, s.slot, s.format, index));
        EXPECT_EQ(0xF1ACu, s.format->track_codec_types[index]) << index;
        EXPECT_EQ(0, s.format->track_type[QMKVD_MAX_TRACKS - 1]) << "the type array before it is untouched";
    }
}

TEST(CodecTable, IndexOutsideTheArrayOnlySetsTheSlot) {
    for (int32_t index : {-1, QMKVD_MAX_TRACKS, 100000}) {
        Slot s("A_FLAC", nullptr, 0);
        EXPECT_EQ(0, qmkvd_media_info(nullptr, s.slot, s.format, index));
        EXPECT_EQ(0xF1ACu, s.slot->codec_type);
        for (int i = 0; i < QMKVD_MAX_TRACKS; ++i) EXPECT_EQ(0u, s.format->track_codec_types[i]);
        EXPECT_EQ(0, s.format->duration);
    }
}

TEST(CodecTable, NullArgumentsStillReturnZero) {
    Slot s("V_VP9", nullptr, 0);
    EXPECT_EQ(0, qmkvd_media_info(nullptr, s.slot, nullptr, 0));
    EXPECT_EQ(0x30395056u, s.slot->codec_type);
    EXPECT_EQ(0, qmkvd_media_info(nullptr, nullptr, s.format, 0));
    EXPECT_EQ(0u, s.format->track_codec_types[0]);
}

TEST(CodecTable, CodecIdFillingTheWholeBufferIsReadInBounds) {
    // No terminating NUL anywhere in the 256 bytes: the lookup must stay inside.
    Slot a(std::string("A_") + std::string(QMKVD_STRING_SIZE - 2, 'Z'), nullptr, 0);
    qmkvd_media_info(nullptr, a.slot, a.format, 0);
    EXPECT_EQ(fcc("#ZZZ"), a.slot->codec_type);
    Slot v(std::string("V_REAL/RV") + std::string(QMKVD_STRING_SIZE - 9, '4'), nullptr, 0);
    qmkvd_media_info(nullptr, v.slot, v.format, 0);
    EXPECT_EQ(fcc("RV44"), v.slot->codec_type);
}

TEST(CodecTable, SlotsAreIndependent) {
    // Each call reflects only its own slot, in track order, as the instance
    // creation uses it.
    const char *ids[] = {"V_MPEG4/ISO/AVC", "A_AAC", "S_TEXT/UTF8", "S_TEXT/ASCII"};
    const uint32_t want[] = {0x31435641, 0xFF, 0x54525353, 0};
    qmkvd_format *format = static_cast<qmkvd_format *>(calloc(1, sizeof(qmkvd_format)));
    for (int i = 0; i < 4; ++i) {
        Slot s(ids[i], nullptr, 0);
        EXPECT_EQ(0, qmkvd_media_info(nullptr, s.slot, format, i));
    }
    for (int i = 0; i < 4; ++i) EXPECT_EQ(want[i], format->track_codec_types[i]) << ids[i];
    free(format);
}

}  // namespace
