#include <algorithm>
#include <cctype>

#include "Kiv/Export/Export.h"

namespace Kiv::Export
{

namespace
{
struct FormatEntry
{
    const char* name;
    Format format;
    const char* extension;
};

const FormatEntry FORMATS[] = {
    {"gsf", Format::Gsf, ".gsf"},    {"npy", Format::Npy, ".npy"},
    {"tiff", Format::Tiff, ".tif"},  {"csv", Format::Csv, ".csv"},
    {"tsv", Format::Tsv, ".tsv"},    {"png", Format::Png, ".png"},
    {"json", Format::Json, ".json"}, {"html", Format::Html, ".html"},
};

const FormatEntry& Describe(Format format)
{
    return *std::find_if(std::begin(FORMATS), std::end(FORMATS),
                         [format](const FormatEntry& entry) { return entry.format == format; });
}
} // namespace

std::optional<Format> ParseFormat(const std::string& name)
{
    std::string lower = name;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (lower == "tif")
    {
        return Format::Tiff;
    }
    for (const FormatEntry& entry : FORMATS)
    {
        if (lower == entry.name)
        {
            return entry.format;
        }
    }
    return std::nullopt;
}

std::string FormatName(Format format)
{
    return Describe(format).name;
}

std::string FormatExtension(Format format)
{
    return Describe(format).extension;
}

std::string FormatNames()
{
    std::string names;
    for (const auto& entry : FORMATS)
    {
        names += (names.empty() ? "" : ", ") + std::string(entry.name);
    }
    return names;
}

} // namespace Kiv::Export
