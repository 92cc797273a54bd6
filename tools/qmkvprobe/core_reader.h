// Reading every frame of every track through the demuxer core.
#ifndef QMKVPROBE_CORE_READER_H_
#define QMKVPROBE_CORE_READER_H_

#include <stdint.h>

#include <functional>

#include "demux/qmkvd_types.h"

namespace qmkvprobe {

struct CoreFrame {
    int track;
    int64_t pts;  // 100 ns
    int64_t end;
    uint32_t key;
    const uint8_t *data;
    uint32_t size;
};

// Reads track `index` to its end, calling `onFrame` per frame. Returns 1 at
// the end of the stream, or the negative code that stopped it.
int32_t readCoreTrack(qmkvd *inst, int index, const std::function<void(const CoreFrame &)> &onFrame);

// Asks the core every per-track question the plug-in asks when it opens a
// file: codec configuration (size, then bytes) and the parameter record.
void queryAllInfo(qmkvd *inst, const qmkvd_format &format);

}  // namespace qmkvprobe

#endif  // QMKVPROBE_CORE_READER_H_
