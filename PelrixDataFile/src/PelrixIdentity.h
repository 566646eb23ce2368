#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "Kiv/Core/CodeContext.h"

// The code context of a raise in the plug-in: errors have always named the class's source as
// "PelrixDataFile", whatever folder it was built in.
#define PELRIX_CODE_CONTEXT                                                                        \
    ::Kiv::Core::CodeContext("PelrixDataFile", __LINE__, KIV_SOURCE_TIME_STAMP,                    \
                             ::Kiv::Core::ShortFunctionName(__PRETTY_FUNCTION__),                  \
                             __PRETTY_FUNCTION__)

// Names shared by the plug-in's source files.
namespace Pelrix::Names
{
inline const char* const ALERT_ID = "Pelrix.DataFile";
inline const char* const LEGACY_ALERT_ID = "PelrixDataFile"; // kept by two older errors
inline const char* const DATA_SECTION = "[Data]";
inline const char* const DATA_PARAMETERS_SECTION = "[Data Parameters]";
inline const char* const SERIES_LAYOUT_SECTION = "[Series layout]";
inline const char* const FORCE_SECTION = "[Point Spectroscopy Data]";
inline const char* const OVERVIEW = "PelrixFileOverviewInfo";
inline const char* const RAW_DATA = "RawData";
inline const char* const IMAGE = "IMAGE";
inline const char* const FORCE = "FORCE";
inline const char* const UNKNOWN = "UNKNOWN";
inline constexpr std::size_t STREAM_BUFFER_SIZE = 16384;

// The sections a file of each kind writes back, in the order it writes them.
inline const std::vector<std::string> FORCE_SECTIONS = {FORCE_SECTION, SERIES_LAYOUT_SECTION};
inline const std::vector<std::string> IMAGE_SECTIONS = {"[Data Version]",       "[Data Parameters]",
                                                        "[Custom Color Table]", "[PreProcessing]",
                                                        "[Piezo Parameters]",   "[System Info]"};

inline const std::vector<std::string>& WrittenSections(bool force)
{
    return force ? FORCE_SECTIONS : IMAGE_SECTIONS;
}
} // namespace Pelrix::Names
