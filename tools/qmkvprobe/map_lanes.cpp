#include "map_lanes.h"

#include <math.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "map_scale.h"

namespace qmkvprobe {

namespace {

// A track's frames that start in one pixel column.
struct Column {
    uint32_t maxSize = 0;
    int extent = -1;  // the last column their durations reach
    bool used = false;
    bool key = false;
    bool other = false;
    bool laced = false;
};

std::vector<Column> columnsOf(const MapTrack &track, const TimeAxis &axis) {
    std::vector<Column> cols((size_t)axis.columns);
    for (const MapFrame &f : track.frames) {
        const int c = axis.column(f.pts);
        Column &col = cols[(size_t)c];
        col.used = true;
        col.maxSize = std::max(col.maxSize, f.size);
        col.key |= f.key != 0;
        col.other |= f.key == 0;
        col.laced |= f.laced != 0;
        const double reach = ceil(axis.x(f.end) - axis.left) - 1;
        col.extent = std::max(col.extent, reach >= axis.columns ? axis.columns - 1 : std::max(c, (int)reach));
    }
    return cols;
}

// No frame for this much longer than the track's usual spacing is a gap.
const int kGapFactor = 4;
const int64_t kMinGap = 1000000;  // 100 ms

// Stretches of [axis.t0, end] no frame of the track covers, when they are
// long for the track.
std::vector<std::pair<int64_t, int64_t>> findGaps(const MapTrack &track, const TimeAxis &axis, int64_t end) {
    std::vector<std::pair<int64_t, int64_t>> spans;
    for (const MapFrame &f : track.frames) spans.push_back({f.pts, f.end});
    std::sort(spans.begin(), spans.end());
    std::vector<int64_t> steps;
    for (size_t i = 1; i < spans.size(); ++i)
        if (spans[i].first > spans[i - 1].first) steps.push_back(spans[i].first - spans[i - 1].first);
    int64_t usual = 0;
    if (!steps.empty()) {
        std::nth_element(steps.begin(), steps.begin() + steps.size() / 2, steps.end());
        usual = steps[steps.size() / 2];
    }
    const int64_t threshold = std::max(kMinGap, usual > INT64_MAX / kGapFactor ? INT64_MAX : usual * kGapFactor);
    std::vector<std::pair<int64_t, int64_t>> gaps;
    int64_t covered = axis.t0;
    for (const auto &s : spans) {
        if ((double)s.first - (double)covered > (double)threshold) gaps.push_back({covered, s.first});
        covered = std::max(covered, std::max(s.first, s.second));
    }
    if (!spans.empty() && (double)end - (double)covered > (double)threshold) gaps.push_back({covered, end});
    return gaps;
}

void drawGaps(cairo_t *cr, const MapTrack &track, const TimeAxis &axis, int64_t end, double top, double height) {
    for (const auto &g : findGaps(track, axis, end)) {
        const double x0 = axis.x(g.first);
        const double w = std::max(2.0, axis.x(g.second) - x0);
        setColour(cr, kGap, 0.16);
        cairo_rectangle(cr, x0, top, w, height);
        cairo_fill(cr);
        setColour(cr, kGap);
        cairo_rectangle(cr, x0, top + height / 2 - 1, w, 2);
        cairo_fill(cr);
        const std::string label = "gap " + durationText(g.second - g.first);
        if (textWidth(cr, label, 10) + 8 < w)
            drawText(cr, x0 + w / 2, top + height / 2 - 4, label, 10, false, Align::kCentre, kGap);
    }
}

}  // namespace

void drawLane(cairo_t *cr, const MapTrack &track, int index, const TimeAxis &axis, int64_t end, double top,
              double height) {
    setColour(cr, {0.965, 0.965, 0.965});
    cairo_rectangle(cr, axis.left, top, axis.columns, height);
    cairo_fill(cr);
    const std::vector<Column> cols = columnsOf(track, axis);
    uint32_t largest = 1;
    for (const Column &c : cols) largest = std::max(largest, c.maxSize);
    const bool mixed = track.keyCount > 0 && track.keyCount < track.frameCount;
    const double keyRow = 5, lacedRow = 5;
    const double barBottom = top + height - lacedRow - 1;
    const double barSpace = height - keyRow - lacedRow - 3;

    // Each column's bar reaches as far as its frames last, short of the next
    // column that has frames (one pixel short, to keep frames apart).
    std::vector<int> ends(cols.size());
    int next = axis.columns;
    for (int c = axis.columns - 1; c >= 0; --c) {
        if (!cols[(size_t)c].used) continue;
        int end = std::min(cols[(size_t)c].extent + 1, next);
        if (end == next && end - c >= 3) end--;
        ends[(size_t)c] = std::max(end, c + 1);
        next = c;
    }
    // Dark bars, pale bars, key ticks, laced strip: one path each.
    const Rgb colour = trackColour(index);
    const Rgb fills[4] = {colour, pale(colour), colour, kLaced};
    for (int layer = 0; layer < 4; ++layer) {
        for (size_t c = 0; c < cols.size(); ++c) {
            const Column &col = cols[c];
            if (!col.used) continue;
            const double x = axis.left + (double)c;
            const double w = ends[c] - (double)c;
            if (layer < 2 && col.key == (layer == 0)) {
                const double h = std::max(2.0, barSpace * col.maxSize / largest);
                cairo_rectangle(cr, x, barBottom - h, w, h);
            } else if (layer == 2 && mixed && col.key) {
                cairo_rectangle(cr, x, top + 1, w, keyRow);
            } else if (layer == 3 && col.laced) {
                cairo_rectangle(cr, x, top + height - lacedRow, w, lacedRow);
            }
        }
        setColour(cr, fills[layer]);
        cairo_fill(cr);
    }
    if (track.type == QMKVD_TRACK_VIDEO || track.type == QMKVD_TRACK_AUDIO) drawGaps(cr, track, axis, end, top, height);
}

void drawClusterRow(cairo_t *cr, const FileMap &map, const TimeAxis &axis, double top, double height) {
    std::vector<bool> marked((size_t)axis.columns);
    for (const MapCluster &c : map.clusters) marked[(size_t)axis.column(c.time)] = true;
    for (int c = 0; c < axis.columns; ++c)
        if (marked[(size_t)c]) cairo_rectangle(cr, axis.left + c, top, 1, height);
    setColour(cr, kInk);
    cairo_fill(cr);
}

void drawCueRow(cairo_t *cr, const FileMap &map, const TimeAxis &axis, double top, double height) {
    // Slot 0 for cues of a track the file does not have, then one per track.
    const size_t slots = map.tracks.size() + 1;
    std::vector<bool> marked((size_t)axis.columns * slots);
    for (const MapCue &q : map.cues) marked[(size_t)axis.column(q.time) * slots + (size_t)(q.track + 1)] = true;
    std::vector<int> shares((size_t)axis.columns), drawn((size_t)axis.columns);
    for (size_t c = 0; c < shares.size(); ++c)
        for (size_t s = 0; s < slots; ++s) shares[c] += marked[c * slots + s];
    for (size_t s = 0; s < slots; ++s) {
        for (int c = 0; c < axis.columns; ++c) {
            if (!marked[(size_t)c * slots + s]) continue;
            const double h = height / shares[(size_t)c];
            // Two pixels wide, so that a lone cue is seen.
            cairo_rectangle(cr, axis.left + std::min(c, axis.columns - 2), top + h * drawn[(size_t)c]++, 2, h);
        }
        setColour(cr, s == 0 ? kGrey : trackColour((int)s - 1));
        cairo_fill(cr);
    }
}

}  // namespace qmkvprobe
