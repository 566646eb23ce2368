#pragma once

#include <string>

namespace Kiv::Edit
{

// The header of the file at path as its bytes stand (Latin-1): everything up to and with the
// line "[Data]", without the padding or the data behind it. The whole file when it has no such
// line. Raises "DISPLAYNAME: reason" when the file cannot be read.
std::string ReadHeaderText(const std::string& path, const std::string& displayName);

// The number on the header's "DataOffset=" line of "[Data Parameters]", or -1 without one.
long FindDataOffset(const std::string& header);

} // namespace Kiv::Edit
