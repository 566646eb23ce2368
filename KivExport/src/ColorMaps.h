#pragma once

#include <optional>
#include <string>
#include <vector>

namespace Kiv::Export
{

struct Rgb
{
    double red = 0.0;
    double green = 0.0;
    double blue = 0.0;
};

// A colour map: colours given at positions from 0 to 1, linear in between.
class ColorMap
{
public:
    struct Knot
    {
        double position;
        Rgb colour;
    };

    explicit ColorMap(std::vector<Knot> knots) : m_Knots(std::move(knots)) {}

    // "gray" (Gwyddion's default), "afmhot", "viridis"; nothing for another name.
    static std::optional<ColorMap> Named(const std::string& name);

    // The colour at t, clamped to [0, 1].
    Rgb At(double t) const;

private:
    std::vector<Knot> m_Knots;
};

} // namespace Kiv::Export
