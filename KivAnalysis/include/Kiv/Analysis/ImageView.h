#pragma once

#include <cstddef>
#include <optional>

namespace Kiv::Analysis
{

// An image's samples as the analysis sees them: rows x columns float32 values, row-major, owned
// by the caller. NaN and infinite samples are dropouts: they are left out of every fit and every
// figure and stay as they are.
struct ImageView
{
    const float* samples = nullptr;
    std::size_t rows = 0;
    std::size_t columns = 0;

    std::size_t Count() const { return rows * columns; }
};

// The lateral size of one pixel in metres: x along a row, y from row to row.
struct PixelSize
{
    double x = 0.0;
    double y = 0.0;
};

// An optional per-pixel mask of the same shape as the image: nonzero marks a pixel to leave out
// (a feature, a defect); a null pointer leaves nothing out.
using PixelMask = const unsigned char*;

} // namespace Kiv::Analysis
