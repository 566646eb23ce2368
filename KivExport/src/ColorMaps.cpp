#include "ColorMaps.h"

#include <algorithm>
#include <cmath>

#include "Kiv/Export/Export.h"

namespace Kiv::Export
{

namespace
{
ColorMap Gray()
{
    return ColorMap({{0.0, {0.0, 0.0, 0.0}}, {1.0, {1.0, 1.0, 1.0}}});
}

// afmhot: red, green and blue each rise linearly over one half of the range, staggered by a
// quarter, from black through red-brown and orange to white.
ColorMap AfmHot()
{
    return ColorMap({{0.0, {0.0, 0.0, 0.0}},
                     {0.25, {0.5, 0.0, 0.0}},
                     {0.5, {1.0, 0.5, 0.0}},
                     {0.75, {1.0, 1.0, 0.5}},
                     {1.0, {1.0, 1.0, 1.0}}});
}

// viridis (van der Walt and Smith, CC0), every 16th entry of its published 256-entry table and
// the last; the table is smooth enough that linear steps between these stay within one level
// of 8-bit colour.
ColorMap Viridis()
{
    const double rows[][3] = {
        {0.267004, 0.004874, 0.329415}, {0.282327, 0.094955, 0.417331},
        {0.278826, 0.175490, 0.483397}, {0.258965, 0.251537, 0.524736},
        {0.229739, 0.322361, 0.545706}, {0.199430, 0.387607, 0.554642},
        {0.172719, 0.448791, 0.557885}, {0.149039, 0.508051, 0.557250},
        {0.127568, 0.566949, 0.550556}, {0.120638, 0.625828, 0.533488},
        {0.157851, 0.683765, 0.501686}, {0.246070, 0.738910, 0.452024},
        {0.369214, 0.788888, 0.382914}, {0.515992, 0.831158, 0.294279},
        {0.678489, 0.863742, 0.189503}, {0.845561, 0.887322, 0.099702},
        {0.993248, 0.906157, 0.143936},
    };
    std::vector<ColorMap::Knot> knots;
    const std::size_t count = std::size(rows);
    for (std::size_t i = 0; i < count; ++i)
    {
        const double index = i + 1 == count ? 255.0 : 16.0 * static_cast<double>(i);
        knots.push_back({index / 255.0, {rows[i][0], rows[i][1], rows[i][2]}});
    }
    return ColorMap(std::move(knots));
}
} // namespace

std::optional<ColorMap> ColorMap::Named(const std::string& name)
{
    if (name == "gray" || name == "grey")
    {
        return Gray();
    }
    if (name == "afmhot")
    {
        return AfmHot();
    }
    if (name == "viridis")
    {
        return Viridis();
    }
    return std::nullopt;
}

Rgb ColorMap::At(double t) const
{
    t = std::isnan(t) ? 0.0 : std::clamp(t, 0.0, 1.0);
    const auto after =
        std::upper_bound(m_Knots.begin(), m_Knots.end(), t,
                         [](double x, const Knot& knot) { return x < knot.position; });
    if (after == m_Knots.begin())
    {
        return m_Knots.front().colour;
    }
    if (after == m_Knots.end())
    {
        return m_Knots.back().colour;
    }
    const Knot& before = *(after - 1);
    const double f = (t - before.position) / (after->position - before.position);
    const auto mix = [f](double a, double b) { return a + (b - a) * f; };
    return {mix(before.colour.red, after->colour.red),
            mix(before.colour.green, after->colour.green),
            mix(before.colour.blue, after->colour.blue)};
}

bool IsKnownColormap(const std::string& name)
{
    return ColorMap::Named(name).has_value();
}

} // namespace Kiv::Export
