#include "map_canvas.h"

#include <math.h>

namespace qmkvprobe {

Rgb trackColour(int track) {
    static const Rgb kPalette[] = {{0.12, 0.40, 0.71}, {0.17, 0.56, 0.17}, {0.55, 0.34, 0.74}, {0.55, 0.34, 0.29},
                                   {0.09, 0.60, 0.67}, {0.66, 0.60, 0.05}, {0.80, 0.33, 0.62}, {0.30, 0.30, 0.30}};
    const int n = sizeof(kPalette) / sizeof(kPalette[0]);
    return kPalette[((track % n) + n) % n];
}

Rgb pale(Rgb c) { return {0.55 + 0.45 * c.r, 0.55 + 0.45 * c.g, 0.55 + 0.45 * c.b}; }

void setColour(cairo_t *cr, Rgb c, double alpha) { cairo_set_source_rgba(cr, c.r, c.g, c.b, alpha); }

namespace {

void setFont(cairo_t *cr, double size, bool bold) {
    cairo_select_font_face(cr, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL,
                           bold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(cr, size);
}

}  // namespace

double textWidth(cairo_t *cr, const std::string &text, double size, bool bold) {
    setFont(cr, size, bold);
    cairo_text_extents_t e;
    cairo_text_extents(cr, text.c_str(), &e);
    return e.x_advance;
}

void drawText(cairo_t *cr, double x, double y, const std::string &text, double size, bool bold, Align align,
              Rgb colour) {
    const double w = align == Align::kLeft ? 0 : textWidth(cr, text, size, bold);
    setFont(cr, size, bold);
    setColour(cr, colour);
    cairo_move_to(cr, align == Align::kLeft ? x : align == Align::kCentre ? x - w / 2 : x - w, y);
    cairo_show_text(cr, text.c_str());
    cairo_new_path(cr);
}

std::string fitText(cairo_t *cr, const std::string &text, double size, bool bold, double width) {
    if (textWidth(cr, text, size, bold) <= width) return text;
    std::string s = text;
    while (!s.empty() && textWidth(cr, s + "...", size, bold) > width) {
        s.pop_back();
        // Never leave half a UTF-8 character behind.
        while (!s.empty() && ((unsigned char)s.back() & 0xC0) == 0x80) s.pop_back();
        if (!s.empty() && ((unsigned char)s.back() & 0xC0) == 0xC0) s.pop_back();
    }
    return s + "...";
}

// In doubles: a damaged file's times may span more than 64 bits hold.
double TimeAxis::x(int64_t t) const { return left + ((double)t - (double)t0) / ((double)t1 - (double)t0) * columns; }

int TimeAxis::column(int64_t t) const {
    const double c = floor(x(t) - left);
    if (c < 0) return 0;
    if (c >= columns) return columns - 1;
    return (int)c;
}

}  // namespace qmkvprobe
