#include "demux/qmkvd_codec.h"

#include <stddef.h>
#include <string.h>

namespace {

// What a matching row does to the track's codec code.
enum class Rule : uint8_t {
    kCode,       // the row's fixed code
    kKeep,       // leave the code as it is
    kVfwFourcc,  // biCompression of the BITMAPINFOHEADER in CodecPrivate
    kRealVideo,  // "RV" + CodecID characters 9 and 10
    kRealAudio,  // CodecID characters 7 to 10
    kAcmTag,     // wFormatTag of the WAVEFORMATEX in CodecPrivate
};

struct CodecRow {
    const char *text;  // compared as a prefix of the CodecID, case-sensitive
    size_t chars;      // how many characters of `text` are compared
    Rule rule;
    uint32_t code;  // for Rule::kCode
};

// Within a group the first matching row wins, so the order matters: longer
// texts that share a prefix with a shorter one must not be shadowed by it.
const CodecRow kVideoRows[] = {
    {"V_MS/VFW/FOURCC", 15, Rule::kVfwFourcc, 0},
    {"V_REAL/RV", 9, Rule::kRealVideo, 0},
    {"V_MPEG1", 7, Rule::kCode, QMKVD_FOURCC('M', 'P', 'G', '1')},
    {"V_MPEG2", 7, Rule::kCode, QMKVD_FOURCC('m', 'p', 'g', '2')},
    {"V_THEORA", 8, Rule::kCode, QMKVD_FOURCC('T', 'H', 'E', 'O')},
    {"V_SNOW", 6, Rule::kCode, QMKVD_FOURCC('S', 'N', 'O', 'W')},
    {"V_MPEG4/ISO/SP", 14, Rule::kCode, QMKVD_FOURCC('M', 'P', '4', 'V')},
    {"V_MPEG4/ISO/ASP", 15, Rule::kCode, QMKVD_FOURCC('M', 'P', '4', 'V')},
    {"V_MPEG4/ISO/AVC", 15, Rule::kCode, QMKVD_FOURCC('A', 'V', 'C', '1')},
    {"V_MPEGH/ISO/HEVC", 16, Rule::kCode, QMKVD_FOURCC('h', 'e', 'v', '1')},
    {"V_VP8", 5, Rule::kCode, QMKVD_FOURCC('V', 'P', '8', '0')},
    {"V_VP9", 5, Rule::kCode, QMKVD_FOURCC('V', 'P', '9', '0')},
    {"V_MPEG4/MS/V3", 13, Rule::kCode, QMKVD_FOURCC('M', 'P', '4', '3')},
    {"V_AV1", 5, Rule::kCode, QMKVD_FOURCC('a', 'v', '0', '1')},
};

const CodecRow kAudioRows[] = {
    {"A_AC3", 5, Rule::kCode, 0x2000},
    {"A_EAC3", 6, Rule::kCode, QMKVD_FOURCC('e', 'c', '-', '3')},
    {"A_MPEG/L3", 9, Rule::kCode, 0x55},
    {"A_MPEG/L2", 9, Rule::kCode, 0x50},
    {"A_MPEG/L1", 9, Rule::kCode, 0x50},
    {"A_AAC", 5, Rule::kCode, 0xFF},
    {"A_DTS", 5, Rule::kCode, 0x2001},
    {"A_PCM/INT/LIT", 13, Rule::kCode, 1},
    {"A_PCM/INT/BIG", 13, Rule::kCode, QMKVD_FOURCC('l', 'p', 'c', 'm')},
    {"A_PCM/FLOAT/IEEE", 16, Rule::kCode, 3},
    {"A_ALAC", 6, Rule::kCode, QMKVD_FOURCC('a', 'l', 'a', 'c')},
    {"A_TTA1", 6, Rule::kCode, 0x77A1},
    {"A_WAVPACK4", 10, Rule::kCode, 0x5756},
    {"A_VORBIS", 8, Rule::kCode, 0x2674F},
    {"A_FLAC", 6, Rule::kCode, 0xF1AC},
    {"A_REAL", 6, Rule::kRealAudio, 0},
    {"A_MS/ACM", 8, Rule::kAcmTag, 0},
    {"A_OPUS", 6, Rule::kCode, QMKVD_FOURCC('O', 'p', 'u', 's')},
};

const CodecRow kSubtitleRows[] = {
    {"S_TEXT/ASCII", 12, Rule::kKeep, 0},
    {"S_TEXT/UTF8", 11, Rule::kCode, QMKVD_FOURCC('S', 'S', 'R', 'T')},
    {"S_TEXT/SSA", 10, Rule::kCode, QMKVD_FOURCC('S', 'S', 'S', 'A')},
    {"S_TEXT/ASS", 10, Rule::kCode, QMKVD_FOURCC('S', 'A', 'S', 'S')},
};

// An unknown video or audio codec: a marker character, then CodecID
// characters 2 to 4 (the text after "V_"/"A_"), or "???" for a short ID.
enum class Fallback : uint8_t { kKeep, kMarked };

struct CodecGroup {
    char kind;  // first character of the CodecID: 'V', 'A' or 'S'
    const CodecRow *rows;
    size_t row_count;
    Fallback fallback;
    char marker;
};

const CodecGroup kGroups[] = {
    {'V', kVideoRows, sizeof(kVideoRows) / sizeof(kVideoRows[0]), Fallback::kMarked, '*'},
    {'A', kAudioRows, sizeof(kAudioRows) / sizeof(kAudioRows[0]), Fallback::kMarked, '#'},
    {'S', kSubtitleRows, sizeof(kSubtitleRows) / sizeof(kSubtitleRows[0]), Fallback::kKeep, 0},
};

// Where biCompression and wFormatTag sit, and the bytes needed to read them.
enum { kBiCompressionOffset = 16, kBitmapInfoMin = 20, kWaveFormatMin = 2 };

uint32_t le32(const uint8_t *p) {
    return (uint32_t)p[0] | ((uint32_t)p[1] << 8) | ((uint32_t)p[2] << 16) | ((uint32_t)p[3] << 24);
}

// Applies a matched row; some rows leave the code as it was.
void apply_rule(const CodecRow &row, const qmkvd_track &track, uint32_t *code) {
    const char *id = track.codec_id;
    switch (row.rule) {
        case Rule::kCode:
            *code = row.code;
            return;
        case Rule::kKeep:
            return;
        case Rule::kVfwFourcc:
            // A CodecPrivate too short for a BITMAPINFOHEADER names nothing.
            if (track.codec_private == nullptr || track.codec_private_size < kBitmapInfoMin) return;
            *code = le32(track.codec_private + kBiCompressionOffset);
            return;
        case Rule::kRealVideo:
            // Indices stay inside the zero-filled 256-byte CodecID buffer even
            // when the ID ends early.
            *code = QMKVD_FOURCC('R', 'V', id[9], id[10]);
            return;
        case Rule::kRealAudio:
            *code = QMKVD_FOURCC(id[7], id[8], id[9], id[10]);
            return;
        case Rule::kAcmTag:
            if (track.codec_private == nullptr || track.codec_private_size < kWaveFormatMin) return;
            *code = (uint32_t)track.codec_private[0] | ((uint32_t)track.codec_private[1] << 8);
            return;
    }
}

void fallback_code(const CodecGroup &group, const char *id, uint32_t *code) {
    if (group.fallback == Fallback::kKeep) return;
    if (strnlen(id, QMKVD_STRING_SIZE) < 5) {
        *code = QMKVD_FOURCC(group.marker, '?', '?', '?');
    } else {
        *code = QMKVD_FOURCC(group.marker, id[2], id[3], id[4]);
    }
}

void lookup_codec(const qmkvd_track &track, uint32_t *code) {
    const char *id = track.codec_id;
    if (id[0] == '\0' || id[1] != '_') return;
    for (const CodecGroup &group : kGroups) {
        if (id[0] != group.kind) continue;
        for (size_t i = 0; i < group.row_count; ++i) {
            const CodecRow &row = group.rows[i];
            if (strncmp(id, row.text, row.chars) == 0) {
                apply_rule(row, track, code);
                return;
            }
        }
        fallback_code(group, id, code);
        return;
    }
}

}  // namespace

int32_t qmkvd_media_info(struct qmkvd * /*handle*/, qmkvds *slot, qmkvd_format *format, int32_t index) {
    if (slot == nullptr) return 0;
    lookup_codec(slot->track, &slot->codec_type);
    if (format != nullptr && index >= 0 && index < QMKVD_MAX_TRACKS) {
        format->track_codec_types[index] = slot->codec_type;
    }
    return 0;
}
