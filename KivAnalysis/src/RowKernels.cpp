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
using Floats = float __attribute__((vector_size(LANES * sizeof(float))));

#define KIV_INLINE __attribute__((always_inline)) inline

KIV_INLINE Lanes Load(const double* values)
{
    Lanes lanes;
    std::memcpy(&lanes, values, sizeof lanes);
    return lanes;
}

KIV_INLINE Lanes Broadcast(double value)
{
    return Lanes{value, value, value, value};
}

// Lanes combined pairwise, always in the same order.
KIV_INLINE double Total(const Lanes& lanes)
{
    return (lanes[0] + lanes[2]) + (lanes[1] + lanes[3]);
}

KIV_INLINE long long Total(const LaneFlags& lanes)
{
    return (lanes[0] + lanes[2]) + (lanes[1] + lanes[3]);
}

// Folded by shuffles, which stay in the vector unit, rather than lane by lane.
KIV_INLINE bool Any(const LaneFlags& lanes)
{
    const LaneFlags halves = lanes | __builtin_shuffle(lanes, LaneFlags{2, 3, 0, 1});
    return (halves | __builtin_shuffle(halves, LaneFlags{1, 0, 3, 2}))[0] != 0;
}

// |x| by clearing the sign bit: one instruction rather than a compare and a blend.
KIV_INLINE Lanes Magnitude(const Lanes& x)
{
    const long long noSign = 0x7FFFFFFFFFFFFFFFLL;
    return reinterpret_cast<Lanes>(reinterpret_cast<LaneFlags>(x) &
                                   LaneFlags{noSign, noSign, noSign, noSign});
}

KIV_INLINE double Smallest(const Lanes& lanes)
{
    return std::min(std::min(lanes[0], lanes[1]), std::min(lanes[2], lanes[3]));
}

KIV_INLINE double Largest(const Lanes& lanes)
{
    return std::max(std::max(lanes[0], lanes[1]), std::max(lanes[2], lanes[3]));
}

// Where a loop reads its values: a row of doubles, or samples less a linear background.
struct StoredValues
{
    const double* z;

    KIV_INLINE Lanes At(std::size_t i) const { return Load(z + i); }
    KIV_INLINE double One(std::size_t i) const { return z[i]; }
};

struct LinearResidual
{
    const float* samples;
    const double* u;
    double offset;
    double slope;

    KIV_INLINE Lanes At(std::size_t i) const
    {
        Floats narrow;
        std::memcpy(&narrow, samples + i, sizeof narrow);
        return __builtin_convertvector(narrow, Lanes) -
               (Broadcast(offset) + Broadcast(slope) * Load(u + i));
    }
    KIV_INLINE double One(std::size_t i) const { return samples[i] - (offset + slope * u[i]); }
};

KIV_INLINE LinearResidual Linear(const SurfaceRow& row)
{
    return {row.samples, row.u, row.offset, row.slope};
}

// The range and squared deviations of the values a loop reads, for the loops that may take them
// alongside their own work.
struct NoSpread
{
    KIV_INLINE void Add(const Lanes&) {}
    KIV_INLINE void AddOne(std::size_t, double) {}
    KIV_INLINE void Into(RowSpread&) const {}
};

struct LaneSpread
{
    Lanes minimum = Broadcast(std::numeric_limits<double>::infinity());
    Lanes maximum = Broadcast(-std::numeric_limits<double>::infinity());
    Lanes squares = {};
    Lanes shifts;

    explicit LaneSpread(double shift) : shifts(Broadcast(shift)) {}

    KIV_INLINE void Add(const Lanes& v)
    {
        minimum = v < minimum ? v : minimum;
        maximum = v > maximum ? v : maximum;
        const Lanes d = v - shifts;
        squares += d * d;
    }
    KIV_INLINE void AddOne(std::size_t lane, double v)
    {
        minimum[lane] = std::min(minimum[lane], v);
        maximum[lane] = std::max(maximum[lane], v);
        const double d = v - shifts[lane];
        squares[lane] += d * d;
    }
    KIV_INLINE void Into(RowSpread& spread) const
    {
        spread.minimum = Smallest(minimum);
        spread.maximum = Largest(maximum);
        spread.squares = Total(squares);
    }
};

// The degree is a constant of each loop, so that its powers unroll.
template <int DEGREE, class Source, class Spread = NoSpread>
KIV_INLINE void Moments(const Source& z, const double* u, std::size_t count, double* moments,
                        Spread&& spread = Spread())
{
    Lanes sums[DEGREE + 1] = {};
    std::size_t i = 0;
    for (; i + LANES <= count; i += LANES)
    {
        const Lanes x = Load(u + i);
        Lanes term = z.At(i);
        spread.Add(term);
        sums[0] += term;
        for (int k = 1; k <= DEGREE; ++k)
        {
            term *= x;
            sums[k] += term;
        }
    }
    for (std::size_t lane = 0; i < count; ++i, ++lane)
    {
        double term = z.One(i);
        spread.AddOne(lane, term);
        for (int k = 0; k <= DEGREE; ++k)
        {
            sums[k][lane] += term;
            term *= u[i];
        }
    }
    for (int k = 0; k <= DEGREE; ++k)
    {
        moments[k] = Total(sums[k]);
    }
}

template <class Source, class Spread = NoSpread>
KIV_INLINE void Moments(const Source& z, const double* u, std::size_t count, int degree,
                        double* moments, Spread&& spread = Spread())
{
    switch (degree)
    {
    case 0:
        return Moments<0>(z, u, count, moments, spread);
    case 1:
        return Moments<1>(z, u, count, moments, spread);
    case 2:
        return Moments<2>(z, u, count, moments, spread);
    case 3:
        return Moments<3>(z, u, count, moments, spread);
    default:
        return Moments<MAX_DEGREE_SUMS - 1>(z, u, count, moments, spread);
    }
}

// One loop for both measures; the deviations cost a third of it and are summed only when asked.
// The samples inside the bracket go to a buffer with room for the whole row rather than to a
// growing list: with no call in the loop, its running sums stay in registers.
template <bool WITH_DEVIATIONS, bool WITH_BRACKET, bool FROM_ZERO, class Source>
KIV_INLINE RowExtent Measure(const Source& z, std::size_t count, double low, double high,
                             double shift, double* kept, DeviationSums& deviations)
{
    std::size_t keptCount = 0;
    const double infinity = std::numeric_limits<double>::infinity();
    Lanes sum = {};
    Lanes minimum = Broadcast(infinity);
    Lanes maximum = Broadcast(-infinity);
    LaneFlags notBelow = {};
    Lanes absolute = {};
    Lanes squares = {};
    Lanes cubes = {};
    Lanes fourths = {};
    const Lanes lows = Broadcast(low);
    const Lanes highs = Broadcast(high);
    const Lanes shifts = Broadcast(shift);
    std::size_t i = 0;
    for (; i + LANES <= count; i += LANES)
    {
        const Lanes v = z.At(i);
        sum += v;
        minimum = v < minimum ? v : minimum;
        maximum = v > maximum ? v : maximum;
        // For a finite v, v < low is the opposite of v >= low, which the bracket needs anyway.
        const LaneFlags atLeastLow = v >= lows;
        if (WITH_BRACKET)
        {
            notBelow -= atLeastLow; // a true comparison is -1 in every bit
        }
        if (WITH_DEVIATIONS)
        {
            // From zero, as a fit with a constant term leaves them, d is the value itself.
            const Lanes d = FROM_ZERO ? v : v - shifts;
            const Lanes d2 = d * d;
            absolute += Magnitude(d);
            squares += d2;
            cubes += d2 * d;
            fourths += d2 * d2;
        }
        const LaneFlags in = atLeastLow & (v <= highs);
        // Few samples fall inside the bracket: most groups of lanes skip this.
        if (WITH_BRACKET && Any(in))
        {
            for (std::size_t lane = 0; lane < LANES; ++lane)
            {
                kept[keptCount] = v[lane];
                keptCount += static_cast<std::size_t>(in[lane] & 1);
            }
        }
    }
    for (std::size_t lane = 0; i < count; ++i, ++lane)
    {
        const double v = z.One(i);
        sum[lane] += v;
        minimum[lane] = std::min(minimum[lane], v);
        maximum[lane] = std::max(maximum[lane], v);
        notBelow[lane] += v >= low;
        if (WITH_DEVIATIONS)
        {
            const double d = FROM_ZERO ? v : v - shift;
            absolute[lane] += std::fabs(d);
            squares[lane] += d * d;
            cubes[lane] += d * d * d;
            fourths[lane] += d * d * d * d;
        }
        if (WITH_BRACKET && v >= low && v <= high)
        {
            kept[keptCount++] = v;
        }
    }
    RowExtent extent;
    extent.inside = keptCount;
    extent.sum = Total(sum);
    extent.minimum = Smallest(minimum);
    extent.maximum = Largest(maximum);
    extent.below = count - static_cast<std::uint64_t>(Total(notBelow));
    if (WITH_DEVIATIONS)
    {
        deviations.absolute += Total(absolute);
        deviations.squares += Total(squares);
        deviations.cubes += Total(cubes);
        deviations.fourths += Total(fourths);
    }
    return extent;
}

template <class Source>
KIV_INLINE DeviationSums Deviations(const Source& z, std::size_t count, double mean)
{
    Lanes absolute = {};
    Lanes squares = {};
    Lanes cubes = {};
    Lanes fourths = {};
    const Lanes means = Broadcast(mean);
    std::size_t i = 0;
    for (; i + LANES <= count; i += LANES)
    {
        const Lanes d = z.At(i) - means;
        const Lanes d2 = d * d;
        absolute += Magnitude(d);
        squares += d2;
        cubes += d2 * d;
        fourths += d2 * d2;
    }
    for (std::size_t lane = 0; i < count; ++i, ++lane)
    {
        const double d = z.One(i) - mean;
        absolute[lane] += std::fabs(d);
        squares[lane] += d * d;
        cubes[lane] += d * d * d;
        fourths[lane] += d * d * d * d;
    }
    return {Total(absolute), Total(squares), Total(cubes), Total(fourths)};
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
void RowMoments(const SurfaceRow& row, const double* u, std::size_t count, int degree,
                double* moments)
{
    if (row.samples)
    {
        return Moments(Linear(row), u, count, degree, moments);
    }
    Moments(StoredValues{row.values}, u, count, degree, moments);
}

KIV_WIDE_VECTORS
void RowMomentsAndSpread(const SurfaceRow& row, const double* u, std::size_t count, int degree,
                         double shift, double* moments, RowSpread& spread)
{
    LaneSpread lanes(shift);
    if (row.samples)
    {
        Moments(Linear(row), u, count, degree, moments, lanes);
    }
    else
    {
        Moments(StoredValues{row.values}, u, count, degree, moments, lanes);
    }
    lanes.Into(spread);
}

KIV_WIDE_VECTORS
RowExtent MeasureRow(const SurfaceRow& row, std::size_t count, double low, double high,
                     double* inside)
{
    DeviationSums unused;
    if (row.samples)
    {
        return Measure<false, true, false>(Linear(row), count, low, high, 0.0, inside, unused);
    }
    return Measure<false, true, false>(StoredValues{row.values}, count, low, high, 0.0, inside,
                                       unused);
}

KIV_WIDE_VECTORS
RowExtent MeasureRowAndDeviations(const SurfaceRow& row, std::size_t count, double low, double high,
                                  double shift, double* inside, DeviationSums& deviations)
{
    if (row.samples)
    {
        return shift == 0.0 ? Measure<true, true, true>(Linear(row), count, low, high, shift,
                                                        inside, deviations)
                            : Measure<true, true, false>(Linear(row), count, low, high, shift,
                                                         inside, deviations);
    }
    return Measure<true, true, false>(StoredValues{row.values}, count, low, high, shift, inside,
                                      deviations);
}

KIV_WIDE_VECTORS
RowExtent MeasureRowWithoutBracket(const SurfaceRow& row, std::size_t count, double shift,
                                   DeviationSums& deviations)
{
    const double none = std::numeric_limits<double>::infinity();
    if (row.samples)
    {
        return Measure<true, false, false>(Linear(row), count, none, -none, shift, nullptr,
                                           deviations);
    }
    return Measure<true, false, false>(StoredValues{row.values}, count, none, -none, shift, nullptr,
                                       deviations);
}

KIV_WIDE_VECTORS
DeviationSums RowDeviations(const SurfaceRow& row, std::size_t count, double mean)
{
    if (row.samples)
    {
        return Deviations(Linear(row), count, mean);
    }
    return Deviations(StoredValues{row.values}, count, mean);
}

} // namespace Kiv::Analysis::Detail
