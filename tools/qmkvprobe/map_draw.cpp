#include "map_draw.h"

#include <cairo-svg.h>
#include <cairo.h>
#include <fontconfig/fontconfig.h>

#include <algorithm>

#include "map_canvas.h"
#include "map_lanes.h"
#include "map_offsets.h"
#include "map_scale.h"

namespace qmkvprobe {

namespace {

// Layout, in pixels.
const int kWidth = 1400;
const int kLabels = 200;  // the column of row names on the left
const int kMargin = 20;
const int kTitle = 76;
const int kRuler = 26;
const int kRow = 14;  // Clusters, cues
const int kLane = 56;
const int kLaneGap = 6;
const int kOffsetsTitle = 26;
const int kOffsets = 240;
const int kLegend = 46;
const int kMostTimeTicks = 12;

struct Layout {
    TimeAxis axis;
    double clusters, cues, lanes, offsets, legend;
    int height;
};

Layout layOut(const FileMap &map) {
    Layout l;
    // Everything the picture marks in time fits on the axis.
    int64_t t0 = 0, t1 = map.duration;
    auto take = [&](int64_t from, int64_t to) {
        t0 = std::min(t0, from);
        t1 = std::max(t1, to);
    };
    for (const MapTrack &t : map.tracks)
        for (const MapFrame &f : t.frames) take(f.pts, f.end);
    for (const MapCluster &c : map.clusters) take(c.time, c.time);
    for (const MapCue &q : map.cues) take(q.time, q.time);
    if (t1 <= t0) t1 = t0 + 10000000;  // nothing timed: one second
    l.axis = {t0, t1, (double)kLabels, kWidth - kLabels - kMargin};
    l.clusters = kTitle + kRuler;
    l.cues = l.clusters + kRow + 4;
    l.lanes = l.cues + kRow + 8;
    l.offsets = l.lanes + (double)map.tracks.size() * (kLane + kLaneGap) + kOffsetsTitle;
    l.legend = l.offsets + kOffsets + 22;
    l.height = (int)l.legend + kLegend;
    return l;
}

std::string trackKind(int type) {
    switch (type) {
        case QMKVD_TRACK_VIDEO: return "video";
        case QMKVD_TRACK_AUDIO: return "audio";
        case QMKVD_TRACK_SUBTITLE: return "subtitles";
        default: return "other";
    }
}

std::string withDetail(const MapTrack &t) { return t.detail.empty() ? t.codec : t.codec + " " + t.detail; }

void drawTitle(cairo_t *cr, const FileMap &map) {
    const double width = kWidth - 2 * kMargin;
    drawText(cr, kMargin, 26, fitText(cr, map.name, 18, true, width), 18, true);
    uint64_t frames = 0;
    for (const MapTrack &t : map.tracks) frames += t.frameCount;
    std::string facts = "duration " + durationText(map.duration) + "   " + sizeText(map.fileSize) + "   " +
                        std::to_string(map.tracks.size()) + (map.tracks.size() == 1 ? " track   " : " tracks   ") +
                        std::to_string(frames) + " frames   " + std::to_string(map.clusters.size()) +
                        " Clusters   " + std::to_string(map.cues.size()) + " cue points";
    if (map.cut) facts += "   (too many frames: only the first ones drawn)";
    drawText(cr, kMargin, 48, fitText(cr, facts, 12, false, width), 12);
    std::string codecs;
    for (size_t i = 0; i < map.tracks.size(); ++i)
        codecs += (i ? "   " : "") + ("#" + std::to_string(i) + " " + trackKind(map.tracks[i].type) + " ") +
                  withDetail(map.tracks[i]);
    drawText(cr, kMargin, 66, fitText(cr, codecs, 12, false, width), 12, false, Align::kLeft, kGrey);
}

// Time ticks above the rows and below the offsets, with grid lines
// through everything between.
void drawTimeAxis(cairo_t *cr, const Layout &l) {
    const TimeAxis &a = l.axis;
    const int64_t step = timeStep(a.t1 - a.t0, kMostTimeTicks);
    const double top = l.clusters - 6, bottom = l.offsets + kOffsets;
    int64_t first = a.t0 / step * step;
    if (first < a.t0) first += step;
    cairo_set_line_width(cr, 1);
    for (int64_t t = first; t <= a.t1; t += step) {
        const double x = (int)a.x(t) + 0.5;
        setColour(cr, kRule);
        cairo_move_to(cr, x, top);
        cairo_line_to(cr, x, bottom);
        cairo_stroke(cr);
        setColour(cr, kGrey);
        cairo_move_to(cr, x, top - 5);
        cairo_line_to(cr, x, top);
        cairo_move_to(cr, x, bottom);
        cairo_line_to(cr, x, bottom + 5);
        cairo_stroke(cr);
        const std::string label = timeLabel(t, step);
        drawText(cr, x, top - 8, label, 10, false, Align::kCentre, kGrey);
        drawText(cr, x, bottom + 16, label, 10, false, Align::kCentre, kGrey);
        if (t > a.t1 - step) break;
    }
}

// Cluster starts as faint lines through the lanes, when they are few
// enough to tell apart.
void drawClusterLines(cairo_t *cr, const FileMap &map, const Layout &l) {
    if (map.clusters.size() * 8 > (size_t)l.axis.columns) return;
    for (const MapCluster &c : map.clusters) {
        const double x = l.axis.column(c.time) + l.axis.left + 0.5;
        cairo_move_to(cr, x, l.clusters);
        cairo_line_to(cr, x, l.offsets - kOffsetsTitle + 2);
    }
    const double dash[] = {2, 2};
    cairo_set_dash(cr, dash, 2, 0);
    setColour(cr, kGrey, 0.6);
    cairo_stroke(cr);
    cairo_set_dash(cr, nullptr, 0, 0);
}

void drawLaneLabel(cairo_t *cr, const MapTrack &t, int index, double top) {
    const double width = kLabels - kMargin - 8;
    drawText(cr, kMargin, top + 13, "#" + std::to_string(index) + " " + trackKind(t.type), 12, true, Align::kLeft,
             trackColour(index));
    drawText(cr, kMargin, top + 26, fitText(cr, withDetail(t), 10, false, width), 10);
    const std::string counts = std::to_string(t.frameCount) + " frames, " +
                               (t.keyCount == t.frameCount ? std::string("all key") : std::to_string(t.keyCount) + " key");
    drawText(cr, kMargin, top + 39, fitText(cr, counts, 10, false, width), 10, false, Align::kLeft, kGrey);
    if (t.endCode != 1) {
        drawText(cr, kMargin, top + 52, "read stopped: error " + std::to_string(t.endCode), 10, false, Align::kLeft,
                 kGap);
    } else if (t.lacedBlocks > 0) {
        drawText(cr, kMargin, top + 52, std::to_string(t.lacedBlocks) + " laced blocks", 10, false, Align::kLeft,
                 kGrey);
    }
}

void drawLegend(cairo_t *cr, const Layout &l) {
    double x = kLabels;
    const double y = l.legend + 18;
    auto swatch = [&](Rgb colour, double w, double h, const char *text) {
        setColour(cr, colour);
        cairo_rectangle(cr, x, y - 9 + (10 - h) / 2, w, h);
        cairo_fill(cr);
        x += w + 5;
        drawText(cr, x, y, text, 11);
        x += textWidth(cr, text, 11) + 22;
    };
    const Rgb track = trackColour(0);
    swatch(track, 10, 10, "key frame");
    swatch(pale(track), 10, 10, "other frame (bar height: size)");
    swatch(kLaced, 10, 4, "laced block");
    swatch(kGap, 14, 4, "gap");
    swatch(kInk, 1, 10, "Cluster start");
    swatch(track, 2, 10, "cue point");
    drawText(cr, kLabels, y + 18,
             "Each pixel column shows every frame that starts in it: the largest sets the bar; a key frame, a laced "
             "block or a cue in it is always marked.",
             10, false, Align::kLeft, kGrey);
}

void draw(cairo_t *cr, const FileMap &map, const Layout &l) {
    setColour(cr, {1, 1, 1});
    cairo_paint(cr);
    drawTitle(cr, map);
    drawTimeAxis(cr, l);
    drawText(cr, kMargin, l.clusters + 11, "Clusters", 11, true);
    drawClusterRow(cr, map, l.axis, l.clusters, kRow);
    drawText(cr, kMargin, l.cues + 11, "Cues", 11, true);
    drawCueRow(cr, map, l.axis, l.cues, kRow);
    for (size_t i = 0; i < map.tracks.size(); ++i) {
        const double top = l.lanes + (double)i * (kLane + kLaneGap);
        drawLaneLabel(cr, map.tracks[i], (int)i, top);
        drawLane(cr, map.tracks[i], (int)i, l.axis, map.duration > 0 ? map.duration : l.axis.t1, top, kLane);
    }
    drawClusterLines(cr, map, l);
    drawText(cr, kMargin, l.offsets - 8, "Byte offset of each frame's block against its time", 12, true);
    drawOffsets(cr, map, l.axis, l.offsets, kOffsets);
    drawLegend(cr, l);
}

bool endsWith(const std::string &s, const std::string &tail) {
    return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

}  // namespace

bool drawMap(const FileMap &map, const std::string &path, std::string *error) {
    const Layout l = layOut(map);
    const bool png = endsWith(path, ".png");
    cairo_surface_t *surface = png ? cairo_image_surface_create(CAIRO_FORMAT_RGB24, kWidth, l.height)
                                   : cairo_svg_surface_create(path.c_str(), kWidth, l.height);
    cairo_t *cr = cairo_create(surface);
    draw(cr, map, l);
    cairo_status_t status = cairo_status(cr);
    cairo_destroy(cr);
    if (status == CAIRO_STATUS_SUCCESS && png) status = cairo_surface_write_to_png(surface, path.c_str());
    cairo_surface_finish(surface);
    if (status == CAIRO_STATUS_SUCCESS) status = cairo_surface_status(surface);
    cairo_surface_destroy(surface);
    // Fonts stay cached for later drawings otherwise; there are none.
    cairo_debug_reset_static_data();
    FcFini();
    if (status != CAIRO_STATUS_SUCCESS) *error = cairo_status_to_string(status);
    return status == CAIRO_STATUS_SUCCESS;
}

}  // namespace qmkvprobe
