#include "Kiv/Access/Statistics.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <limits>

// The lane helpers never cross a call, so the calling convention for 256-bit vectors that GCC
// warns about does not arise.
#pragma GCC diagnostic ignored "-Wpsabi"

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

// The same loop for processors with a 256-bit vector unit and for every other one, picked when
// the library loads. Each lane is its own sum in a fixed order, so the figures are the same to
// the last bit on either.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#define KIV_WIDE_VECTORS __attribute__((target_clones("avx2", "default")))
#else
#define KIV_WIDE_VECTORS
#endif

// Samples that are not finite are counted and left out of every figure.
void AddSample(LaneFigures& figures, std::size_t lane, double value, double shift)
{
    if (!std::isfinite(value))
    {
        ++figures.nonFinite;
        return;
    }
    const double deviation = value - shift;
    figures.sum[lane] += value;
    figures.shiftedSum[lane] += deviation;
    figures.shiftedSquares[lane] += deviation * deviation;
    figures.minimum[lane] = std::min(figures.minimum[lane], value);
    figures.maximum[lane] = std::max(figures.maximum[lane], value);
}

using Lanes = double __attribute__((vector_size(LANES * sizeof(double))));
using Floats = float __attribute__((vector_size(LANES * sizeof(float))));
using FloatBits = std::uint32_t __attribute__((vector_size(LANES * sizeof(float))));

// The lanes live in vector registers for the whole loop; a group of four that holds a dropout
// goes through them one by one, exactly as the scalar loop would.
KIV_WIDE_VECTORS
void AddSamples(LaneFigures& figures, const float* samples, std::size_t count, double shift)
{
    Lanes sum;
    Lanes shiftedSum;
    Lanes shiftedSquares;
    Lanes minimum;
    Lanes maximum;
    std::memcpy(&sum, figures.sum, sizeof sum);
    std::memcpy(&shiftedSum, figures.shiftedSum, sizeof shiftedSum);
    std::memcpy(&shiftedSquares, figures.shiftedSquares, sizeof shiftedSquares);
    std::memcpy(&minimum, figures.minimum, sizeof minimum);
    std::memcpy(&maximum, figures.maximum, sizeof maximum);
    const Lanes shifts = {shift, shift, shift, shift};
    const std::uint32_t exponent = 0x7F800000u;
    const FloatBits exponents = {exponent, exponent, exponent, exponent};
    std::size_t i = 0;
    for (; i + LANES <= count; i += LANES)
    {
        Floats narrow;
        std::memcpy(&narrow, samples + i, sizeof narrow);
        // A float is NaN or infinite exactly when its exponent bits are all set.
        const FloatBits bits = reinterpret_cast<FloatBits>(narrow) & exponents;
        if ((bits[0] == exponent) | (bits[1] == exponent) | (bits[2] == exponent) |
            (bits[3] == exponent))
        {
            for (std::size_t lane = 0; lane < LANES; ++lane)
            {
                const double value = samples[i + lane];
                if (!std::isfinite(value))
                {
                    ++figures.nonFinite;
                    continue;
                }
                const double deviation = value - shift;
                sum[lane] += value;
                shiftedSum[lane] += deviation;
                shiftedSquares[lane] += deviation * deviation;
                minimum[lane] = std::min(minimum[lane], value);
                maximum[lane] = std::max(maximum[lane], value);
            }
            continue;
        }
        const Lanes value = __builtin_convertvector(narrow, Lanes);
        const Lanes deviation = value - shifts;
        sum += value;
        shiftedSum += deviation;
        shiftedSquares += deviation * deviation;
        // As std::min and std::max: the running figure stays unless the value is beyond it.
        minimum = value < minimum ? value : minimum;
        maximum = maximum < value ? value : maximum;
    }
    std::memcpy(figures.sum, &sum, sizeof sum);
    std::memcpy(figures.shiftedSum, &shiftedSum, sizeof shiftedSum);
    std::memcpy(figures.shiftedSquares, &shiftedSquares, sizeof shiftedSquares);
    std::memcpy(figures.minimum, &minimum, sizeof minimum);
    std::memcpy(figures.maximum, &maximum, sizeof maximum);
    for (std::size_t lane = 0; i < count; ++i, ++lane)
    {
        AddSample(figures, lane, samples[i], shift);
    }
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
    AddSamples(figures, samples, count, shift);

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
