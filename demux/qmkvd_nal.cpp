// Length-prefixed NAL units to start-code form, streamed from the file into
// the caller's buffer: one read per length field and one per payload, and
// the measuring pass skips payloads instead of reading them.
#include "demux/qmkvd_nal.h"

#include <stddef.h>
#include <string.h>

namespace {

const uint8_t kStartCode[4] = {0, 0, 0, 1};

// Where the frame ends in the file; a negative size counts as empty so that
// the file is never moved back before the frame.
int64_t frame_end(int64_t start, int32_t in_size) { return start + (in_size > 0 ? in_size : 0); }

// Leaves the file at `target`; a position that cannot be read is set anyway.
bool move_to(QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, int64_t target) {
    int64_t pos = -1;
    if (mfal->getpos(fp, &pos) == 0 && pos == target) return true;
    return mfal->setpos(fp, &target) == 0;
}

enum class Step { kDone, kMalformed, kTooSmall };

// The rewriting loop. `prefix` supplies the first `prefix_size` bytes of the
// first length field (header stripping); `written` is the output length.
Step rewrite(QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, uint8_t *out, int32_t in_size, int32_t out_cap,
             uint32_t nal_length_size, uint32_t prefix_size, const uint8_t *prefix, int64_t *written) {
    // Other sizes cannot come from a valid CodecPrivate; 0 would never
    // advance through the frame.
    if (nal_length_size < 1 || nal_length_size > 4) return Step::kMalformed;
    if (prefix_size > 0 && (prefix == nullptr || prefix_size >= nal_length_size)) return Step::kMalformed;

    const bool bounded = out_cap >= 1;
    // A result past this cannot be described to the caller.
    const int64_t limit = bounded ? out_cap : INT32_MAX;
    int64_t remaining = (int64_t)in_size + prefix_size;
    int64_t done = 0;
    uint32_t from_prefix = prefix_size;

    while (remaining > 0) {
        // The start code goes out before the unit is known to fit. When it
        // would itself cross the bound, the unit cannot fit either and the
        // bound test below ends the frame, so it is simply not written.
        if (out != nullptr && (!bounded || done + 4 <= limit)) {
            for (int k = 0; k < 4; ++k) out[k] = kStartCode[k];
            out += 4;
        }

        uint8_t field[4] = {0, 0, 0, 0};
        for (uint32_t k = 0; k < from_prefix; ++k) field[k] = prefix[k];
        const int32_t want = (int32_t)(nal_length_size - from_prefix);
        if (mfal->read(fp, field + from_prefix, want) != want) return Step::kMalformed;
        from_prefix = 0;
        remaining -= nal_length_size;
        if (remaining < 1) return Step::kMalformed;

        uint32_t length = 0;
        for (uint32_t k = 0; k < nal_length_size; ++k) length = length << 8 | field[k];
        // A unit announced longer than the frame is cut at the frame's end.
        const int64_t n = (int64_t)length < remaining ? (int64_t)length : remaining;

        if (done + 4 + n > limit) return Step::kTooSmall;

        // An empty unit needs neither a read nor a skip; the descriptor's
        // skip refuses a distance of 0, and measuring must agree with writing.
        if (n > 0) {
            if (out != nullptr) {
                if (mfal->read(fp, out, (int32_t)n) != (int32_t)n) return Step::kMalformed;
                out += n;
            } else if (mfal->skip(fp, &n) != 0) {
                return Step::kMalformed;
            }
        }
        remaining -= n;
        done += 4 + n;
    }
    *written = done;
    return Step::kDone;
}

int32_t modify(QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, uint8_t *out, int32_t in_size, int32_t out_cap,
               uint32_t nal_length_size, uint32_t *out_size, uint32_t prefix_size, const uint8_t *prefix) {
    if (out_size != nullptr) *out_size = 0;
    if (mfal == nullptr || fp == nullptr || mfal->read == nullptr || mfal->getpos == nullptr ||
        mfal->setpos == nullptr || mfal->skip == nullptr)
        return -1;

    int64_t start = 0;
    if (mfal->getpos(fp, &start) != 0) return -1;
    const int64_t end = frame_end(start, in_size);

    int64_t written = 0;
    const Step step = in_size < 1 ? Step::kDone
                                  : rewrite(mfal, fp, out, in_size, out_cap, nal_length_size, prefix_size,
                                            prefix, &written);
    switch (step) {
    case Step::kDone:
        if (out_size != nullptr) *out_size = (uint32_t)written;
        if (out == nullptr) {
            // Measuring: the real read of the same frame follows.
            if (mfal->setpos(fp, &start) != 0) return -1;
            return 0;
        }
        return move_to(mfal, fp, end) ? 0 : -1;
    case Step::kMalformed:
        // Delivered as an empty frame; the stream stays in step.
        return move_to(mfal, fp, end) ? 0 : -1;
    case Step::kTooSmall:
        return move_to(mfal, fp, end) ? -8 : -1;
    }
    return -1;
}

}  // namespace

int32_t modify_nal_header2(QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, uint8_t *out, int32_t in_size, int32_t out_cap,
                           uint32_t nal_length_size, uint32_t *out_size) {
    return modify(mfal, fp, out, in_size, out_cap, nal_length_size, out_size, 0, nullptr);
}

int32_t modify_nal_header3(QCMN_MFAL *mfal, QCMN_MFAL_FP *fp, uint8_t *out, int32_t in_size, int32_t out_cap,
                           uint32_t nal_length_size, uint32_t *out_size, uint32_t prefix_size,
                           const uint8_t *prefix) {
    return modify(mfal, fp, out, in_size, out_cap, nal_length_size, out_size, prefix_size, prefix);
}

uint32_t qmkvd_nal_rewrite_in_place(uint8_t *frame, uint32_t size) {
    // One pass: a malformed frame is delivered empty, so the fields already
    // turned into start codes by then do not matter.
    return qmkvd_nal_measure(size, [frame](uint64_t offset, uint32_t *length) {
        *length = qmkvd_nal_length4(frame + offset);
        memcpy(frame + offset, kStartCode, sizeof(kStartCode));
        return true;
    });
}
