#include "demux/qmkvd_window_io.h"

#include <string.h>

#include "demux/qmkvd_window.h"

namespace {

qmkvd_window_io *io_of(QCMN_MFAL_FP *fp) { return reinterpret_cast<qmkvd_window_io *>(fp); }

int32_t io_read(QCMN_MFAL_FP *fp, void *buf, int32_t size) {
    if (size < 1) return 0;
    qmkvd_window_io *io = io_of(fp);
    const uint32_t got =
        qmkvd_window_copy(io->w, io->base, io->base_fp, io->pos, static_cast<uint8_t *>(buf), (uint32_t)size);
    io->pos += got;
    return (int32_t)got;
}

int32_t io_getpos(QCMN_MFAL_FP *fp, int64_t *pos) {
    *pos = io_of(fp)->pos;
    return 0;
}

int32_t io_setpos(QCMN_MFAL_FP *fp, const int64_t *pos) {
    io_of(fp)->pos = *pos;
    return 0;
}

// Forward only, as the file-access layer.
int32_t io_skip(QCMN_MFAL_FP *fp, const int64_t *distance) {
    if (*distance < 1) return -1;
    io_of(fp)->pos += *distance;
    return 0;
}

int32_t io_getsize(QCMN_MFAL_FP *fp, int64_t *size) {
    qmkvd_window_io *io = io_of(fp);
    return io->base->getsize(io->base_fp, size);
}

}  // namespace

void qmkvd_window_io_init_on(qmkvd_window_io *io, QCMN_MFAL *base, QCMN_MFAL_FP *base_fp, qmkvd_window *w) {
    memset(io, 0, sizeof(*io));
    io->mfal.read = io_read;
    io->mfal.getpos = io_getpos;
    io->mfal.setpos = io_setpos;
    io->mfal.skip = io_skip;
    io->mfal.getsize = io_getsize;
    io->w = w;
    io->base = base;
    io->base_fp = base_fp;
    base->getpos(base_fp, &io->pos);
}

void qmkvd_window_io_init(qmkvd_window_io *io, qmkvds *s, qmkvd_window *w) {
    qmkvd_window_io_init_on(io, s->mfal, s->file, w);
}
