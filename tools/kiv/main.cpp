// kiv: the host's command line. It loads the file-type modules and works on any registered
// file type through the host's data-file interface alone.
#include <csignal>
#include <iostream>
#include <malloc.h>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "Commands.h"
#include "Kiv/Access/Failure.h"
#include "Kiv/Access/InterruptCleanup.h"
#include "WarningReporter.h"

namespace
{
const int EXIT_WORK_FAILED = 1;
const int EXIT_USAGE = 2;

struct Arguments
{
    bool json = false;
    bool withData = false;
    Kiv::Edit::SaveOptions save;
    std::string file;
    std::string section;
    std::string key;
    std::string value;
    std::vector<std::string> modules;
    Kiv::Tool::ExportArguments exports;
    Kiv::Tool::StatsArguments stats;
    Kiv::Tool::ProfileArguments profile;
    Kiv::Tool::GalleryArguments gallery;
};

// The subcommands, to tell which one was given.
struct Subcommands
{
    CLI::App* formats;
    CLI::App* info;
    CLI::App* dump;
    CLI::App* set;
    CLI::App* unset;
    CLI::App* resave;
    CLI::App* selftest;
    CLI::App* exports;
    CLI::App* stats;
    CLI::App* profile;
    CLI::App* gallery;
};

void AddFile(CLI::App& command, Arguments& arguments)
{
    command.add_option("FILE", arguments.file, "The data file")->required();
}

void AddSaveOptions(CLI::App& command, Arguments& arguments)
{
    command.add_flag("--allow-loss", arguments.save.allowLoss,
                     "Save even though the writer drops content it cannot keep (listed on stderr)");
    command.add_flag("--dry-run", arguments.save.dryRun,
                     "Write nothing; show the header diff and what the save would drop");
}

void AddSectionAndKey(CLI::App& command, Arguments& arguments)
{
    command.add_option("SECTION", arguments.section, "The header section, e.g. \"[System Info]\"")
        ->required();
    command.add_option("KEY", arguments.key, "The key within the section")->required();
}

Subcommands DefineCommands(CLI::App& app, Arguments& arguments)
{
    app.require_subcommand(1);
    Subcommands commands{};

    commands.formats = app.add_subcommand("formats", "List the registered file types");
    commands.formats->add_flag("--json", arguments.json, "Print JSON");

    commands.info = app.add_subcommand(
        "info", "Summarise a file: type, sections, image or force-curve figures");
    AddFile(*commands.info, arguments);

    commands.dump = app.add_subcommand("dump", "Print the file's whole tree");
    commands.dump->add_flag("--json", arguments.json, "Print JSON");
    commands.dump->add_flag("--data", arguments.withData, "Include every sample of the data");
    AddFile(*commands.dump, arguments);

    commands.set = app.add_subcommand("set", "Store VALUE under KEY of SECTION and save");
    commands.set->footer(
        "A VALUE that begins with '-' goes after \"--\": kiv set FILE SECTION KEY -- -x");
    AddFile(*commands.set, arguments);
    AddSectionAndKey(*commands.set, arguments);
    commands.set
        ->add_option("VALUE", arguments.value, "The value, as text (UTF-8, stored as Latin-1)")
        ->required();
    AddSaveOptions(*commands.set, arguments);

    commands.unset = app.add_subcommand("unset", "Remove KEY from SECTION and save");
    AddFile(*commands.unset, arguments);
    AddSectionAndKey(*commands.unset, arguments);
    AddSaveOptions(*commands.unset, arguments);

    commands.resave =
        app.add_subcommand("resave", "Write the file again through its file type's writer");
    AddFile(*commands.resave, arguments);
    AddSaveOptions(*commands.resave, arguments);

    commands.selftest = app.add_subcommand("selftest", "Run the modules' own test suites");
    commands.selftest->add_option(
        "MODULE", arguments.modules,
        "Modules to test (name, file name or path); all when none is given");

    commands.exports = Kiv::Tool::AddExportCommand(app, arguments.exports);
    commands.stats = Kiv::Tool::AddStatsCommand(app, arguments.stats);
    commands.profile = Kiv::Tool::AddProfileCommand(app, arguments.profile);
    commands.gallery = Kiv::Tool::AddGalleryCommand(app, arguments.gallery);
    return commands;
}

int RunCommand(const Subcommands& commands, const Arguments& arguments)
{
    using namespace Kiv::Tool;
    if (commands.formats->parsed())
    {
        return RunFormats(std::cout, arguments.json);
    }
    if (commands.info->parsed())
    {
        return RunInfo(std::cout, arguments.file);
    }
    if (commands.dump->parsed())
    {
        return RunDump(std::cout, arguments.file, arguments.json, arguments.withData);
    }
    if (commands.set->parsed())
    {
        return RunSet(std::cout, arguments.file, arguments.section, arguments.key, arguments.value,
                      arguments.save);
    }
    if (commands.unset->parsed())
    {
        return RunUnset(std::cout, arguments.file, arguments.section, arguments.key,
                        arguments.save);
    }
    if (commands.resave->parsed())
    {
        return RunResave(std::cout, arguments.file, arguments.save);
    }
    if (commands.exports->parsed())
    {
        return RunExport(std::cout, std::cerr, arguments.exports);
    }
    if (commands.stats->parsed())
    {
        return RunStats(std::cout, std::cerr, arguments.stats);
    }
    if (commands.profile->parsed())
    {
        return RunProfile(std::cout, std::cerr, arguments.profile);
    }
    if (commands.gallery->parsed())
    {
        return RunGallery(std::cout, std::cerr, arguments.gallery);
    }
    return RunSelftest(std::cout, arguments.modules);
}

// A usage error is one line: CLI11's own report adds a second line with a hint.
int ReportUsageError(const std::string& message)
{
    std::cerr << "kiv: " << message << " (see kiv --help)\n";
    return EXIT_USAGE;
}

// CLI11 reports a mistyped command as a missing one; say what was typed.
bool IsUnknownCommand(const CLI::App& app, int argc, char** argv)
{
    if (argc < 2 || argv[1][0] == '-')
    {
        return false;
    }
    for (const CLI::App* command : app.get_subcommands({}))
    {
        if (command->check_name(argv[1]))
        {
            return false;
        }
    }
    return true;
}
} // namespace

int main(int argc, char** argv)
{
    // A save past the file-size limit would otherwise kill kiv mid-write and leave its hidden
    // temporary file behind; ignored, the write fails with EFBIG and is reported as any other
    // failed save.
    std::signal(SIGXFSZ, SIG_IGN);
    // A batch reads one image after another into buffers of the same sizes: kept in the heap
    // rather than mapped and unmapped for each file, they cost no page faults after the first.
    ::mallopt(M_MMAP_THRESHOLD, 32 << 20);
    ::mallopt(M_TRIM_THRESHOLD, 256 << 20);
    // Ctrl-C during a save or an export removes its temporary files before kiv ends.
    Kiv::Access::RemoveWatchedFilesOnInterrupt();
    CLI::App app("Inspect and edit data files through the host's file-type modules.", "kiv");
    app.set_version_flag("--version", std::string("kiv ") + KIV_VERSION);
    Arguments arguments;
    const Subcommands commands = DefineCommands(app, arguments);
    if (IsUnknownCommand(app, argc, argv))
    {
        return ReportUsageError(std::string("unknown command \"") + argv[1] + "\"");
    }
    try
    {
        app.parse(argc, argv);
    }
    catch (const CLI::ParseError& error)
    {
        // --help is reported as a "parse error" with exit code 0; CLI11 prints its help.
        return error.get_exit_code() == 0 ? app.exit(error) : ReportUsageError(error.what());
    }

    Kiv::Tool::InstallWarningReporter();
    int status = EXIT_WORK_FAILED;
    try
    {
        status = RunCommand(commands, arguments);
    }
    catch (...)
    {
        std::cout.flush();
        std::cerr << "kiv: " << Kiv::Access::DescribeCurrentException() << '\n';
        return EXIT_WORK_FAILED;
    }
    // A dump cut short by a full disk must not look like a success.
    if (!std::cout.flush())
    {
        std::cerr << "kiv: cannot write the output\n";
        return EXIT_WORK_FAILED;
    }
    return status;
}
