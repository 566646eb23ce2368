// kiv export: arguments in, lines out; the exporting itself is the export library's.
#include <iostream>

#include <CLI/CLI.hpp>

#include "Commands.h"
#include "Kiv/Access/NumberText.h"
#include "Kiv/Export/BatchExport.h"
#include "ProgressLine.h"

namespace Kiv::Tool
{

namespace
{
const int EXIT_USAGE = 2;

int UsageError(std::ostream& err, const std::string& message)
{
    err << "kiv: " << message << " (see kiv export --help)\n";
    return EXIT_USAGE;
}

// "MIN:MAX"; the numbers may be negative or in exponent form, but hold no colon.
std::optional<std::pair<double, double>> ParseRange(const std::string& text)
{
    const std::size_t colon = text.find(':');
    if (colon == std::string::npos)
    {
        return std::nullopt;
    }
    const auto low = Kiv::Access::ParseWholeDouble(text.substr(0, colon));
    const auto high = Kiv::Access::ParseWholeDouble(text.substr(colon + 1));
    if (!low || !high)
    {
        return std::nullopt;
    }
    return std::make_pair(*low, *high);
}

std::string SummaryLine(const Kiv::Export::BatchSummary& summary)
{
    return std::to_string(summary.total) + (summary.total == 1 ? " file: " : " files: ") +
           std::to_string(summary.exported) + " exported, " + std::to_string(summary.failed) +
           " failed";
}
} // namespace

CLI::App* AddExportCommand(CLI::App& app, ExportArguments& arguments)
{
    CLI::App* command = app.add_subcommand(
        "export",
        "Write files' data as gsf, npy, tiff, csv or tsv, a png preview, an html page, or the "
        "header as json");
    command->add_option("FILE", arguments.files, "The data files")->required();
    command->add_option("--to", arguments.format, "Format: " + Kiv::Export::FormatNames())
        ->required();
    auto* output = command->add_option("-o,--output", arguments.output, "The output (one FILE)");
    auto* folder = command->add_option("-d,--folder", arguments.folder,
                                       "Folder for the outputs, named after their inputs");
    output->excludes(folder);
    command->add_option("-j,--jobs", arguments.jobs, "Files exported at once (default: processors)")
        ->check(CLI::PositiveNumber);
    command->add_flag("--force", arguments.force, "Overwrite existing outputs");
    command->add_option("--colormap", arguments.colormap,
                        "png, html: gray (default), afmhot, viridis");
    command->add_option("--range", arguments.range,
                        "png, html: values at the ends of the colour map, MIN:MAX (default: 1st "
                        "to 99th percentile)");
    AddLevelOptions(*command, arguments.levelling,
                    "default: plane for png and html (a page also holds none and rows), none for "
                    "the data formats; force curves and the json header are never levelled");
    command->footer("Without -o or -d each output goes beside its input. An output is written "
                    "without a name and named only when complete. A png preview's caption says "
                    "how it was levelled. " +
                    LevelMethodsHelp());
    return command;
}

int RunExport(std::ostream& out, std::ostream& err, const ExportArguments& arguments)
{
    Kiv::Export::BatchRequest request;
    const auto format = Kiv::Export::ParseFormat(arguments.format);
    if (!format)
    {
        return UsageError(err, "unknown format \"" + arguments.format +
                                   "\"; formats: " + Kiv::Export::FormatNames());
    }
    if (!arguments.output.empty() && arguments.files.size() != 1)
    {
        return UsageError(err, "-o names the output of one file; use -d FOLDER for several");
    }
    if (!Kiv::Export::IsKnownColormap(arguments.colormap))
    {
        return UsageError(err, "unknown colour map \"" + arguments.colormap +
                                   "\"; known: gray, afmhot, viridis");
    }
    if (!arguments.range.empty())
    {
        request.options.range = ParseRange(arguments.range);
        if (!request.options.range ||
            !(request.options.range->first < request.options.range->second))
        {
            return UsageError(err, "--range takes MIN:MAX with MIN below MAX, not \"" +
                                       arguments.range + "\"");
        }
    }
    std::string problem;
    const auto levelling = ReadLevelling(arguments.levelling, problem);
    if (!levelling)
    {
        return UsageError(err, problem);
    }
    request.options.level = levelling->method;
    request.options.exclusion = levelling->exclusion;
    request.inputs = arguments.files;
    request.format = *format;
    if (!arguments.output.empty())
    {
        request.target.outputFile = arguments.output;
    }
    if (!arguments.folder.empty())
    {
        request.target.outputFolder = arguments.folder;
    }
    request.options.colormap = arguments.colormap;
    request.overwrite = arguments.force;
    request.jobs = arguments.jobs;

    ProgressLine progress(err);
    Kiv::Export::BatchObserver observer;
    observer.failure = [&](const std::string& message)
    {
        progress.Clear();
        err << "kiv: " << message << '\n' << std::flush;
    };
    if (ErrorsGoToTerminal())
    {
        observer.progress = [&](const Kiv::Export::BatchProgress& step) { progress.Show(step); };
    }
    const auto summary = Kiv::Export::RunBatchExport(request, observer);
    progress.Clear();
    out << SummaryLine(summary) << '\n';
    return summary.failed == 0 ? 0 : 1;
}

} // namespace Kiv::Tool
