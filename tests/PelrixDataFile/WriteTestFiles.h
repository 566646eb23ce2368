#pragma once

// Pelrix files for the writer tests: a scratch folder, the two sample files that hold every
// section and value kind, the exact bytes the writer must make of them, and small helpers to
// open, save and inspect files.

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>
#include <unistd.h>

#include "Pelrix/PelrixDataFile.h"
#include "PelrixTestSupport.h"

namespace WriteTest
{

using namespace PelrixTest;
using ScratchFolder = PelrixTest::TempFolder;

// An image file as the format lays it out: the header zero-padded up to the data offset.
inline std::string PaddedImage(const std::string& header, std::size_t dataOffset,
                               const std::string& samples)
{
    if (header.size() > dataOffset)
    {
        throw std::logic_error("the header does not fit before the data offset");
    }
    std::string file = header;
    file.resize(dataOffset, '\0');
    return file + samples;
}

// The six samples of the sample image, 2 rows of 3.
inline const std::vector<float> IMAGE_SAMPLES = {1.0f, -2.5f, 3.25f, 4.0e10f, -0.0f, 6.5e-7f};
inline constexpr std::size_t IMAGE_DATA_OFFSET = 1024;

// An image file holding every section and value kind, in an order the writer does not keep:
// an unknown section first, an unlisted one at the end, LF-only lines among the CR LF ones,
// unitized values with more or fewer decimals than written, a hexadecimal long, a comma line.
// ("\xB5m" is the micro sign followed by "m".)
inline std::string ImageInputHeader()
{
    return "[System Info]\r\n"
           "Software=Kiv 1.0   \r\n" // trailing blanks are part of the value
           "Build=0x1F\r\n"          // text, so the hexadecimal form stays
           "\r\n"
           "[Data Version]\n"
           "Version=3\n"
           "\n"
           "[Data Parameters]\r\n"
           "DataOffset=1024\r\n"
           "ScanRangeX=75 \xB5m\r\n"
           "ScanRangeY=1.5E+01 \xB5m\r\n"
           "ResolutionX=3\r\n"
           "ResolutionY=2\r\n"
           "Color Table Index=0x1F\r\n" // a long: only the digits count, so 16
           "ScanningRate=750.0000 \xB5m/s\r\n"
           "Comment=a, b\r\n" // a comma line is never a value
           "ZTransferCoefficient=0.3488 \xB5m/V\r\n"
           "\r\n"
           "[Custom Color Table]\r\n"
           "Entries=  2\r\n"
           "\r\n"
           "[PreProcessing]\r\n"
           "Leveling=None\r\n"
           "\r\n"
           "[Piezo Parameters]\r\n"
           "ScanRangeX=10 \xB5m\r\n"
           "\r\n"
           "[Notes]\r\n" // not one of the image's sections
           "Text=dropped\r\n"
           "\r\n"
           "[Data]\r\n";
}

inline std::string ImageInputFile()
{
    return PaddedImage(ImageInputHeader(), IMAGE_DATA_OFFSET, FloatBytes(IMAGE_SAMPLES));
}

// What the writer makes of ImageInputHeader, checked line by line by hand.
inline std::string ImageWrittenHeader(const std::string& dataOffsetField = "  1024")
{
    return "[Data Version]\r\n"
           "Version=3\r\n"
           "\r\n"
           "[Data Parameters]\r\n"
           "DataOffset=" +
           dataOffsetField +
           "\r\n"
           "ScanRangeX=75.0000 \xB5m\r\n"
           "ScanRangeY=15.0000 \xB5m\r\n"
           "ResolutionX=3\r\n"
           "ResolutionY=2\r\n"
           "Color Table Index=16\r\n"
           "ScanningRate=750.0000 \xB5m/s\r\n"
           "ZTransferCoefficient=0.3488 \xB5m/V\r\n"
           "\r\n"
           "[Custom Color Table]\r\n"
           "Entries=2\r\n"
           "\r\n"
           "[PreProcessing]\r\n"
           "Leveling=None\r\n"
           "\r\n"
           "[Piezo Parameters]\r\n"
           "ScanRangeX=10 \xB5m\r\n"
           "\r\n"
           "[System Info]\r\n"
           "Software=Kiv 1.0   \r\n"
           "Build=0x1F\r\n"
           "\r\n"
           "[Data]\r\n";
}

inline std::string ImageWrittenFile()
{
    return PaddedImage(ImageWrittenHeader(), IMAGE_DATA_OFFSET, FloatBytes(IMAGE_SAMPLES));
}

// A force file with one series of three points: unitized values with and without decimals,
// rates kept as text, a hexadecimal "Series Number", a "DataOffset" that force files ignore,
// the labels line, a section force files do not write, a short data line and a CR in one.
inline std::string ForceInputFile()
{
    return "[Point Spectroscopy Data]\r\n"
           "Leveling=None\r\n"
           "Approach Rate=750.0000 \xB5m/s\r\n"
           "Retreat Rate=1.5 \xB5m/s\r\n"
           "Z Start=-1.5 \xB5m\r\n"
           "Z End=0.25 \xB5m\r\n"
           "Drive Start=12345678.9 mV\r\n"
           "Drive End=2 V\r\n"
           "Points Number=3\r\n" // text in this section
           "\r\n"
           "[Series layout]\r\n"
           "Points Number=3\r\n"
           "Series Number=0x1\r\n"
           "DataOffset=4096\r\n"
           "Z,Force,Z,Force\n"
           "\r\n"
           "[Piezo Parameters]\r\n"
           "X Sensitivity=1.2\r\n"
           "\r\n"
           "[Data]\r\n"
           "1.5\t2\t3\t4\n"
           "-0.0125\t0.5\n"
           "1e3\t-2.25\t0\t7\r\n";
}

// What the writer makes of ForceInputFile, checked by hand: no padding, "%f" values.
inline std::string ForceWrittenFile()
{
    return "[Point Spectroscopy Data]\r\n"
           "Leveling=None\r\n"
           "Approach Rate=750.0000 \xB5m/s\r\n"
           "Retreat Rate=1.5 \xB5m/s\r\n"
           "Z Start=-1.5000 \xB5m\r\n"
           "Z End=0.2500 \xB5m\r\n"
           "Drive Start=12345678.9000 mV\r\n"
           "Drive End=2.0000 V\r\n"
           "Points Number=3\r\n"
           "\r\n"
           "[Series layout]\r\n"
           "Points Number=3\r\n"
           "Series Number=1\r\n"
           "DataOffset=  4096\r\n"
           "Z,Force,Z,Force\n"
           "\r\n"
           "[Data]\r\n"
           "1.500000\t2.000000\t3.000000\t4.000000\n"
           "-0.012500\t0.500000\t0.500000\t0.500000\n"
           "1000.000000\t-2.250000\t0.000000\t7.000000\n";
}

inline boost::shared_ptr<PelrixDataFile>
OpenFile(const std::string& path, DataFile::EAccess access = DataFile::ACCESS_READ_WRITE,
         DataFile::EOpenBehavior behavior = DataFile::OPEN_EXISTING)
{
    auto file = boost::make_shared<PelrixDataFile>();
    if (!file->Open(path, access, behavior))
    {
        throw std::runtime_error("cannot open " + path);
    }
    return file;
}

// Opens the file for reading and writing, marks it modified and closes it, which saves it;
// returns the bytes on disk afterwards.
inline std::string SaveUnchanged(const std::string& path)
{
    const auto file = OpenFile(path);
    file->SetContentModified(true);
    file->Close();
    return ReadBytes(path);
}

// The value under key in a section; throws when it is missing or of another type.
inline std::vector<std::string> KeysOf(const DataContainer& container)
{
    std::vector<std::string> keys;
    container.EnumData(keys);
    return keys;
}

// Byte strings in failure messages: printable ASCII as it is, everything else as \xNN.
inline std::string Escaped(const std::string& bytes)
{
    static const char* const digits = "0123456789ABCDEF";
    std::string text;
    for (const unsigned char c : bytes)
    {
        if (c >= 32 && c < 127 && c != '\\')
        {
            text += static_cast<char>(c);
        }
        else if (c == '\r')
        {
            text += "\\r";
        }
        else if (c == '\n')
        {
            text += "\\n";
        }
        else
        {
            text += "\\x";
            text += digits[c >> 4];
            text += digits[c & 15];
        }
    }
    return text;
}

// The first position where two byte strings differ, for failure messages.
inline std::string FirstDifference(const std::string& actual, const std::string& expected)
{
    std::size_t at = 0;
    while (at < actual.size() && at < expected.size() && actual[at] == expected[at])
    {
        ++at;
    }
    if (at == actual.size() && at == expected.size())
    {
        return "identical";
    }
    const std::size_t from = at < 24 ? 0 : at - 24;
    return "sizes " + std::to_string(actual.size()) + " and " + std::to_string(expected.size()) +
           ", first difference at byte " + std::to_string(at) + "\n  actual:   ..." +
           Escaped(actual.substr(from, 64)) + "\n  expected: ..." +
           Escaped(expected.substr(from, 64));
}

// Byte-for-byte comparison whose failure message shows where the bytes part, not both files.
inline ::testing::AssertionResult SameBytes(const std::string& actual, const std::string& expected)
{
    if (actual == expected)
    {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure() << FirstDifference(actual, expected);
}

} // namespace WriteTest
