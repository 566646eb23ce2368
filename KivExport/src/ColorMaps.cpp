#include "ColorMaps.h"

#include <algorithm>
#include <cmath>

#include "Kiv/Export/Export.h"
#include "ViridisTable.h"

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

// viridis from its published table, one knot an entry.
ColorMap Viridis()
{
    std::vector<ColorMap::Knot> knots;
    const std::size_t count = std::size(VIRIDIS_TABLE);
    for (std::size_t i = 0; i < count; ++i)
    {
        const double* rgb = VIRIDIS_TABLE[i];
        knots.push_back({static_cast<double>(i) / (count - 1), {rgb[0], rgb[1], rgb[2]}});
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
