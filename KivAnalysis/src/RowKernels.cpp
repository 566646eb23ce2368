#include "RowKernels.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

// The lane helpers below are inlined into each loop and never cross a call, so the calling
// convention for 256-bit vectors that GCC warns about does not arise.
#pragma GCC diagnostic ignored "-Wpsabi"

namespace Kiv::Analysis::Detail
{

namespace
{
// One running sum per power of a fit of degree up to 4.
constexpr int MAX_DEGREE_SUMS = 5;
constexpr std::size_t LANES = 4;
using Lanes = double __attribute__((vector_size(LANES * sizeof(double))));
using LaneFlags = long long __attribute__((vector_size(LANES * sizeof(long long))));

__attribute__((always_inline)) inline Lanes Load(const double* values)
{
    Lanes lanes;
    std::memcpy(&lanes, values, sizeof lanes);
    return lanes;
}

__attribute__((always_inline)) inline Lanes Broadcast(double value)
{
    return Lanes{value, value, value, value};
}

// Lanes combined pairwise, always in the same order.
__attribute__((always_inline)) inline double Total(const Lanes& lanes)
{
    return (lanes[0] + lanes[2]) + (lanes[1] + lanes[3]);
}

__attribute__((always_inline)) inline long long Total(const LaneFlags& lanes)
{
    long long total = 0;
    for (std::size_t lane = 0; lane < LANES; ++lane)
    {
        total += lanes[lane];
    }
    return total;
}

__attribute__((always_inline)) inline bool Any(const LaneFlags& lanes)
{
    long long any = 0;
    for (std::size_t lane = 0; lane < LANES; ++lane)
    {
        any |= lanes[lane];
    }
    return any != 0;
}

__attribute__((always_inline)) inline double Smallest(const Lanes& lanes)
{
    double smallest = lanes[0];
    for (std::size_t lane = 1; lane < LANES; ++lane)
    {
        smallest = std::min(smallest, lanes[lane]);
    }
    return smallest;
}

__attribute__((always_inline)) inline double Largest(const Lanes& lanes)
{
    double largest = lanes[0];
    for (std::size_t lane = 1; lane < LANES; ++lane)
    {
        largest = std::max(largest, lanes[lane]);
    }
    return largest;
}
} // namespace

KIV_WIDE_VECTORS
bool AllFinite(const double* z, std::size_t count)
{
    // x - x is 0 for a finite x and NaN for NaN or an infinity.
    Lanes differences = {};
    std::size_t i = 0;
    for (; i + LANES <= count; i += LANES)
    {
        const Lanes v = Load(z + i);
        differences += v - v;
    }
    double rest = 0.0;
    for (; i < count; ++i)
    {
        rest += z[i] - z[i];
    }
    return Total(differences) + rest == 0.0;
}

KIV_WIDE_VECTORS
void NarrowRow(const double* __restrict z, std::size_t count, float* __restrict out)
{
    for (std::size_t i = 0; i < count; ++i)
    {
        out[i] = static_cast<float>(z[i]);
    }
}

KIV_WIDE_VECTORS
void RowMoments(const double* z, const double* u, std::size_t count, int degree, double* moments)
{
    Lanes sums[MAX_DEGREE_SUMS] = {};
    std::size_t i = 0;
    for (; i + LANES <= count; i += LANES)
    {
        const Lanes x = Load(u + i);
        Lanes term = Load(z + i);
        sums[0] += term;
        for (int k = 1; k <= degree; ++k)
        {
            term *= x;
            sums[k] += term;
        }
    }
    for (int k = 0; k <= degree; ++k)
    {
        moments[k] = 0.0;
    }
    for (std::size_t lane = 0; i < count; ++i, ++lane)
    {
        double term = z[i];
        for (int k = 0; k <= degree; ++k)
        {
            sums[k][lane] += term;
            term *= u[i];
        }
    }
    for (int k = 0; k <= degree; ++k)
    {
        moments[k] = Total(sums[k]);
    }
}

namespace
{
// One loop for both measures; the deviations cost a third of it and are summed only when asked.
template <bool WITH_DEVIATIONS>
__attribute__((always_inline)) inline RowExtent
Measure(const double* z, std::size_t count, double low, double high, double shift,
        std::vector<double>& inside, DeviationSums& deviations)
{
    const double infinity = std::numeric_limits<double>::infinity();
    Lanes sum = {};
    Lanes minimum = Broadcast(infinity);
    Lanes maximum = Broadcast(-infinity);
    LaneFlags below = {};
    Lanes absolute = {};
    Lanes squares = {};
    Lanes cubes = {};
    Lanes fourths = {};
    LaneFlags side = {};
    const Lanes lows = Broadcast(low);
    const Lanes highs = Broadcast(high);
    const Lanes shifts = Broadcast(shift);
    const Lanes zeros = {};
    std::size_t i = 0;
    for (; i + LANES <= count; i += LANES)
    {
        const Lanes v = Load(z + i);
        sum += v;
        minimum = v < minimum ? v : minimum;
        maximum = v > maximum ? v : maximum;
        below -= v < lows; // a true comparison is -1 in every bit
        if (WITH_DEVIATIONS)
        {
            const Lanes d = v - shifts;
            const Lanes d2 = d * d;
            absolute += d < zeros ? -d : d;
            squares += d2;
            cubes += d2 * d;
            fourths += d2 * d2;
            side += (d < zeros) - (d > zeros);
        }
        const LaneFlags in = (v >= lows) & (v <= highs);
        // Few samples fall inside the bracket: most groups of lanes skip this.
        if (Any(in))
        {
            for (std::size_t lane = 0; lane < LANES; ++lane)
            {
                if (in[lane])
                {
                    inside.push_back(v[lane]);
                }
            }
        }
    }
    for (std::size_t lane = 0; i < count; ++i, ++lane)
    {
        const double v = z[i];
        sum[lane] += v;
        minimum[lane] = std::min(minimum[lane], v);
        maximum[lane] = std::max(maximum[lane], v);
        below[lane] += v < low;
        if (WITH_DEVIATIONS)
        {
            const double d = v - shift;
            absolute[lane] += std::fabs(d);
            squares[lane] += d * d;
            cubes[lane] += d * d * d;
            fourths[lane] += d * d * d * d;
            side[lane] += (d > 0) - (d < 0);
        }
        if (v >= low && v <= high)
        {
            inside.push_back(v);
        }
    }
    RowExtent extent;
    extent.sum = Total(sum);
    extent.minimum = Smallest(minimum);
    extent.maximum = Largest(maximum);
    extent.below = static_cast<std::uint64_t>(Total(below));
    if (WITH_DEVIATIONS)
    {
        deviations.absolute += Total(absolute);
        deviations.squares += Total(squares);
        deviations.cubes += Total(cubes);
        deviations.fourths += Total(fourths);
        deviations.side += Total(side);
    }
    return extent;
}
} // namespace

KIV_WIDE_VECTORS
RowExtent MeasureRow(const double* z, std::size_t count, double low, double high,
                     std::vector<double>& inside)
{
    DeviationSums unused;
    return Measure<false>(z, count, low, high, 0.0, inside, unused);
}

KIV_WIDE_VECTORS
RowExtent MeasureRowAndDeviations(const double* z, std::size_t count, double low, double high,
                                  double shift, std::vector<double>& inside,
                                  DeviationSums& deviations)
{
    return Measure<true>(z, count, low, high, shift, inside, deviations);
}

KIV_WIDE_VECTORS
DeviationSums RowDeviations(const double* z, std::size_t count, double mean)
{
    Lanes absolute = {};
    Lanes squares = {};
    Lanes cubes = {};
    Lanes fourths = {};
    const Lanes means = Broadcast(mean);
    std::size_t i = 0;
    for (; i + LANES <= count; i += LANES)
    {
        const Lanes d = Load(z + i) - means;
        const Lanes d2 = d * d;
        absolute += d < 0 ? -d : d;
        squares += d2;
        cubes += d2 * d;
        fourths += d2 * d2;
    }
    for (std::size_t lane = 0; i < count; ++i, ++lane)
    {
        const double d = z[i] - mean;
        absolute[lane] += std::fabs(d);
        squares[lane] += d * d;
        cubes[lane] += d * d * d;
        fourths[lane] += d * d * d * d;
    }
    return {Total(absolute), Total(squares), Total(cubes), Total(fourths)};
}

} // namespace Kiv::Analysis::Detail
