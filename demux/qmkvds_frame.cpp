// The two frame readers: a whole block per call, or one laced frame per call.
#include <stdlib.h>
#include <string.h>

#include <android/log.h>

#include "common/qcmn_fcc2mt.h"
#include "common/qcmn_vkeyfrm.h"
#include "demux/qmkvd.h"
#include "demux/qmkvd_cluster.h"
#include "demux/qmkvd_ebml.h"
#include "demux/qmkvd_nal.h"
#include "demux/qmkvds.h"
#include "demux/qmkvd_time.h"
#include "demux/qmkvd_window.h"

namespace {

const char kTag[] = "qmkvd";

enum { LACING_NONE = 0, LACING_XIPH = 2, LACING_FIXED = 4, LACING_EBML = 6 };

// How many frames after a seek may be dropped looking for a key frame.
const int32_t kKeyFrameAttempts = 10000;
// Room the NAL rewriter may need beyond the block when testing a frame.
const uint32_t kKeyTestSlack = 1024;
// An empty subtitle sample filling a gap sits this much earlier (100 ns).
const int64_t kGapSampleLead = 1000000;

int64_t getpos(const qmkvds *s) {
    int64_t pos = 0;
    s->mfal->getpos(s->file, &pos);
    return pos;
}

bool header_stripped(const qmkvds *s) {
    return s->comp_algo == QMKVD_COMP_HEADER_STRIPPING && s->comp_settings_size > 0;
}

enum block_result { BLOCK_OK = 0, BLOCK_END = 1, BLOCK_READ_ERROR = -1, BLOCK_MALFORMED = 2 };

// Reads the lace header after the flags byte into lace_sizes / lace_last,
// from the stream's window.
block_result read_lacing(qmkvds *s, qmkvd_cursor *c, uint8_t lacing) {
    s->lace_last = 0;
    uint8_t count = 0;
    if (lacing != LACING_NONE && !qmkvd_cursor_byte(c, &count)) return BLOCK_READ_ERROR;
    s->lace_last = count;
    uint64_t sum = 0;
    if (lacing == LACING_XIPH) {
        for (int32_t i = 0; i < count; ++i) {
            uint32_t size = 0;
            uint8_t b;
            do {
                if (!qmkvd_cursor_byte(c, &b)) return BLOCK_READ_ERROR;
                size += b;
            } while (b == 255);
            s->lace_sizes[i] = size;
            sum += size;
        }
    } else if (lacing == LACING_EBML && count > 0) {
        uint64_t first;
        if (qmkvd_cursor_size(c, 4, &first, nullptr) != 0) return BLOCK_READ_ERROR;
        int64_t size = (int64_t)first;
        s->lace_sizes[0] = (uint32_t)first;
        sum = first;
        for (int32_t i = 1; i < count; ++i) {
            uint64_t raw;
            uint32_t length;
            if (qmkvd_cursor_size(c, 4, &raw, &length) != 0) return BLOCK_READ_ERROR;
            size += (int64_t)raw - ((1ll << (7 * length - 1)) - 1);
            if (size < 0) return BLOCK_MALFORMED;
            s->lace_sizes[i] = (uint32_t)size;
            sum += (uint64_t)size;
        }
    }
    const uint64_t header = (uint64_t)(c->pos - s->block.data_pos);
    if (header > s->block.data_size || s->block.data_size - header > UINT32_MAX) return BLOCK_MALFORMED;
    const uint64_t payload = s->block.data_size - header;
    s->payload_size = (uint32_t)payload;
    s->payload_pos = c->pos;
    if (lacing == LACING_FIXED) {
        for (int32_t i = 0; i <= count; ++i) s->lace_sizes[i] = (uint32_t)(payload / (count + 1u));
    } else {
        // The last frame takes what the others leave.
        if (sum > payload) return BLOCK_MALFORMED;
        s->lace_sizes[count] = (uint32_t)(payload - sum);
    }
    return BLOCK_OK;
}

// Reads the next block's header, times and lacing. A block whose lacing
// does not add up is passed over like damage.
int32_t read_new_block(qmkvds *s, uint32_t *key) {
    for (;;) {
        if (get_blockgroup(s, &s->block) != 0) {
            __android_log_print(ANDROID_LOG_DEBUG, kTag, "get_blockgroup no more find block data. maybe EOF");
            return QMKVD_END_OF_STREAM;
        }
        s->other_track = s->block.track_number != s->track.track_number;
        const int64_t pts = s->get_time(s, s->cluster.timecode, s->block.rel_timecode);
        s->block_pts = pts;
        if (s->last_block_time >= 0 && (s->default_duration_100ns == 0 || s->stream_type == QMKVD_TRACK_AUDIO))
            s->default_duration_100ns = qmkvd_wrap_sub(pts, s->last_block_time);
        int64_t duration = s->default_duration_100ns;
        s->last_block_time = pts;
        if (s->stream_type == QMKVD_TRACK_SUBTITLE && s->block.block_duration != 0)
            duration = (int64_t)s->timecode_scale * s->block.block_duration / 100;
        s->block_end = qmkvd_wrap_add(pts, duration);

        qmkvd_cursor c = {&s->window, s->mfal, s->file, getpos(s)};
        if (!qmkvd_cursor_byte(&c, &s->block.flags)) return QMKVD_ERR_READ;
        if (key != nullptr) *key = (s->block.flags & 0x80) ? 1 : 0;
        const block_result r = read_lacing(s, &c, s->block.flags & 0x06);
        if (r == BLOCK_READ_ERROR) return QMKVD_ERR_READ;
        s->mfal->setpos(s->file, &c.pos);
        if (r == BLOCK_OK) {
            s->lace_left = s->lace_last;
            return 0;
        }
    }
}

// Reads `n` bytes at the file position into `out` through the window.
bool read_exact(qmkvds *s, uint8_t *out, uint32_t n) {
    return n == 0 || qmkvd_window_copy(&s->window, s->mfal, s->file, getpos(s), out, n) == n;
}

void set_times(int64_t pts, int64_t end, int64_t *pts_out, int64_t *end_out) {
    if (pts_out == nullptr || end_out == nullptr) return;
    *pts_out = pts;
    *end_out = end;
}

// The size a frame of 4-byte length fields at `start` rewrites to, from its
// length fields alone, read through the window.
uint32_t measure_lengths(qmkvds *s, int64_t start, uint32_t in_size) {
    return qmkvd_nal_measure(in_size, [s, start](uint64_t offset, uint32_t *length) {
        uint32_t avail = 0;
        const uint8_t *p = qmkvd_window_at(&s->window, s->mfal, s->file, start + (int64_t)offset, 4, &avail);
        if (p == nullptr || avail < 4) return false;
        *length = qmkvd_nal_length4(p);
        return true;
    });
}

// Rewrites (or, with `out` null, measures) one NAL-prefixed frame of
// `in_size` bytes at the file position.
int32_t rewrite_nal(qmkvds *s, uint8_t *out, uint32_t in_size, uint32_t out_cap, uint32_t *out_size) {
    // The rewriter takes a capacity below 1 as "no bound": a real buffer
    // must never be passed that way.
    if (out != nullptr && out_cap == 0) return QMKVD_ERR_BUFFER;
    const int32_t cap = out_cap > (uint32_t)INT32_MAX ? INT32_MAX : (int32_t)out_cap;
    // Start codes are as long as 4-byte length fields: a frame is read in
    // one piece and rewritten where it lies, and measured by reading only
    // its length fields, most often already in the window with the block
    // header (the read that follows then moves each byte once).
    const bool in_place = s->nal_length_size == 4 && !header_stripped(s);
    if (in_place && out != nullptr && in_size <= out_cap) {
        const int64_t end = getpos(s) + in_size;
        *out_size = read_exact(s, out, in_size) ? qmkvd_nal_rewrite_in_place(out, in_size) : 0;
        s->mfal->setpos(s->file, &end);
        return 0;
    }
    if (in_place && out == nullptr) {
        const int64_t start = getpos(s);
        *out_size = measure_lengths(s, start, in_size);
        s->mfal->setpos(s->file, &start);
        return 0;
    }
    if (header_stripped(s)) {
        return modify_nal_header3(s->mfal, s->file, out, (int32_t)in_size, cap, s->nal_length_size, out_size,
                                  s->comp_settings_size, s->comp_settings);
    }
    return modify_nal_header2(s->mfal, s->file, out, (int32_t)in_size, cap, s->nal_length_size, out_size);
}

// Copies one frame (with the stripped header put back) into buf.
int32_t copy_frame(qmkvds *s, uint8_t *buf, uint32_t frame_size, uint32_t *written) {
    uint32_t n = 0;
    if (header_stripped(s)) {
        memcpy(buf, s->comp_settings, s->comp_settings_size);
        n = s->comp_settings_size;
    }
    if (!read_exact(s, buf + n, frame_size)) return QMKVD_ERR_READ;
    *written = n + frame_size;
    return 0;
}

// Moves the file past frames [from, to) of the current block.
void skip_frames(qmkvds *s, int32_t from, int32_t to) {
    int64_t distance = 0;
    for (int32_t i = from; i < to; ++i) distance += s->lace_sizes[i];
    if (distance > 0) s->mfal->skip(s->file, &distance);
}

}  // namespace

int32_t qmkvds_get_frm_onebyone(qmkvds *s, uint8_t *buf, uint32_t buf_size, uint32_t *size, int64_t *pts,
                                int64_t *end, uint32_t *key) {
    if (key != nullptr) *key = 0;
    bool new_block = false;
    if (s->peeked || (s->lace_left >= 0 && s->lace_last >= 1)) {
        if (key != nullptr) *key = (s->block.flags & 0x80) ? 1 : 0;
    } else {
        s->prev_lace_count = s->lace_last + 1;
        // Only the sizes the previous block used can be non-zero.
        memset(s->lace_sizes, 0, sizeof(s->lace_sizes[0]) * (size_t)(s->lace_last + 1));
        s->lace_last = 0;
        s->lace_left = 0;
        s->lace_duration = 0;
        const int32_t r = read_new_block(s, key);
        if (r != 0) return r;
        new_block = true;
        const int64_t duration = qmkvd_wrap_sub(s->block_end, s->block_pts);
        // The divisor comes from the previous block when that one was laced.
        s->lace_duration = s->prev_lace_count < 2 ? duration / (s->lace_last + 1) : duration / s->prev_lace_count;
    }
    const int32_t i = s->lace_last - s->lace_left;
    int64_t frame_pts = s->block_pts;
    int64_t frame_end = s->block_end;
    if (s->lace_last >= 2 && s->lace_duration >= 1) {
        frame_pts = qmkvd_wrap_add(s->block_pts, qmkvd_wrap_mul(i, s->lace_duration));
        frame_end = qmkvd_wrap_add(frame_pts, s->lace_duration);
    }
    set_times(frame_pts, frame_end, pts, end);
    const uint32_t prefix = header_stripped(s) ? s->comp_settings_size : 0;

    if (buf == nullptr) {
        s->peeked_size = s->payload_size;
        s->peeked = 1;
        if (s->nal_length_size == 0 || s->nal_length_size == 4) {
            *size = s->lace_sizes[i];
        } else if (s->lace_last >= 1) {
            return QMKVD_ERR_IMPOSSIBLE;
        } else {
            uint32_t measured = 0;
            const int32_t r = rewrite_nal(s, nullptr, s->lace_sizes[0], 0, &measured);
            if (r != 0) return r;
            *size = measured;
            return 0;  // the rewriter already counts the stripped header
        }
        *size += prefix;
        return 0;
    }

    if (new_block && s->payload_size > buf_size) return QMKVD_ERR_BUFFER;
    if (!new_block && s->lace_sizes[i] + (uint64_t)prefix > buf_size && s->nal_length_size < 1) {
        // Drop this frame and the ones after it up to the last, which the
        // next call delivers.
        skip_frames(s, i, s->lace_last);
        s->peeked_size = 0;
        s->peeked = 0;
        s->lace_left = 0;
        return QMKVD_ERR_BUFFER;
    }
    s->peeked_size = 0;
    s->peeked = 0;
    if (s->nal_length_size < 1) {
        if (s->lace_sizes[i] + (uint64_t)prefix > buf_size) return QMKVD_ERR_BUFFER;
        const int32_t r = copy_frame(s, buf, s->lace_sizes[i], size);
        if (r != 0) return r;
        s->lace_left--;
        return 0;
    }
    if (s->lace_last >= 1) return QMKVD_ERR_IMPOSSIBLE;
    const int32_t r = rewrite_nal(s, buf, s->lace_sizes[0], buf_size, size);
    s->lace_left--;
    return r;
}

namespace {

// Whether a rewritten size of `size` needs more frame bytes than the file
// holds after the payload's start (a start code replaces at least one byte
// of length field): such a frame is cut off, and must not size a buffer.
bool past_the_file(const qmkvds *s, uint32_t size) {
    const int64_t file_size = s->demux->file_size;
    if (file_size <= 0) return false;
    const int64_t in_file = file_size - s->payload_pos;
    if (in_file <= 0) return true;
    return (uint64_t)size > 4 * ((uint64_t)in_file + s->comp_settings_size);
}

// Whether the frame at hand may end the search for a key frame after a
// seek. With a buffer, tests the bytes written; in a size query, rewrites
// the frame into scratch memory and puts the file position back.
int32_t passes_key_test(qmkvds *s, const uint8_t *buf, uint32_t size, bool *is_key) {
    *is_key = true;
    if (!s->after_seek || s->stream_type != QMKVD_TRACK_VIDEO || s->nal_length_size < 1) return 0;
    const qcmn_media_type type = qcmn_fcc2mt_vid((int32_t)s->codec_type);
    if (buf != nullptr) {
        *is_key = qcmn_is_vkeyfrm(type, buf, (int32_t)size) == 1;
        return 0;
    }
    if (size < 1 || size > 0x7FFFFBFF || past_the_file(s, size)) {
        *is_key = false;
        return 0;
    }
    const int64_t pos = getpos(s);
    uint8_t *scratch = static_cast<uint8_t *>(malloc(size + kKeyTestSlack));
    if (scratch == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "alloc failed");
        return QMKVD_ERR_IO;
    }
    uint32_t written = 0;
    rewrite_nal(s, scratch, s->payload_size, size + kKeyTestSlack, &written);
    *is_key = qcmn_is_vkeyfrm(type, scratch, (int32_t)written) == 1;
    free(scratch);
    s->mfal->setpos(s->file, &pos);
    return 0;
}

// Writes the held block into buf: frames back to back, each after the
// stripped header when there is one.
int32_t write_block(qmkvds *s, uint8_t *buf, uint32_t buf_size, uint32_t *size, bool held) {
    if (s->nal_length_size >= 1) {
        if (s->lace_last >= 1) return QMKVD_ERR_IMPOSSIBLE;
        return rewrite_nal(s, buf, s->payload_size, buf_size, size);
    }
    const uint32_t frames = (uint32_t)s->lace_last + 1;
    const uint64_t total = s->payload_size + (header_stripped(s) ? (uint64_t)frames * s->comp_settings_size : 0);
    if (total > buf_size) return QMKVD_ERR_BUFFER;
    if (header_stripped(s)) {
        uint32_t n = 0;
        for (uint32_t i = 0; i < frames; ++i) {
            uint32_t written = 0;
            const int32_t r = copy_frame(s, buf + n, s->lace_sizes[i], &written);
            if (r != 0) return r;
            n += written;
        }
        *size = n;
        return 0;
    }
    if (!read_exact(s, buf, s->payload_size)) return held ? QMKVD_ERR_IO : QMKVD_ERR_READ;
    *size = s->payload_size;
    return 0;
}

}  // namespace

int32_t qmkvds_get_frm_default(qmkvds *s, uint8_t *buf, uint32_t buf_size, uint32_t *size, int64_t *pts,
                               int64_t *end, uint32_t *key) {
    if (key != nullptr) *key = 0;
    for (int32_t attempt = 0;; ++attempt) {
        const bool held = s->peeked != 0;
        if (held) {
            if (key != nullptr) *key = (s->block.flags & 0x80) ? 1 : 0;
        } else {
            const int32_t r = read_new_block(s, key);
            if (r != 0) return r;
        }
        if (s->other_track) {
            // A subtitle gap: an empty sample just before the other block,
            // held over a size query like any frame.
            *size = 0;
            set_times(qmkvd_wrap_sub(s->block_pts, kGapSampleLead), qmkvd_wrap_sub(s->block_end, kGapSampleLead), pts,
                      end);
            if (key != nullptr) *key = 0;
            s->peeked = buf == nullptr;
            s->peeked_size = 0;
            return 0;
        }
        set_times(s->block_pts, s->block_end, pts, end);

        bool is_key = true;
        if (buf == nullptr) {
            s->peeked_size = s->payload_size;
            s->peeked = 1;
            uint32_t needed = s->payload_size;
            if (s->nal_length_size >= 1 && s->lace_last < 1) {
                const int32_t r = rewrite_nal(s, nullptr, s->payload_size, 0, &needed);
                if (r != 0) return r;
            } else if (s->nal_length_size >= 1) {
                return QMKVD_ERR_IMPOSSIBLE;
            } else if (header_stripped(s)) {
                needed += ((uint32_t)s->lace_last + 1) * s->comp_settings_size;
            }
            *size = needed;
            const int32_t r = passes_key_test(s, nullptr, needed, &is_key);
            if (r != 0) return r;
        } else {
            *size = 0;
            const int32_t r = write_block(s, buf, buf_size, size, held);
            if (r == QMKVD_ERR_BUFFER) {
                // Kept, so that a caller with a larger buffer gets this block.
                s->mfal->setpos(s->file, &s->payload_pos);
                s->peeked_size = s->payload_size;
                s->peeked = 1;
                return r;
            }
            s->peeked_size = 0;
            s->peeked = 0;
            if (r != 0) return r;
            passes_key_test(s, buf, *size, &is_key);
        }
        if (is_key) {
            if (s->stream_type == QMKVD_TRACK_VIDEO) s->after_seek = 0;
            return 0;
        }
        // Not a key frame yet after a seek: drop it and read on.
        s->peeked_size = 0;
        s->peeked = 0;
        *size = 0;
        if (attempt + 1 >= kKeyFrameAttempts) {
            __android_log_print(ANDROID_LOG_ERROR, kTag, "Cannot find keyframe after seeking %d", kKeyFrameAttempts + 1);
            return QMKVD_ERR_NOT_OPEN;
        }
    }
}
