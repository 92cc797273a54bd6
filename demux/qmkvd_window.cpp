#include "demux/qmkvd_window.h"

#include <string.h>

#include "demux/qmkvd_ebml.h"

namespace {

// The first fill after a jump is small: a stream that skips other tracks'
// blocks reads little beyond each header. Fills that continue the previous
// one double, up to the capacity, so runs of small frames cost few reads.
const uint32_t kFirstFill = 256;
// Reads at least this large that the window does not hold go straight to
// the caller's buffer: through the window every byte would move twice,
// which soon costs more than a read of the file.
const uint32_t kDirectRead = 256;

bool holds(const qmkvd_window *w, int64_t pos, uint32_t n) {
    return pos >= w->start && (uint64_t)(pos - w->start) + n <= w->len;
}

// Refills the window from `pos` with at least `want` bytes (capacity
// allowing). False when the read returned nothing.
bool fill(qmkvd_window *w, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, int64_t pos, uint32_t want) {
    const bool continues = w->len > 0 && pos >= w->start && pos <= w->start + (int64_t)w->len;
    w->next_fill = continues ? (w->next_fill < w->cap / 2 ? w->next_fill * 2 : w->cap) : kFirstFill;
    if (w->next_fill > w->cap) w->next_fill = w->cap;
    uint32_t size = want > w->next_fill ? want : w->next_fill;
    if (size > w->cap) size = w->cap;
    w->len = 0;
    w->start = pos;
    if (size == 0 || mfal->setpos(fp, &pos) != 0) return false;
    const int32_t got = mfal->read(fp, w->bytes, (int32_t)size);
    w->len = got > 0 ? (uint32_t)got : 0;
    return w->len > 0;
}

}  // namespace

void qmkvd_window_init(qmkvd_window *w, uint8_t *bytes, uint32_t cap) {
    w->start = 0;
    w->len = 0;
    w->cap = bytes != nullptr ? cap : 0;
    w->next_fill = kFirstFill;
    w->bytes = bytes;
}

const uint8_t *qmkvd_window_at(qmkvd_window *w, QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, int64_t pos, uint32_t want,
                               uint32_t *avail) {
    *avail = 0;
    if (pos < 0) return nullptr;
    if (!holds(w, pos, want) && !fill(w, mfal, fp, pos, want)) return nullptr;
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
        // The rest in one read of the file, straight into the caller's buffer.
        if (mfal->setpos(fp, &at) != 0) return done;
        const int32_t got = mfal->read(fp, out + done, (int32_t)(n - done));
        if (got > 0) done += (uint32_t)got;
        return done;
    }
    mfal->setpos(fp, &at);
    return done;
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
