#include "SampleBytes.h"

#include <cstdlib>
#include <cstring>
#include <sstream>
#include <stdexcept>

#include "KivProcess.h"

namespace KivToolTest
{

std::string HeaderValue(const std::string& bytes, const std::string& key)
{
    const std::size_t at = bytes.find("\n" + key + "=");
    if (at == std::string::npos)
    {
        return std::string();
    }
    const std::size_t start = at + key.size() + 2;
    return bytes.substr(start, bytes.find_first_of("\r\n", start) - start);
}

std::vector<float> ImageSamples(const std::string& bytes)
{
    const std::size_t offset = std::stoul(HeaderValue(bytes, "DataOffset"));
    const std::size_t count = std::stoul(HeaderValue(bytes, "ResolutionX")) *
                              std::stoul(HeaderValue(bytes, "ResolutionY"));
    if (offset + count * 4 > bytes.size())
    {
        throw std::runtime_error("the image block runs past the end of the file");
    }
    std::vector<float> samples(count);
    for (std::size_t i = 0; i < count; ++i)
    {
        std::uint32_t bits = 0;
        for (int b = 3; b >= 0; --b)
        {
            bits = (bits << 8) | static_cast<unsigned char>(bytes[offset + i * 4 + b]);
        }
        std::memcpy(&samples[i], &bits, sizeof bits);
    }
    return samples;
}

std::vector<std::vector<float>> ForceRows(const std::string& bytes)
{
    const std::string marker = "\n[Data]\r\n";
    std::istringstream lines(bytes.substr(bytes.find(marker) + marker.size()));
    std::vector<std::vector<float>> rows;
    for (std::string line; std::getline(lines, line) && !line.empty();)
    {
        std::vector<float> row;
        std::istringstream values(line);
        for (std::string value; std::getline(values, value, '\t');)
        {
            row.push_back(static_cast<float>(std::strtod(value.c_str(), nullptr)));
        }
        rows.push_back(row);
    }
    return rows;
}

std::vector<std::string> ForceLabels(const std::string& bytes)
{
    const std::size_t start = bytes.find("\r\nSeries Number=");
    const std::size_t lineStart = bytes.find('\n', start + 2) + 1;
    std::istringstream line(bytes.substr(lineStart, bytes.find('\n', lineStart) - lineStart));
    std::vector<std::string> labels;
    for (std::string label; std::getline(line, label, ',');)
    {
        labels.push_back(label);
    }
    return labels;
}

std::string Latin1ToUtf8(const std::string& latin1)
{
    std::string utf8;
    for (const char c : latin1)
    {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80)
        {
            utf8.push_back(c);
        }
        else
        {
            utf8.push_back(static_cast<char>(0xC0 | (byte >> 6)));
            utf8.push_back(static_cast<char>(0x80 | (byte & 0x3F)));
        }
    }
    return utf8;
}

std::string ImageWithEmptyScanRange()
{
    const std::string line = "ScanRangeY=10.0000 \xB5m\r\n";
    std::string bytes = SampleBytes("topography_128.flt");
    bytes.replace(bytes.find(line), line.size(), "ScanRangeY=\r\n");
    bytes.insert(4096 - (line.size() - 13), line.size() - 13, '\0');
    return bytes;
}

} // namespace KivToolTest
