// Reading every frame of every track through the demuxer core.
#ifndef QMKVPROBE_CORE_READER_H_
#define QMKVPROBE_CORE_READER_H_

#include <stdint.h>

#include <functional>
#include <vector>

#include "demux/qmkvd_types.h"

namespace qmkvprobe {

struct CoreFrame {
    int track;
    int64_t pts;  // 100 ns
    int64_t end;
    uint32_t key;
    const uint8_t *data;
    uint32_t size;
    qmkvds *stream = nullptr;  // the handle it came from, for questions about it
};

struct CoreSeek {
    bool enabled = false;
    uint64_t time = 0;  // 100 ns
    int32_t mode = 0;
};

// The stream's next frame: its size first, then the frame into `buf`, grown
// to fit. Returns the core's code (0 for a frame).
int32_t readCoreFrame(qmkvds *s, std::vector<uint8_t> &buf, CoreFrame *f);

// Reads track `index` to its end (after the seek, when one is asked for),
// calling `onFrame` per frame. Returns 1 at the end of the stream, or the
// negative code that stopped it.
int32_t readCoreTrack(qmkvd *inst, int index, const CoreSeek &seek,
                      const std::function<void(const CoreFrame &)> &onFrame);

// Seeks track `index` to each time of `times_us` in turn and reads one frame
// after each. Returns the number of seeks that gave no frame or an error.
int64_t seekAndReadCore(qmkvd *inst, int index, const std::vector<int64_t> &timesUs, int32_t mode);

// Asks the core every per-track question the plug-in asks when it opens a
// file: codec configuration (size, then bytes) and the parameter record.
void queryAllInfo(qmkvd *inst, const qmkvd_format &format);

}  // namespace qmkvprobe

#endif  // QMKVPROBE_CORE_READER_H_
