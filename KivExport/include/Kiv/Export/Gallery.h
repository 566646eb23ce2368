#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "Kiv/Export/FileBatch.h"

namespace Kiv::Export
{

// A static site of folder trees: index.html in the output folder, with a card per scan (its
// preview, header facts and plane-levelled Sa and Sq) and a list of the files that failed, and
// beside it, mirroring the input trees, each scan's viewer page and preview. A scan is a
// regular file whose extension a registered file type declares (any case).
struct GalleryRequest
{
    std::vector<std::string> folders;
    std::string outputFolder; // made when missing
    // Redo every scan, not only those whose size or modification time changed.
    bool force = false;
    // Scans worked on at once; 0 means one per processor.
    unsigned jobs = 0;
};

struct GallerySummary
{
    std::size_t scans = 0;     // found in the folders
    std::size_t built = 0;     // opened and written this run
    std::size_t unchanged = 0; // kept from the run before
    std::size_t failed = 0;
    std::size_t removed = 0; // scans gone since the run before, whose outputs were removed
    std::string index;       // the path of index.html
};

// Called by the worker threads, one call at a time.
struct GalleryObserver
{
    // Over the scans being built.
    std::function<void(const BatchProgress&)> progress;
    // The one-line message of a scan that failed; it names the file.
    std::function<void(const std::string&)> failure;
};

// Builds or brings up to date the site in request.outputFolder. Each output is written
// complete or not at all; a scan that fails is listed on the page and reported, and the others
// go on. The output folder keeps a hidden manifest (.kiv-gallery.json) of what each scan's
// outputs were made from, so that a later run opens only the scans that changed and removes
// the outputs of scans that are gone; index.html is written again on every run. Raises
// Kiv::Access::Failure for a request that cannot start (a folder that is not one, an output
// folder that cannot be made).
GallerySummary RunGallery(const GalleryRequest& request, const GalleryObserver& observer);

} // namespace Kiv::Export
