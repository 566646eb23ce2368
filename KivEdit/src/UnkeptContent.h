#pragma once

#include <string>

#include "Kiv/DataCore/DataFile.h"

namespace Kiv::Edit
{

// Raises "DISPLAYNAME: not saved: the writer would drop content it cannot keep: ITEM (and N
// more)" when the open file's type reports, in its "UnkeptContent" metadata, content that its
// writer would leave out of the saved file. Such a loss would not show when the saved file is
// read back, since the reader never took that content into the tree either.
void RefuseToDropUnkeptContent(Kiv::DataCore::DataFile& file, const std::string& displayName);

} // namespace Kiv::Edit
