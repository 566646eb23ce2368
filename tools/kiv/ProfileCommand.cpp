// kiv profile: heights along a row, a column or a line of an image, as csv or json; the
// sampling along the line is the analysis library's.
#include <charconv>
#include <cmath>
#include <iostream>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "Commands.h"
#include "Kiv/Access/FileAccess.h"
#include "Kiv/Access/NumberText.h"
#include "Kiv/Export/SurfaceProfile.h"

namespace Kiv::Tool
{

namespace
{
using Json = nlohmann::ordered_json;
using Kiv::Export::ProfileSelection;

const int EXIT_USAGE = 2;

int UsageError(std::ostream& err, const std::string& message)
{
    err << "kiv: " << message << " (see kiv profile --help)\n";
    return EXIT_USAGE;
}

// "X,Y": a column and a row, or metres with --metres.
std::optional<Kiv::Analysis::PixelPoint> ParsePoint(const std::string& text)
{
    const std::size_t comma = text.find(',');
    if (comma == std::string::npos)
    {
        return std::nullopt;
    }
    const auto x = Kiv::Access::ParseWholeDouble(text.substr(0, comma));
    const auto y = Kiv::Access::ParseWholeDouble(text.substr(comma + 1));
    if (!x || !y || !std::isfinite(*x) || !std::isfinite(*y))
    {
        return std::nullopt;
    }
    return Kiv::Analysis::PixelPoint{*x, *y};
}

// The shortest text that reads back as the same double.
std::string Number(double value)
{
    if (!std::isfinite(value))
    {
        return std::isnan(value) ? "nan" : (value > 0 ? "inf" : "-inf");
    }
    char text[32];
    const auto end = std::to_chars(text, text + sizeof text, value).ptr;
    return std::string(text, end);
}

Json JsonNumbers(const std::vector<double>& values)
{
    Json list = Json::array();
    for (const double value : values)
    {
        list.push_back(std::isfinite(value) ? Json(value) : Json(nullptr));
    }
    return list;
}

void WriteCsv(std::ostream& out, const Kiv::Export::FileProfile& result)
{
    const auto& profile = result.profile;
    out << (profile.metres ? "distance_m," : "distance_px,")
        << (result.zUnit ? "height_" + *result.zUnit : std::string("height")) << '\n';
    for (std::size_t i = 0; i < profile.distance.size(); ++i)
    {
        out << Number(profile.distance[i]) << ',' << Number(profile.height[i]) << '\n';
    }
}

void WriteJson(std::ostream& out, const std::string& path, const Kiv::Export::FileProfile& result)
{
    Json json;
    json["file"] = path;
    json["level"] = result.level;
    json["distance_unit"] = result.profile.metres ? "m" : "px";
    json["height_unit"] = result.zUnit ? Json(*result.zUnit) : Json(nullptr);
    json["distance"] = JsonNumbers(result.profile.distance);
    json["height"] = JsonNumbers(result.profile.height);
    out << json.dump(-1, ' ', false, Json::error_handler_t::replace) << '\n';
}

// --to is both the line's end (X1,Y1) and the output format (csv, json); each value says which.
struct ToValues
{
    std::optional<std::string> format;
    std::optional<std::string> end;
};

std::optional<ToValues> SplitToValues(const std::vector<std::string>& values, std::string& problem)
{
    ToValues split;
    for (const std::string& value : values)
    {
        auto& slot = value == "csv" || value == "json" ? split.format : split.end;
        if (slot)
        {
            problem =
                "--to given twice for the same thing: \"" + *slot + "\" and \"" + value + "\"";
            return std::nullopt;
        }
        slot = value;
    }
    return split;
}

std::optional<ProfileSelection> ReadSelection(const ProfileArguments& arguments, const ToValues& to,
                                              std::string& problem)
{
    const int given = (arguments.row ? 1 : 0) + (arguments.column ? 1 : 0) +
                      (!arguments.from.empty() || to.end ? 1 : 0);
    if (given != 1)
    {
        problem = "give exactly one of --row R, --col C or --from X0,Y0 --to X1,Y1";
        return std::nullopt;
    }
    ProfileSelection selection;
    if (arguments.row || arguments.column)
    {
        if (arguments.metres)
        {
            problem = "--metres goes with --from and --to";
            return std::nullopt;
        }
        selection.along =
            arguments.row ? ProfileSelection::Along::Row : ProfileSelection::Along::Column;
        selection.index = arguments.row ? *arguments.row : *arguments.column;
        return selection;
    }
    const auto from = ParsePoint(arguments.from);
    const auto end = to.end ? ParsePoint(*to.end) : std::nullopt;
    if (!from || !end)
    {
        problem = "a line takes --from X0,Y0 and --to X1,Y1, each two numbers, not \"" +
                  (from ? to.end.value_or("") : arguments.from) + "\"";
        return std::nullopt;
    }
    selection.along = ProfileSelection::Along::Line;
    selection.from = *from;
    selection.to = *end;
    selection.inMetres = arguments.metres;
    return selection;
}
} // namespace

CLI::App* AddProfileCommand(CLI::App& app, ProfileArguments& arguments)
{
    CLI::App* command =
        app.add_subcommand("profile", "Heights along a row, a column or a line of an image");
    command->add_option("FILE", arguments.file, "The image file")->required();
    command->add_option("--row", arguments.row, "Along row R (0 is the first)");
    command->add_option("--col", arguments.column, "Along column C (0 is the first)");
    command->add_option("--from", arguments.from, "A line from X0,Y0 (column, row)");
    command
        ->add_option("--to", arguments.to,
                     "The line's end X1,Y1; or the output: csv (default) or json")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    command->add_flag("--metres", arguments.metres,
                      "--from and --to in metres from the centre of the first pixel");
    AddLevelOptions(*command, arguments.levelling, "default: none");
    command->footer(
        "Pixel centres lie on whole numbers. A line is sampled bilinearly at one-pixel steps "
        "from its start, so its end is sampled only when its length is whole; a point touching "
        "a dropout is NaN (null in json). Distances are in metres when the header gives the "
        "pixel size, in pixels otherwise. " +
        LevelMethodsHelp());
    return command;
}

int RunProfile(std::ostream& out, std::ostream& err, const ProfileArguments& arguments)
{
    std::string problem;
    const auto to = SplitToValues(arguments.to, problem);
    const auto selection = to ? ReadSelection(arguments, *to, problem) : std::nullopt;
    const auto levelling = selection ? ReadLevelling(arguments.levelling, problem) : std::nullopt;
    if (!levelling)
    {
        return UsageError(err, problem);
    }
    Kiv::Export::ProfileRequest request;
    request.selection = *selection;
    request.level = levelling->method.value_or(Kiv::Analysis::LevelMethod());
    request.exclusion = levelling->exclusion;

    Kiv::Access::LoadFileTypeModules();
    const auto file = Kiv::Access::OpenForReading(arguments.file);
    const auto result = Kiv::Export::ProfileFileSurface(*file, arguments.file, request);
    file->Close();
    if (to->format.value_or("csv") == "json")
    {
        WriteJson(out, arguments.file, result);
    }
    else
    {
        WriteCsv(out, result);
    }
    return 0;
}

} // namespace Kiv::Tool
