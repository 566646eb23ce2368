#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "Kiv/Analysis/Levelling.h"
#include "Kiv/Analysis/Profile.h"
#include "Kiv/DataCore/DataFile.h"

namespace Kiv::Export
{

// Where a profile runs: along one row, one column, or a line between two points given in pixels
// (pixel centres on whole numbers) or, with inMetres, in metres from the first pixel's centre.
struct ProfileSelection
{
    enum class Along
    {
        Row,
        Column,
        Line,
    };
    Along along = Along::Row;
    std::size_t index = 0; // the row or the column
    Kiv::Analysis::PixelPoint from;
    Kiv::Analysis::PixelPoint to;
    bool inMetres = false;
};

struct ProfileRequest
{
    ProfileSelection selection;
    Kiv::Analysis::LevelMethod level;
    Kiv::Analysis::Exclusion exclusion;
};

struct FileProfile
{
    Kiv::Analysis::Profile profile;   // distances in metres when the pixel size is known
    std::string level;                // the method's plain spelling
    std::optional<std::string> zUnit; // the unit of the heights, when the file states one
};

// The profile of the file's image, levelled first as asked. Raises Kiv::Access::Failure naming
// displayName for a file without an image, a row, column or point outside it, or points in
// metres on an image whose pixel size is not known.
FileProfile ProfileFileSurface(Kiv::DataCore::DataFile& file, const std::string& displayName,
                               const ProfileRequest& request);

} // namespace Kiv::Export
