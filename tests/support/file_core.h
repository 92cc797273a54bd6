// Frames as the core delivers them.
#ifndef QMKV_TEST_FILE_CORE_H_
#define QMKV_TEST_FILE_CORE_H_

#include <stdint.h>

#include <string>
#include <vector>

#include "demux/qmkvd.h"

namespace qmkv_test {

struct CoreFrame {
    int64_t pts = 0, end = 0;  // 100 ns
    uint32_t key = 0;
    int64_t blockEnd = 0;  // file offset just past the frame's block
    int64_t blockPos = -1;  // where its block's data starts in the file
    uint32_t laces = 0;     // frames in its block
    std::vector<uint8_t> data;
};

// Every frame of track `index`, each by a size query and then the read
// (or, without `sizeFirst`, read straight into a large buffer); at most
// 200000, so that a damaged file cannot keep a test busy. `last` gets the
// code that ended the stream.
std::vector<CoreFrame> readCoreFrames(qmkvd *inst, int index, int32_t *last = nullptr, bool sizeFirst = true);

// A fresh handle of track `index` sought to `time` (100 ns) by `mode`, then
// read straight on to the end (nothing is read when the seek fails).
struct CoreSeek {
    int32_t result = -99;  // the seek's, or -99 when the handle did not open
    int64_t found = -1;    // where it landed
    std::vector<CoreFrame> frames;
};
CoreSeek seekCoreFrames(qmkvd *inst, int index, uint64_t time, int32_t mode);

// A length-prefixed AVC/HEVC frame (as libavformat hands it over) in the
// start-code form the core delivers.
std::vector<uint8_t> toStartCodes(const std::vector<uint8_t> &in, uint32_t nalLengthSize);

}  // namespace qmkv_test

#endif  // QMKV_TEST_FILE_CORE_H_
