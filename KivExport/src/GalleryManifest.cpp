// The gallery's memory between runs: for each scan, the size and time its outputs were made
// from, their names and its card, so that an unchanged scan is neither opened nor rewritten.
#include <fstream>
#include <sstream>

#include "GalleryParts.h"
#include "OutputFile.h"

namespace Kiv::Export
{

namespace
{
const char* const MANIFEST_NAME = ".kiv-gallery.json";
const int MANIFEST_VERSION = 1;

std::string ManifestPath(const std::string& outputFolder)
{
    return outputFolder + "/" + MANIFEST_NAME;
}

// A name the manifest gives must stay inside the output folder: the run removes what it names.
bool IsInsideFolder(const std::string& relative)
{
    if (relative.empty() || relative.front() == '/')
    {
        return false;
    }
    std::istringstream parts(relative);
    for (std::string part; std::getline(parts, part, '/');)
    {
        if (part.empty() || part == "." || part == "..")
        {
            return false;
        }
    }
    return true;
}

bool ReadEntry(const GalleryJson& item, std::string& relative, ManifestEntry& entry)
{
    if (!item.is_object() || !item.value("path", GalleryJson()).is_string() ||
        !item.value("bytes", GalleryJson()).is_number_integer() ||
        !item.value("modifiedNs", GalleryJson()).is_number_integer() ||
        !item.value("page", GalleryJson()).is_string() ||
        !item.value("preview", GalleryJson()).is_string() ||
        !item.value("card", GalleryJson()).is_object())
    {
        return false;
    }
    relative = item["path"].get<std::string>();
    entry.bytes = item["bytes"].get<std::int64_t>();
    entry.modifiedNs = item["modifiedNs"].get<std::int64_t>();
    entry.page = item["page"].get<std::string>();
    entry.preview = item["preview"].get<std::string>();
    entry.card = item["card"];
    return IsInsideFolder(relative) && IsInsideFolder(entry.page) && IsInsideFolder(entry.preview);
}
} // namespace

Manifest ReadManifest(const std::string& outputFolder)
{
    std::ifstream in(ManifestPath(outputFolder), std::ios::binary);
    if (!in)
    {
        return {};
    }
    const GalleryJson document = GalleryJson::parse(in, nullptr, false);
    if (!document.is_object() || document.value("version", 0) != MANIFEST_VERSION ||
        !document.value("scans", GalleryJson()).is_array())
    {
        return {};
    }
    Manifest manifest;
    for (const auto& item : document["scans"])
    {
        std::string relative;
        ManifestEntry entry;
        if (ReadEntry(item, relative, entry))
        {
            manifest[relative] = std::move(entry);
        }
    }
    return manifest;
}

void WriteManifest(const std::string& outputFolder, const Manifest& manifest)
{
    GalleryJson scans = GalleryJson::array();
    for (const auto& [relative, entry] : manifest)
    {
        scans.push_back({{"path", relative},
                         {"bytes", entry.bytes},
                         {"modifiedNs", entry.modifiedNs},
                         {"page", entry.page},
                         {"preview", entry.preview},
                         {"card", entry.card}});
    }
    const GalleryJson document = {{"version", MANIFEST_VERSION}, {"scans", std::move(scans)}};
    const std::string text =
        document.dump(-1, ' ', false, GalleryJson::error_handler_t::replace) + "\n";
    OutputFile output(ManifestPath(outputFolder), true);
    output.Write(text.data(), text.size());
    output.Commit();
}

} // namespace Kiv::Export
