#pragma once

#include <optional>
#include <string>

#include "Kiv/DataCore/ValueTypes.h"

namespace Kiv::Access
{

// Reads a whole text as one number of a kind, or nothing when the text holds anything else:
// leading blanks, trailing characters, or a number the kind cannot hold.

// A decimal integer with an optional sign; the host's long is 32 bits wide, as int is.
std::optional<Kiv::DataCore::HostLong> ParseWholeLong(const std::string& text);
std::optional<int> ParseWholeInt(const std::string& text);

// A number as strtod reads it ("1e-3", "0x1p4", "inf", "nan" included); a finite number too
// large for the kind is refused rather than turned into an infinity.
std::optional<double> ParseWholeDouble(const std::string& text);
std::optional<float> ParseWholeFloat(const std::string& text);

} // namespace Kiv::Access
