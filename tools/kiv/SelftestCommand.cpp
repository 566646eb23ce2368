#include <filesystem>

#include "Commands.h"
#include "Kiv/Access/Failure.h"
#include "Kiv/Access/FileAccess.h"
#include "Kiv/Access/Latin1.h"
#include "Kiv/DataCore/ModuleLoader.h"

namespace Kiv::Tool
{

using namespace Kiv::Access;

namespace
{
namespace fs = std::filesystem;

// "libPelrixDataFile.so" is known as "PelrixDataFile".
std::string ModuleName(const std::string& path)
{
    std::string name = fs::path(path).stem().string();
    return name.compare(0, 3, "lib") == 0 ? name.substr(3) : name;
}

bool NamesModule(const std::string& wanted, const std::string& modulePath)
{
    if (wanted == ModuleName(modulePath) || wanted == fs::path(modulePath).filename().string())
    {
        return true;
    }
    std::error_code error;
    return fs::equivalent(wanted, modulePath, error);
}

// The modules to test: every loaded one, or those named. A name that is a path to a module
// outside the plug-in folders loads that module first.
std::vector<std::string> SelectModules(const std::vector<std::string>& wanted)
{
    if (wanted.empty())
    {
        return Kiv::DataCore::LoadedModules();
    }
    std::vector<std::string> selected;
    for (const auto& name : wanted)
    {
        std::error_code error;
        if (name.find('/') != std::string::npos && fs::is_regular_file(name, error))
        {
            try
            {
                Kiv::DataCore::LoadModule(name);
            }
            catch (...)
            {
                Fail(name + ": " + WithoutFilePrefix(DescribeCurrentException(), name));
            }
        }
        bool found = false;
        for (const auto& modulePath : Kiv::DataCore::LoadedModules())
        {
            if (NamesModule(name, modulePath))
            {
                selected.push_back(modulePath);
                found = true;
                break;
            }
        }
        if (!found)
        {
            Fail(name + ": no loaded module has this name");
        }
    }
    return selected;
}
} // namespace

int RunSelftest(std::ostream& out, const std::vector<std::string>& modules)
{
    LoadFileTypeModules();
    int passed = 0;
    int failed = 0;
    int suites = 0;
    for (const auto& modulePath : SelectModules(modules))
    {
        const auto suite = Kiv::DataCore::GetModuleTestSuite(modulePath);
        if (!suite)
        {
            out << ModuleName(modulePath) << ": no test suite\n";
            continue;
        }
        ++suites;
        for (const auto& result : suite->Run())
        {
            out << (result.passed ? "passed  " : "FAILED  ") << ToDisplayText(suite->GetName())
                << ": " << ToDisplayText(result.check);
            if (!result.passed)
            {
                out << ": " << ToDisplayText(result.message);
            }
            out << '\n';
            ++(result.passed ? passed : failed);
        }
    }
    out << passed << " passed, " << failed << " failed\n";
    if (suites == 0)
    {
        Fail("selftest: no loaded module has a test suite");
    }
    if (failed != 0)
    {
        Fail("selftest: " + std::to_string(failed) + " of " + std::to_string(passed + failed) +
             " checks failed");
    }
    return 0;
}

} // namespace Kiv::Tool
