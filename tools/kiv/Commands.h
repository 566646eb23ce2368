#pragma once

#include "Kiv/Edit/SafeSave.h"
#include "SurfaceOptions.h"

#include <cstddef>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace CLI
{
class App;
}

namespace Kiv::Tool
{

// The work of each kiv command. Each returns the exit status (0 success, 1 when the work
// failed) or raises a host error whose message names the file and the reason.

int RunFormats(std::ostream& out, bool json);
int RunInfo(std::ostream& out, const std::string& path);
int RunDump(std::ostream& out, const std::string& path, bool json, bool withData);

// section, key and value arrive as UTF-8 and are stored as Latin-1.
// Prints the one-line warning on stderr for a file whose data end before the header says.
void WarnIfShort(const std::string& path, Kiv::DataCore::DataFile& file);

// The three saving commands; options.dryRun writes nothing and shows what would change.
int RunSet(std::ostream& out, const std::string& path, const std::string& section,
           const std::string& key, const std::string& value, const Kiv::Edit::SaveOptions& options);
int RunUnset(std::ostream& out, const std::string& path, const std::string& section,
             const std::string& key, const Kiv::Edit::SaveOptions& options);
int RunResave(std::ostream& out, const std::string& path, const Kiv::Edit::SaveOptions& options);

// Runs the test suites of the named modules (a module's name, file name or path), or of every
// loaded module; ends with the line "N passed, M failed".
int RunSelftest(std::ostream& out, const std::vector<std::string>& modules);

// kiv export FILE... --to FORMAT [-o OUTPUT | -d FOLDER] [-j N] [--force] [--colormap NAME]
// [--range MIN:MAX] [--level METHOD] [--exclude-...]: defines its own subcommand, so that its
// options stay out of the others'.
struct ExportArguments
{
    std::vector<std::string> files;
    std::string format;
    std::string output;
    std::string folder;
    unsigned jobs = 0;
    bool force = false;
    std::string colormap = "gray";
    std::string range;
    LevelArguments levelling;
};
CLI::App* AddExportCommand(CLI::App& app, ExportArguments& arguments);
// Prints a line for each failed file on err and the summary on out; 1 when any file failed,
// 2 for arguments that do not fit together.
int RunExport(std::ostream& out, std::ostream& err, const ExportArguments& arguments);

// kiv stats FILE... [--level METHOD] [--exclude-...] [--z-unit U] [--json] [-j N]
struct StatsArguments
{
    std::vector<std::string> files;
    LevelArguments levelling;
    std::string zUnit;
    bool json = false;
    unsigned jobs = 0;
};
CLI::App* AddStatsCommand(CLI::App& app, StatsArguments& arguments);
// The figures of each file on out, in the order of the files; a line for each failed file on
// err. 1 when any file failed, 2 for a usage error.
int RunStats(std::ostream& out, std::ostream& err, const StatsArguments& arguments);

// kiv profile FILE (--row R | --col C | --from X0,Y0 --to X1,Y1 [--metres]) [--level METHOD]
// [--exclude-...] [--to csv|json]
struct ProfileArguments
{
    std::string file;
    std::optional<std::size_t> row;
    std::optional<std::size_t> column;
    std::string from;
    std::vector<std::string> to; // the line's end, the output format, or both
    bool metres = false;
    LevelArguments levelling;
};
CLI::App* AddProfileCommand(CLI::App& app, ProfileArguments& arguments);
int RunProfile(std::ostream& out, std::ostream& err, const ProfileArguments& arguments);

// kiv gallery FOLDER... -o OUTPUT [-j N] [--force]
struct GalleryArguments
{
    std::vector<std::string> folders;
    std::string output;
    unsigned jobs = 0;
    bool force = false;
};
CLI::App* AddGalleryCommand(CLI::App& app, GalleryArguments& arguments);
// A line for each failed scan on err and the summary on out; 1 when any scan failed.
int RunGallery(std::ostream& out, std::ostream& err, const GalleryArguments& arguments);

} // namespace Kiv::Tool
