// Drawing helpers shared by the parts of the picture of a file: colours,
// text, and the time axis every part is laid out on.
#ifndef QMKVPROBE_MAP_CANVAS_H_
#define QMKVPROBE_MAP_CANVAS_H_

#include <cairo.h>
#include <stdint.h>

#include <string>

namespace qmkvprobe {

struct Rgb {
    double r, g, b;
};

// One colour per track, key frames in it; other frames in its pale form.
Rgb trackColour(int track);
Rgb pale(Rgb c);

const Rgb kInk = {0.13, 0.13, 0.13};
const Rgb kGrey = {0.45, 0.45, 0.45};
const Rgb kRule = {0.85, 0.85, 0.85};
const Rgb kLaced = {0.96, 0.55, 0.0};
const Rgb kGap = {0.84, 0.15, 0.16};

void setColour(cairo_t *cr, Rgb c, double alpha = 1.0);

enum class Align { kLeft, kCentre, kRight };

// Text with its baseline at y.
void drawText(cairo_t *cr, double x, double y, const std::string &text, double size, bool bold = false,
              Align align = Align::kLeft, Rgb colour = kInk);
double textWidth(cairo_t *cr, const std::string &text, double size, bool bold = false);
// `text`, shortened with "..." to fit `width`.
std::string fitText(cairo_t *cr, const std::string &text, double size, bool bold, double width);

// Time across: [t0, t1] (100 ns) over `columns` pixel columns from `left`.
struct TimeAxis {
    int64_t t0;
    int64_t t1;
    double left;
    int columns;

    // The pixel column a time falls in, clamped to the plot.
    int column(int64_t t) const;
    double x(int64_t t) const;
};

}  // namespace qmkvprobe

#endif  // QMKVPROBE_MAP_CANVAS_H_
