#pragma once

namespace Kiv::Tool
{

// Shows the warnings and failed assertions that modules raise while kiv works, each distinct
// one once: a save reads the same file three times (original, edited copy, check) and would
// otherwise repeat every warning of its header.
void InstallWarningReporter();

} // namespace Kiv::Tool
