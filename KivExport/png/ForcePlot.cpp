#include "ForcePlot.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "CairoCanvas.h"
#include "CurveNames.h"
#include "PlotScales.h"

namespace Kiv::Export
{

namespace
{
const int WIDTH = 860;
const int HEIGHT = 580;
const double PLOT_LEFT = 96;
const double PLOT_TOP = 56;
const double PLOT_RIGHT = WIDTH - 28;
const double PLOT_BOTTOM = HEIGHT - 72;
const int COLUMNS_PER_SERIES = 4;
const Rgb GRID{0.88, 0.88, 0.88};
// Approach and retract of a series share a hue, the retract a darker shade of it.
const Rgb PALETTE[] = {{0.12, 0.47, 0.71}, {0.84, 0.15, 0.16}, {0.17, 0.63, 0.17},
                       {0.58, 0.40, 0.74}, {1.00, 0.50, 0.05}, {0.55, 0.34, 0.29}};

// A curve of the plot: x and y columns of the table.
struct Curve
{
    std::size_t xColumn;
    std::size_t yColumn;
    std::string name;
    Rgb colour;
    bool dashed;
};

class ForcePlot
{
public:
    explicit ForcePlot(const ExportSource& source) : m_Source(source), m_Canvas(WIDTH, HEIGHT)
    {
        const std::size_t series = source.curves->columns / COLUMNS_PER_SERIES;
        for (std::size_t s = 0; s < series; ++s)
        {
            const Rgb hue = PALETTE[s % std::size(PALETTE)];
            const std::size_t first = s * COLUMNS_PER_SERIES;
            m_Curves.push_back({first, first + 1, CurveName(first + 1, s, "approach"), hue, false});
            m_Curves.push_back({first + 2,
                                first + 3,
                                CurveName(first + 3, s, "retract"),
                                {hue.red * 0.6, hue.green * 0.6, hue.blue * 0.6},
                                true});
        }
        // Fewer than 4 columns: plot the second column against the first.
        if (m_Curves.empty() && source.curves->columns >= 2)
        {
            m_Curves.push_back({0, 1, Label(1), PALETTE[0], false});
        }
        m_X = Extent(&Curve::xColumn);
        m_Y = Extent(&Curve::yColumn);
    }

    void Draw()
    {
        m_Canvas.SetColour(INK);
        m_Canvas.Text(m_Source.title, PLOT_LEFT, 32, 18, CairoCanvas::Align::Left, true);
        DrawAxes();
        for (const Curve& curve : m_Curves)
        {
            DrawCurve(curve);
        }
        DrawFrame();
        DrawLegend();
    }

    void Write(OutputFile& output) { m_Canvas.WritePng(output); }

private:
    std::string Label(std::size_t column) const
    {
        return column < m_Source.curveLabels.size() ? m_Source.curveLabels[column]
                                                    : "Column " + std::to_string(column + 1);
    }

    std::string CurveName(std::size_t column, std::size_t series, const char* kind) const
    {
        if (column < m_Source.curveLabels.size())
        {
            return CurveNameWithoutUnit(m_Source.curveLabels[column]);
        }
        return "Series " + std::to_string(series + 1) + " " + kind;
    }

    float Value(std::size_t point, std::size_t column) const
    {
        return m_Source.curves->values[point * m_Source.curves->columns + column];
    }

    std::pair<double, double> Extent(std::size_t Curve::*column) const
    {
        double low = std::numeric_limits<double>::infinity();
        double high = -low;
        for (const Curve& curve : m_Curves)
        {
            for (std::size_t point = 0; point < m_Source.curves->points; ++point)
            {
                const float value = Value(point, curve.*column);
                if (std::isfinite(value))
                {
                    low = std::min(low, double(value));
                    high = std::max(high, double(value));
                }
            }
        }
        if (!(high >= low))
        {
            return {0.0, 1.0};
        }
        const double pad = high > low ? (high - low) * 0.04 : std::max(std::fabs(low) * 0.5, 0.5);
        return {low - pad, high + pad};
    }

    double ScreenX(double x) const
    {
        return PLOT_LEFT + (x - m_X.first) / (m_X.second - m_X.first) * (PLOT_RIGHT - PLOT_LEFT);
    }

    double ScreenY(double y) const
    {
        return PLOT_BOTTOM - (y - m_Y.first) / (m_Y.second - m_Y.first) * (PLOT_BOTTOM - PLOT_TOP);
    }

    void DrawAxes()
    {
        cairo_set_line_width(m_Canvas.Context(), 1.0);
        for (const double tick : RoundTicks(m_X.first, m_X.second, 8))
        {
            const double x = std::round(ScreenX(tick)) + 0.5;
            m_Canvas.Line(GRID, x, PLOT_TOP, x, PLOT_BOTTOM);
            m_Canvas.Line(INK, x, PLOT_BOTTOM, x, PLOT_BOTTOM + 5);
            m_Canvas.Text(LabelNumber(tick), x, PLOT_BOTTOM + 20, 12, CairoCanvas::Align::Centre);
        }
        for (const double tick : RoundTicks(m_Y.first, m_Y.second, 7))
        {
            const double y = std::round(ScreenY(tick)) + 0.5;
            m_Canvas.Line(GRID, PLOT_LEFT, y, PLOT_RIGHT, y);
            m_Canvas.Line(INK, PLOT_LEFT - 5, y, PLOT_LEFT, y);
            m_Canvas.Text(LabelNumber(tick), PLOT_LEFT - 8, y + 4, 12, CairoCanvas::Align::Right);
        }
        if (m_Curves.empty())
        {
            return;
        }
        m_Canvas.Text(CurveAxisName(Label(m_Curves.front().xColumn)), (PLOT_LEFT + PLOT_RIGHT) / 2,
                      HEIGHT - 24, 14, CairoCanvas::Align::Centre);
        cairo_t* cr = m_Canvas.Context();
        cairo_save(cr);
        cairo_translate(cr, 26, (PLOT_TOP + PLOT_BOTTOM) / 2);
        cairo_rotate(cr, -M_PI / 2);
        m_Canvas.Text(CurveAxisName(Label(m_Curves.front().yColumn)), 0, 0, 14,
                      CairoCanvas::Align::Centre);
        cairo_restore(cr);
    }

    void DrawCurve(const Curve& curve)
    {
        cairo_t* cr = m_Canvas.Context();
        cairo_save(cr);
        cairo_rectangle(cr, PLOT_LEFT, PLOT_TOP, PLOT_RIGHT - PLOT_LEFT, PLOT_BOTTOM - PLOT_TOP);
        cairo_clip(cr);
        m_Canvas.SetColour(curve.colour);
        cairo_set_line_width(cr, 1.6);
        cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);
        const double dash[] = {6.0, 4.0};
        cairo_set_dash(cr, dash, curve.dashed ? 2 : 0, 0.0);
        bool drawing = false;
        for (std::size_t point = 0; point < m_Source.curves->points; ++point)
        {
            const float x = Value(point, curve.xColumn);
            const float y = Value(point, curve.yColumn);
            if (!std::isfinite(x) || !std::isfinite(y))
            {
                drawing = false; // a gap, not a line across a dropout
                continue;
            }
            (drawing ? cairo_line_to : cairo_move_to)(cr, ScreenX(x), ScreenY(y));
            drawing = true;
        }
        cairo_stroke(cr);
        cairo_restore(cr);
    }

    void DrawFrame()
    {
        cairo_t* cr = m_Canvas.Context();
        m_Canvas.SetColour(INK);
        cairo_set_line_width(cr, 1.0);
        cairo_rectangle(cr, PLOT_LEFT + 0.5, PLOT_TOP + 0.5, PLOT_RIGHT - PLOT_LEFT - 1,
                        PLOT_BOTTOM - PLOT_TOP - 1);
        cairo_stroke(cr);
    }

    // The corner of the plot where the legend hides the fewest points.
    std::pair<double, double> QuietestCorner(double width, double height) const
    {
        const double inset = 10;
        const std::pair<double, double> corners[] = {
            {PLOT_RIGHT - width - inset, PLOT_TOP + inset},
            {PLOT_LEFT + inset, PLOT_TOP + inset},
            {PLOT_RIGHT - width - inset, PLOT_BOTTOM - height - inset},
            {PLOT_LEFT + inset, PLOT_BOTTOM - height - inset}};
        std::size_t best = 0;
        std::size_t fewest = std::numeric_limits<std::size_t>::max();
        for (std::size_t corner = 0; corner < std::size(corners); ++corner)
        {
            const auto [left, top] = corners[corner];
            std::size_t hidden = 0;
            for (const Curve& curve : m_Curves)
            {
                for (std::size_t point = 0; point < m_Source.curves->points; ++point)
                {
                    const double x = ScreenX(Value(point, curve.xColumn));
                    const double y = ScreenY(Value(point, curve.yColumn));
                    hidden += x >= left && x <= left + width && y >= top && y <= top + height;
                }
            }
            if (hidden < fewest)
            {
                fewest = hidden;
                best = corner;
            }
        }
        return corners[best];
    }

    void DrawLegend()
    {
        const double lineHeight = 18;
        double textWidth = 0;
        for (const Curve& curve : m_Curves)
        {
            textWidth = std::max(textWidth, m_Canvas.TextWidth(curve.name, 12));
        }
        const double width = textWidth + 48;
        const double height = lineHeight * m_Curves.size() + 8;
        const auto [left, top] = QuietestCorner(width, height);
        cairo_t* cr = m_Canvas.Context();
        cairo_set_source_rgba(cr, 1, 1, 1, 0.9);
        cairo_rectangle(cr, left, top, width, height);
        cairo_fill_preserve(cr);
        m_Canvas.SetColour({0.7, 0.7, 0.7});
        cairo_set_line_width(cr, 1.0);
        cairo_stroke(cr);
        const double dash[] = {6.0, 4.0};
        for (std::size_t i = 0; i < m_Curves.size(); ++i)
        {
            const double y = top + 4 + lineHeight * (i + 0.5);
            m_Canvas.SetColour(m_Curves[i].colour);
            cairo_set_line_width(cr, 1.6);
            cairo_set_dash(cr, dash, m_Curves[i].dashed ? 2 : 0, 0.0);
            cairo_move_to(cr, left + 8, y);
            cairo_line_to(cr, left + 36, y);
            cairo_stroke(cr);
            cairo_set_dash(cr, dash, 0, 0.0);
            m_Canvas.SetColour(INK);
            m_Canvas.Text(m_Curves[i].name, left + 42, y + 4, 12);
        }
    }

    const ExportSource& m_Source;
    CairoCanvas m_Canvas;
    std::vector<Curve> m_Curves;
    std::pair<double, double> m_X;
    std::pair<double, double> m_Y;
};
} // namespace

void DrawForcePlot(const ExportSource& source, OutputFile& output)
{
    ForcePlot plot(source);
    plot.Draw();
    plot.Write(output);
}

} // namespace Kiv::Export
