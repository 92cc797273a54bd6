// The file-level format: the demuxer's metadata record as strings, with the
// character encoding of each text item.
#include <stdio.h>

#include <string>

#include "demux/qmkvd_types.h"
#include "extractor/qmkv_extractor.h"
#include "qextractorcmn/ExtMediaFormatDef.h"

namespace android {

namespace {

// Encoding types 700..703 of the text items; 703 is text to copy as it stands.
const uint32_t kEncodingFirst = 700;
const uint32_t kEncodingCopy = 703;

enum Kind { TEXT, NUMBER };

struct Row {
    const char *const *key;
    Kind kind;
    int item;  // text item index, or which number
};

enum { YEAR, TRACK, DISC, COMPILATION };

int32_t numberOf(const qmkvd_metadata *m, int which) {
    switch (which) {
        case YEAR: return m->year;
        case TRACK: return m->track_number;
        case DISC: return m->disc_number;
        default: return m->compilation;
    }
}

}  // namespace

void QMKVExtractor::fillFileMeta() {
    const qmkvd_metadata *m = mDSF->mFormat.meta;
    if (m == nullptr) return;
    const Row rows[] = {
        {&AMEDIAFORMAT_KEY_CDTRACKNUMBER, NUMBER, TRACK},
        {&AMEDIAFORMAT_KEY_DISCNUMBER, NUMBER, DISC},
        {&AMEDIAFORMAT_KEY_ALBUM, TEXT, QMKVD_META_ALBUM},
        {&AMEDIAFORMAT_KEY_ARTIST, TEXT, QMKVD_META_ARTIST},
        {&AMEDIAFORMAT_KEY_ALBUMARTIST, TEXT, QMKVD_META_ALBUM_ARTIST},
        {&AMEDIAFORMAT_KEY_AUTHOR, TEXT, QMKVD_META_AUTHOR},
        {&AMEDIAFORMAT_KEY_COMPOSER, TEXT, QMKVD_META_COMPOSER},
        {&AMEDIAFORMAT_KEY_DATE, TEXT, QMKVD_META_DATE},
        {&AMEDIAFORMAT_KEY_GENRE, TEXT, QMKVD_META_GENRE},
        {&AMEDIAFORMAT_KEY_TITLE, TEXT, QMKVD_META_TITLE},
        {&AMEDIAFORMAT_KEY_YEAR, NUMBER, YEAR},
        {&AMEDIAFORMAT_KEY_WRITER, TEXT, QMKVD_META_WRITER},
        {&AMEDIAFORMAT_KEY_COMPILATION, NUMBER, COMPILATION},
    };
    std::string encodings;
    for (const Row &row : rows) {
        const char *key = *row.key;
        if (row.kind == TEXT) {
            const qmkvd_metadata_item &item = m->items[row.item];
            if (item.length == 0) continue;
            // Text of another encoding is not converted here: written empty.
            const std::string value = item.type == kEncodingCopy
                                          ? std::string(reinterpret_cast<const char *>(item.data), item.length)
                                          : std::string();
            AMediaFormat_setString(mFileMeta, key, value.c_str());
            if (item.type >= kEncodingFirst && item.type <= kEncodingCopy) {
                char entry[16];
                snprintf(entry, sizeof(entry), "%d", (int)(item.type - kEncodingFirst));
                encodings += std::string(key) + "=" + entry + ":";
            }
            continue;
        }
        const int32_t value = numberOf(m, row.item);
        if (value < 0) continue;
        if (row.item == TRACK && m->track_total >= 0) {
            char text[22];
            snprintf(text, sizeof(text), "%d/%d", value, m->track_total);
            AMediaFormat_setString(mFileMeta, key, text);
        } else {
            char text[12];
            snprintf(text, sizeof(text), "%d", value);
            AMediaFormat_setString(mFileMeta, key, text);
        }
    }
    if (!encodings.empty()) AMediaFormat_setString(mFileMeta, AMEDIAFORMAT_KEY_CHAR_ENCODING_TYPES, encodings.c_str());
}

}  // namespace android
