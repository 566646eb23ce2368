#pragma once

#include <string>
#include <utility>
#include <vector>

namespace Kiv::Export
{

// Round numbers for what a preview labels.

// The longest length of the form 1, 2 or 5 x 10^n metres not above maxMetres, and its text
// ("2 µm", "500 nm").
std::pair<double, std::string> RoundLength(double maxMetres);

// Tick positions at a round step (1, 2 or 5 x 10^n) that cut [low, high] into about count
// parts.
std::vector<double> RoundTicks(double low, double high, int count);

// A value for a label: up to 4 significant digits, no trailing zeros, "−" as minus sign.
std::string LabelNumber(double value);

// The 1st and 99th percentile of the finite samples (or the given fractions); a range of
// width zero is widened so that it can be mapped.
std::pair<double, double> PercentileRange(const float* samples, std::size_t count, double low,
                                          double high);

} // namespace Kiv::Export
