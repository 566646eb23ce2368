#pragma once

// Building small Pelrix files in a temporary folder and opening them for the reader tests.

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <vector>

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>
#include <unistd.h>

#include "Kiv/Core/AllocationLimit.h"
#include "Pelrix/PelrixDataFile.h"
#include "PelrixTestSupport.h"

namespace ReadTest
{

using namespace PelrixTest;

// Header lines joined with CR LF, the line ending the format's own writer uses.
inline std::string Lines(std::initializer_list<std::string> lines)
{
    std::string text;
    for (const auto& line : lines)
    {
        text += line + "\r\n";
    }
    return text;
}

// An image file: the header (which must end with the "[Data]" line) zero-padded to
// dataOffset, then the block.
inline std::string ImageFile(const std::string& header, std::size_t dataOffset,
                             const std::string& block)
{
    if (header.size() > dataOffset)
    {
        throw std::logic_error("the header does not fit before the data offset");
    }
    std::string file = header;
    file.resize(dataOffset, '\0');
    return file + block;
}

// A header of an image file with the three keys that drive the read.
inline std::string ImageHeader(long resolutionX, long resolutionY, long dataOffset)
{
    return Lines({"[Data Version]", "Version=1", "", "[Data Parameters]",
                  "DataOffset=" + std::to_string(dataOffset),
                  "ResolutionX=" + std::to_string(resolutionX),
                  "ResolutionY=" + std::to_string(resolutionY), "", "[Data]"});
}

// A force file: a header with the series layout, then the data lines as given.
inline std::string ForceFile(const std::string& seriesNumber, const std::string& pointsNumber,
                             const std::string& dataLines)
{
    return Lines({"[Point Spectroscopy Data]", "Approach Rate=750.0000 " + MICRO + "m/s", "",
                  "[Series layout]", "Points Number=" + pointsNumber,
                  "Series Number=" + seriesNumber}) +
           "Z,Force,Z,Force\n" + Lines({"", "[Data]"}) + dataLines;
}

inline boost::shared_ptr<PelrixDataFile> OpenForReading(const std::string& path)
{
    auto file = boost::make_shared<PelrixDataFile>();
    file->Open(path, DataFile::ACCESS_READ, DataFile::OPEN_EXISTING);
    return file;
}

// The section of an open file, or an empty pointer.
inline boost::shared_ptr<DataContainer> Section(DataContainer& file, const std::string& name)
{
    return file.GetSubData({name}, false);
}

inline bool HasKey(DataContainer& file, const std::string& section, const std::string& key)
{
    const auto container = Section(file, section);
    return container && container->Exists(key);
}

// Sets a process-wide allocation limit for one test and forgets it afterwards.
class ScopedAllocationLimit
{
public:
    explicit ScopedAllocationLimit(std::uint64_t bytes) { Kiv::Core::SetMaxAllocationBytes(bytes); }
    ~ScopedAllocationLimit() { Kiv::Core::ResetMaxAllocationBytes(); }
    ScopedAllocationLimit(const ScopedAllocationLimit&) = delete;
    ScopedAllocationLimit& operator=(const ScopedAllocationLimit&) = delete;
};

// A test parameter as a plain name for test listings: letters, digits and a few marks stay,
// every other byte becomes "_".
inline std::string PrintableName(const std::string& text)
{
    std::string name;
    for (const unsigned char c : text)
    {
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                           (c >= '0' && c <= '9') || c == ' ' || c == '.' || c == ',' || c == '+' ||
                           c == '-' || c == '=';
        name += plain ? static_cast<char>(c) : '_';
    }
    return name;
}

// Runs f and returns the message of the error of type E it raises; fails the calling test's
// expectation through the empty result when it raises none.
template <class E, class F>
std::string MessageOf(F&& f)
{
    try
    {
        f();
    }
    catch (const E& error)
    {
        return error.GetMessage();
    }
    return "(no error raised)";
}

} // namespace ReadTest
