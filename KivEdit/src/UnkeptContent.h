#pragma once

#include <string>
#include <vector>

#include "Kiv/DataCore/DataFile.h"

namespace Kiv::Edit
{

// The content the open file's type reports, in its "UnkeptContent" metadata, that its writer
// would leave out of the saved file, one UTF-8 line each. Such a loss would not show when the
// saved file is read back, since the reader never took that content into the tree either.
std::vector<std::string> ListUnkeptContent(Kiv::DataCore::DataFile& file);

// "DISPLAYNAME: not saved: the writer would drop content it cannot keep: ITEM (and N more)".
std::string DescribeRefusedLoss(const std::string& displayName,
                                const std::vector<std::string>& items);

} // namespace Kiv::Edit
