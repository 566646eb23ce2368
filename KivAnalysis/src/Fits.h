#pragma once

#include <algorithm>

#include "Background.h"
#include "Kiv/Analysis/Levelling.h"
#include "SurfacePasses.h"

namespace Kiv::Analysis::Detail
{

// The samples as they are, measured in the pass that the first fit makes over them anyway: their
// extent and the sum of their squared deviations from shift (a sample near their mean).
struct SampleSums
{
    double shift = 0.0;
    bool measured = false; // whether the fit could take them
    Extent extent;
    double squares = 0.0;

    // Adds count values with this sum and range, whose squared deviations from shift sum to
    // squares.
    void Add(std::uint64_t count, double sum, double minimum, double maximum, double squareSum)
    {
        extent.count += count;
        extent.sum += sum;
        extent.minimum = std::min(extent.minimum, minimum);
        extent.maximum = std::max(extent.maximum, maximum);
        squares += squareSum;
    }
};

// The backgrounds of all steps of method, fitted in turn, each over the pixels the exclusion
// leaves usable on the surface as the steps before it left it. Given samples, a first step that
// fits a polynomial to every finite sample also measures them there.
Background FitBackground(const ImageView& image, const LevelMethod& method,
                         const Exclusion& exclusion, SampleSums* samples = nullptr);

// The exclusion's thresholds resolved on the surface as it stands (a percentile becomes a
// height).
Usable ResolveExclusion(const Surface& surface, const Exclusion& exclusion);

// Solves G x = b for a symmetric positive semi-definite G (n x n, row-major), as the normal
// equations of a least-squares fit are. A direction the data leave undetermined (too few
// points, a single column) gets 0, so a degenerate fit removes what it can and no more.
std::vector<double> SolveNormalEquations(std::vector<double> g, std::vector<double> b,
                                         std::size_t n);

} // namespace Kiv::Analysis::Detail
