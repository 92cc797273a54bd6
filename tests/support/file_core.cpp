#include "tests/support/file_core.h"

#include <algorithm>

#include "demux/qmkvds.h"

namespace qmkv_test {

namespace {

// Reads `s` on to its end; the code that ended it goes to `last`.
std::vector<CoreFrame> readOn(qmkvds *s, bool sizeFirst, int32_t *last) {
    std::vector<CoreFrame> frames;
    std::vector<uint8_t> buf(sizeFirst ? 0 : 1 << 20);
    int32_t r = 0;
    for (int n = 0; n < 200000; ++n) {
        CoreFrame f;
        uint32_t size = 0;
        if (sizeFirst) {
            r = qmkvds_get_frm(s, nullptr, 0, &size, &f.pts, &f.end, &f.key);
            if (r != 0) break;
            buf.resize(size + 1);
        }
        r = qmkvds_get_frm(s, buf.data(), (uint32_t)buf.size(), &size, &f.pts, &f.end, &f.key);
        if (r != 0) break;
        f.blockEnd = s->block.data_pos + (int64_t)s->block.data_size;
        int64_t clusterPos = 0, clusterTime = 0;
        qmkvds_get_block_pos(s, &f.blockPos, &f.laces, &clusterPos, &clusterTime);
        f.data.assign(buf.begin(), buf.begin() + size);
        frames.push_back(std::move(f));
    }
    if (last != nullptr) *last = r;
    return frames;
}

}  // namespace

std::vector<CoreFrame> readCoreFrames(qmkvd *inst, int index, int32_t *last, bool sizeFirst) {
    int32_t r = -3;
    qmkvds *s = qmkvds_open(inst, index, &r);
    if (s == nullptr) {
        if (last != nullptr) *last = r;
        return {};
    }
    std::vector<CoreFrame> frames = readOn(s, sizeFirst, last);
    qmkvds_close(s);
    return frames;
}

CoreSeek seekCoreFrames(qmkvd *inst, int index, uint64_t time, int32_t mode) {
    CoreSeek out;
    qmkvds *s = qmkvds_open(inst, index, nullptr);
    if (s == nullptr) return out;
    out.result = qmkvds_seek(s, &time, &out.found, mode);
    if (out.result == 0) out.frames = readOn(s, false, nullptr);
    qmkvds_close(s);
    return out;
}

std::vector<uint8_t> toStartCodes(const std::vector<uint8_t> &in, uint32_t nalLengthSize) {
    std::vector<uint8_t> out;
    size_t i = 0;
    while (i + nalLengthSize <= in.size()) {
        uint32_t len = 0;
        for (uint32_t k = 0; k < nalLengthSize; ++k) len = (len << 8) | in[i + k];
        i += nalLengthSize;
        const size_t n = std::min<size_t>(len, in.size() - i);
        out.insert(out.end(), {0, 0, 0, 1});
        out.insert(out.end(), in.begin() + (long)i, in.begin() + (long)(i + n));
        i += n;
    }
    return out;
}

}  // namespace qmkv_test
