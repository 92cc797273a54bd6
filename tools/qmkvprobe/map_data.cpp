#include "map_data.h"

#include <algorithm>

#include "core_reader.h"
#include "demux/qmkvds.h"
#include "demux/qmkvd_time.h"

namespace qmkvprobe {

namespace {

// Frames kept for drawing, all tracks together (32 bytes each): some
// twenty hours of 60 fps video with 48 kHz audio. Later ones are counted.
const size_t kMaxKeptFrames = size_t(1) << 23;

// Times a damaged file may give are held to some fourteen years either way,
// so that the arithmetic of the picture never overflows.
const int64_t kTimeLimit = int64_t(1) << 52;  // 100 ns

int64_t sane(int64_t t) { return std::max(-kTimeLimit, std::min(kTimeLimit, t)); }

std::string trackDetail(const qmkvd_track &t) {
    if (t.track_type == QMKVD_TRACK_VIDEO)
        return std::to_string(t.video.pixel_width) + "x" + std::to_string(t.video.pixel_height);
    if (t.track_type == QMKVD_TRACK_AUDIO)
        return std::to_string(t.audio.sampling_frequency) + " Hz " + std::to_string(t.audio.channels) + " ch";
    return "";
}

int trackIndexOf(const qmkvd *inst, uint32_t number) {
    for (int i = 0; i < inst->stream_count; ++i)
        if (inst->streams[i].track.track_number == number) return i;
    return -1;
}

}  // namespace

FileMap collectMap(qmkvd *inst, const qmkvd_format &format, const std::string &name) {
    FileMap map;
    map.name = name;
    map.fileSize = inst->file_size;
    map.duration = sane(format.duration);
    if (inst->cues.cues_size > 0) map.cuesPos = inst->cues.cues_start;
    size_t kept = 0;
    for (int t = 0; t < format.track_count; ++t) {
        const qmkvd_track &entry = inst->streams[t].track;
        MapTrack track;
        track.type = format.track_type[t];
        track.codec = entry.codec_id;
        track.detail = trackDetail(entry);
        int64_t lastBlock = -1;
        int64_t lastCluster = -1;
        track.endCode = readCoreTrack(inst, t, CoreSeek(), [&](const CoreFrame &f) {
            MapFrame m{sane(f.pts), sane(std::max(f.pts, f.end)), 0, f.size, (uint8_t)(f.key != 0), 0};
            uint32_t laces = 1;
            int64_t clusterPos = 0, clusterTime = 0;
            if (qmkvds_get_block_pos(f.stream, &m.pos, &laces, &clusterPos, &clusterTime) == 0) {
                m.laced = laces > 1;
                if (m.laced && m.pos != lastBlock) track.lacedBlocks++;
                lastBlock = m.pos;
                if (clusterPos != lastCluster) map.clusters.push_back({clusterPos, sane(clusterTime)});
                lastCluster = clusterPos;
            }
            track.frameCount++;
            track.keyCount += m.key;
            if (kept < kMaxKeptFrames) {
                track.frames.push_back(m);
                kept++;
            } else {
                map.cut = true;
            }
        });
        map.tracks.push_back(std::move(track));
    }
    std::sort(map.clusters.begin(), map.clusters.end(),
              [](const MapCluster &a, const MapCluster &b) { return a.pos < b.pos; });
    map.clusters.erase(std::unique(map.clusters.begin(), map.clusters.end(),
                                   [](const MapCluster &a, const MapCluster &b) { return a.pos == b.pos; }),
                       map.clusters.end());
    const qmkvd_cue_table &cues = inst->cues;
    for (uint32_t i = 0; cues.cue_points != nullptr && i < cues.cue_count; ++i) {
        const qmkvd_cue_point &cp = cues.cue_points[i];
        map.cues.push_back({sane(qmkvd_ticks_to_100ns((int64_t)cp.cue_time, inst->info.timecode_scale)),
                            trackIndexOf(inst, cp.cue_track)});
    }
    return map;
}

}  // namespace qmkvprobe
