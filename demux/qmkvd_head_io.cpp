#include "demux/qmkvd_head_io.h"

#include <stdlib.h>
#include <string.h>

#include "demux/qmkvd_ebml.h"
#include "demux/qmkvd_window.h"

namespace {

// Room for the head's elements and for a piece of the Cues' buffer.
const uint32_t kCapacity = 64 * 1024;
// Reads that go on where the last one ended start small and double: the
// head of most files is a few hundred bytes, and a file without Cues is
// walked Cluster by Cluster after it, so bytes read ahead are paid for.
const uint32_t kFirstRun = 256;
// A read at a new place shorter than an element header is a parser's first
// byte of an element it is about to decode (an element a SeekHead points
// at): its body is read with it.
const uint32_t kElementAhead = 512;
// Reads this large (a parser refilling a buffer of its own, as the Cues'
// decoder does) go straight to the caller's buffer: through the window
// every byte would be copied once more.
const uint32_t kDirectRead = 4096;

qmkvd_window_io *view_of(QCMN_MFAL_FP *fp) { return reinterpret_cast<qmkvd_window_io *>(fp); }

bool holds(const qmkvd_window *w, int64_t pos) { return pos >= w->start && pos - w->start < (int64_t)w->len; }

// How much a fill at `pos` asks for, `want` of it needed. Reads that go on
// from the window grow; a walk's look at a header elsewhere (a Cluster it
// passes over) reads just that; a parser starting on an element elsewhere
// reads ahead, and to the end of the file when that is near, where muxers
// put Cues, Tags and a last SeekHead.
uint32_t fill_size(qmkvd_window *w, int64_t file_size, int64_t pos, uint32_t want) {
    const bool goes_on = pos == w->start + (int64_t)w->len;
    uint32_t size = want;
    if (goes_on) {
        if (w->next_fill > size) size = w->next_fill;
        w->next_fill = w->next_fill < w->cap / 2 ? w->next_fill * 2 : w->cap;
    } else {
        w->next_fill = kFirstRun;
        if (want < QMKVD_MAX_HEADER) {
            const bool near_end = file_size > pos && file_size - pos <= (int64_t)w->cap;
            size = near_end ? (uint32_t)(file_size - pos) : kElementAhead;
        }
    }
    return size < w->cap ? size : w->cap;
}

int32_t head_read(QCMN_MFAL_FP *fp, void *buf, int32_t size) {
    if (size < 1) return 0;
    qmkvd_window_io *io = view_of(fp);
    qmkvd_window *w = io->w;
    uint8_t *out = static_cast<uint8_t *>(buf);
    uint32_t done = 0;
    while (done < (uint32_t)size) {
        const int64_t at = io->pos + done;
        const uint32_t want = (uint32_t)size - done;
        if (holds(w, at)) {
            const uint32_t held = w->len - (uint32_t)(at - w->start);
            const uint32_t n = held < want ? held : want;
            memcpy(out + done, w->bytes + (at - w->start), n);
            done += n;
            continue;
        }
        // Bytes read before (a walk coming back to an element it has
        // parsed) are copied without moving the window.
        if (want < kDirectRead && qmkvd_window_take(w, io->base, io->base_fp, at, out + done, want, 0, false) == want) {
            done += want;
            continue;
        }
        if (want >= kDirectRead || w->cap == 0) {
            const uint32_t got = qmkvd_window_take(w, io->base, io->base_fp, at, out + done, want, want, false);
            done += got;
            if (got < want) break;
            continue;
        }
        const uint32_t ask = fill_size(w, w->file->file_size, at, want);
        // A look at one header is not kept for the streams: it would only
        // split their later fills.
        const uint32_t got = qmkvd_window_take(w, io->base, io->base_fp, at, w->bytes, ask, want, ask > want);
        if (got == 0) break;
        w->start = at;
        w->len = got;
        if (got < want) {  // the file ends here: no second read to learn it
            memcpy(out + done, w->bytes, got);
            done += got;
            break;
        }
    }
    io->pos += done;
    return (int32_t)done;
}

}  // namespace

void qmkvd_head_io_open(qmkvd_head_io *h, qmkvd *inst, QCMN_MFAL_FP *fp) {
    uint8_t *bytes = static_cast<uint8_t *>(malloc(kCapacity));
    qmkvd_window_init(&h->w, bytes, kCapacity);
    h->w.file = inst;
    h->w.next_fill = kFirstRun;
    qmkvd_window_io_init_on(&h->view, &inst->mfal, fp, &h->w);
    h->view.mfal.read = head_read;
}

void qmkvd_head_io_close(qmkvd_head_io *h) {
    free(h->w.bytes);
    qmkvd_window_init(&h->w, nullptr, 0);
}
