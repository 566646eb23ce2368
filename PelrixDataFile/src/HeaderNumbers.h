#pragma once

#include <cstdint>
#include <string>

#include "Kiv/DataCore/DataContainer.h"

namespace Pelrix
{

// A header number that drives the data ("ResolutionX", "Series Number", ...), read as the
// 32-bit value it is on the format's home platform. Missing or of another kind reads as 0.
inline std::int32_t ReadHeaderInt32(Kiv::DataCore::DataContainer& section, const std::string& key)
{
    long value = 0;
    section.Get(key, value);
    return static_cast<std::int32_t>(value);
}

} // namespace Pelrix
