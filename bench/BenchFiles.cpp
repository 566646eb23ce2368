#include "BenchFiles.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iomanip>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <typeinfo>
#include <unistd.h>

#include <boost/make_shared.hpp>

#include "Kiv/DataCore/DataFile.h"
#include "Pelrix/PelrixDataFile.h"
#include "Pelrix/PelrixDataFileFactory.h"

namespace KivBench
{

TemporaryFolder::TemporaryFolder(const std::string& prefix)
{
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/" + prefix + "-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr)
    {
        throw std::runtime_error("cannot create a temporary folder from " + pattern);
    }
    m_Path = pattern;
}

TemporaryFolder::~TemporaryFolder()
{
    for (const auto& file : m_Files)
    {
        std::remove(file.c_str());
    }
    ::rmdir(m_Path.c_str());
}

std::string TemporaryFolder::FilePath(const std::string& name)
{
    const std::string path = m_Path + "/" + name;
    m_Files.push_back(path);
    return path;
}

float ImageSample(std::uint32_t x, std::uint32_t y)
{
    // A slope with a little texture, so that no page of the file is all zeros.
    return static_cast<float>((x * 31u + y * 17u) % 1000u) * 0.001f + 0.25f;
}

std::string MakeImageHeader(const ImageFileLayout& layout)
{
    std::ostringstream text;
    const auto section = [&text](const char* name) { text << name << "\r\n"; };
    const auto key = [&text](const char* name, const std::string& value)
    { text << name << '=' << value << "\r\n"; };
    const auto end = [&text]() { text << "\r\n"; };

    section("[Data Version]");
    key("DataVersion", "3");
    key("Producer", "Pelrix Scan 4.2.1");
    end();
    section("[Data Parameters]");
    std::ostringstream offset;
    offset << std::setw(6) << layout.dataOffset;
    key("DataOffset", offset.str());
    key("ScanRangeX", "75.0000 \xB5m");
    key("ScanRangeY", "75.0000 \xB5m");
    key("ResolutionX", std::to_string(layout.width));
    key("ResolutionY", std::to_string(layout.height));
    key("Color Table Index", "2");
    key("ScanningRate", "750.0000 \xB5m/s");
    key("ZTransferCoefficient", "0.3488 \xB5m/V");
    key("XOffset", "0.0000 \xB5m");
    key("YOffset", "0.0000 \xB5m");
    key("Rotation", "0.0000 deg");
    key("ZGain", "1.0000");
    key("ScanMode", "Topography");
    key("ScanDirection", "Forward");
    key("Channel", "Z Height");
    key("Date", "2023-03-14 10:22:31");
    end();
    section("[Custom Color Table]");
    key("Entries", "4");
    key("Color0", "0x000000");
    key("Color1", "0x3F2A14");
    key("Color2", "0xB07F4A");
    key("Color3", "0xFFFFFF");
    end();
    section("[PreProcessing]");
    key("Leveling", "Plane");
    key("Filter", "None");
    key("Background", "Subtracted");
    end();
    section("[Piezo Parameters]");
    key("PiezoCalibrationX", "3.7500 \xB5m/V");
    key("PiezoCalibrationY", "3.7500 \xB5m/V");
    key("PiezoCalibrationZ", "0.3488 \xB5m/V");
    key("MaxRangeX", "100.0000 \xB5m");
    key("MaxRangeY", "100.0000 \xB5m");
    key("MaxRangeZ", "12.0000 \xB5m");
    key("Linearization", "On");
    end();
    section("[System Info]");
    key("Instrument", "Pelrix AFM 300");
    key("SerialNumber", "P300-01742");
    key("Firmware", "4.2.1");
    key("Software", "Pelrix Scan 4.2.1");
    key("Operator", "lab");
    key("Temperature", "22.5000 C");
    key("Humidity", "41.0000 %");
    end();
    text << "[Data]\r\n";

    std::string header = text.str();
    if (header.size() > layout.dataOffset)
    {
        throw std::runtime_error("the generated header does not fit before the data offset");
    }
    header.resize(layout.dataOffset, '\0');
    return header;
}

void ForEachImageFilePiece(const ImageFileLayout& layout,
                           const std::function<void(const char*, std::size_t)>& sink)
{
    const std::string header = MakeImageHeader(layout);
    sink(header.data(), header.size());
    std::vector<float> row(layout.width);
    for (std::uint32_t y = 0; y < layout.height; ++y)
    {
        for (std::uint32_t x = 0; x < layout.width; ++x)
        {
            row[x] = ImageSample(x, y);
        }
        sink(reinterpret_cast<const char*>(row.data()), row.size() * sizeof(float));
    }
}

std::uint64_t WriteImageFile(const std::string& path, const ImageFileLayout& layout)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    std::uint64_t size = 0;
    ForEachImageFilePiece(layout,
                          [&out, &size](const char* bytes, std::size_t count)
                          {
                              out.write(bytes, static_cast<std::streamsize>(count));
                              size += count;
                          });
    out.close();
    if (!out)
    {
        throw std::runtime_error("cannot write " + path);
    }
    return size;
}

bool ImageFileMatches(const std::string& path, const ImageFileLayout& layout)
{
    std::ifstream in(path, std::ios::binary);
    std::vector<char> actual;
    bool same = static_cast<bool>(in);
    ForEachImageFilePiece(layout,
                          [&](const char* expected, std::size_t count)
                          {
                              actual.resize(count);
                              same = same &&
                                     in.read(actual.data(), static_cast<std::streamsize>(count)) &&
                                     std::equal(actual.begin(), actual.end(), expected);
                          });
    // Nothing may follow the samples.
    return same && in.peek() == std::char_traits<char>::eof();
}

ForceFileText MakeForceFile(std::uint32_t lineCount, std::uint32_t seriesCount)
{
    ForceFileText file;
    std::ostringstream header;
    header << "[Point Spectroscopy Data]\r\n"
              "Approach Rate=750.0000 \xB5m/s\r\n"
              "Retreat Rate=750.0000 \xB5m/s\r\n"
              "Z Start=-100.0000 nm\r\n"
              "Z End=100.0000 nm\r\n"
              "Drive Start=0.0000 V\r\n"
              "Drive End=1.0000 V\r\n"
              "Leveling=None\r\n"
              "\r\n"
              "[Series layout]\r\n"
              "Points Number="
           << lineCount
           << "\r\n"
              "Series Number="
           << seriesCount << "\r\n";
    for (std::uint32_t series = 0; series < seriesCount; ++series)
    {
        header << (series == 0 ? "" : ",") << "Z Approach,Force Approach,Z Retract,Force Retract";
    }
    header << "\n\r\n[Data]\r\n";
    file.header = header.str();

    // Multiples of 1/64 print exactly with six decimals and survive float, so a file that is
    // read and written back keeps its length and its bytes.
    const std::uint32_t columns = 4 * seriesCount;
    file.data.reserve(std::size_t(lineCount) * columns * 12);
    char number[32];
    for (std::uint32_t line = 0; line < lineCount; ++line)
    {
        for (std::uint32_t column = 0; column < columns; ++column)
        {
            const int length =
                std::snprintf(number, sizeof number, "%f%c", ForceValue(line, column),
                              column + 1 < columns ? '\t' : '\n');
            file.data.append(number, static_cast<std::size_t>(length));
        }
    }
    return file;
}

double ForceValue(std::uint32_t line, std::uint32_t column)
{
    return (static_cast<int>((line * 7u + column * 1013u) % 20000u) - 10000) / 64.0;
}

void WriteWholeFile(const std::string& path, const std::string& bytes)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    out.close();
    if (!out)
    {
        throw std::runtime_error("cannot write " + path);
    }
}

PreparedFile PrepareImageFile(const ImageFileLayout& layout, const std::string& name)
{
    PreparedFile file;
    file.path = RunFolder().FilePath(name);
    file.size = WriteImageFile(file.path, layout);
    return file;
}

PreparedFile PrepareForceFile(std::uint32_t lineCount, std::uint32_t seriesCount,
                              const std::string& name)
{
    const ForceFileText text = MakeForceFile(lineCount, seriesCount);
    PreparedFile file;
    file.path = RunFolder().FilePath(name);
    file.expectedBytes = text.header + text.data;
    file.size = file.expectedBytes.size();
    file.dataTextBytes = text.data.size();
    WriteWholeFile(file.path, file.expectedBytes);
    return file;
}

void RegisterPelrixFileType()
{
    static std::once_flag registered;
    std::call_once(registered,
                   []
                   {
                       Kiv::DataCore::RegisterDataFileFactory(
                           typeid(Pelrix::PelrixDataFile),
                           boost::make_shared<Pelrix::PelrixDataFileFactory>());
                   });
}

namespace
{
TemporaryFolder* g_RunFolder = nullptr;
}

TemporaryFolder& RunFolder()
{
    if (g_RunFolder == nullptr)
    {
        throw std::logic_error("the benchmarks' temporary folder was not made");
    }
    return *g_RunFolder;
}

void SetRunFolder(TemporaryFolder* folder)
{
    g_RunFolder = folder;
}

} // namespace KivBench
