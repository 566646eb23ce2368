#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "Kiv/DataCore/DataFile.h"

namespace Kiv::Export
{

// The steps of a gallery run, each in a file of its own: finding the scans (GalleryScans.cpp),
// a scan's card (GalleryCard.cpp), the manifest (GalleryManifest.cpp) and the index page
// (GalleryIndex.cpp); Gallery.cpp runs them.

using GalleryJson = nlohmann::ordered_json;

// A file the gallery shows, and what tells whether it changed.
struct ScanFile
{
    std::string source;   // the path as the user reaches it: their folder, then the rest
    std::string relative; // its place in the site, '/'-separated
    std::int64_t bytes = 0;
    std::int64_t modifiedNs = 0;
};

// Every scan under the folders, sorted by relative path, leaving out the output folder (which
// may lie inside one of them). With one folder the relative paths are taken from it; with
// several, each folder's scans go under its own name. Raises Failure for a folder that cannot
// be listed.
std::vector<ScanFile> FindScans(const std::vector<std::string>& folders,
                                const std::string& outputFolder);

// The facts a card shows of an open scan, and its header values for the page's filter.
GalleryJson DescribeScan(Kiv::DataCore::DataFile& file, const std::string& source);

// What the last run made of each scan: enough to skip an unchanged scan and still show its card.
struct ManifestEntry
{
    std::int64_t bytes = 0;
    std::int64_t modifiedNs = 0;
    std::string page;    // relative to the output folder
    std::string preview; // relative to the output folder
    GalleryJson card;
};
using Manifest = std::map<std::string, ManifestEntry>; // by relative path

// Empty when there is none or it cannot be read: every scan is then made again.
Manifest ReadManifest(const std::string& outputFolder);
void WriteManifest(const std::string& outputFolder, const Manifest& manifest);

// index.html: the cards in relative-path order and the failures, each {"path", "reason"}.
void WriteIndexPage(const std::string& path, const GalleryJson& cards, const GalleryJson& failures);

} // namespace Kiv::Export
