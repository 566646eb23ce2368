#pragma once

#include <memory>

#include "Kiv/DataCore/ModuleTestSuite.h"

namespace Pelrix
{

// The module's own checks: small image and force files written to a temporary folder, opened
// through the factory and compared with what was written.
std::unique_ptr<Kiv::DataCore::ModuleTestSuite> MakeSelfTestSuite();

} // namespace Pelrix
