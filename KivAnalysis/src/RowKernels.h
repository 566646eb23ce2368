#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// The same loops for processors with a 256-bit vector unit and for every other one, picked when
// the library loads.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#define KIV_WIDE_VECTORS __attribute__((target_clones("avx2", "default")))
#else
#define KIV_WIDE_VECTORS
#endif

namespace Kiv::Analysis::Detail
{

// The inner loops of the passes over an image, for rows whose values are all finite and all
// used: written in four independent lanes so that the processor (and its wider vector unit where
// it has one) works on several samples at once. Each sums in a fixed order, so a figure does
// not depend on the processor it was computed on. A row holding a dropout shows as a non-finite
// sum, and its caller goes over it again sample by sample.

// A row of the surface as the kernels take it: either its values, or the image's samples with a
// background that is offset + slope * u along the row (every background up to a plane is), which
// the loop subtracts as it goes, so that the row never passes through memory as doubles. Both
// give the same values to the last bit: the subtraction is the one the background itself does.
struct SurfaceRow
{
    const double* values = nullptr;
    const float* samples = nullptr;
    const double* u = nullptr;
    double offset = 0.0;
    double slope = 0.0;
};

// Whether every value is finite.
bool AllFinite(const double* z, std::size_t count);

// out[i] = z[i] as float32.
void NarrowRow(const double* z, std::size_t count, float* out);

// moments[i] = sum of u^i z over the row, i = 0 .. degree.
void RowMoments(const SurfaceRow& row, const double* u, std::size_t count, int degree,
                double* moments);

// The same, and in the same loop the range of the row's values and the sum of their squared
// deviations from shift: a row's measures taken while its fit reads it.
struct RowSpread
{
    double minimum = 0.0;
    double maximum = 0.0;
    double squares = 0.0;
};
void RowMomentsAndSpread(const SurfaceRow& row, const double* u, std::size_t count, int degree,
                         double shift, double* moments, RowSpread& spread);

// Sum, range and where the values lie against a bracket [low, high]: how many below it, and
// those inside it written to inside, which has room for count values.
struct RowExtent
{
    double sum = 0.0;
    double minimum = 0.0;
    double maximum = 0.0;
    std::uint64_t below = 0;
    std::size_t inside = 0;
};
RowExtent MeasureRow(const SurfaceRow& row, std::size_t count, double low, double high,
                     double* inside);

// Sums of |d|, d^2, d^3, d^4 for d = z - mean.
struct DeviationSums
{
    double absolute = 0.0;
    double squares = 0.0;
    double cubes = 0.0;
    double fourths = 0.0;
};
DeviationSums RowDeviations(const SurfaceRow& row, std::size_t count, double mean);

inline void AddDeviations(DeviationSums& sums, const DeviationSums& more)
{
    sums.absolute += more.absolute;
    sums.squares += more.squares;
    sums.cubes += more.cubes;
    sums.fourths += more.fourths;
}

// Both at once, the deviations taken from shift.
RowExtent MeasureRowAndDeviations(const SurfaceRow& row, std::size_t count, double low, double high,
                                  double shift, double* inside, DeviationSums& deviations);

// The same without a bracket, for when no median is wanted.
RowExtent MeasureRowWithoutBracket(const SurfaceRow& row, std::size_t count, double shift,
                                   DeviationSums& deviations);

} // namespace Kiv::Analysis::Detail
