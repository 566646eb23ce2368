#include "SurfaceOptions.h"

#include <stdexcept>

#include <CLI/CLI.hpp>

#include "Kiv/Access/NumberText.h"

namespace Kiv::Tool
{

namespace
{
bool ReadNumber(const std::string& option, const std::string& text, std::optional<double>& value,
                std::string& problem)
{
    if (text.empty())
    {
        return true;
    }
    value = Kiv::Access::ParseWholeDouble(text);
    if (!value)
    {
        problem = option + " takes a number, not \"" + text + "\"";
        return false;
    }
    return true;
}
} // namespace

void AddLevelOptions(CLI::App& command, LevelArguments& arguments, const std::string& levelHelp)
{
    command.add_option("--level", arguments.level,
                       "Levelling METHOD, e.g. plane, rows+plane, none (" + levelHelp + ")");
    command.add_option("--exclude-above", arguments.excludeAbove,
                       "Leave samples above Z (data units) out of the levelling fits");
    command.add_option("--exclude-below", arguments.excludeBelow,
                       "Leave samples below Z (data units) out of the levelling fits");
    command.add_option("--exclude-above-percentile", arguments.excludeAbovePercentile,
                       "Leave samples above the P-th percentile (0 to 100) out of the fits");
}

std::optional<Levelling> ReadLevelling(const LevelArguments& arguments, std::string& problem)
{
    Levelling levelling;
    auto& exclusion = levelling.exclusion;
    if (!ReadNumber("--exclude-above", arguments.excludeAbove, exclusion.above, problem) ||
        !ReadNumber("--exclude-below", arguments.excludeBelow, exclusion.below, problem) ||
        !ReadNumber("--exclude-above-percentile", arguments.excludeAbovePercentile,
                    exclusion.abovePercentile, problem))
    {
        return std::nullopt;
    }
    try
    {
        if (!arguments.level.empty())
        {
            levelling.method = Kiv::Analysis::LevelMethod::Parse(arguments.level);
        }
        Kiv::Analysis::CheckExclusion(exclusion);
    }
    catch (const std::invalid_argument& error)
    {
        problem = error.what();
        return std::nullopt;
    }
    return levelling;
}

std::string LevelMethodsHelp()
{
    return "Levelling methods, joined with '+' and applied left to right: " +
           Kiv::Analysis::LevelMethodSpellings() +
           ". The --exclude options are applied before each step to the surface as the steps "
           "before left it.";
}

} // namespace Kiv::Tool
