#pragma once

#include "Background.h"
#include "Kiv/Analysis/Levelling.h"
#include "SurfacePasses.h"

namespace Kiv::Analysis::Detail
{

// The backgrounds of all steps of method, fitted in turn, each over the pixels the exclusion
// leaves usable on the surface as the steps before it left it.
Background FitBackground(const ImageView& image, const LevelMethod& method,
                         const Exclusion& exclusion);

// The exclusion's thresholds resolved on the surface as it stands (a percentile becomes a
// height).
Usable ResolveExclusion(const Surface& surface, const Exclusion& exclusion);

// Solves G x = b for a symmetric positive semi-definite G (n x n, row-major), as the normal
// equations of a least-squares fit are. A direction the data leave undetermined (too few
// points, a single column) gets 0, so a degenerate fit removes what it can and no more.
std::vector<double> SolveNormalEquations(std::vector<double> g, std::vector<double> b,
                                         std::size_t n);

} // namespace Kiv::Analysis::Detail
