#pragma once

#include <string>

#include <cairo.h>

#include "ColorMaps.h"
#include "OutputFile.h"

namespace Kiv::Export
{

// The colour of the previews' text, axes and frames: near black, softer than black on white.
inline constexpr Rgb INK{0.1, 0.1, 0.1};

// A white RGB canvas with the text and line helpers the previews share, written out as PNG.
class CairoCanvas
{
public:
    CairoCanvas(int width, int height);
    ~CairoCanvas();
    CairoCanvas(const CairoCanvas&) = delete;
    CairoCanvas& operator=(const CairoCanvas&) = delete;

    cairo_t* Context() const { return m_Context; }

    enum class Align
    {
        Left,
        Centre,
        Right,
    };
    // Text in DejaVu Sans with its baseline at y.
    void Text(const std::string& utf8, double x, double y, double size, Align align = Align::Left,
              bool bold = false);
    double TextWidth(const std::string& utf8, double size, bool bold = false);
    void SetColour(const Rgb& colour);
    // A straight line in the colour, at the current line width.
    void Line(const Rgb& colour, double x0, double y0, double x1, double y1);

    // Raises Failure naming the output when cairo cannot draw or write.
    void WritePng(OutputFile& output);

private:
    void SelectFont(double size, bool bold);

    cairo_surface_t* m_Surface;
    cairo_t* m_Context;
};

} // namespace Kiv::Export
