#pragma once

namespace Kiv::Export
{

extern const double VIRIDIS_TABLE[256][3];

} // namespace Kiv::Export
