#pragma once

#include "ExportSource.h"
#include "OutputFile.h"

namespace Kiv::Export
{

// Each series' approach and retract curve (force against Z) as lines, with labelled axes and a
// legend, as a PNG.
void DrawForcePlot(const ExportSource& source, OutputFile& output);

} // namespace Kiv::Export
