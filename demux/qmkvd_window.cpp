#include "demux/qmkvd_window.h"

#include <pthread.h>
#include <stdint.h>
#include <string.h>

#include "demux/qmkvd_ebml.h"

namespace {

// The first fill after a jump holds a block header and what usually
// follows it up to the next large frame (the small blocks of other tracks
// between two video frames); fills that continue the previous one double,
// up to the capacity, so runs of small frames cost few reads.
const uint32_t kFirstFill = 4096;
// Reads at least this large that the window does not hold go straight to
// the caller's buffer: through the window every byte would move twice,
// which soon costs more than a read of the file.
const uint32_t kDirectRead = 256;

bool holds(const qmkvd_window *w, int64_t pos, uint32_t n) {
    return pos >= w->start && (uint64_t)(pos - w->start) + n <= w->len;
}

// Whether the window holds the file up to its end: a fill could add nothing,
// so a header read near the end takes what is there without reading again.
bool reaches_end(const qmkvd_window *w) {
    return w->file != nullptr && w->file->file_size > 0 && w->start + (int64_t)w->len == w->file->file_size;
}

// Bytes of the file that `w`'s fill can take instead of reading them: the
// other streams' windows and the file's recent small reads. The one that
// holds the byte at `pos`; otherwise null, with *next set to where the first
// one that starts after `pos` starts (INT64_MAX when none). Called under the
// file's window lock.
const qmkvd_window *held_elsewhere(const qmkvd_window *w, int64_t pos, int64_t *next) {
    *next = INT64_MAX;
    const qmkvd *file = w->file;
    const int32_t windows = file->stream_count;
    for (int32_t i = 0; i < windows + QMKVD_RECENT_READS; ++i) {
        const qmkvd_window *o = i < windows ? &file->streams[i].window : &file->recent[i - windows];
        if (o == w || o->bytes == nullptr || o->len == 0) continue;
        if (holds(o, pos, 1)) return o;
        if (o->start > pos && o->start < *next) *next = o->start;
    }
    return nullptr;
}

// Keeps a copy of a small read of the data source for the other streams.
void remember(qmkvd *file, int64_t pos, const uint8_t *bytes, uint32_t n) {
    if (n > QMKVD_RECENT_READ_SIZE) return;
    const uint32_t slot = file->recent_next++ % QMKVD_RECENT_READS;
    qmkvd_window *r = &file->recent[slot];
    r->bytes = file->recent_bytes[slot];
    r->cap = QMKVD_RECENT_READ_SIZE;
    r->start = pos;
    r->len = n;
    memcpy(r->bytes, bytes, n);
}

// Puts the file's bytes [pos, pos + size) into `out`: what is held
// elsewhere (above) is copied from there, the rest read from the data
// source, so that two streams reading the same stretch (each passing over
// the other's blocks) ask for its bytes about once. Returns the bytes put;
// fewer at the end of the file. Every pass copies or reads something or
// stops, and there are no more passes than places that hold bytes. `keep`:
// small reads are kept for the other streams (fills, not frames). Once
// `need` bytes are in, it stops before a read rather than make one. Called
// under the file's window lock when `w` has a file.
uint32_t take(qmkvd_window *w, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, int64_t pos, uint8_t *out, uint32_t size,
              bool keep, uint32_t need) {
    // Nothing is asked for past the end of the file.
    const int64_t file_size = w->file != nullptr ? w->file->file_size : 0;
    if (file_size > 0 && file_size - pos < (int64_t)size) size = pos < file_size ? (uint32_t)(file_size - pos) : 0;
    uint32_t done = 0;
    while (done < size) {
        const int64_t at = pos + done;
        uint32_t n = size - done;
        int64_t next = INT64_MAX;
        const qmkvd_window *o = w->file != nullptr ? held_elsewhere(w, at, &next) : nullptr;
        if (o != nullptr) {
            const uint32_t held = o->len - (uint32_t)(at - o->start);
            if (held < n) n = held;
            memcpy(out + done, o->bytes + (at - o->start), n);
            done += n;
            continue;
        }
        if (done >= need) break;
        if (next - at < (int64_t)n) n = (uint32_t)(next - at);
        if (mfal->setpos(fp, &at) != 0) break;
        const int32_t got = mfal->read(fp, out + done, (int32_t)n);
        if (got <= 0) break;
        if (keep && w->file != nullptr) remember(w->file, at, out + done, (uint32_t)got);
        done += (uint32_t)got;
        if ((uint32_t)got < n) break;
    }
    return done;
}

void lock(const qmkvd_window *w) {
    if (w->file != nullptr) pthread_mutex_lock(&w->file->window_lock);
}

void unlock(const qmkvd_window *w) {
    if (w->file != nullptr) pthread_mutex_unlock(&w->file->window_lock);
}

// Refills the window from `pos` with at least `want` bytes (capacity
// allowing). False when nothing could be had.
bool fill(qmkvd_window *w, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, int64_t pos, uint32_t want) {
    // A fill less than a window's length past the end of the last one
    // continues a run forward through the file (passing over blocks of
    // other tracks on the way).
    const bool continues = w->len > 0 && pos >= w->start && pos - w->start <= 2 * (int64_t)w->len;
    w->next_fill = continues ? (w->next_fill < w->cap / 2 ? w->next_fill * 2 : w->cap) : kFirstFill;
    if (w->next_fill > w->cap) w->next_fill = w->cap;
    uint32_t size = want > w->next_fill ? want : w->next_fill;
    if (size > w->cap) size = w->cap;
    lock(w);
    w->len = 0;
    w->start = pos;
    w->len = size > 0 ? take(w, mfal, fp, pos, w->bytes, size, true, size) : 0;
    unlock(w);
    return w->len > 0;
}

}  // namespace

void qmkvd_window_init(qmkvd_window *w, uint8_t *bytes, uint32_t cap) {
    w->start = 0;
    w->len = 0;
    w->cap = bytes != nullptr ? cap : 0;
    w->next_fill = kFirstFill;
    w->bytes = bytes;
    w->file = nullptr;
}

void qmkvd_window_join(qmkvd_window *w, qmkvd *file, uint8_t *bytes, uint32_t cap) {
    pthread_mutex_lock(&file->window_lock);
    qmkvd_window_init(w, bytes, cap);
    w->file = file;
    pthread_mutex_unlock(&file->window_lock);
}

uint8_t *qmkvd_window_leave(qmkvd_window *w) {
    qmkvd *file = w->file;
    if (file != nullptr) pthread_mutex_lock(&file->window_lock);
    uint8_t *bytes = w->bytes;
    qmkvd_window_init(w, nullptr, 0);
    if (file != nullptr) pthread_mutex_unlock(&file->window_lock);
    return bytes;
}

const uint8_t *qmkvd_window_at(qmkvd_window *w, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, int64_t pos, uint32_t want,
                               uint32_t *avail) {
    *avail = 0;
    if (pos < 0) return nullptr;
    if (!holds(w, pos, want) && !(holds(w, pos, 1) && reaches_end(w)) && !fill(w, mfal, fp, pos, want))
        return nullptr;
    if (!holds(w, pos, 1)) return nullptr;
    *avail = w->len - (uint32_t)(pos - w->start);
    return w->bytes + (pos - w->start);
}

uint32_t qmkvd_window_copy(qmkvd_window *w, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, int64_t pos, uint8_t *out,
                           uint32_t n) {
    if (n == 0 || pos < 0) return 0;
    uint32_t done = 0;
    if (!holds(w, pos, n) && n - (holds(w, pos, 1) ? w->len - (uint32_t)(pos - w->start) : 0) < kDirectRead &&
        n <= w->cap) {
        fill(w, mfal, fp, pos, n);
    }
    if (holds(w, pos, 1)) {
        const uint32_t held = w->len - (uint32_t)(pos - w->start);
        done = held < n ? held : n;
        memcpy(out, w->bytes + (pos - w->start), done);
    }
    int64_t at = pos + done;
    if (done < n) {
        // The rest straight into the caller's buffer: what other streams'
        // windows hold copied from there, the rest in one read of the file.
        lock(w);
        done += take(w, mfal, fp, at, out + done, n - done, false, n - done);
        unlock(w);
        at = pos + done;
    }
    mfal->setpos(fp, &at);
    return done;
}

uint32_t qmkvd_window_take(qmkvd_window *w, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, int64_t pos, uint8_t *out,
                           uint32_t size, uint32_t need, bool keep) {
    if (pos < 0) return 0;
    lock(w);
    const uint32_t got = take(w, mfal, fp, pos, out, size, keep, need);
    unlock(w);
    return got;
}

int32_t qmkvd_cursor_size(qmkvd_cursor *c, int32_t max_bytes, uint64_t *size, uint32_t *length) {
    uint8_t lead;
    if (!qmkvd_cursor_byte(c, &lead) || lead == 0) return -1;
    const int32_t extra = qmkvd_get_clz(lead);
    if (length != nullptr) *length = (uint32_t)extra + 1;
    if (extra + 1 > max_bytes) return -1;
    uint64_t v = lead & (0x7F >> extra);
    for (int32_t i = 0; i < extra; ++i) {
        uint8_t b;
        if (!qmkvd_cursor_byte(c, &b)) return -1;
        v = v << 8 | b;
    }
    *size = v;
    return 0;
}
