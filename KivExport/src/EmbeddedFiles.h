#pragma once

#include <string_view>

namespace Kiv::Export
{

// A file of KivExport/html/ by its path there ("viewer.js", "vendor/uPlot.min.css"), built into
// the library (cmake/EmbedFiles.cmake); empty for a path that is not one of them.
std::string_view EmbeddedFile(std::string_view name);

} // namespace Kiv::Export
