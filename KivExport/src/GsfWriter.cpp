// Gwyddion Simple Field 1.0: "Key = Value" lines in UTF-8, 1 to 4 NUL bytes that bring the
// header to a multiple of 4, then the samples as little-endian float32, first row first.
#include <cstdio>

#include "Writers.h"

namespace Kiv::Export
{

namespace
{
// A header line ends at the first line break and a key at the first " = ", so neither may hold
// one.
std::string OneLine(std::string text)
{
    for (char& c : text)
    {
        if (c == '\n' || c == '\r' || c == '\0')
        {
            c = ' ';
        }
    }
    return text;
}

std::string KeyText(const std::string& key)
{
    std::string text = OneLine(key);
    for (std::size_t at = text.find('='); at != std::string::npos; at = text.find('=', at))
    {
        text[at] = '-';
    }
    return text;
}

void AddLine(std::string& header, const std::string& key, const std::string& value)
{
    header += KeyText(key) + " = " + OneLine(value) + "\n";
}

// 15 digits: a length converted through the unit library reads "1e-05", not
// "9.999999999999999e-06".
std::string Length(double metres)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.15g", metres);
    return text;
}
} // namespace

void WriteGsf(const ExportSource& source, OutputFile& output)
{
    std::string header = "Gwyddion Simple Field 1.0\n";
    AddLine(header, "XRes", std::to_string(source.geometry.columns));
    AddLine(header, "YRes", std::to_string(source.geometry.rows));
    // Gwyddion needs a positive size; without a stated length a sample counts as 1 m.
    AddLine(header, "XReal",
            Length(source.geometry.widthMetres.value_or(double(source.geometry.columns))));
    AddLine(header, "YReal",
            Length(source.geometry.heightMetres.value_or(double(source.geometry.rows))));
    AddLine(header, "XYUnits", "m");
    if (source.valueUnit)
    {
        AddLine(header, "ZUnits", *source.valueUnit);
    }
    AddLine(header, "Title", source.title);
    for (const auto& [key, value] : source.headerValues)
    {
        AddLine(header, key, value);
    }
    header.append(4 - header.size() % 4, '\0');
    output.Write(header.data(), header.size());
    // The samples are little-endian float32 in memory already.
    static_assert(sizeof(float) == 4);
    output.Write(source.ImageSamples(), source.ImageSampleCount() * sizeof(float));
}

} // namespace Kiv::Export
