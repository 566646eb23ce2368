#pragma once

#include <string>

#include "Kiv/Edit/HeaderEdit.h"

namespace Kiv::Edit
{

// Saves an edit so that the file is either fully replaced by a verified new version or left
// byte for byte as it was: the edit is made in a copy beside the file, written by the file
// type's own writer, cut to what the writer wrote, flushed to disk, read back and compared
// with the original's tree, and only then renamed over the file. A file holding content the
// writer would drop is not saved at all. Other kiv saves of the same file wait until this one
// is done. Raises "PATH: reason".
void SaveWithEdit(const std::string& path, const HeaderEdit& edit);

} // namespace Kiv::Edit
