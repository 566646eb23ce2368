#pragma once

#include <string>

#include "Kiv/DataCore/DataFile.h"

namespace Kiv::Access
{

// The warning for a file whose data block ends before its header says it does, as the file
// type reports it in its "ShortData" metadata ("warning: FILE: the image ends 16384 bytes
// early; 4096 samples were missing and read as 0"), or an empty text for a whole file. UTF-8.
std::string DescribeShortData(Kiv::DataCore::DataFile& file, const std::string& displayName);

} // namespace Kiv::Access
