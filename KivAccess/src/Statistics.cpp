#include "Kiv/Access/Statistics.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <limits>

namespace Kiv::Access
{

namespace
{

// Independent running figures, one set a lane, let the processor overlap the additions that a
// single running sum would chain one after another (and lose fewer digits over millions of
// samples). Four lanes of five figures still fit in registers.
constexpr std::size_t LANES = 4;

struct LaneFigures
{
    double sum[LANES] = {};
    double shiftedSum[LANES] = {};
    double shiftedSquares[LANES] = {};
    double minimum[LANES];
    double maximum[LANES];
    std::uint64_t nonFinite = 0;

    LaneFigures()
    {
        std::fill(std::begin(minimum), std::end(minimum), std::numeric_limits<double>::infinity());
        std::fill(std::begin(maximum), std::end(maximum), -std::numeric_limits<double>::infinity());
    }

    static double Combine(const double (&lanes)[LANES])
    {
        return (lanes[0] + lanes[2]) + (lanes[1] + lanes[3]);
    }
};

bool AllFinite(const float* samples)
{
    // A float is NaN or infinite exactly when its exponent bits are all set.
    std::uint32_t bits[LANES];
    std::memcpy(bits, samples, sizeof(bits));
    bool finite = true;
#pragma GCC unroll 4
    for (std::size_t lane = 0; lane < LANES; ++lane)
    {
        finite &= (bits[lane] & 0x7F800000u) != 0x7F800000u;
    }
    return finite;
}

inline void AddFinite(LaneFigures& figures, std::size_t lane, double value, double shift)
{
    const double deviation = value - shift;
    figures.sum[lane] += value;
    figures.shiftedSum[lane] += deviation;
    figures.shiftedSquares[lane] += deviation * deviation;
    figures.minimum[lane] = std::min(figures.minimum[lane], value);
    figures.maximum[lane] = std::max(figures.maximum[lane], value);
}

// Samples that are not finite are counted and left out of every figure.
void AddSample(LaneFigures& figures, std::size_t lane, double value, double shift)
{
    if (!std::isfinite(value))
    {
        ++figures.nonFinite;
        return;
    }
    AddFinite(figures, lane, value, shift);
}

} // namespace

SampleStatistics ComputeStatistics(const float* samples, std::size_t count)
{
    SampleStatistics result;
    result.count = count;
    // One pass over the samples: deviations are summed from the first finite sample rather than
    // from zero, which keeps the roughness of a surface far from zero from cancelling away its
    // digits without a second pass over the mean.
    const float* const firstFinite =
        std::find_if(samples, samples + count, [](float value) { return std::isfinite(value); });
    const double shift = firstFinite == samples + count ? 0.0 : *firstFinite;

    LaneFigures figures;
    std::size_t i = 0;
    for (; i + LANES <= count; i += LANES)
    {
        if (AllFinite(samples + i))
        {
#pragma GCC unroll 4
            for (std::size_t lane = 0; lane < LANES; ++lane)
            {
                AddFinite(figures, lane, samples[i + lane], shift);
            }
            continue;
        }
        for (std::size_t lane = 0; lane < LANES; ++lane)
        {
            AddSample(figures, lane, samples[i + lane], shift);
        }
    }
    for (std::size_t lane = 0; i < count; ++i, ++lane)
    {
        AddSample(figures, lane, samples[i], shift);
    }

    result.nonFinite = figures.nonFinite;
    const std::uint64_t finite = count - figures.nonFinite;
    if (finite == 0)
    {
        const double nan = std::numeric_limits<double>::quiet_NaN();
        result.minimum = result.maximum = result.mean = result.rmsRoughness = nan;
        return result;
    }
    const auto n = static_cast<double>(finite);
    const double shiftedMean = LaneFigures::Combine(figures.shiftedSum) / n;
    const double meanSquare = LaneFigures::Combine(figures.shiftedSquares) / n;
    result.minimum = *std::min_element(std::begin(figures.minimum), std::end(figures.minimum));
    result.maximum = *std::max_element(std::begin(figures.maximum), std::end(figures.maximum));
    result.mean = LaneFigures::Combine(figures.sum) / n;
    result.rmsRoughness = std::sqrt(std::max(0.0, meanSquare - shiftedMean * shiftedMean));
    return result;
}

} // namespace Kiv::Access
