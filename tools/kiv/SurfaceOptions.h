#pragma once

#include <optional>
#include <string>

#include "Kiv/Analysis/Levelling.h"

namespace CLI
{
class App;
}

namespace Kiv::Tool
{

// --level METHOD and the options that leave pixels out of its fits, as stats, profile and
// export take them; the numbers stay text until Read, so that a bad one is our one-line error.
struct LevelArguments
{
    std::string level; // empty: not given
    std::string excludeAbove;
    std::string excludeBelow;
    std::string excludeAbovePercentile;
};

struct Levelling
{
    std::optional<Kiv::Analysis::LevelMethod> method; // nothing when --level was not given
    Kiv::Analysis::Exclusion exclusion;
};

// levelHelp says what happens without --level.
void AddLevelOptions(CLI::App& command, LevelArguments& arguments, const std::string& levelHelp);

// The levelling, or the one-line usage error in problem.
std::optional<Levelling> ReadLevelling(const LevelArguments& arguments, std::string& problem);

// The figures' conventions and the methods' spellings, for the footers of --help.
std::string LevelMethodsHelp();

} // namespace Kiv::Tool
