#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "Kiv/Export/HtmlText.h"
#include "OutputFile.h"

namespace Kiv::Export
{

// Writes a page template to out with each "@@NAME@@" marker replaced by what fill writes for
// NAME; the text between markers goes out unchanged.
void WriteTemplate(std::string_view page, BufferedOutput& out,
                   const std::function<void(std::string_view name, BufferedOutput& out)>& fill);

} // namespace Kiv::Export
