#include "demux/qmkvd_mp3_config.h"

#include <string.h>

#include "demux/qmkvd_cluster.h"
#include "demux/qmkvd_ebml.h"

namespace {

const int32_t kRecordSize = 12;
// 144000 x the MPEG-1 layer III bitrate (kbit/s) of each bitrate index.
const uint32_t kFrameFactor[16] = {0,        4608000,  5760000,  6912000,  8064000,  9216000,
                                   11520000, 13824000, 16128000, 18432000, 23040000, 27648000,
                                   32256000, 36864000, 46080000, 0};
const uint32_t kSampleRates[3] = {44100, 48000, 32000};

bool read_exact(QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, void *buf, int32_t n) {
    return n <= 0 || mfal->read(fp, buf, n) == n;
}

// Skips the lace header; the whole flags byte is compared, so a laced key
// block skips nothing (kept as players in the field expect).
bool skip_lacing(QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, uint8_t flags) {
    if (flags != 2 && flags != 4 && flags != 6) return true;
    int8_t count;
    if (!read_exact(mfal, fp, &count, 1)) return false;
    if (flags == 2) {
        for (int32_t i = 0; i < count; ++i) {
            uint8_t b;
            do {
                if (!read_exact(mfal, fp, &b, 1)) return false;
            } while (b == 255);
        }
    } else if (flags == 6) {
        for (int32_t i = 0; i < count; ++i) {
            uint32_t size;
            if (qmkvd_ebml_get_len32(mfal, fp, &size) != 0) return false;
        }
    }
    return true;
}

// The first four bytes of the track's first frame, stripped header first.
bool read_frame_header(qmkvd *h, const qmkvds &s, QCMN_MFAL_FP *fp, uint8_t header[4]) {
    QCMN_MFAL *mfal = &h->mfal;
    qmkvd_cluster cluster = {};
    cluster.parse_start = cluster.cluster_pos = h->first_cluster_pos;
    cluster.parse_size = cluster.cluster_size = h->first_cluster_size;
    if (parse_cluster(mfal, fp, &cluster) != 0) return false;
    // Each block element moves next_block_pos forward; the first Cluster's
    // blocks bound the search.
    for (;;) {
        qmkvd_block_info block = {};
        if (parse_cluster_blockgroup(mfal, fp, &block, &cluster, 1) != 0) return false;
        if (block.data_size == 0) continue;
        mfal->setpos(fp, &block.data_pos);
        uint32_t track_number;
        if (qmkvd_ebml_get_len32(mfal, fp, &track_number) != 0) return false;
        if (track_number != s.track.track_number) continue;
        uint8_t tc_flags[3];
        if (!read_exact(mfal, fp, tc_flags, 3) || !skip_lacing(mfal, fp, tc_flags[2])) return false;
        uint32_t k = 0;
        if (s.comp_algo == QMKVD_COMP_HEADER_STRIPPING && s.comp_settings != nullptr) {
            k = s.comp_settings_size < 4 ? s.comp_settings_size : 4;
            memcpy(header, s.comp_settings, k);
        }
        return read_exact(mfal, fp, header + k, (int32_t)(4 - k));
    }
}

}  // namespace

int32_t qmkvd_mp3_config(qmkvd *h, int32_t index, uint8_t *buffer, int32_t *size) {
    const int32_t capacity = *size;
    *size = kRecordSize;
    if (buffer == nullptr) return 0;
    const int32_t fits = kRecordSize <= capacity ? 0 : -1;
    QCMN_MFAL_FP *fp = h->mfal.open(&h->mfal, 0);
    if (fp == nullptr) return fits;
    uint8_t header[4];
    const bool ok = read_frame_header(h, h->streams[index], fp, header);
    h->mfal.close(fp);
    if (!ok || capacity < 8) return fits;

    const uint32_t s = (header[2] >> 2) & 3;
    const uint32_t b = header[2] >> 4;
    const uint32_t padding = (header[2] >> 1) & 1;
    const uint8_t tag[6] = {1, 0, 0, 0, 0, 0};
    memcpy(buffer, tag, sizeof(tag));
    if (s == 3) return fits;
    const uint32_t frame = kFrameFactor[b] / kSampleRates[s] + padding;
    buffer[6] = (uint8_t)frame;
    buffer[7] = (uint8_t)(frame >> 8);
    return fits;
}
