#include "demux/qmkvd_dropped.h"

#include <stdio.h>
#include <string.h>

#include "demux/qmkvd.h"

namespace {

// ContentCompAlgo values by name; the rest are numbered.
const char *const kCompressionNames[] = {"zlib", "bzlib", "lzo1x"};

void describe(const qmkvd_encoding &e, char *reason, size_t size) {
    if (e.unsupported == QMKVD_DROP_ENCRYPTION) {
        snprintf(reason, size, "encryption is not supported");
    } else if (e.unsupported == QMKVD_DROP_COMPRESSION) {
        const uint32_t algo = e.compression.comp_algo;
        if (algo < sizeof(kCompressionNames) / sizeof(kCompressionNames[0]))
            snprintf(reason, size, "%s compression is not supported", kCompressionNames[algo]);
        else
            snprintf(reason, size, "compression algorithm %u is not supported", algo);
    } else {
        snprintf(reason, size, "damaged entry");
    }
}

}  // namespace

void qmkvd_note_dropped(qmkvd *inst, const qmkvd_track *track) {
    if (inst == nullptr || inst->dropped_count >= QMKVD_MAX_TRACKS) return;
    qmkvd_dropped_track *d = &inst->dropped[inst->dropped_count++];
    d->track_number = track->track_number;
    // The entry may have been cut off anywhere: its strings are copied
    // bounded, whatever the parse reached.
    snprintf(d->codec_id, sizeof(d->codec_id), "%.*s", (int)sizeof(track->codec_id) - 1, track->codec_id);
    snprintf(d->name, sizeof(d->name), "%.*s", (int)sizeof(track->name) - 1, track->name);
    snprintf(d->language, sizeof(d->language), "%.*s", (int)sizeof(track->language) - 1, track->language);
    describe(track->content_encodings.encoding, d->reason, sizeof(d->reason));
}

int32_t qmkvd_get_dropped_tracks(const qmkvd *h, qmkvd_dropped_track *table, uint32_t capacity, uint32_t *count) {
    if (h == nullptr || h->magic != QMKVD_MAGIC || count == nullptr) return QMKVD_ERR_ARGUMENT;
    *count = h->dropped_count;
    if (table == nullptr) return QMKVD_OK;
    if (capacity < h->dropped_count) return QMKVD_ERR_BUFFER;
    memcpy(table, h->dropped, h->dropped_count * sizeof(*table));
    return QMKVD_OK;
}
