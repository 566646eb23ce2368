// A picture of the data: an image in a colour map with a colour bar, a scale bar and the title;
// force curves as a line plot (ForcePlot.cpp).
#include <algorithm>
#include <cmath>
#include <cstdint>

#include "CairoCanvas.h"
#include "ForcePlot.h"
#include "Kiv/Access/Failure.h"
#include "PictureWriters.h"
#include "PlotScales.h"

namespace Kiv::Export
{

namespace
{
const int MIN_LONG_SIDE = 512;
const double LOW_PERCENTILE = 0.01;
const double HIGH_PERCENTILE = 0.99;
const int MARGIN = 24;
const int TITLE_HEIGHT = 44;
const int BAR_WIDTH = 22;
const int BAR_GAP = 18;
const int BAR_LABELS_WIDTH = 110;
const int SCALE_BAR_HEIGHT = 52;

class ImagePreview
{
public:
    ImagePreview(const ExportSource& source, const ColorMap& map, std::pair<double, double> range)
        : m_Source(source), m_Map(map), m_Range(range),
          m_Columns(static_cast<int>(source.geometry.columns)),
          m_Rows(static_cast<int>(source.geometry.rows)),
          m_Zoom(std::max(1, (MIN_LONG_SIDE + std::max(m_Columns, m_Rows) - 1) /
                                 std::max(m_Columns, m_Rows))),
          m_Canvas(MARGIN + m_Columns * m_Zoom + BAR_GAP + BAR_WIDTH + BAR_LABELS_WIDTH,
                   TITLE_HEIGHT + m_Rows * m_Zoom + SCALE_BAR_HEIGHT)
    {
    }

    void Draw()
    {
        m_Canvas.SetColour(INK);
        m_Canvas.Text(m_Source.title, MARGIN, TITLE_HEIGHT - 14, 18, CairoCanvas::Align::Left,
                      true);
        DrawLevellingCaption();
        DrawSamples();
        DrawColourBar();
        DrawScaleBar();
    }

    void Write(OutputFile& output) { m_Canvas.WritePng(output); }

private:
    double Fraction(double value) const
    {
        return (value - m_Range.first) / (m_Range.second - m_Range.first);
    }

    static std::uint32_t Pixel(const Rgb& colour)
    {
        const auto level = [](double c)
        { return static_cast<std::uint32_t>(std::lround(std::clamp(c, 0.0, 1.0) * 255.0)); };
        return level(colour.red) << 16 | level(colour.green) << 8 | level(colour.blue);
    }

    // One cairo pixel a sample, drawn enlarged without smoothing so that samples stay sharp.
    void DrawSamples()
    {
        cairo_surface_t* samples =
            cairo_image_surface_create(CAIRO_FORMAT_RGB24, m_Columns, m_Rows);
        cairo_surface_flush(samples);
        unsigned char* data = cairo_image_surface_get_data(samples);
        const int stride = cairo_image_surface_get_stride(samples);
        const float* values = m_Source.ImageSamples();
        // Dropouts (NaN) show in a neutral mid grey that no colour map ends in.
        const std::uint32_t dropout = Pixel({0.55, 0.55, 0.6});
        for (int row = 0; row < m_Rows && data; ++row)
        {
            auto* line =
                reinterpret_cast<std::uint32_t*>(data + static_cast<std::ptrdiff_t>(row) * stride);
            for (int column = 0; column < m_Columns; ++column)
            {
                const float value = values[static_cast<std::size_t>(row) * m_Columns + column];
                line[column] = std::isfinite(value) ? Pixel(m_Map.At(Fraction(value))) : dropout;
            }
        }
        cairo_surface_mark_dirty(samples);
        cairo_t* cr = m_Canvas.Context();
        cairo_save(cr);
        cairo_translate(cr, MARGIN, TITLE_HEIGHT);
        cairo_scale(cr, m_Zoom, m_Zoom);
        cairo_set_source_surface(cr, samples, 0, 0);
        cairo_pattern_set_filter(cairo_get_source(cr), CAIRO_FILTER_NEAREST);
        cairo_paint(cr);
        cairo_restore(cr);
        cairo_surface_destroy(samples);
    }

    // What was subtracted before the colours were mapped, after the title in smaller type: a
    // reader must not take a levelled picture for the raw scan, nor the other way round.
    void DrawLevellingCaption()
    {
        if (!m_Source.levelling)
        {
            return;
        }
        const std::string caption = *m_Source.levelling == "none"
                                        ? std::string("not levelled")
                                        : "levelled: " + *m_Source.levelling;
        const double left = MARGIN + m_Canvas.TextWidth(m_Source.title, 18, true) + 12;
        m_Canvas.Text(caption, left, TITLE_HEIGHT - 14, 13);
    }

    std::string ValueText(double value) const
    {
        return LabelNumber(value) + (m_Source.valueUnit ? " " + *m_Source.valueUnit : "");
    }

    void DrawColourBar()
    {
        cairo_t* cr = m_Canvas.Context();
        const double left = MARGIN + m_Columns * m_Zoom + BAR_GAP;
        const double top = TITLE_HEIGHT;
        const double height = m_Rows * m_Zoom;
        const int steps = static_cast<int>(height);
        for (int step = 0; step < steps; ++step)
        {
            m_Canvas.SetColour(m_Map.At(1.0 - (step + 0.5) / steps));
            cairo_rectangle(cr, left, top + step, BAR_WIDTH, 1.0);
            cairo_fill(cr);
        }
        m_Canvas.SetColour(INK);
        cairo_set_line_width(cr, 1.0);
        cairo_rectangle(cr, left + 0.5, top + 0.5, BAR_WIDTH - 1, height - 1);
        cairo_stroke(cr);
        const double labelX = left + BAR_WIDTH + 6;
        m_Canvas.Text(ValueText(m_Range.second), labelX, top + 12, 13);
        m_Canvas.Text(ValueText(m_Range.first), labelX, top + height - 2, 13);
    }

    // A bar of a round length, at most a third of the image's width, under the image.
    void DrawScaleBar()
    {
        const auto pixel = m_Source.geometry.PixelWidthMetres();
        if (!pixel || !(*pixel > 0.0))
        {
            return;
        }
        const double imageWidth = m_Columns * m_Zoom;
        const double metresPerDot = *pixel / m_Zoom;
        const auto [length, label] = RoundLength(imageWidth / 3.0 * metresPerDot);
        const double dots = length / metresPerDot;
        const double top = TITLE_HEIGHT + m_Rows * m_Zoom + 14;
        cairo_t* cr = m_Canvas.Context();
        m_Canvas.SetColour(INK);
        cairo_rectangle(cr, MARGIN, top, dots, 6);
        cairo_fill(cr);
        m_Canvas.Text(label, MARGIN + dots / 2, top + 26, 14, CairoCanvas::Align::Centre);
    }

    const ExportSource& m_Source;
    const ColorMap& m_Map;
    std::pair<double, double> m_Range;
    int m_Columns;
    int m_Rows;
    int m_Zoom;
    CairoCanvas m_Canvas;
};

// Past this a preview would be too large for cairo to allocate.
const std::size_t MAX_PREVIEW_SIDE = 32767;
} // namespace

void WritePngPreview(const ExportSource& source, OutputFile& output, const ExportOptions& options)
{
    const auto map = ColorMap::Named(options.colormap);
    if (!map)
    {
        Kiv::Access::Fail("unknown colour map \"" + options.colormap +
                          "\"; known: gray, afmhot, viridis");
    }
    if (source.curves)
    {
        DrawForcePlot(source, output);
        return;
    }
    if (source.geometry.columns > MAX_PREVIEW_SIDE || source.geometry.rows > MAX_PREVIEW_SIDE)
    {
        Kiv::Access::Fail(source.displayName + ": the image is too large for a preview");
    }
    const auto range = options.range
                           ? *options.range
                           : PercentileRange(source.ImageSamples(), source.ImageSampleCount(),
                                             LOW_PERCENTILE, HIGH_PERCENTILE);
    ImagePreview preview(source, *map, range);
    preview.Draw();
    preview.Write(output);
}

} // namespace Kiv::Export

// The module's one entry point, which the export library looks up after loading it.
extern "C" void KivExportWritePng(const Kiv::Export::ExportSource& source,
                                  Kiv::Export::OutputFile& output,
                                  const Kiv::Export::ExportOptions& options)
{
    Kiv::Export::WritePngPreview(source, output, options);
}
