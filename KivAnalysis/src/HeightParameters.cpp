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
    double share = 1.0; // of the samples expected inside
};

// A bracket that holds nothing, for when no median is wanted.
const Bracket NO_BRACKET{std::numeric_limits<double>::infinity(),
                         -std::numeric_limits<double>::infinity(), 0.0};

// The sample is taken in short runs of neighbouring pixels, a cache line of samples each, so that
// it costs far fewer memory reads than values. The bracket narrows as the square root of the
// sample, so the samples kept in it number about 4 N / sqrt(m) for m sampled of N: a sample of
// (2 N)^(2/3) keeps the two together smallest, a few per cent of the samples at most.
const std::size_t RUN_LENGTH = 16;
const double FEWEST_SAMPLES = 1024;

// The bracket's ends need not be samples: the edges of the bins, over the sample's range, that
// hold the two ranks do, and counting into bins costs a fraction of a selection.
std::pair<double, double> BinEdgesAround(const std::vector<double>& sample, double lowRank,
                                         double highRank)
{
    const auto [least, most] = std::minmax_element(sample.begin(), sample.end());
    const std::size_t BINS = 1 << 12;
    const double width = (*most - *least) / BINS;
    if (!(width > 0))
    {
        return {*least, *most};
    }
    std::vector<std::uint32_t> counts(BINS, 0);
    for (const double value : sample)
    {
        ++counts[std::min(BINS - 1, static_cast<std::size_t>((value - *least) / width))];
    }
    double below = 0;
    std::size_t bin = 0;
    double low = -std::numeric_limits<double>::infinity();
    double high = std::numeric_limits<double>::infinity();
    for (; bin < BINS; ++bin)
    {
        if (lowRank >= 0 && below + counts[bin] > lowRank && std::isinf(low))
        {
            // One bin lower still, for rounding at the edge.
            low = *least + width * (static_cast<double>(bin) - 1);
        }
        below += counts[bin];
        if (below > highRank + 1)
        {
            high = *least + width * (static_cast<double>(bin) + 2);
            break;
        }
    }
    return {low, high};
}

Bracket MedianBracket(const Surface& surface, const Usable& usable)
{
    const ImageView& image = surface.image;
    const double wanted =
        std::max(FEWEST_SAMPLES, std::cbrt(std::pow(2.0 * static_cast<double>(image.Count()), 2)));
    if (image.Count() == 0)
    {
        return {};
    }
    // A small image is sampled whole: its runs cannot outnumber what it holds.
    const std::size_t runs =
        std::clamp<std::size_t>(static_cast<std::size_t>(wanted) / RUN_LENGTH, 1,
                                (image.Count() + RUN_LENGTH - 1) / RUN_LENGTH);
    const std::size_t spacing = std::max<std::size_t>(1, image.Count() / runs);
    std::vector<double> sample;
    sample.reserve(runs * RUN_LENGTH);
    double values[RUN_LENGTH];
    for (std::size_t run = 0; run < runs; ++run)
    {
        // A run stops at the end of its row.
        const std::size_t first = run * spacing;
        const std::size_t row = first / image.columns;
        const std::size_t column = first % image.columns;
        const std::size_t length = std::min(RUN_LENGTH, image.columns - column);
        surface.background.ResidualSpan(image, row, column, length, values);
        for (std::size_t i = 0; i < length; ++i)
        {
            if (usable.Includes(values[i], first + i))
            {
                sample.push_back(values[i]);
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
    const auto [low, high] = BinEdgesAround(sample, middle - spread, middle + spread);
    bracket.low = low;
    bracket.high = high;
    // What the bins add to the width is small beside the spread, but counts all the same.
    bracket.share = std::min(1.0, 2.5 * (spread + 1.0) / count);
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
    std::vector<double> inside; // the whole pass's only
    std::vector<unsigned char> wholeRows;
    DeviationSums deviations;
};

void AddDeviation(DeviationSums& sums, double d)
{
    const double d2 = d * d;
    sums.absolute += std::fabs(d);
    sums.squares += d2;
    sums.cubes += d2 * d;
    sums.fourths += d2 * d2;
}

FirstPass MeasureSurface(const Surface& surface, const Usable& usable, const Bracket& bracket,
                         const std::optional<double>& shift)
{
    const ImageView& image = surface.image;
    const RowBlocks blocks = MakeRowBlocks(image.rows, image.columns);
    std::vector<FirstPass> parts(blocks.Count());
    FirstPass pass;
    pass.wholeRows.assign(image.rows, 0);
    // The samples inside the bracket go to one list a thread, made room for at once: their order
    // does not matter to a selection, and a list a block would grow and be copied block by block.
    const unsigned threads = ThreadsFor(image.Count());
    std::vector<std::vector<double>> inside(std::max(1u, threads));
    for (auto& list : inside)
    {
        const double expected = bracket.share * static_cast<double>(image.Count()) / inside.size();
        list.reserve(static_cast<std::size_t>(expected * 1.25) + image.columns);
    }
    RunBlocks(
        blocks, threads,
        [&](std::size_t block, unsigned thread)
        {
            std::vector<double> row(image.columns);
            std::vector<double> rowInside(image.columns);
            FirstPass& part = parts[block];
            std::vector<double>& kept = inside[thread];
            for (std::size_t r = blocks.Begin(block); r < blocks.End(block); ++r)
            {
                if (usable.IsPlain())
                {
                    DeviationSums deviations;
                    const SurfaceRow kernelRow = surface.background.KernelRow(image, r, row.data());
                    // Without a median to look for, the bracket's tests are left out.
                    const bool bracketed = bracket.share > 0;
                    const RowExtent whole =
                        !bracketed && shift
                            ? MeasureRowWithoutBracket(kernelRow, image.columns, *shift, deviations)
                        : shift ? MeasureRowAndDeviations(kernelRow, image.columns, bracket.low,
                                                          bracket.high, *shift, rowInside.data(),
                                                          deviations)
                                : MeasureRow(kernelRow, image.columns, bracket.low, bracket.high,
                                             rowInside.data());
                    if (std::isfinite(whole.sum))
                    {
                        AddDeviations(part.deviations, deviations);
                        part.extent.count += image.columns;
                        part.extent.sum += whole.sum;
                        part.extent.minimum = std::min(part.extent.minimum, whole.minimum);
                        part.extent.maximum = std::max(part.extent.maximum, whole.maximum);
                        part.below += whole.below;
                        pass.wholeRows[r] = 1;
                        kept.insert(kept.end(), rowInside.begin(),
                                    rowInside.begin() + static_cast<std::ptrdiff_t>(whole.inside));
                        continue;
                    }
                }
                surface.Row(r, row.data());
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
                        kept.push_back(value);
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
        AddDeviations(pass.deviations, part.deviations);
    }
    pass.inside = std::move(inside[0]);
    for (std::size_t thread = 1; thread < inside.size(); ++thread)
    {
        pass.inside.insert(pass.inside.end(), inside[thread].begin(), inside[thread].end());
        std::vector<double>().swap(inside[thread]);
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
                      if (wholeRows[r])
                      {
                          AddDeviations(part, RowDeviations(surface.background.KernelRow(
                                                                image, r, row.data()),
                                                            image.columns, mean));
                          continue;
                      }
                      surface.Row(r, row.data());
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
        const auto both = ValuesAtRankAndNext(pass.inside.data(), pass.inside.size(),
                                              static_cast<std::size_t>(ranks[0] - pass.below));
        values[0] = both.first;
        values[1] = both.second;
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

// The deviations from the mean, from a first pass that summed them from a shift close to it: the
// sums of powers move exactly to the mean. |d| moves by at most |mean - shift| a sample, which is
// left out: it is accepted only when that is below a part in 10^12 of Sq, as it is for the
// rounding noise a fit leaves in a mean that is zero by construction. Nothing otherwise.
std::optional<DeviationSums> MoveToMean(const DeviationSums& fromShift, double shift, double mean,
                                        std::uint64_t count)
{
    const auto n = static_cast<double>(count);
    const double delta = mean - shift;
    const double variance = fromShift.squares / n - delta * delta;
    if (!(std::fabs(delta) <= 1e-12 * std::sqrt(std::max(variance, 0.0))))
    {
        return std::nullopt;
    }
    const DeviationSums& s = fromShift;
    const double d2 = delta * delta;
    DeviationSums sums;
    sums.absolute = s.absolute;
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
                         const std::optional<double>& knownMean = std::nullopt,
                         MedianFigure median = MedianFigure::Computed)
{
    HeightParameters figures;
    const bool withMedian = median == MedianFigure::Computed;
    FirstPass pass = MeasureSurface(
        surface, usable, withMedian ? MedianBracket(surface, usable) : NO_BRACKET, knownMean);
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
    figures.median = withMedian ? Median(surface, usable, pass) : NaN;

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

std::vector<NamedFigure> NamedFigures(const HeightParameters& p)
{
    return {{"mean", p.mean, false},   {"median", p.median, false}, {"min", p.minimum, false},
            {"max", p.maximum, false}, {"Sa", p.Sa, false},         {"Sq", p.Sq, false},
            {"Ssk", p.Ssk, false},     {"Sku", p.Sku, false},       {"Sp", p.Sp, false},
            {"Sv", p.Sv, false},       {"Sz", p.Sz, false},         {"Sdq", p.Sdq, true},
            {"Sdr", p.Sdr, true},      {"area", p.area, true}};
}

HeightParameters ComputeHeightParameters(const ImageView& image, PixelMask mask,
                                         const std::optional<Lateral>& lateral)
{
    const Background none(image.rows, image.columns);
    Usable usable;
    usable.mask = mask;
    return Figures(Surface{image, none}, usable, lateral);
}

namespace
{

// The figures of the surface that background leaves, the background fitted by method.
HeightParameters LevelledFigures(const ImageView& image, const LevelMethod& method,
                                 const Background& background, const Exclusion& exclusion,
                                 const std::optional<Lateral>& lateral, MedianFigure median)
{
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
    return Figures(surface, ResolveExclusion(surface, exclusion), lateral, knownMean, median);
}

SampleFigures FiguresOf(const SampleSums& samples, std::uint64_t pixels)
{
    SampleFigures figures;
    const Extent& extent = samples.extent;
    figures.count = extent.count;
    figures.excluded = pixels - extent.count;
    if (extent.count == 0)
    {
        figures.mean = figures.minimum = figures.maximum = figures.Sq = NaN;
        return figures;
    }
    const auto n = static_cast<double>(extent.count);
    figures.mean = extent.sum / n;
    figures.minimum = extent.minimum;
    figures.maximum = extent.maximum;
    // The squares summed from the shift, moved to the mean: exact for a shift near the mean,
    // which the first finite sample of a scan is next to its range.
    const double delta = figures.mean - samples.shift;
    figures.Sq = std::sqrt(std::max(0.0, samples.squares / n - delta * delta));
    return figures;
}

double FirstFinite(const ImageView& image)
{
    const float* const end = image.samples + image.Count();
    const float* const found =
        std::find_if(image.samples, end, [](float value) { return std::isfinite(value); });
    return found == end ? 0.0 : *found;
}

} // namespace

HeightParameters AnalyseSurface(const ImageView& image, const LevelMethod& method,
                                const Exclusion& exclusion, const std::optional<Lateral>& lateral,
                                MedianFigure median)
{
    const Background background = FitBackground(image, method, exclusion);
    return LevelledFigures(image, method, background, exclusion, lateral, median);
}

SurfaceSummary SummariseSurface(const ImageView& image, const LevelMethod& method)
{
    SampleSums samples;
    samples.shift = FirstFinite(image);
    const Background background = FitBackground(image, method, {}, &samples);
    if (!samples.measured)
    {
        // A levelling that does not begin with a fit over every sample: a pass of their own.
        const Background none(image.rows, image.columns);
        const FirstPass pass =
            MeasureSurface(Surface{image, none}, Usable{}, NO_BRACKET, samples.shift);
        samples.extent = pass.extent;
        samples.squares = pass.deviations.squares;
    }
    SurfaceSummary summary;
    summary.asTheyAre = FiguresOf(samples, image.Count());
    summary.levelled =
        LevelledFigures(image, method, background, {}, std::nullopt, MedianFigure::Skipped);
    return summary;
}

} // namespace Kiv::Analysis
