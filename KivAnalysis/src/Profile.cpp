#include "Kiv/Analysis/Profile.h"

#include <cmath>
#include <cstdio>
#include <stdexcept>
#include <string>

namespace Kiv::Analysis
{

namespace
{
std::string Number(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}

void RequireInside(const ImageView& image, const PixelPoint& point, const char* which)
{
    const double lastColumn = static_cast<double>(image.columns) - 1;
    const double lastRow = static_cast<double>(image.rows) - 1;
    if (!(point.x >= 0 && point.x <= lastColumn && point.y >= 0 && point.y <= lastRow))
    {
        throw std::invalid_argument(std::string("the profile's ") + which + " (" + Number(point.x) +
                                    ", " + Number(point.y) +
                                    ") lies outside the image's pixels (0 to " +
                                    Number(lastColumn) + ", 0 to " + Number(lastRow) + ")");
    }
}

// The height at a position between pixel centres, weighting the four around it; a neighbour
// with no weight does not count, so that a position on a pixel gives that pixel's value.
double Bilinear(const ImageView& image, double x, double y)
{
    const auto column = static_cast<std::size_t>(x);
    const auto row = static_cast<std::size_t>(y);
    const double fx = x - static_cast<double>(column);
    const double fy = y - static_cast<double>(row);
    const auto at = [&](std::size_t r, std::size_t c)
    { return static_cast<double>(image.samples[r * image.columns + c]); };
    double height = 0.0;
    const double weights[2][2] = {{(1 - fx) * (1 - fy), fx * (1 - fy)}, {(1 - fx) * fy, fx * fy}};
    for (std::size_t dr = 0; dr < 2; ++dr)
    {
        for (std::size_t dc = 0; dc < 2; ++dc)
        {
            if (weights[dr][dc] != 0.0)
            {
                height += weights[dr][dc] * at(row + dr, column + dc);
            }
        }
    }
    return height;
}
} // namespace

PixelPoint PixelPointFromMetres(double xMetres, double yMetres, const PixelSize& pixel)
{
    return {xMetres / pixel.x, yMetres / pixel.y};
}

Profile LineProfile(const ImageView& image, PixelPoint from, PixelPoint to,
                    const std::optional<PixelSize>& pixel)
{
    RequireInside(image, from, "start");
    RequireInside(image, to, "end");
    const double dx = to.x - from.x;
    const double dy = to.y - from.y;
    const double length = std::hypot(dx, dy);
    const bool metres = pixel && pixel->x > 0 && pixel->y > 0;
    // One pixel of the line's length in metres, which differs from a pixel's side when pixels
    // are not square.
    const double metresPerStep =
        metres && length > 0 ? std::hypot(dx * pixel->x, dy * pixel->y) / length : 1.0;
    Profile profile;
    profile.metres = metres;
    // Steps along the unit direction, which is exact along a row or a column, so that their
    // profiles land on the samples themselves.
    const double stepX = length > 0 ? dx / length : 0.0;
    const double stepY = length > 0 ? dy / length : 0.0;
    const auto steps = static_cast<std::size_t>(std::floor(length));
    for (std::size_t k = 0; k <= steps; ++k)
    {
        const auto step = static_cast<double>(k);
        // Rounding may carry the last point a hair past the image's edge.
        const double x = std::fmin(from.x + step * stepX, static_cast<double>(image.columns) - 1);
        const double y = std::fmin(from.y + step * stepY, static_cast<double>(image.rows) - 1);
        profile.distance.push_back(static_cast<double>(k) * metresPerStep);
        profile.height.push_back(Bilinear(image, std::fmax(x, 0.0), std::fmax(y, 0.0)));
    }
    return profile;
}

Profile RowProfile(const ImageView& image, std::size_t row, const std::optional<PixelSize>& pixel)
{
    if (row >= image.rows || image.columns == 0)
    {
        throw std::invalid_argument("row " + std::to_string(row) + " is outside the image's " +
                                    std::to_string(image.rows) + " rows");
    }
    const auto y = static_cast<double>(row);
    return LineProfile(image, {0, y}, {static_cast<double>(image.columns) - 1, y}, pixel);
}

Profile ColumnProfile(const ImageView& image, std::size_t column,
                      const std::optional<PixelSize>& pixel)
{
    if (column >= image.columns || image.rows == 0)
    {
        throw std::invalid_argument("column " + std::to_string(column) +
                                    " is outside the image's " + std::to_string(image.columns) +
                                    " columns");
    }
    const auto x = static_cast<double>(column);
    return LineProfile(image, {x, 0}, {x, static_cast<double>(image.rows) - 1}, pixel);
}

} // namespace Kiv::Analysis
