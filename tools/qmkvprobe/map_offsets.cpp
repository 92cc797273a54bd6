#include "map_offsets.h"

#include <algorithm>
#include <vector>

#include "map_scale.h"

namespace qmkvprobe {

namespace {

const int kMostByteTicks = 6;

int64_t largestOffset(const FileMap &map) {
    int64_t most = std::max<int64_t>(map.fileSize, map.cuesPos);
    for (const MapTrack &t : map.tracks)
        for (const MapFrame &f : t.frames) most = std::max(most, f.pos);
    return std::max<int64_t>(most, 1);
}

}  // namespace

void drawOffsets(cairo_t *cr, const FileMap &map, const TimeAxis &axis, double top, double height) {
    const int64_t most = largestOffset(map);
    const int rows = std::max(1, (int)height);
    auto rowOf = [&](int64_t pos) {
        const double r = (1.0 - (double)std::max<int64_t>(pos, 0) / (double)most) * (rows - 1);
        return std::min(rows - 1, std::max(0, (int)r));
    };

    setColour(cr, {1, 1, 1});
    cairo_rectangle(cr, axis.left, top, axis.columns, height);
    cairo_fill(cr);
    const int64_t step = byteStep(most, kMostByteTicks);
    for (int64_t b = 0; b <= most; b += step) {
        const double y = top + rowOf(b) + 0.5;
        setColour(cr, kRule);
        cairo_move_to(cr, axis.left, y);
        cairo_line_to(cr, axis.left + axis.columns, y);
        cairo_set_line_width(cr, 1);
        cairo_stroke(cr);
        drawText(cr, axis.left - 6, y + 4, byteLabel(b, step), 10, false, Align::kRight, kGrey);
        if (b > most - step) break;
    }

    if (map.cuesPos >= 0) {
        const double y = top + rowOf(map.cuesPos) + 0.5;
        const double dash[] = {4, 3};
        cairo_set_dash(cr, dash, 2, 0);
        setColour(cr, kInk);
        cairo_move_to(cr, axis.left, y);
        cairo_line_to(cr, axis.left + axis.columns, y);
        cairo_stroke(cr);
        cairo_set_dash(cr, nullptr, 0, 0);
        // Left of the byte labels, clear of the dots.
        drawText(cr, axis.left - 56, y + 4, "Cues element", 10, false, Align::kRight, kInk);
    }

    // One dot per occupied pixel and track; tracks with fewer frames on
    // top, so that a video track shows on the line of its audio.
    std::vector<size_t> order(map.tracks.size());
    for (size_t t = 0; t < order.size(); ++t) order[t] = t;
    std::stable_sort(order.begin(), order.end(), [&](size_t a, size_t b) {
        return map.tracks[a].frames.size() > map.tracks[b].frames.size();
    });
    std::vector<bool> seen((size_t)axis.columns * (size_t)rows);
    for (size_t t : order) {
        std::fill(seen.begin(), seen.end(), false);
        // Bigger dots where frames are few enough to stand apart.
        const int dot = map.tracks[t].frames.size() < (size_t)axis.columns ? 3 : 2;
        for (const MapFrame &f : map.tracks[t].frames) {
            const int c = axis.column(f.pts);
            const int r = rowOf(f.pos);
            const size_t at = (size_t)r * (size_t)axis.columns + (size_t)c;
            if (seen[at]) continue;
            seen[at] = true;
            cairo_rectangle(cr, axis.left + std::min(c, axis.columns - dot), top + std::min(r, rows - dot), dot, dot);
        }
        setColour(cr, trackColour((int)t));
        cairo_fill(cr);
    }

    setColour(cr, kGrey);
    cairo_rectangle(cr, axis.left + 0.5, top + 0.5, axis.columns - 1, height - 1);
    cairo_set_line_width(cr, 1);
    cairo_stroke(cr);
}

}  // namespace qmkvprobe
