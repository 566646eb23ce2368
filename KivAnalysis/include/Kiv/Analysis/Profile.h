#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "Kiv/Analysis/ImageView.h"

namespace Kiv::Analysis
{

// Heights along a line, sampled bilinearly at one-pixel spacing from the start: the points lie
// at k pixels from the start for k = 0 .. floor(length), so the end itself is sampled only when
// the length is whole. A point next to a dropout with a nonzero weight is NaN.
// distance is in metres when the pixel size is known, in pixels otherwise.
struct Profile
{
    std::vector<double> distance;
    std::vector<double> height;
    bool metres = false;
};

// A position in pixels: x the column, y the row; pixel centres lie on whole numbers.
struct PixelPoint
{
    double x = 0.0;
    double y = 0.0;
};

// A position in metres from the centre of the first pixel, in pixels.
PixelPoint PixelPointFromMetres(double xMetres, double yMetres, const PixelSize& pixel);

// Each raises std::invalid_argument with a one-line message for a row, column or point outside
// the image.
Profile RowProfile(const ImageView& image, std::size_t row,
                   const std::optional<PixelSize>& pixel = std::nullopt);
Profile ColumnProfile(const ImageView& image, std::size_t column,
                      const std::optional<PixelSize>& pixel = std::nullopt);
Profile LineProfile(const ImageView& image, PixelPoint from, PixelPoint to,
                    const std::optional<PixelSize>& pixel = std::nullopt);

} // namespace Kiv::Analysis
