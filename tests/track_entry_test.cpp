// TrackEntry parsing through a whole crafted file: values, quirks, drops.
#include <gtest/gtest.h>

#include <string.h>

#include <tuple>

#include "demux/qmkvd_dropped.h"
#include "tests/support/log_capture.h"
#include "tests/support/mkv_builder.h"

using namespace qmkv_test;

namespace {

// Opens a file whose only track is `entry` (plus a plain video track so a
// dropped entry still leaves a file that opens).
struct OneTrack {
    explicit OneTrack(const Bytes &entry)
        : core(file({segmentInfo(), tracks({entry, trackEntry(99, 1, "V_VP8")}), cluster()})) {}
    // The tested track, or null when it was dropped.
    const qmkvd_track *track() const {
        if (core.inst == nullptr || core.format.track_count < 2) return nullptr;
        return &core.inst->streams[0].track;
    }
    CoreFile core;
};

TEST(TrackEntry, LeftOutElementsTakeTheirDefaults) {
    // Matroska's defaults: English, flags off, one channel at 8000 Hz; the
    // display size of a picture measured in pixels is the cropped picture.
    const Bytes sf = f64_el(mkv::SamplingFrequency, 44100), osf = f32_el(mkv::OutputSamplingFrequency, 88200);
    const Bytes pw = uint_el(mkv::PixelWidth, 1920), ph = uint_el(mkv::PixelHeight, 1088);
    struct { const char *name; uint8_t type; Bytes child; uint32_t channels, rate, out_rate, bits, dw, dh; } cases[] = {
        {"no_audio_element", 2, {}, 1, 8000, 8000, 0, 0, 0},
        {"no_channels", 2, el(mkv::Audio, {sf}), 1, 44100, 44100, 0, 0, 0},
        {"no_frequencies", 2, el(mkv::Audio, {uint_el(mkv::Channels, 2)}), 2, 8000, 8000, 0, 0, 0},
        {"output_frequency_only", 2, el(mkv::Audio, {osf}), 1, 8000, 88200, 0, 0, 0},
        {"written_zero_channels", 2, el(mkv::Audio, {uint_el(mkv::Channels, 0), sf}), 1, 44100, 44100, 0, 0, 0},
        {"all_written", 2, el(mkv::Audio, {sf, osf, uint_el(mkv::Channels, 6), uint_el(mkv::BitDepth, 16)}), 6, 44100,
         88200, 16, 0, 0},
        {"float_frequency", 2, el(mkv::Audio, {f32_el(mkv::SamplingFrequency, 44100.0f)}), 1, 44100, 44100, 0, 0, 0},
        {"fraction_of_a_hertz_dropped", 2, el(mkv::Audio, {f64_el(mkv::SamplingFrequency, 48000.9)}), 1, 48000, 48000,
         0, 0, 0},
        {"display_is_the_cropped_picture", 1,
         el(mkv::Video, {pw, ph, uint_el(0x54AA, 8), uint_el(0x54CC, 2), uint_el(0x54DD, 2)}), 0, 0, 0, 0, 1916, 1080},
        {"display_written", 1, el(mkv::Video, {pw, ph, uint_el(0x54B0, 1440), uint_el(0x54BA, 1080)}), 0, 0, 0, 0,
         1440, 1080},
        {"display_unit_not_pixels", 1, el(mkv::Video, {pw, ph, uint_el(0x54B2, 3)}), 0, 0, 0, 0, 0, 0},
        {"crop_beyond_the_picture", 1, el(mkv::Video, {pw, ph, uint_el(0x54CC, 1920)}), 0, 0, 0, 0, 0, 1088},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        OneTrack d(c.child.empty() ? trackEntry(3, c.type, "A_AAC") : trackEntry(3, c.type, "A_AAC", {c.child}));
        const qmkvd_track *t = d.track();
        ASSERT_NE(nullptr, t);
        EXPECT_STREQ("eng", t->language);
        EXPECT_TRUE(!t->flag_default && !t->flag_enabled && !t->codec_private && !t->video.colour);
        const qmkvd_audio &a = t->audio;
        EXPECT_EQ(std::make_tuple(c.channels, c.rate, c.out_rate, c.bits, c.dw, c.dh),
                  std::make_tuple(a.channels, a.sampling_frequency, a.output_sampling_frequency, a.bit_depth,
                                  t->video.display_width, t->video.display_height));
    }
}

TEST(TrackEntry, ReadsItsValues) {
    OneTrack f(trackEntry(5, 1, "V_MPEG4/ISO/AVC",
                          {str_el(mkv::Language, "ger"), str_el(mkv::Name, "Main"), uint_el(mkv::FlagDefault, 1),
                           uint_el(mkv::DefaultDuration, 41708333), uint_el(mkv::TrackUID, 0x1122334455667788ull),
                           bin_el(mkv::CodecPrivate, Bytes{1, 2, 3}), uint_el(0x56AA, 0x100000005ull),
                           el(mkv::Video, {uint_el(mkv::PixelWidth, 1920), uint_el(mkv::PixelHeight, 1080),
                                           uint_el(0x54B0, 1440), uint_el(0x54AA, 8)})}));
    const qmkvd_track *t = f.track();
    ASSERT_NE(nullptr, t);
    EXPECT_EQ(5u, t->track_number);
    EXPECT_STREQ("ger", t->language);
    EXPECT_STREQ("Main", t->name);
    EXPECT_EQ(1, t->flag_default);
    EXPECT_EQ(41708333u, t->default_duration);
    EXPECT_EQ(417083, f.core.inst->streams[0].default_duration_100ns);
    EXPECT_EQ(0x55667788u, t->track_uid) << "only the low 32 bits";
    EXPECT_EQ(5u, t->codec_delay) << "kept modulo 2^32";
    ASSERT_EQ(3u, t->codec_private_size);
    EXPECT_EQ(3, t->codec_private[2]);
    const qmkvd_video &v = t->video;
    EXPECT_EQ(std::make_tuple(1920u, 1080u, 1440u, 8u),
              std::make_tuple(v.pixel_width, v.pixel_height, v.display_width, v.pixel_crop_bottom));
}

TEST(TrackEntry, KeepsOrDropsTheEntryAndSaysWhy) {
    const char *damaged = "damaged entry";
    struct { const char *name; Bytes extra; const char *dropped; const char *log; } cases[] = {
        {"zlib", encodings({compression(0)}), "zlib compression is not supported",
         "parse_contentencoding : 0 algorism is not supported"},
        {"bzlib", encodings({compression(1)}), "bzlib compression is not supported",
         "parse_contentencoding : 1 algorism is not supported"},
        {"lzo", encodings({compression(2)}), "lzo1x compression is not supported", nullptr},
        {"unknown_algo", encodings({compression(7)}), "compression algorithm 7 is not supported", nullptr},
        {"compression_without_algo", encodings({el(mkv::ContentCompression, {bin_el(mkv::ContentCompSettings, Bytes{1})})}),
         "zlib compression is not supported", "parse_contentencoding : 0 algorism is not supported"},
        {"compression_cut_short", encodings({el(mkv::ContentCompression, {el(mkv::ContentCompAlgo, Bytes(9, 0))})}),
         damaged, nullptr},
        {"encrypted", encodings({encryption()}),
         "encryption is not supported", "parse_contentencoding : encryption type is not supported"},
        {"header_stripping", encodings({compression(3, {0xFF, 0xFB})}), nullptr, nullptr},
        {"codec_id_255", str_el(mkv::Name, std::string(255, 'n')), nullptr, nullptr},
        {"name_256", str_el(mkv::Name, std::string(256, 'n')), damaged, nullptr},
        {"number_9_bytes", el(mkv::Audio, {el(mkv::Channels, Bytes(9, 1))}), damaged, nullptr},
        {"codec_private_past_file", el_header(mkv::CodecPrivate, 1u << 20), damaged, nullptr},
        {"audio_child_over_2g", el(mkv::Audio, el_header(0x2F00AA, 0x80000000ull, 8)), damaged, nullptr}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        LogCapture log;
        OneTrack f(el(mkv::TrackEntry, cat({uint_el(mkv::TrackNumber, 3), uint_el(mkv::TrackType, 2),
                                            str_el(mkv::CodecID, "A_VORBIS"), str_el(mkv::Language, "fre"),
                                            c.extra})));
        ASSERT_NE(nullptr, f.core.inst) << "the other track keeps the file open";
        EXPECT_EQ(c.dropped == nullptr, f.track() != nullptr);
        EXPECT_TRUE(c.log == nullptr || log.contains(c.log)) << c.log;
        uint32_t count = 99;
        ASSERT_EQ(0, qmkvd_get_dropped_tracks(f.core.inst, nullptr, 0, &count));
        ASSERT_EQ(c.dropped != nullptr ? 1u : 0u, count);
        if (c.dropped == nullptr) continue;
        qmkvd_dropped_track d;
        ASSERT_EQ(0, qmkvd_get_dropped_tracks(f.core.inst, &d, 1, &count));
        EXPECT_EQ(3u, d.track_number);
        EXPECT_STREQ("A_VORBIS", d.codec_id);
        EXPECT_STREQ("fre", d.language);
        EXPECT_STREQ(c.dropped, d.reason);
    }
}

// Every dropped entry is listed in file order, with what it said about
// itself; the table must hold them all.
TEST(TrackEntry, DroppedEntriesAreListedInOrder) {
    const Bytes zlib = encodings({compression(0)});
    const Bytes crypt = encodings({encryption()});
    CoreFile f(file({segmentInfo(),
                     tracks({trackEntry(1, 1, "V_VP8"),
                             trackEntry(2, 0x11, "S_TEXT/UTF8", {str_el(mkv::Name, "Director"), zlib}),
                             trackEntry(5, 2, "A_AAC", {str_el(mkv::Language, "ger"), crypt})}),
                     cluster()}));
    ASSERT_NE(nullptr, f.inst);
    EXPECT_EQ(1, f.format.track_count);
    uint32_t count = 0;
    qmkvd_dropped_track table[2];
    EXPECT_EQ(QMKVD_ERR_BUFFER, qmkvd_get_dropped_tracks(f.inst, table, 1, &count));
    EXPECT_EQ(2u, count);
    ASSERT_EQ(0, qmkvd_get_dropped_tracks(f.inst, table, 2, &count));
    EXPECT_EQ(2u, table[0].track_number);
    EXPECT_STREQ("S_TEXT/UTF8", table[0].codec_id);
    EXPECT_STREQ("Director", table[0].name);
    EXPECT_STREQ("zlib compression is not supported", table[0].reason);
    EXPECT_EQ(5u, table[1].track_number);
    EXPECT_STREQ("ger", table[1].language);
    EXPECT_STREQ("encryption is not supported", table[1].reason);
    EXPECT_EQ(QMKVD_ERR_ARGUMENT, qmkvd_get_dropped_tracks(nullptr, nullptr, 0, &count));
    EXPECT_EQ(QMKVD_ERR_ARGUMENT, qmkvd_get_dropped_tracks(f.inst, nullptr, 0, nullptr));
}

// A zlib encoding after the first one, in the same ContentEncodings or in a
// second one, is counted but not read, so it does not drop the track.
TEST(TrackEntry, OnlyTheFirstEncodingIsReadButAllAreCounted) {
    const Bytes strip = compression(3, {0xFF, 0xFB});
    for (const Bytes &encodings :
         {cat({encodings({uint_el(mkv::ContentEncodingOrder, 0), strip}), encodings({compression(0)})}),
          el(mkv::ContentEncodings, {el(mkv::ContentEncoding, {strip}), el(mkv::ContentEncoding, {compression(0)})})}) {
        OneTrack f(trackEntry(3, 2, "A_MPEG/L3", {encodings}));
        ASSERT_NE(nullptr, f.track());
        EXPECT_EQ(3u, f.core.inst->streams[0].comp_algo);
        EXPECT_EQ(2u, f.core.inst->streams[0].comp_settings_size);
        EXPECT_EQ(2u, f.track()->content_encodings.encoding_count);
    }
}

TEST(TrackEntry, TrackTypeIsItsFirstByteAndStepsOneByte) {
    // A two-byte TrackType 01 83 reads as type 1; the walk then reads 83 81 02
    // as a TrackType child of size 1 holding 2: the last one wins.
    Bytes entry = cat({uint_el(mkv::TrackNumber, 3), str_el(mkv::CodecID, "A_AAC"), Bytes{0x83, 0x82, 0x01, 0x83, 0x81, 0x02}});
    OneTrack f(el(mkv::TrackEntry, entry));
    ASSERT_NE(nullptr, f.track());
    EXPECT_EQ(2, f.track()->track_type);
}

TEST(TrackEntry, TrackTimecodeScaleIsAFloat) {
    struct { float value; uint32_t expected; } cases[] = {{1.0f, 1}, {2.75f, 2}, {0.5f, 0}, {-3.0f, 0}};
    for (const auto &c : cases) {
        OneTrack f(trackEntry(3, 2, "A_AAC", {f32_el(mkv::TrackTimecodeScale, c.value)}));
        ASSERT_NE(nullptr, f.track());
        EXPECT_EQ(c.expected, f.track()->track_timecode_scale) << c.value;
    }
}

TEST(TrackEntry, ColourAndMastering) {
    Bytes colour = el(mkv::Colour, {uint_el(mkv::MatrixCoefficients, 9), uint_el(mkv::Range, 0x100000002ull),
                                    uint_el(mkv::MaxCLL, 1000),
                                    el(mkv::Mastering, {f32_el(mkv::PrimaryRX, 0.68f), f32_el(mkv::PrimaryRY, 1.5f),
                                                        f32_el(mkv::LuminanceMax, 1000.0f), f32_el(mkv::LuminanceMin, 0.005f)})});
    OneTrack f(trackEntry(3, 1, "V_VP9", {el(mkv::Video, {uint_el(mkv::PixelWidth, 64), colour})}));
    ASSERT_NE(nullptr, f.track());
    const qmkvd_colour *c = f.track()->video.colour;
    ASSERT_NE(nullptr, c);
    EXPECT_EQ(9u, c->matrix_coefficients);
    EXPECT_EQ(2u, c->range) << "kept modulo 2^32";
    EXPECT_EQ(1000u, c->max_cll);
    EXPECT_EQ(QMKVD_COLOUR_ABSENT, c->primaries);
    EXPECT_EQ(QMKVD_COLOUR_ABSENT, c->transfer_characteristics);
    ASSERT_NE(nullptr, c->mastering);
    ASSERT_NE(nullptr, c->mastering->primary_r);
    EXPECT_FLOAT_EQ(0.68f, c->mastering->primary_r->x);
    EXPECT_FLOAT_EQ(0.0f, c->mastering->primary_r->y) << "1.5 is out of range";
    EXPECT_EQ(nullptr, c->mastering->primary_g);
    float lum[2];
    memcpy(&lum[0], &c->mastering->luminance_max, 4);
    memcpy(&lum[1], &c->mastering->luminance_min, 4);
    EXPECT_FLOAT_EQ(1000.0f, lum[0]);
    EXPECT_FLOAT_EQ(0.005f, lum[1]);
}

TEST(TrackEntry, LuminanceLimits) {
    struct { float max, min; bool max_kept, min_kept; } cases[] = {
        {1000.0f, 0.5f, true, true}, {10000.0f, 1000.0f, false, false}, {9999.99f, 999.9999f, true, true},
        {-1.0f, -0.1f, false, false}};
    for (const auto &c : cases) {
        Bytes colour = el(mkv::Colour, {el(mkv::Mastering, {f32_el(mkv::LuminanceMax, c.max), f32_el(mkv::LuminanceMin, c.min)})});
        OneTrack f(trackEntry(3, 1, "V_VP9", {el(mkv::Video, {colour})}));
        ASSERT_NE(nullptr, f.track());
        const qmkvd_mastering *m = f.track()->video.colour->mastering;
        EXPECT_EQ(c.max_kept, m->luminance_max != 0) << c.max;
        EXPECT_EQ(c.min_kept, m->luminance_min != 0) << c.min;
    }
}

TEST(TrackEntry, OversizedVideoChildEndsTheVideoWalkOnly) {
    // PixelHeight claims more than is left of Video: the Video walk ends there,
    // keeping what it had, and the entry goes on after Video.
    Bytes video = el(mkv::Video, cat({uint_el(mkv::PixelWidth, 64), el_header(mkv::PixelHeight, 40), Bytes{1}}));
    OneTrack f(trackEntry(3, 1, "V_VP9", {video, str_el(mkv::Language, "fre")}));
    ASSERT_NE(nullptr, f.track());
    EXPECT_EQ(64u, f.track()->video.pixel_width);
    EXPECT_EQ(0u, f.track()->video.pixel_height);
    EXPECT_STREQ("fre", f.track()->language);
}

TEST(TrackEntry, RepeatedColourAndCodecPrivateDoNotLeak) {
    Bytes colour = el(mkv::Colour, {el(mkv::Mastering, {f32_el(mkv::PrimaryRX, 0.5f)})});
    OneTrack f(trackEntry(3, 1, "V_VP9", {bin_el(mkv::CodecPrivate, Bytes{1}), bin_el(mkv::CodecPrivate, Bytes{2, 3}),
                                          el(mkv::Video, {colour, colour})}));
    ASSERT_NE(nullptr, f.track());
    EXPECT_EQ(2u, f.track()->codec_private_size);
    EXPECT_NE(nullptr, f.track()->video.colour->mastering->primary_r);
}

}  // namespace
