// What the picture of a file shows: every frame of every track with its
// time, size, key flag, lacing and file position; the Clusters; the cues.
#ifndef QMKVPROBE_MAP_DATA_H_
#define QMKVPROBE_MAP_DATA_H_

#include <stdint.h>

#include <string>
#include <vector>

#include "demux/qmkvd_types.h"

namespace qmkvprobe {

struct MapFrame {
    int64_t pts;  // 100 ns
    int64_t end;
    int64_t pos;  // file position of its block
    uint32_t size;
    uint8_t key;
    uint8_t laced;  // its block holds several frames
};

struct MapTrack {
    int type;           // QMKVD_TRACK_*, 0 for others
    std::string codec;  // CodecID
    std::string detail;  // picture size or sampling
    std::vector<MapFrame> frames;
    uint64_t frameCount = 0;  // read, kept or not
    uint64_t keyCount = 0;
    uint64_t lacedBlocks = 0;
    int32_t endCode = 1;  // 1 at the end of the stream, else the error that stopped it
};

struct MapCluster {
    int64_t pos;   // data position
    int64_t time;  // 100 ns
};

struct MapCue {
    int64_t time;  // 100 ns
    int track;     // index, -1 for a track the file does not have
};

struct FileMap {
    std::string name;
    int64_t fileSize = 0;
    int64_t duration = 0;  // 100 ns, as the file declares it
    int64_t cuesPos = -1;  // where the Cues element lies, -1 without one
    std::vector<MapTrack> tracks;
    std::vector<MapCluster> clusters;  // in file order, each once
    std::vector<MapCue> cues;
    bool cut = false;  // frames beyond the keeping limit were counted, not kept
};

// Reads every frame of every track of an open instance through the core.
FileMap collectMap(qmkvd *inst, const qmkvd_format &format, const std::string &name);

}  // namespace qmkvprobe

#endif  // QMKVPROBE_MAP_DATA_H_
