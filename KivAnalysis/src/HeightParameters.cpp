#include "Kiv/Analysis/HeightParameters.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "Fits.h"
#include "Parallel.h"
#include "RowKernels.h"
#include "SurfacePasses.h"

namespace Kiv::Analysis
{

using namespace Detail;

namespace
{
const double NaN = std::numeric_limits<double>::quiet_NaN();

// Where the median is looked for: a bracket of values around it, read off an even sample of the
// surface, wide enough that the middle ranks fall inside it unless the sample was most unusual.
// Only the samples inside it are kept by the first pass, and the median is selected from those.
struct Bracket
{
    double low = -std::numeric_limits<double>::infinity();
    double high = std::numeric_limits<double>::infinity();
};

// The sample is taken in short runs of neighbouring pixels, a cache line of samples each, so that
// it costs a few thousand memory reads rather than one for every value. Its size grows with the
// image's: the bracket narrows as the square root of the sample, and the samples kept in it cost
// a selection.
const std::size_t RUN_LENGTH = 16;
const std::size_t FEWEST_RUNS = 64;
const std::size_t MOST_RUNS = 1 << 12;
const std::size_t PIXELS_A_RUN = 1 << 10;

Bracket MedianBracket(const Surface& surface, const Usable& usable)
{
    const ImageView& image = surface.image;
    const std::size_t runs = std::clamp(image.Count() / PIXELS_A_RUN, FEWEST_RUNS, MOST_RUNS);
    const std::size_t spacing = std::max<std::size_t>(1, image.Count() / runs);
    std::vector<double> sample;
    sample.reserve(runs * RUN_LENGTH);
    for (std::size_t run = 0; run < runs; ++run)
    {
        const std::size_t end = std::min(image.Count(), run * spacing + RUN_LENGTH);
        for (std::size_t pixel = run * spacing; pixel < end; ++pixel)
        {
            const double value =
                surface.background.ResidualAt(image, pixel / image.columns, pixel % image.columns);
            if (usable.Includes(value, pixel))
            {
                sample.push_back(value);
            }
        }
    }
    Bracket bracket;
    if (sample.size() < 64)
    {
        return bracket;
    }
    // Four standard deviations of a rank drawn from the sample, and a little more.
    const double count = static_cast<double>(sample.size());
    const double middle = (count - 1) / 2;
    const double spread = 2.0 * std::sqrt(count) + 2.0;
    if (middle - spread > 0)
    {
        const auto rank = static_cast<std::size_t>(middle - spread);
        std::nth_element(sample.begin(), sample.begin() + static_cast<std::ptrdiff_t>(rank),
                         sample.end());
        bracket.low = sample[rank];
    }
    if (middle + spread < count - 1)
    {
        const auto rank = static_cast<std::size_t>(middle + spread) + 1;
        std::nth_element(sample.begin(), sample.begin() + static_cast<std::ptrdiff_t>(rank),
                         sample.end());
        bracket.high = sample[rank];
    }
    return bracket;
}

// The first pass: count, sum and range of the usable samples, with those inside the bracket
// kept and those below it counted. Rows without a dropout or an excluded pixel are marked, so
// that the second pass can take them whole.
// Given a shift, it also sums the deviations from it.
struct FirstPass
{
    Extent extent;
    std::uint64_t below = 0;
    std::vector<double> inside;
    std::vector<unsigned char> wholeRows;
    DeviationSums deviations;
};

void AddDeviations(DeviationSums& sums, const DeviationSums& more)
{
    sums.absolute += more.absolute;
    sums.squares += more.squares;
    sums.cubes += more.cubes;
    sums.fourths += more.fourths;
    sums.side += more.side;
}

void AddDeviation(DeviationSums& sums, double d)
{
    const double d2 = d * d;
    sums.absolute += std::fabs(d);
    sums.squares += d2;
    sums.cubes += d2 * d;
    sums.fourths += d2 * d2;
    sums.side += (d > 0) - (d < 0);
}

FirstPass MeasureSurface(const Surface& surface, const Usable& usable, const Bracket& bracket,
                         const std::optional<double>& shift)
{
    const ImageView& image = surface.image;
    const RowBlocks blocks = MakeRowBlocks(image.rows, image.columns);
    std::vector<FirstPass> parts(blocks.Count());
    FirstPass pass;
    pass.wholeRows.assign(image.rows, 0);
    RunBlocks(blocks, ThreadsFor(image.Count()),
              [&](std::size_t block, unsigned)
              {
                  std::vector<double> row(image.columns);
                  FirstPass& part = parts[block];
                  for (std::size_t r = blocks.Begin(block); r < blocks.End(block); ++r)
                  {
                      surface.Row(r, row.data());
                      if (usable.IsPlain())
                      {
                          const std::size_t kept = part.inside.size();
                          DeviationSums deviations;
                          const RowExtent whole =
                              shift ? MeasureRowAndDeviations(row.data(), image.columns,
                                                              bracket.low, bracket.high, *shift,
                                                              part.inside, deviations)
                                    : MeasureRow(row.data(), image.columns, bracket.low,
                                                 bracket.high, part.inside);
                          if (std::isfinite(whole.sum))
                          {
                              AddDeviations(part.deviations, deviations);
                              part.extent.count += image.columns;
                              part.extent.sum += whole.sum;
                              part.extent.minimum = std::min(part.extent.minimum, whole.minimum);
                              part.extent.maximum = std::max(part.extent.maximum, whole.maximum);
                              part.below += whole.below;
                              pass.wholeRows[r] = 1;
                              continue;
                          }
                          part.inside.resize(kept);
                      }
                      const std::size_t first = r * image.columns;
                      for (std::size_t c = 0; c < image.columns; ++c)
                      {
                          const double value = row[c];
                          if (!usable.Includes(value, first + c))
                          {
                              continue;
                          }
                          ++part.extent.count;
                          part.extent.sum += value;
                          part.extent.minimum = std::min(part.extent.minimum, value);
                          part.extent.maximum = std::max(part.extent.maximum, value);
                          part.below += value < bracket.low;
                          if (value >= bracket.low && value <= bracket.high)
                          {
                              part.inside.push_back(value);
                          }
                          if (shift)
                          {
                              AddDeviation(part.deviations, value - *shift);
                          }
                      }
                  }
              });
    for (FirstPass& part : parts)
    {
        pass.extent.count += part.extent.count;
        pass.extent.sum += part.extent.sum;
        pass.extent.minimum = std::min(pass.extent.minimum, part.extent.minimum);
        pass.extent.maximum = std::max(pass.extent.maximum, part.extent.maximum);
        pass.below += part.below;
        pass.inside.insert(pass.inside.end(), part.inside.begin(), part.inside.end());
        AddDeviations(pass.deviations, part.deviations);
    }
    return pass;
}

DeviationSums SumDeviations(const Surface& surface, const Usable& usable, double mean,
                            const std::vector<unsigned char>& wholeRows)
{
    const ImageView& image = surface.image;
    const RowBlocks blocks = MakeRowBlocks(image.rows, image.columns);
    std::vector<DeviationSums> parts(blocks.Count());
    RunBlocks(blocks, ThreadsFor(image.Count()),
              [&](std::size_t block, unsigned)
              {
                  std::vector<double> row(image.columns);
                  DeviationSums& part = parts[block];
                  for (std::size_t r = blocks.Begin(block); r < blocks.End(block); ++r)
                  {
                      surface.Row(r, row.data());
                      if (wholeRows[r])
                      {
                          AddDeviations(part, RowDeviations(row.data(), image.columns, mean));
                          continue;
                      }
                      const std::size_t first = r * image.columns;
                      for (std::size_t c = 0; c < image.columns; ++c)
                      {
                          if (!usable.Includes(row[c], first + c))
                          {
                              continue;
                          }
                          AddDeviation(part, row[c] - mean);
                      }
                  }
              });
    DeviationSums sums;
    for (const DeviationSums& part : parts)
    {
        AddDeviations(sums, part);
    }
    return sums;
}

// The median from the first pass's bracket, or, when the middle ranks fell outside it, by
// counting.
double Median(const Surface& surface, const Usable& usable, FirstPass& pass)
{
    const std::uint64_t count = pass.extent.count;
    // One middle sample for an odd count, the mean of two for an even one.
    const std::uint64_t ranks[2] = {(count - 1) / 2, count / 2};
    double values[2];
    if (ranks[0] >= pass.below && ranks[1] < pass.below + pass.inside.size())
    {
        const auto nth = pass.inside.begin() + static_cast<std::ptrdiff_t>(ranks[0] - pass.below);
        std::nth_element(pass.inside.begin(), nth, pass.inside.end());
        values[0] = *nth;
        // Everything after the first middle sample is at least as large: the next rank is their
        // smallest.
        values[1] =
            ranks[1] == ranks[0] ? values[0] : *std::min_element(nth + 1, pass.inside.end());
    }
    else
    {
        const auto counted = ValuesAtRanks(surface, usable, pass.extent, {ranks[0], ranks[1]});
        values[0] = counted[0];
        values[1] = counted[1];
    }
    return ranks[0] == ranks[1] ? values[0] : (values[0] + values[1]) / 2.0;
}

// Three consecutive rows of the surface, the border rows repeated outwards.
class RowWindow
{
public:
    explicit RowWindow(const Surface& surface)
        : m_Surface(surface), m_Rows{std::vector<double>(surface.image.columns),
                                     std::vector<double>(surface.image.columns),
                                     std::vector<double>(surface.image.columns)}
    {
    }

    // Rows r-1, r and r+1 (clamped) as above, here and below.
    void MoveTo(std::size_t r)
    {
        const std::size_t last = m_Surface.image.rows - 1;
        m_Surface.Row(r == 0 ? 0 : r - 1, m_Rows[0].data());
        m_Surface.Row(r, m_Rows[1].data());
        m_Surface.Row(r == last ? last : r + 1, m_Rows[2].data());
    }

    const double* Above() const { return m_Rows[0].data(); }
    const double* Here() const { return m_Rows[1].data(); }
    const double* Below() const { return m_Rows[2].data(); }

private:
    const Surface& m_Surface;
    std::array<std::vector<double>, 3> m_Rows;
};

struct HybridSums
{
    std::uint64_t gradientCount = 0;
    double squaredGradients = 0.0;
    std::uint64_t areaCount = 0;
    double area = 0.0;
};

// One-sided on the border, central inside; 0 along a single line.
double Derivative(const double* line, std::size_t index, std::size_t count, std::ptrdiff_t stride,
                  double spacing)
{
    if (count < 2)
    {
        return 0.0;
    }
    const auto at = [&](std::size_t i) { return line[static_cast<std::ptrdiff_t>(i) * stride]; };
    if (index == 0)
    {
        return (at(1) - at(0)) / spacing;
    }
    if (index == count - 1)
    {
        return (at(index) - at(index - 1)) / spacing;
    }
    return (at(index + 1) - at(index - 1)) / (2.0 * spacing);
}

double TriangleArea(const std::array<double, 3>& a, const std::array<double, 3>& b)
{
    const double x = a[1] * b[2] - a[2] * b[1];
    const double y = a[2] * b[0] - a[0] * b[2];
    const double z = a[0] * b[1] - a[1] * b[0];
    return 0.5 * std::sqrt(x * x + y * y + z * z);
}

// The pixel's area over four triangles from its centre to its corners, each corner at the mean
// of the four pixels around it; NaN when any of the nine pixels is not finite.
double PixelArea(const RowWindow& window, std::size_t c, std::size_t columns,
                 const PixelSize& pixel, double metresPerHeightUnit)
{
    const std::size_t left = c == 0 ? 0 : c - 1;
    const std::size_t right = c + 1 == columns ? c : c + 1;
    const double* rows[3] = {window.Above(), window.Here(), window.Below()};
    const double centre = rows[1][c];
    // Heights relative to the centre, in metres.
    const auto corner = [&](int dy, int dx)
    {
        const double* a = rows[1 + dy];
        const std::size_t side = dx < 0 ? left : right;
        return ((a[c] + a[side] + rows[1][c] + rows[1][side]) / 4.0 - centre) * metresPerHeightUnit;
    };
    const double hx = pixel.x / 2.0;
    const double hy = pixel.y / 2.0;
    const std::array<double, 3> topLeft{-hx, -hy, corner(-1, -1)};
    const std::array<double, 3> topRight{hx, -hy, corner(-1, 1)};
    const std::array<double, 3> bottomRight{hx, hy, corner(1, 1)};
    const std::array<double, 3> bottomLeft{-hx, hy, corner(1, -1)};
    return TriangleArea(topLeft, topRight) + TriangleArea(topRight, bottomRight) +
           TriangleArea(bottomRight, bottomLeft) + TriangleArea(bottomLeft, topLeft);
}

HybridSums SumHybrid(const Surface& surface, const Usable& usable, const Lateral& lateral)
{
    const ImageView& image = surface.image;
    const RowBlocks blocks = MakeRowBlocks(image.rows, image.columns);
    std::vector<HybridSums> parts(blocks.Count());
    const double scale = lateral.metresPerHeightUnit;
    RunBlocks(
        blocks, ThreadsFor(image.Count()),
        [&](std::size_t block, unsigned)
        {
            RowWindow window(surface);
            HybridSums& part = parts[block];
            const auto columnStride = static_cast<std::ptrdiff_t>(1);
            for (std::size_t r = blocks.Begin(block); r < blocks.End(block); ++r)
            {
                window.MoveTo(r);
                const std::size_t first = r * image.columns;
                for (std::size_t c = 0; c < image.columns; ++c)
                {
                    const double here = window.Here()[c];
                    if (!usable.Includes(here, first + c))
                    {
                        continue;
                    }
                    const double dx =
                        Derivative(window.Here(), c, image.columns, columnStride, lateral.pixel.x);
                    double dy = 0.0;
                    if (image.rows > 1)
                    {
                        const double* rows[3] = {window.Above(), window.Here(), window.Below()};
                        if (r == 0)
                        {
                            dy = (rows[2][c] - rows[1][c]) / lateral.pixel.y;
                        }
                        else if (r + 1 == image.rows)
                        {
                            dy = (rows[1][c] - rows[0][c]) / lateral.pixel.y;
                        }
                        else
                        {
                            dy = (rows[2][c] - rows[0][c]) / (2.0 * lateral.pixel.y);
                        }
                    }
                    const double squared = (dx * dx + dy * dy) * scale * scale;
                    if (std::isfinite(squared))
                    {
                        ++part.gradientCount;
                        part.squaredGradients += squared;
                    }
                    const double area = PixelArea(window, c, image.columns, lateral.pixel, scale);
                    if (std::isfinite(area))
                    {
                        ++part.areaCount;
                        part.area += area;
                    }
                }
            }
        });
    HybridSums sums;
    for (const HybridSums& part : parts)
    {
        sums.gradientCount += part.gradientCount;
        sums.squaredGradients += part.squaredGradients;
        sums.areaCount += part.areaCount;
        sums.area += part.area;
    }
    return sums;
}

bool UsableLateral(const std::optional<Lateral>& lateral)
{
    return lateral && std::isfinite(lateral->pixel.x) && lateral->pixel.x > 0 &&
           std::isfinite(lateral->pixel.y) && lateral->pixel.y > 0 &&
           std::isfinite(lateral->metresPerHeightUnit) && lateral->metresPerHeightUnit > 0;
}

// The deviations from the mean, from a first pass that summed them from a shift close to it:
// the sums of powers move exactly to the mean, and |d| by the count on either side, which is
// exact but for samples between shift and mean. Nothing when the shift was not close enough to
// make that negligible.
std::optional<DeviationSums> MoveToMean(const DeviationSums& fromShift, double shift, double mean,
                                        std::uint64_t count)
{
    const auto n = static_cast<double>(count);
    const double delta = mean - shift;
    const double variance = fromShift.squares / n - delta * delta;
    if (!(std::fabs(delta) <= 1e-7 * std::sqrt(std::max(variance, 0.0))))
    {
        return std::nullopt;
    }
    const DeviationSums& s = fromShift;
    const double d2 = delta * delta;
    DeviationSums sums;
    sums.absolute = s.absolute - delta * static_cast<double>(s.side);
    sums.squares = s.squares - n * d2;
    sums.cubes = s.cubes - 3 * delta * s.squares + 2 * n * d2 * delta;
    sums.fourths = s.fourths - 4 * delta * s.cubes + 6 * d2 * s.squares - 3 * n * d2 * d2;
    return sums;
}

// knownMean is where the mean of the used samples must lie when the levelling fixes it (a fit
// with a constant term leaves residuals that sum to zero): the deviations are then summed in the
// first pass and the second is not needed.
HeightParameters Figures(const Surface& surface, const Usable& usable,
                         const std::optional<Lateral>& lateral,
                         const std::optional<double>& knownMean = std::nullopt)
{
    HeightParameters figures;
    FirstPass pass = MeasureSurface(surface, usable, MedianBracket(surface, usable), knownMean);
    const Extent& extent = pass.extent;
    figures.count = extent.count;
    figures.excluded = surface.image.Count() - extent.count;
    if (extent.count == 0)
    {
        figures.mean = figures.median = figures.minimum = figures.maximum = NaN;
        figures.Sa = figures.Sq = figures.Ssk = figures.Sku = NaN;
        figures.Sp = figures.Sv = figures.Sz = NaN;
        return figures;
    }
    const auto n = static_cast<double>(extent.count);
    figures.mean = extent.sum / n;
    figures.minimum = extent.minimum;
    figures.maximum = extent.maximum;
    std::optional<DeviationSums> moved;
    if (knownMean)
    {
        moved = MoveToMean(pass.deviations, *knownMean, figures.mean, extent.count);
    }
    const DeviationSums sums =
        moved ? *moved : SumDeviations(surface, usable, figures.mean, pass.wholeRows);
    figures.Sa = sums.absolute / n;
    figures.Sq = std::sqrt(sums.squares / n);
    const double variance = sums.squares / n;
    // A flat surface has no shape to skew.
    figures.Ssk = variance > 0 ? (sums.cubes / n) / (variance * figures.Sq) : NaN;
    figures.Sku = variance > 0 ? (sums.fourths / n) / (variance * variance) : NaN;
    figures.Sp = figures.maximum - figures.mean;
    figures.Sv = figures.mean - figures.minimum;
    figures.Sz = figures.Sp + figures.Sv;
    figures.median = Median(surface, usable, pass);

    if (UsableLateral(lateral))
    {
        const HybridSums hybrid = SumHybrid(surface, usable, *lateral);
        if (hybrid.gradientCount > 0)
        {
            figures.Sdq =
                std::sqrt(hybrid.squaredGradients / static_cast<double>(hybrid.gradientCount));
        }
        if (hybrid.areaCount > 0)
        {
            const double projected =
                static_cast<double>(hybrid.areaCount) * lateral->pixel.x * lateral->pixel.y;
            figures.area = hybrid.area;
            figures.Sdr = hybrid.area / projected - 1.0;
        }
    }
    return figures;
}
} // namespace

HeightParameters ComputeHeightParameters(const ImageView& image, PixelMask mask,
                                         const std::optional<Lateral>& lateral)
{
    const Background none(image.rows, image.columns);
    Usable usable;
    usable.mask = mask;
    return Figures(Surface{image, none}, usable, lateral);
}

HeightParameters AnalyseSurface(const ImageView& image, const LevelMethod& method,
                                const Exclusion& exclusion, const std::optional<Lateral>& lateral)
{
    const Background background = FitBackground(image, method, exclusion);
    const Surface surface{image, background};
    // Fits with a constant term over every finite sample leave residuals whose mean is zero.
    std::optional<double> knownMean;
    if (!method.IsNone() && exclusion.IsEmpty())
    {
        const StepKind last = method.Steps().back().kind;
        if (last == StepKind::Plane || last == StepKind::Polynomial || last == StepKind::RowsMean ||
            last == StepKind::RowsPolynomial || last == StepKind::ZeroMean)
        {
            knownMean = 0.0;
        }
    }
    return Figures(surface, ResolveExclusion(surface, exclusion), lateral, knownMean);
}

} // namespace Kiv::Analysis
