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

// Whether every value is finite.
bool AllFinite(const double* z, std::size_t count);

// out[i] = z[i] as float32.
void NarrowRow(const double* z, std::size_t count, float* out);

// moments[i] = sum of u^i z over the row, i = 0 .. degree.
void RowMoments(const double* z, const double* u, std::size_t count, int degree, double* moments);

// Sum, range and where the values lie against a bracket [low, high]: how many below it, and
// those inside it appended to inside.
struct RowExtent
{
    double sum = 0.0;
    double minimum = 0.0;
    double maximum = 0.0;
    std::uint64_t below = 0;
};
RowExtent MeasureRow(const double* z, std::size_t count, double low, double high,
                     std::vector<double>& inside);

// Sums of |d|, d^2, d^3, d^4 for d = z - mean, and how many d are above 0 less how many below.
struct DeviationSums
{
    double absolute = 0.0;
    double squares = 0.0;
    double cubes = 0.0;
    double fourths = 0.0;
    std::int64_t side = 0;
};
DeviationSums RowDeviations(const double* z, std::size_t count, double mean);

// Both at once, the deviations taken from shift.
RowExtent MeasureRowAndDeviations(const double* z, std::size_t count, double low, double high,
                                  double shift, std::vector<double>& inside,
                                  DeviationSums& deviations);

} // namespace Kiv::Analysis::Detail
