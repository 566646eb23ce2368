#include "Fits.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "Parallel.h"
#include "RowKernels.h"

namespace Kiv::Analysis::Detail
{

namespace
{
constexpr std::size_t MAX_POWERS = 2 * MAX_DEGREE + 1;

// A row's share of a polynomial fit in u: sums over its usable pixels of u^a (a <= 2N) and of
// u^i z (i <= N).
struct RowSums
{
    std::uint64_t count = 0;
    std::array<double, MAX_POWERS> powers{};
    std::array<double, MAX_DEGREE + 1> moments{};
};

class RowSummer
{
public:
    RowSummer(const Background& background, int degree)
        : m_Degree(degree), m_U(background.Columns())
    {
        // A whole row's power sums are the same for every row; a row with pixels left out sums
        // its own.
        for (std::size_t c = 0; c < background.Columns(); ++c)
        {
            AddPowers(m_WholeRow, background.U(c));
            m_U[c] = background.U(c);
        }
    }

    // buffer holds a row's worth of doubles. samples, when given, measures the surface's values
    // too, while the row is in the cache; only for a surface every finite value of which is used.
    void Sum(const Surface& surface, std::size_t r, const Usable& usable, double* buffer,
             RowSums& sums, SampleSums* samples) const
    {
        const Background& background = surface.background;
        const std::size_t columns = background.Columns();
        const std::size_t firstPixel = r * columns;
        if (usable.IsPlain())
        {
            double moments[MAX_DEGREE + 1];
            const SurfaceRow row = background.KernelRow(surface.image, r, buffer);
            RowSpread spread;
            if (samples)
            {
                RowMomentsAndSpread(row, m_U.data(), columns, m_Degree, samples->shift, moments,
                                    spread);
            }
            else
            {
                RowMoments(row, m_U.data(), columns, m_Degree, moments);
            }
            if (std::all_of(moments, moments + m_Degree + 1,
                            [](double m) { return std::isfinite(m); }))
            {
                sums.count = columns;
                std::copy(moments, moments + m_Degree + 1, sums.moments.begin());
                sums.powers = m_WholeRow;
                if (samples)
                {
                    samples->Add(columns, moments[0], spread.minimum, spread.maximum,
                                 spread.squares);
                }
                return;
            }
        }
        surface.Row(r, buffer);
        const double* row = buffer;
        for (std::size_t c = 0; c < columns; ++c)
        {
            const double z = row[c];
            if (!usable.Includes(z, firstPixel + c))
            {
                continue;
            }
            if (samples)
            {
                const double d = z - samples->shift;
                samples->Add(1, z, z, z, d * d);
            }
            ++sums.count;
            double term = z;
            const double u = background.U(c);
            for (int i = 0; i <= m_Degree; ++i)
            {
                sums.moments[static_cast<std::size_t>(i)] += term;
                term *= u;
            }
        }
        if (sums.count == columns)
        {
            sums.powers = m_WholeRow;
            return;
        }
        for (std::size_t c = 0; c < columns; ++c)
        {
            if (usable.Includes(row[c], firstPixel + c))
            {
                AddPowers(sums.powers, background.U(c));
            }
        }
    }

private:
    void AddPowers(std::array<double, MAX_POWERS>& powers, double u) const
    {
        double term = 1.0;
        for (int a = 0; a <= 2 * m_Degree; ++a)
        {
            powers[static_cast<std::size_t>(a)] += term;
            term *= u;
        }
    }

    int m_Degree;
    std::vector<double> m_U;
    std::array<double, MAX_POWERS> m_WholeRow{};
};

// Every row's sums, in parallel; rows are independent. The samples' measures are summed a block
// at a time and the blocks added in order, so that they do not depend on the threads.
std::vector<RowSums> SumRows(const Surface& surface, const Usable& usable, int degree,
                             SampleSums* samples)
{
    const ImageView& image = surface.image;
    const RowSummer summer(surface.background, degree);
    std::vector<RowSums> sums(image.rows);
    const RowBlocks blocks = MakeRowBlocks(image.rows, image.columns);
    std::vector<SampleSums> parts(samples ? blocks.Count() : 0);
    for (auto& part : parts)
    {
        part.shift = samples->shift;
    }
    RunBlocks(blocks, ThreadsFor(image.Count()),
              [&](std::size_t block, unsigned)
              {
                  std::vector<double> row(image.columns);
                  SampleSums* const part = samples ? &parts[block] : nullptr;
                  for (std::size_t r = blocks.Begin(block); r < blocks.End(block); ++r)
                  {
                      summer.Sum(surface, r, usable, row.data(), sums[r], part);
                  }
              });
    for (const auto& part : parts)
    {
        samples->Add(part.extent.count, part.extent.sum, part.extent.minimum, part.extent.maximum,
                     part.squares);
    }
    if (samples)
    {
        samples->measured = true;
    }
    return sums;
}

// z = sum of a(i,j) u^i v^j over i + j <= N, least squares over the usable pixels.
void FitPolynomial(const Surface& surface, const Usable& usable, int degree, Background& background,
                   SampleSums* samples = nullptr)
{
    std::vector<std::pair<int, int>> terms; // (power of u, power of v)
    for (int total = 0; total <= degree; ++total)
    {
        for (int j = 0; j <= total; ++j)
        {
            terms.emplace_back(total - j, j);
        }
    }
    const std::size_t n = terms.size();
    const std::vector<RowSums> rows = SumRows(surface, usable, degree, samples);
    std::vector<double> g(n * n, 0.0);
    std::vector<double> b(n, 0.0);
    for (std::size_t r = 0; r < rows.size(); ++r)
    {
        if (rows[r].count == 0)
        {
            continue;
        }
        std::array<double, MAX_POWERS> vPowers{};
        vPowers[0] = 1.0;
        for (std::size_t a = 1; a < MAX_POWERS; ++a)
        {
            vPowers[a] = vPowers[a - 1] * background.V(r);
        }
        for (std::size_t p = 0; p < n; ++p)
        {
            const auto [i, j] = terms[p];
            b[p] +=
                vPowers[static_cast<std::size_t>(j)] * rows[r].moments[static_cast<std::size_t>(i)];
            for (std::size_t q = 0; q < n; ++q)
            {
                const auto [k, l] = terms[q];
                g[p * n + q] += vPowers[static_cast<std::size_t>(j + l)] *
                                rows[r].powers[static_cast<std::size_t>(i + k)];
            }
        }
    }
    const std::vector<double> a = SolveNormalEquations(std::move(g), std::move(b), n);
    for (std::size_t r = 0; r < background.Rows(); ++r)
    {
        std::array<double, MAX_DEGREE + 1> perRow{};
        for (std::size_t p = 0; p < n; ++p)
        {
            const auto [i, j] = terms[p];
            perRow[static_cast<std::size_t>(i)] += a[p] * std::pow(background.V(r), j);
        }
        background.AddToRow(r, perRow.data(), degree);
    }
}

// Each row minus its own least-squares polynomial in u (degree 0: its mean).
void FitRowPolynomials(const Surface& surface, const Usable& usable, int degree,
                       Background& background)
{
    const std::vector<RowSums> rows = SumRows(surface, usable, degree, nullptr);
    const auto n = static_cast<std::size_t>(degree + 1);
    for (std::size_t r = 0; r < rows.size(); ++r)
    {
        if (rows[r].count == 0)
        {
            continue;
        }
        std::vector<double> g(n * n);
        std::vector<double> b(n);
        for (std::size_t i = 0; i < n; ++i)
        {
            b[i] = rows[r].moments[i];
            for (std::size_t k = 0; k < n; ++k)
            {
                g[i * n + k] = rows[r].powers[i + k];
            }
        }
        const std::vector<double> a = SolveNormalEquations(std::move(g), std::move(b), n);
        background.AddToRow(r, a.data(), degree);
    }
}

// Each row minus the q-quantile of its usable pixels.
void FitRowQuantiles(const Surface& surface, const Usable& usable, double quantile,
                     Background& background)
{
    const ImageView& image = surface.image;
    std::vector<double> offsets(image.rows, 0.0);
    const RowBlocks blocks = MakeRowBlocks(image.rows, image.columns);
    RunBlocks(blocks, ThreadsFor(image.Count()),
              [&](std::size_t block, unsigned)
              {
                  std::vector<double> row(image.columns);
                  for (std::size_t r = blocks.Begin(block); r < blocks.End(block); ++r)
                  {
                      surface.Row(r, row.data());
                      std::size_t kept = image.columns;
                      if (!usable.IsPlain() || !AllFinite(row.data(), image.columns))
                      {
                          kept = 0;
                          for (std::size_t c = 0; c < image.columns; ++c)
                          {
                              if (usable.Includes(row[c], r * image.columns + c))
                              {
                                  row[kept++] = row[c];
                              }
                          }
                      }
                      offsets[r] = kept == 0 ? 0.0 : QuantileInPlace(row.data(), kept, quantile);
                  }
              });
    for (std::size_t r = 0; r < image.rows; ++r)
    {
        background.AddOffset(r, offsets[r]);
    }
}

// Offsets s(0) = 0, s(i+1) = s(i) + median(row(i+1) - row(i)) over the columns usable in both.
void FitRowMedianDifferences(const Surface& surface, const Usable& usable, Background& background)
{
    const ImageView& image = surface.image;
    if (image.rows < 2)
    {
        return;
    }
    std::vector<double> steps(image.rows - 1, 0.0);
    const RowBlocks blocks = MakeRowBlocks(image.rows - 1, image.columns);
    RunBlocks(blocks, ThreadsFor(image.Count()),
              [&](std::size_t block, unsigned)
              {
                  std::vector<double> upper(image.columns);
                  std::vector<double> lower(image.columns);
                  surface.Row(blocks.Begin(block), upper.data());
                  for (std::size_t r = blocks.Begin(block); r < blocks.End(block); ++r)
                  {
                      surface.Row(r + 1, lower.data());
                      std::vector<double> differences;
                      differences.reserve(image.columns);
                      for (std::size_t c = 0; c < image.columns; ++c)
                      {
                          if (usable.Includes(upper[c], r * image.columns + c) &&
                              usable.Includes(lower[c], (r + 1) * image.columns + c))
                          {
                              differences.push_back(lower[c] - upper[c]);
                          }
                      }
                      steps[r] = differences.empty()
                                     ? 0.0
                                     : QuantileInPlace(differences.data(), differences.size(), 0.5);
                      std::swap(upper, lower);
                  }
              });
    double offset = 0.0;
    for (std::size_t r = 1; r < image.rows; ++r)
    {
        offset += steps[r - 1];
        background.AddOffset(r, offset);
    }
}

// A shift that makes the minimum or the mean of every finite sample 0.
void FitZero(const Surface& surface, bool toMinimum, Background& background)
{
    const Extent extent = MeasureExtent(surface, Usable{});
    if (extent.count == 0)
    {
        return;
    }
    background.AddEverywhere(toMinimum ? extent.minimum
                                       : extent.sum / static_cast<double>(extent.count));
}

void FitStep(const LevelStep& step, const Surface& surface, const Usable& usable,
             Background& background)
{
    switch (step.kind)
    {
    case StepKind::Plane:
        return FitPolynomial(surface, usable, 1, background);
    case StepKind::Polynomial:
        return FitPolynomial(surface, usable, step.degree, background);
    case StepKind::RowsMedian:
        return FitRowQuantiles(surface, usable, 0.5, background);
    case StepKind::RowsQuantile:
        return FitRowQuantiles(surface, usable, step.quantile, background);
    case StepKind::RowsMean:
        return FitRowPolynomials(surface, usable, 0, background);
    case StepKind::RowsPolynomial:
        return FitRowPolynomials(surface, usable, step.degree, background);
    case StepKind::RowsMedianDifference:
        return FitRowMedianDifferences(surface, usable, background);
    case StepKind::ZeroMinimum:
    case StepKind::ZeroMean:
        return FitZero(surface, step.kind == StepKind::ZeroMinimum, background);
    }
}
} // namespace

Usable ResolveExclusion(const Surface& surface, const Exclusion& exclusion)
{
    Usable usable;
    usable.mask = exclusion.mask;
    if (exclusion.above)
    {
        usable.above = *exclusion.above;
    }
    if (exclusion.below)
    {
        usable.below = *exclusion.below;
    }
    if (exclusion.abovePercentile)
    {
        const double threshold =
            SurfaceQuantile(surface, Usable{}, *exclusion.abovePercentile / 100.0);
        if (!std::isnan(threshold))
        {
            usable.above = std::min(usable.above, threshold);
        }
    }
    return usable;
}

Background FitBackground(const ImageView& image, const LevelMethod& method,
                         const Exclusion& exclusion, SampleSums* samples)
{
    CheckExclusion(exclusion);
    Background background(image.rows, image.columns);
    for (const LevelStep& step : method.Steps())
    {
        const Surface surface{image, background};
        const Usable usable = ResolveExclusion(surface, exclusion);
        const bool first = &step == &method.Steps().front();
        if (samples && first && usable.IsPlain() &&
            (step.kind == StepKind::Plane || step.kind == StepKind::Polynomial))
        {
            FitPolynomial(surface, usable, step.kind == StepKind::Plane ? 1 : step.degree,
                          background, samples);
            continue;
        }
        FitStep(step, surface, usable, background);
    }
    return background;
}

std::vector<double> SolveNormalEquations(std::vector<double> g, std::vector<double> b,
                                         std::size_t n)
{
    // Cholesky factorisation G = L L^T; a pivot that has lost all but rounding noise of its
    // diagonal marks a direction without information, which is dropped.
    const double NOISE = 1e-12;
    std::vector<double> l(n * n, 0.0);
    std::vector<bool> dropped(n, false);
    for (std::size_t j = 0; j < n; ++j)
    {
        double pivot = g[j * n + j];
        for (std::size_t k = 0; k < j; ++k)
        {
            pivot -= l[j * n + k] * l[j * n + k];
        }
        if (!(g[j * n + j] > 0) || !(pivot > NOISE * g[j * n + j]))
        {
            dropped[j] = true;
            continue;
        }
        l[j * n + j] = std::sqrt(pivot);
        for (std::size_t i = j + 1; i < n; ++i)
        {
            double value = g[i * n + j];
            for (std::size_t k = 0; k < j; ++k)
            {
                value -= l[i * n + k] * l[j * n + k];
            }
            l[i * n + j] = value / l[j * n + j];
        }
    }
    std::vector<double> y(n, 0.0);
    for (std::size_t j = 0; j < n; ++j)
    {
        if (dropped[j])
        {
            continue;
        }
        double value = b[j];
        for (std::size_t k = 0; k < j; ++k)
        {
            value -= l[j * n + k] * y[k];
        }
        y[j] = value / l[j * n + j];
    }
    std::vector<double> x(n, 0.0);
    for (std::size_t j = n; j-- > 0;)
    {
        if (dropped[j])
        {
            continue;
        }
        double value = y[j];
        for (std::size_t k = j + 1; k < n; ++k)
        {
            value -= l[k * n + j] * x[k];
        }
        x[j] = value / l[j * n + j];
    }
    return x;
}

} // namespace Kiv::Analysis::Detail
