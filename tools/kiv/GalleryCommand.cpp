// kiv gallery: arguments in, lines out; the site itself is the export library's.
#include <iostream>

#include <CLI/CLI.hpp>

#include "Commands.h"
#include "Kiv/Export/Gallery.h"
#include "ProgressLine.h"

namespace Kiv::Tool
{

namespace
{
std::string SummaryLine(const Kiv::Export::GallerySummary& summary)
{
    std::string line =
        std::to_string(summary.scans) + (summary.scans == 1 ? " scan: " : " scans: ") +
        std::to_string(summary.built) + " built, " + std::to_string(summary.unchanged) +
        " unchanged, " + std::to_string(summary.failed) + " failed";
    if (summary.removed > 0)
    {
        line += ", " + std::to_string(summary.removed) + " removed";
    }
    return line + "; " + summary.index;
}
} // namespace

CLI::App* AddGalleryCommand(CLI::App& app, GalleryArguments& arguments)
{
    CLI::App* command = app.add_subcommand(
        "gallery", "Write a static site of folder trees: an index of cards, a page per scan");
    command->add_option("FOLDER", arguments.folders, "The folders of scans, searched in depth")
        ->required();
    command->add_option("-o,--output", arguments.output, "The site's folder (made when missing)")
        ->required();
    command->add_option("-j,--jobs", arguments.jobs, "Scans built at once (default: processors)")
        ->check(CLI::PositiveNumber);
    command->add_flag("--force", arguments.force,
                      "Build every scan again, not only those that changed");
    command->footer(
        "A scan is a file whose extension a registered file type declares (kiv formats). "
        "OUTPUT/index.html shows a card per scan (a plane-levelled preview, the header's facts, "
        "Sa and Sq) that links to the scan's own page; both mirror the folders in OUTPUT. A "
        "later run builds only the scans whose size or modification time changed and removes "
        "the outputs of scans that are gone; it keeps what it needs in OUTPUT/.kiv-gallery.json.");
    return command;
}

int RunGallery(std::ostream& out, std::ostream& err, const GalleryArguments& arguments)
{
    Kiv::Export::GalleryRequest request;
    request.folders = arguments.folders;
    request.outputFolder = arguments.output;
    request.force = arguments.force;
    request.jobs = arguments.jobs;

    ProgressLine progress(err);
    Kiv::Export::GalleryObserver observer;
    observer.failure = [&](const std::string& message)
    {
        progress.Clear();
        err << "kiv: " << message << '\n' << std::flush;
    };
    if (ErrorsGoToTerminal())
    {
        observer.progress = [&](const Kiv::Export::BatchProgress& step) { progress.Show(step); };
    }
    const auto summary = Kiv::Export::RunGallery(request, observer);
    progress.Clear();
    out << SummaryLine(summary) << '\n';
    return summary.failed == 0 ? 0 : 1;
}

} // namespace Kiv::Tool
