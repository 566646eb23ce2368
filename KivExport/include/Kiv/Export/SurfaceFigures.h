#pragma once

#include <optional>
#include <string>

#include "Kiv/Analysis/HeightParameters.h"
#include "Kiv/Analysis/Levelling.h"
#include "Kiv/DataCore/DataFile.h"

namespace Kiv::Export
{

// What a front end asks of an open image file's surface: how to level it, what to leave out, and
// the height unit when the user names it (the file may not record one).
struct SurfaceRequest
{
    Kiv::Analysis::LevelMethod level;
    Kiv::Analysis::Exclusion exclusion;
    std::optional<std::string> zUnit; // a unit text the unit library knows: "nm", "um", "m"
};

// The figures of one file, with what they were computed from.
struct SurfaceFigures
{
    Kiv::Analysis::HeightParameters parameters;
    std::string level;                                 // the method's plain spelling
    std::optional<std::string> zUnit;                  // given, or the file's own when it has one
    std::optional<Kiv::Analysis::PixelSize> pixelSize; // metres, when the header gives lengths
};

// Reads the file's image, pixel size and height unit and analyses the surface; the hybrid
// parameters are given when both the pixel size and the height unit are known. Raises
// Kiv::Access::Failure naming displayName for a file without an image or for a height unit the
// request names that the unit library does not know as a length; the file's own unit that is no
// length (a phase in degrees, a signal in volts) only leaves the hybrid parameters unknown.
SurfaceFigures AnalyseFileSurface(Kiv::DataCore::DataFile& file, const std::string& displayName,
                                  const SurfaceRequest& request);

} // namespace Kiv::Export
