// Seeking without cues: a list of all Clusters with their start times,
// built once per file and shared by its streams, then a crawl forward to a
// key frame. The list is built through a small window of its own, so a
// Cluster head costs one small read of the data source (none when another
// stream's window holds it) and the blocks between heads are never read;
// the crawl reads block headers through the stream's window, a run of them
// in a few reads.
#include <stdlib.h>
#include <string.h>

#include <android/log.h>

#include "common/qcmn_fcc2mt.h"
#include "common/qcmn_vkeyfrm.h"
#include "demux/qmkvd.h"
#include "demux/qmkvd_cluster.h"
#include "demux/qmkvd_ebml.h"
#include "demux/qmkvd_parse.h"
#include "demux/qmkvd_walk.h"
#include "demux/qmkvd_window.h"
#include "demux/qmkvd_window_io.h"
#include "demux/qmkvds.h"

namespace {

const char kTag[] = "qmkvd";
const int32_t kFrameBudget = 1024;
// The key-frame test looks at no more than this much of a frame.
const uint32_t kKeyTestBytes = 132;
const uint8_t kStartCode[4] = {0, 0, 0, 1};
// What the list needs of a Cluster: its ID and size, its Timecode and its
// first block's header, which come within this many bytes.
const uint32_t kClusterHeadRead = 128;

// The stream and the view its crawl reads through.
struct crawl {
    qmkvds *s;
    qmkvd_window_io io;
    QCMN_MFAL *mfal;
    QCMN_MFAL_FP *fp;
};

void crawl_init(crawl *c, qmkvds *s, qmkvd_window *w) {
    c->s = s;
    qmkvd_window_io_init(&c->io, s, w);
    c->mfal = &c->io.mfal;
    c->fp = qmkvd_window_io_fp(&c->io);
}

int64_t getpos(const crawl *c) { return c->io.pos; }

void setpos(crawl *c, int64_t pos) { c->io.pos = pos; }

bool read_exact(crawl *c, void *buf, uint32_t n) { return n == 0 || c->mfal->read(c->fp, buf, (int32_t)n) == (int32_t)n; }

bool read_byte(crawl *c, uint8_t *b) { return read_exact(c, b, 1); }

// Track number and relative timecode of the block whose data starts at
// `data_pos`; the view is left on the flags byte.
bool read_block_header(crawl *c, int64_t data_pos, uint32_t *track, int16_t *rel) {
    qmkvd_cursor cursor = {c->io.w, c->io.base, c->io.base_fp, data_pos};
    uint64_t number;
    uint8_t tc[2];
    if (qmkvd_cursor_size(&cursor, 4, &number, nullptr) != 0 || !qmkvd_cursor_byte(&cursor, &tc[0]) ||
        !qmkvd_cursor_byte(&cursor, &tc[1]))
        return false;
    setpos(c, cursor.pos);
    *track = (uint32_t)number;
    *rel = (int16_t)(uint16_t)((tc[0] << 8) | tc[1]);
    return true;
}

int64_t block_time_ns(const qmkvds *s, int16_t rel) {
    if (s->cluster.timecode == 0 && rel < 0) rel = 0;
    return (int64_t)((s->cluster.timecode + (uint64_t)(int64_t)rel) * s->timecode_scale);
}

// Reads the element at `pos`; true when it is a Cluster, whose data
// position and size then become the cursor's.
bool enter_cluster_at(crawl *c, int64_t pos) {
    setpos(c, pos);
    uint32_t id;
    uint64_t size;
    if (qmkvd_ebml_get_id_len64(c->mfal, c->fp, &id, &size) != 0 || id != QMKVD_ID_CLUSTER) return false;
    c->s->cluster.parse_start = getpos(c);
    c->s->cluster.parse_size = size;
    return true;
}

// Whether the current Cluster's size runs past the file: the unknown size
// that live recordings write (or a file cut inside the Cluster).
bool size_unknown(const crawl *c) {
    const int64_t file_size = c->s->demux->file_size;
    return file_size > 0 && qmkvd_end_of(c->s->cluster.parse_start, c->s->cluster.parse_size) > file_size;
}

// The next Cluster after the current one, passing over other top-level
// elements between Clusters, and, when the current one's size is unknown,
// over its own children from `from` on: it ends where the next Cluster (or
// any element that cannot be its child) begins. False at the end of the
// file.
bool next_cluster(crawl *c, int64_t from) {
    int64_t pos = size_unknown(c) ? from : qmkvd_end_of(c->s->cluster.parse_start, c->s->cluster.parse_size);
    const int64_t file_size = c->s->demux->file_size;
    for (;;) {
        if (file_size > 0 && pos >= file_size) return false;
        if (enter_cluster_at(c, pos)) return true;
        setpos(c, pos);
        uint32_t id;
        uint64_t size;
        if (qmkvd_ebml_get_id_len64(c->mfal, c->fp, &id, &size) != 0) return false;
        const int64_t next = qmkvd_end_of(getpos(c), size);
        if (next <= pos || id == QMKVD_ID_SEGMENT) return false;
        pos = next;
    }
}

// Size of the first frame of the block at the view's position (just after
// the flags byte), reading the lace header as needed. 0 on failure.
uint32_t first_frame_size(crawl *c, const qmkvd_block_info *block, uint8_t flags, bool *laced) {
    const uint8_t lacing = flags & 0x06;
    *laced = lacing != 0;
    uint8_t count = 0;
    if (*laced && !read_byte(c, &count)) return 0;
    uint64_t first = 0;
    if (lacing == 0x02) {
        uint8_t b;
        do {
            if (!read_byte(c, &b)) return 0;
            first += b;
        } while (b == 255);
        for (uint32_t i = 1; i < count; ++i) {  // the remaining sizes, to reach the frame
            do {
                if (!read_byte(c, &b)) return 0;
            } while (b == 255);
        }
    } else if (lacing == 0x06) {
        uint32_t size;
        if (qmkvd_ebml_get_len32(c->mfal, c->fp, &size) != 0) return 0;
        first = size;
        for (uint32_t i = 1; i < count; ++i) {
            if (qmkvd_ebml_get_len32(c->mfal, c->fp, &size) != 0) return 0;
        }
    }
    const uint64_t header = (uint64_t)(getpos(c) - block->data_pos);
    if (header > block->data_size) return 0;
    const uint64_t payload = block->data_size - header;
    if (lacing == 0) first = payload;
    if (lacing == 0x04) first = payload / (count + 1u);
    return (uint32_t)(first < payload ? first : payload);
}

// Whether the video frame at the view's position is a key frame, reading at
// most a few bytes of it. Negative for the cases the crawl cannot test.
int32_t is_key_frame(crawl *c, qcmn_media_type type, uint32_t frame_size, bool laced) {
    const qmkvds *s = c->s;
    const bool stripped = s->comp_algo == QMKVD_COMP_HEADER_STRIPPING && s->comp_settings_size > 0;
    const uint32_t k = stripped ? s->comp_settings_size : 0;
    if (s->nal_length_size < 1) {
        uint8_t buf[kKeyTestBytes];
        const uint32_t prefix = k < kKeyTestBytes ? k : kKeyTestBytes;
        if (prefix > 0) memcpy(buf, s->comp_settings, prefix);
        uint32_t n = kKeyTestBytes - prefix;
        if (n > frame_size) n = frame_size;
        if (!read_exact(c, buf + prefix, n)) return QMKVD_ERR_READ;
        return qcmn_is_vkeyfrm(type, buf, (int32_t)(prefix + n)) != 0;
    }
    if (laced) return QMKVD_ERR_IMPOSSIBLE;
    if (k >= s->nal_length_size) return QMKVD_ERR_NOT_OPEN;
    // Each NAL unit's header byte, after a start code: 5 bytes per unit.
    int64_t remaining = (int64_t)frame_size + k;
    bool first = true;
    while (remaining > (int64_t)s->nal_length_size) {
        uint8_t len_bytes[4];
        const uint32_t from_prefix = first ? k : 0;
        if (from_prefix > 0) memcpy(len_bytes, s->comp_settings, from_prefix);
        if (!read_exact(c, len_bytes + from_prefix, s->nal_length_size - from_prefix)) return QMKVD_ERR_READ;
        first = false;
        remaining -= s->nal_length_size;
        uint32_t length = 0;
        for (uint32_t i = 0; i < s->nal_length_size; ++i) length = (length << 8) | len_bytes[i];
        if (length == 0) continue;
        uint8_t probe[5];
        memcpy(probe, kStartCode, 4);
        if (!read_byte(c, &probe[4])) return QMKVD_ERR_READ;
        if (qcmn_is_vkeyfrm(type, probe, 5) != 0) return 1;
        const int64_t skip = (int64_t)length - 1;
        remaining -= length;
        if (skip > 0) c->mfal->skip(c->fp, &skip);
    }
    return 0;
}

// Parses the head of the Cluster at the cursor from the view's window. A
// Cluster without blocks leaves next_block_pos at -1, not on a block of
// another Cluster.
int32_t cluster_head(crawl *c) {
    c->s->cluster.next_block_pos = -1;
    int64_t stop = 0;
    const int32_t r = qmkvd_cluster_head(c->io.w, c->io.base, c->io.base_fp, &c->s->cluster, &stop);
    setpos(c, stop);
    return r;
}

// The block element at the Cluster's next_block_pos from the view's window;
// the view is left on the block's data (or the next element, without one).
bool block_element(crawl *c, qmkvd_block_info *block, int32_t read_all_children) {
    if (qmkvd_block_element(c->io.w, c->io.base, c->io.base_fp, block, &c->s->cluster, read_all_children) != 0)
        return false;
    setpos(c, block->data_size > 0 ? block->data_pos : c->s->cluster.next_block_pos);
    return true;
}

}  // namespace

int32_t qmkvds_make_cluster_list(qmkvds *s) {
    qmkvd *inst = s->demux;
    if (inst->cluster_list != nullptr) return 0;
    uint8_t head[kClusterHeadRead];
    qmkvd_window w;
    qmkvd_window_join(&w, inst, head, sizeof(head));
    crawl c;
    crawl_init(&c, s, &w);
    crawl blocks;
    crawl_init(&blocks, s, &s->window);
    s->cluster.parse_start = s->cluster.cluster_pos;
    s->cluster.parse_size = s->cluster.cluster_size;
    setpos(&c, s->cluster.parse_start);
    qmkvd_cluster_node *tail = nullptr;
    for (;;) {
        qmkvd_cluster_node *node = static_cast<qmkvd_cluster_node *>(calloc(1, sizeof(qmkvd_cluster_node)));
        if (node == nullptr) return QMKVD_ERR_NOT_OPEN;
        node->position = s->cluster.parse_start;
        node->size = (uint32_t)s->cluster.parse_size;
        if (cluster_head(&c) != 0) {
            free(node);
            return QMKVD_ERR_IMPOSSIBLE;
        }
        int16_t rel = 0;
        if (s->cluster.next_block_pos >= 0) {
            qmkvd_block_info block = {};
            uint32_t track;
            if (!block_element(&c, &block, 0) ||
                (block.data_size > 0 && !read_block_header(&c, block.data_pos, &track, &rel))) {
                free(node);
                return QMKVD_ERR_READ;
            }
        }
        node->time = (int64_t)((s->cluster.timecode + (uint64_t)(int64_t)rel) * s->timecode_scale);
        node->prev = tail;
        if (tail != nullptr) {
            tail->next = node;
        } else {
            inst->cluster_list = node;
        }
        tail = node;
        // The blocks of a Cluster of unknown size are walked through the
        // stream's larger window: a run of block headers in a few reads.
        crawl &walk = size_unknown(&c) ? blocks : c;
        setpos(&walk, getpos(&c));
        const int64_t from = s->cluster.next_block_pos >= 0 ? s->cluster.next_block_pos : s->cluster.parse_start;
        if (!next_cluster(&walk, from)) return 0;
        setpos(&c, getpos(&walk));
    }
}

qmkvd_cluster_node *qmkvds_find_cluster_list(qmkvd_cluster_node *head, int64_t time_ns) {
    if (head == nullptr) return nullptr;
    qmkvd_cluster_node *node = head;
    for (;; node = node->next) {
        if (node->time > time_ns) return node->prev != nullptr ? node->prev : node;
        if (node->next == nullptr) return node;
    }
}

int32_t qmkvds_seek_crawl(qmkvds *s, const uint64_t *time, int64_t *result_time, int32_t) {
    if (time == nullptr) return QMKVD_ERR_ARGUMENT;
    const qcmn_media_type type = qcmn_fcc2mt((int32_t)s->codec_type);
    qmkvd *inst = s->demux;
    if (inst->cluster_list == nullptr) qmkvds_make_cluster_list(s);
    if (inst->cluster_list == nullptr) return QMKVD_ERR_IMPOSSIBLE;
    crawl c;
    crawl_init(&c, s, &s->window);
    const int64_t target_ns = (int64_t)(*time * 100);
    const qmkvd_cluster_node *node = qmkvds_find_cluster_list(inst->cluster_list, target_ns);
    s->cluster.parse_start = node->position;
    s->cluster.parse_size = node->size;
    if (cluster_head(&c) != 0) return QMKVD_ERR_IMPOSSIBLE;

    int32_t budget = kFrameBudget;
    // Every pass consumes a block element or moves to a later Cluster.
    for (;;) {
        const int64_t element_pos = s->cluster.next_block_pos;
        qmkvd_block_info block = {};
        if (element_pos < 0 || !block_element(&c, &block, 1)) {
            // Where the blocks ran out (the end of a Cluster of unknown size;
            // its data start when it held none), or the Cluster's end.
            const int64_t blocks_end = element_pos > s->cluster.parse_start ? element_pos : s->cluster.parse_start;
            const int64_t end = size_unknown(&c) ? blocks_end
                                                 : qmkvd_end_of(s->cluster.parse_start, s->cluster.parse_size);
            // The last Cluster ends the file: the end of the stream, not a failure.
            if (s->demux->file_size > 0 && end >= s->demux->file_size) return QMKVD_END_OF_STREAM;
            if (size_unknown(&c)) {
                if (!next_cluster(&c, end)) return QMKVD_END_OF_STREAM;
            } else {
                setpos(&c, end);
                uint32_t id;
                uint64_t size;
                if (qmkvd_ebml_get_id_len64(c.mfal, c.fp, &id, &size) != 0)
                    return s->demux->file_size - end < QMKVD_MAX_HEADER ? QMKVD_END_OF_STREAM : QMKVD_ERR_READ;
                if (id != QMKVD_ID_CLUSTER) return QMKVD_END_OF_STREAM;
                s->cluster.parse_start = getpos(&c);
                s->cluster.parse_size = size;
            }
            // A head the end of the file cuts (a recording that stopped as
            // it began a Cluster) ends the stream; a damaged one fails.
            if (cluster_head(&c) != 0) return size_unknown(&c) ? QMKVD_END_OF_STREAM : QMKVD_ERR_IMPOSSIBLE;
            continue;
        }
        if (block.data_size == 0 || qmkvd_block_cut(s->demux, &block)) continue;
        uint32_t track;
        int16_t rel;
        if (!read_block_header(&c, block.data_pos, &track, &rel)) return QMKVD_ERR_READ;
        if (track != s->track.track_number) continue;
        const int64_t t_ns = block_time_ns(s, rel);
        if (t_ns < target_ns) continue;
        uint8_t flags;
        if (!read_byte(&c, &flags)) return QMKVD_ERR_READ;
        if (s->stream_type == QMKVD_TRACK_VIDEO) {
            bool laced;
            const uint32_t frame_size = first_frame_size(&c, &block, flags, &laced);
            const int32_t key = is_key_frame(&c, type, frame_size, laced);
            if (key < 0) return key;
            if (key == 0) {
                if (budget == 0) {
                    __android_log_print(ANDROID_LOG_ERROR, kTag, "No Key frame found within next 1024 frames");
                    return QMKVD_ERR_NOT_OPEN;
                }
                budget--;
                continue;
            }
        }
        const int64_t t = t_ns / 100;
        if (result_time != nullptr) *result_time = t;
        s->base_time = t;
        s->dts_counter = 0;
        s->cluster.next_block_pos = element_pos;
        s->skip_to_time = 0;
        s->after_seek = 0;
        s->peeked = 0;
        s->peeked_size = 0;
        s->other_track = 0;
        s->ended = 0;
        if (s->stream_type == QMKVD_TRACK_AUDIO && !qmkvd_support_lacing(s->codec_type)) {
            s->lace_last = 0;
            s->lace_left = 0;
        }
        return 0;
    }
}
