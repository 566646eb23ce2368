#pragma once

#include <string>

namespace Kiv::Export
{

// Names taken from a force file's column labels, shared by the PNG plot and the page.

// The label without its unit: "Force Approach 1 (nN)" gives "Force Approach 1".
std::string CurveNameWithoutUnit(const std::string& label);

// "Z Approach 1 (µm)" names the axis "Z (µm)": the words that tell the curves apart go.
std::string CurveAxisName(const std::string& label);

} // namespace Kiv::Export
