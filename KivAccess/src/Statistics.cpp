#include "Kiv/Access/Statistics.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace Kiv::Access
{

SampleStatistics ComputeStatistics(const float* samples, std::size_t count)
{
    SampleStatistics result;
    result.count = count;
    double sum = 0.0;
    double minimum = std::numeric_limits<double>::infinity();
    double maximum = -std::numeric_limits<double>::infinity();
    std::uint64_t finite = 0;
    for (std::size_t i = 0; i < count; ++i)
    {
        const double value = samples[i];
        if (!std::isfinite(value))
        {
            continue;
        }
        ++finite;
        sum += value;
        minimum = std::min(minimum, value);
        maximum = std::max(maximum, value);
    }
    result.nonFinite = count - finite;
    if (finite == 0)
    {
        const double nan = std::numeric_limits<double>::quiet_NaN();
        result.minimum = result.maximum = result.mean = result.rmsRoughness = nan;
        return result;
    }
    const double mean = sum / static_cast<double>(finite);
    // A second pass over the deviations keeps the roughness exact for surfaces far from zero,
    // where the sum-of-squares shortcut would cancel away its digits.
    double squares = 0.0;
    for (std::size_t i = 0; i < count; ++i)
    {
        const double value = samples[i];
        if (std::isfinite(value))
        {
            squares += (value - mean) * (value - mean);
        }
    }
    result.minimum = minimum;
    result.maximum = maximum;
    result.mean = mean;
    result.rmsRoughness = std::sqrt(squares / static_cast<double>(finite));
    return result;
}

} // namespace Kiv::Access
