#pragma once

#include <cstddef>
#include <cstdint>

namespace Kiv::Access
{

// What a microscopist reads off an image at a glance. NaN and infinite samples (dropouts) are
// counted but left out of the figures; with no finite sample every figure is NaN.
struct SampleStatistics
{
    std::uint64_t count = 0;
    std::uint64_t nonFinite = 0;
    double minimum = 0.0;
    double maximum = 0.0;
    double mean = 0.0;
    // Root mean square deviation from the mean (Rq).
    double rmsRoughness = 0.0;
};

SampleStatistics ComputeStatistics(const float* samples, std::size_t count);

} // namespace Kiv::Access
