#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Kiv/Analysis/ImageView.h"

namespace Kiv::Analysis
{

// One step of a levelling. Every step subtracts a background from the surface as the previous
// steps left it. The fits take the pixels that are finite and not excluded:
// - Plane: least-squares plane z = a + bx*col + by*row.
// - Polynomial: least-squares 2-D polynomial of total degree `degree` (0 to 4).
// - RowsMedian, RowsMean, RowsQuantile: each row minus its median, mean or `quantile` (0 to 1,
//   linear between the two nearest ranks, as numpy's default).
// - RowsPolynomial: each row minus its least-squares polynomial of degree `degree` (0 to 4) in
//   x = col - (columns - 1) / 2.
// - RowsMedianDifference: offsets s(0) = 0, s(i+1) = s(i) + median(row(i+1) - row(i)) over the
//   columns where both rows are usable; each row minus its offset.
// A row (or pair of rows) with no usable pixel gets no correction. The shifts fit nothing and so
// ignore the exclusion:
// - ZeroMinimum, ZeroMean: a shift that makes the minimum or the mean of every finite sample 0.
enum class StepKind
{
    Plane,
    Polynomial,
    RowsMedian,
    RowsMean,
    RowsQuantile,
    RowsPolynomial,
    RowsMedianDifference,
    ZeroMinimum,
    ZeroMean,
};

struct LevelStep
{
    StepKind kind = StepKind::Plane;
    int degree = 1;
    double quantile = 0.5;
};

// Steps applied left to right, written as "none", "plane", "poly:N", "rows" (= "rows:median"),
// "rows:mean", "rows:poly:N", "rows:mediandiff", "rows:quantile:Q", "zero:min", "zero:mean",
// joined with '+': "rows:mediandiff+plane".
class LevelMethod
{
public:
    // No levelling.
    LevelMethod() = default;
    explicit LevelMethod(std::vector<LevelStep> steps);

    // Raises std::invalid_argument with a one-line message quoting the text for a method that
    // does not parse or is out of range.
    static LevelMethod Parse(const std::string& text);

    const std::vector<LevelStep>& Steps() const { return m_Steps; }
    bool IsNone() const { return m_Steps.empty(); }
    // The method as Parse reads it, in its plain spelling ("rows" is written "rows:median").
    std::string Text() const;

private:
    std::vector<LevelStep> m_Steps;
};

// Every method's spelling, for help and error texts.
std::string LevelMethodSpellings();

// Which pixels the fits leave out besides dropouts. The thresholds are in the data's units and
// are applied, before each step, to the surface as the previous steps left it: "mask the
// features, then level the background". A percentile leaves out the pixels above that
// percentile (0 to 100, linear between ranks) of the finite samples at that point.
struct Exclusion
{
    std::optional<double> above;
    std::optional<double> below;
    std::optional<double> abovePercentile;
    PixelMask mask = nullptr;

    bool IsEmpty() const { return !above && !below && !abovePercentile && !mask; }
};

// Raises std::invalid_argument for a threshold that is not finite or a percentile outside 0 to
// 100.
void CheckExclusion(const Exclusion& exclusion);

// The levelled surface as float32: image minus the fitted backgrounds, computed in double.
// Dropouts stay as they are. The image is never changed.
std::vector<float> Level(const ImageView& image, const LevelMethod& method,
                         const Exclusion& exclusion = {});
// The same into a buffer of image.Count() floats (which may be image.samples itself).
void LevelInto(const ImageView& image, const LevelMethod& method, const Exclusion& exclusion,
               float* levelled);

} // namespace Kiv::Analysis
