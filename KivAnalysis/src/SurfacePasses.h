#pragma once

#include <cmath>
#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

#include "Background.h"
#include "Kiv/Analysis/ImageView.h"

namespace Kiv::Analysis::Detail
{

// Which samples of a surface a fit or a figure uses: finite ones within the thresholds whose
// pixel is not masked.
struct Usable
{
    double above = std::numeric_limits<double>::infinity();
    double below = -std::numeric_limits<double>::infinity();
    PixelMask mask = nullptr;

    // Nothing but dropouts left out: rows can take the fast loops.
    bool IsPlain() const
    {
        return std::isinf(above) && above > 0 && std::isinf(below) && below < 0 && !mask;
    }

    bool Includes(double value, std::size_t pixel) const
    {
        return std::isfinite(value) && value <= above && value >= below && !(mask && mask[pixel]);
    }
};

// The surface a pass walks: the image minus the background so far, row by row.
struct Surface
{
    const ImageView& image;
    const Background& background;

    void Row(std::size_t row, double* out) const { background.Residual(image, row, out); }
};

struct Extent
{
    std::uint64_t count = 0;
    double sum = 0.0;
    double minimum = std::numeric_limits<double>::infinity();
    double maximum = -std::numeric_limits<double>::infinity();
};

// Count, sum and range of the usable samples.
Extent MeasureExtent(const Surface& surface, const Usable& usable);

// The values of the usable samples at the given ranks (0 = smallest; each below extent.count),
// exactly, without sorting them all.
std::vector<double> ValuesAtRanks(const Surface& surface, const Usable& usable,
                                  const Extent& extent, const std::vector<std::uint64_t>& ranks);

// The q-quantile of n sorted-by-rank values given by the values at ranks floor(h) and floor(h)+1,
// h = (n - 1) q: linear between the two nearest ranks, as numpy's default.
struct QuantileRanks
{
    std::uint64_t low = 0;
    std::uint64_t high = 0;
    double weight = 0.0;
};
QuantileRanks RanksOfQuantile(std::uint64_t count, double quantile);
double Interpolate(const QuantileRanks& ranks, double low, double high);

// The q-quantile of the usable samples of the surface; NaN when none is usable.
double SurfaceQuantile(const Surface& surface, const Usable& usable, double quantile);

// The values at ranks rank and rank + 1 (or rank again when it is the last) among
// values[0..count), reordering them: by counting into bins first when there are many.
std::pair<double, double> ValuesAtRankAndNext(double* values, std::size_t count, std::size_t rank);

// The q-quantile of values[0..count), reordering them; NaN for none.
double QuantileInPlace(double* values, std::size_t count, double quantile);

} // namespace Kiv::Analysis::Detail
