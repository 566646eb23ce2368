// kiv stats: the height parameters of many files, a table or a JSON line each, in the order of
// the arguments; the figures themselves are the analysis library's.
#include <cmath>
#include <cstdio>
#include <iostream>
#include <optional>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "Commands.h"
#include "Kiv/Access/FileAccess.h"
#include "Kiv/Export/FileBatch.h"
#include "Kiv/Export/SurfaceFigures.h"
#include "ProgressLine.h"

namespace Kiv::Tool
{

namespace
{
using Json = nlohmann::ordered_json;
using Kiv::Export::SurfaceFigures;

const int EXIT_USAGE = 2;
const std::size_t LABEL_WIDTH = 12;

std::string Figure(double value)
{
    char text[64];
    std::snprintf(text, sizeof text, "%.6g", value);
    return text;
}

Json JsonFigure(double value)
{
    return std::isfinite(value) ? Json(value) : Json(nullptr);
}

Json JsonFigure(const std::optional<double>& value)
{
    return value ? JsonFigure(*value) : Json(nullptr);
}

void WriteJsonLine(std::ostream& out, const std::string& path, const SurfaceFigures& figures)
{
    const auto& p = figures.parameters;
    Json line;
    line["file"] = path;
    line["level"] = figures.level;
    line["count"] = p.count;
    line["excluded"] = p.excluded;
    for (const auto& figure : Kiv::Analysis::NamedFigures(p))
    {
        line[figure.name] = JsonFigure(figure.value);
    }
    line["z_unit"] = figures.zUnit ? Json(*figures.zUnit) : Json(nullptr);
    line["pixel_size"] = figures.pixelSize
                             ? Json::array({figures.pixelSize->x, figures.pixelSize->y})
                             : Json(nullptr);
    // Paths of unknown encoding must not stop the output.
    out << line.dump(-1, ' ', false, Json::error_handler_t::replace) << '\n';
}

void Row(std::ostream& out, const std::string& label, const std::string& value)
{
    out << label << ':' << std::string(LABEL_WIDTH - label.size() - 1, ' ') << value << '\n';
}

void WriteTable(std::ostream& out, const std::string& path, const SurfaceFigures& figures)
{
    const auto& p = figures.parameters;
    const std::string unit = figures.zUnit ? " " + *figures.zUnit : std::string();
    const auto height = [&](double value) { return Figure(value) + unit; };
    Row(out, "File", path);
    Row(out, "Level", figures.level);
    Row(out, "Count", std::to_string(p.count));
    Row(out, "Excluded", std::to_string(p.excluded));
    Row(out, "Mean", height(p.mean));
    Row(out, "Median", height(p.median));
    Row(out, "Min", height(p.minimum));
    Row(out, "Max", height(p.maximum));
    Row(out, "Sa", height(p.Sa));
    Row(out, "Sq", height(p.Sq));
    Row(out, "Ssk", Figure(p.Ssk));
    Row(out, "Sku", Figure(p.Sku));
    Row(out, "Sp", height(p.Sp));
    Row(out, "Sv", height(p.Sv));
    Row(out, "Sz", height(p.Sz));
    if (p.Sdq && p.Sdr && p.area)
    {
        Row(out, "Sdq", Figure(*p.Sdq));
        Row(out, "Sdr", Figure(*p.Sdr) + " (" + Figure(*p.Sdr * 100.0) + " %)");
        Row(out, "Area", Figure(*p.area) + " m\xC2\xB2");
    }
    else
    {
        Row(out, "Sdq, Sdr",
            !figures.pixelSize ? "unknown: the header gives no pixel size"
                               : "unknown: no height unit (give --z-unit)");
    }
}

// Results wait for the files before them, so that the output keeps the order of the arguments
// whichever file finishes first.
class OrderedOutput
{
public:
    OrderedOutput(std::ostream& out, const StatsArguments& arguments)
        : m_Out(out), m_Arguments(arguments), m_Results(arguments.files.size()),
          m_Finished(arguments.files.size(), false)
    {
    }

    void Keep(std::size_t index, SurfaceFigures figures) { m_Results[index] = std::move(figures); }

    // Called one at a time, after the file's Keep when it succeeded.
    void Finish(std::size_t index, ProgressLine& progress)
    {
        m_Finished[index] = true;
        for (; m_Next < m_Finished.size() && m_Finished[m_Next]; ++m_Next)
        {
            auto& result = m_Results[m_Next];
            if (!result)
            {
                continue;
            }
            progress.Clear();
            const std::string& path = m_Arguments.files[m_Next];
            if (m_Arguments.json)
            {
                WriteJsonLine(m_Out, path, *result);
            }
            else
            {
                m_Out << (m_Written ? "\n" : "");
                WriteTable(m_Out, path, *result);
            }
            m_Written = true;
            result.reset();
        }
    }

private:
    std::ostream& m_Out;
    const StatsArguments& m_Arguments;
    std::vector<std::optional<SurfaceFigures>> m_Results;
    std::vector<bool> m_Finished;
    std::size_t m_Next = 0;
    bool m_Written = false;
};
} // namespace

CLI::App* AddStatsCommand(CLI::App& app, StatsArguments& arguments)
{
    CLI::App* command = app.add_subcommand(
        "stats", "Height parameters (Sa, Sq, Ssk, Sku, Sp, Sv, Sz, Sdq, Sdr) of image files");
    command->add_option("FILE", arguments.files, "The image files")->required();
    AddLevelOptions(*command, arguments.levelling,
                    "default: plane; none gives the figures of the raw samples");
    command->add_option("--z-unit", arguments.zUnit,
                        "Unit of the samples (nm, um, m...) when the header gives none");
    command->add_flag("--json", arguments.json,
                      "One JSON object a file a line; unknown figures are null");
    command->add_option("-j,--jobs", arguments.jobs, "Files analysed at once (default: processors)")
        ->check(CLI::PositiveNumber);
    command->footer(
        "Figures over the finite samples the --exclude options leave in, each divided by their "
        "count N (not N - 1). Sp is the highest peak above the mean, Sv the deepest valley below "
        "it (positive), Sz = Sp + Sv. Sku is ISO 25178's kurtosis, 3 for a Gaussian surface; "
        "Gwyddion's \"kurtosis\" is the excess, Sku - 3. Sdq (root mean square gradient), Sdr "
        "(developed interfacial area ratio) and the area (m\xC2\xB2) need the pixel size and the "
        "height unit. " +
        LevelMethodsHelp());
    return command;
}

int RunStats(std::ostream& out, std::ostream& err, const StatsArguments& arguments)
{
    std::string problem;
    const auto levelling = ReadLevelling(arguments.levelling, problem);
    if (!levelling)
    {
        err << "kiv: " << problem << " (see kiv stats --help)\n";
        return EXIT_USAGE;
    }
    Kiv::Export::SurfaceRequest request;
    request.level =
        levelling->method ? *levelling->method : Kiv::Analysis::LevelMethod::Parse("plane");
    request.exclusion = levelling->exclusion;
    if (!arguments.zUnit.empty())
    {
        request.zUnit = arguments.zUnit;
    }

    Kiv::Access::LoadFileTypeModules();
    OrderedOutput results(out, arguments);
    ProgressLine progress(err);
    const bool showProgress = ErrorsGoToTerminal();
    Kiv::Export::FileBatch batch;
    batch.inputs = arguments.files;
    batch.jobs = arguments.jobs;
    batch.work = [&](std::size_t index)
    {
        const std::string& path = arguments.files[index];
        const auto file = Kiv::Access::OpenForReading(path);
        auto figures = Kiv::Export::AnalyseFileSurface(*file, path, request);
        file->Close();
        results.Keep(index, std::move(figures));
    };
    batch.finished =
        [&](std::size_t index, const std::string& failure, const Kiv::Export::BatchProgress& step)
    {
        if (!failure.empty())
        {
            progress.Clear();
            err << "kiv: " << failure << '\n' << std::flush;
        }
        results.Finish(index, progress);
        if (showProgress)
        {
            progress.Show(step);
        }
    };
    const std::size_t failed = Kiv::Export::RunFileBatch(batch);
    progress.Clear();
    return failed == 0 ? 0 : 1;
}

} // namespace Kiv::Tool
