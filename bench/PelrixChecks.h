#pragma once

#include <cstdint>
#include <string>

#include <boost/shared_ptr.hpp>

#include "BenchFiles.h"
#include "Kiv/DataCore/DataFile.h"

namespace KivBench
{

// Opens a file the way a host program does: through the factory registry, which recognises
// the file first. Raises the host's error when no factory takes it.
boost::shared_ptr<Kiv::DataCore::DataFile> OpenForReading(const std::string& path);
boost::shared_ptr<Kiv::DataCore::DataFile> OpenForReadWrite(const std::string& path);

// Each returns an empty text when the open file holds what the generated file holds, and
// otherwise what is wrong: a benchmark of a reader that reads the wrong thing is worthless.
std::string CheckImage(Kiv::DataCore::DataFile& file, const ImageFileLayout& layout);
std::string CheckForceCurves(Kiv::DataCore::DataFile& file, std::uint32_t lineCount,
                             std::uint32_t seriesCount);

} // namespace KivBench
