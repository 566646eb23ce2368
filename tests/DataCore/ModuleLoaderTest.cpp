#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <thread>

#include <gtest/gtest.h>

#include "CollectingAlertHandler.h"
#include "Kiv/Core/Error.h"
#include "Kiv/DataCore/DataFile.h"
#include "Kiv/DataCore/ModuleLoader.h"

using namespace Kiv::DataCore;
namespace fs = std::filesystem;

namespace
{

const std::string GOOD_MODULE = KIV_TEST_MODULE_GOOD;
const std::string NO_ENTRY_MODULE = KIV_TEST_MODULE_NO_ENTRY;
const std::string GOOD_FILE_TYPE = "Kiv Test Module File";

// Sets (or, with a null value, removes) KIV_PLUGIN_PATH for one scope.
class ScopedPluginPath
{
public:
    explicit ScopedPluginPath(const char* value)
    {
        if (const char* const old = std::getenv("KIV_PLUGIN_PATH"))
        {
            m_Old = old;
        }
        Set(value);
    }
    ~ScopedPluginPath() { Set(m_Old ? m_Old->c_str() : nullptr); }

private:
    static void Set(const char* value)
    {
        value != nullptr ? setenv("KIV_PLUGIN_PATH", value, 1) : unsetenv("KIV_PLUGIN_PATH");
    }

    std::optional<std::string> m_Old;
};

// A folder of its own for each test, removed with everything in it afterwards.
class TempDir
{
public:
    TempDir()
    {
        std::string pattern = (fs::temp_directory_path() / "kivmodules.XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr)
        {
            throw std::runtime_error("cannot make a temporary folder");
        }
        m_Path = fs::canonical(pattern);
    }
    ~TempDir()
    {
        std::error_code ignored;
        fs::remove_all(m_Path, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const fs::path& Path() const { return m_Path; }
    fs::path Write(const std::string& name, const std::string& content) const
    {
        std::ofstream(m_Path / name, std::ios::binary) << content;
        return m_Path / name;
    }

private:
    fs::path m_Path;
};

std::size_t CountFileType(const std::string& type)
{
    const auto types = DataFile::ListFileTypes();
    return std::count_if(types.begin(), types.end(),
                         [&type](const DataFile::FileTypeInfo& info)
                         { return info.fileType == type; });
}

std::size_t CountLoaded(const std::string& path)
{
    const auto modules = LoadedModules();
    return std::count(modules.begin(), modules.end(), fs::canonical(path).string());
}

// The message of the OSError that loading path raises, or a note that none was raised.
std::string LoadError(const std::string& path)
{
    try
    {
        LoadModule(path);
    }
    catch (const Kiv::Core::OSError& error)
    {
        EXPECT_EQ(error.GetAlertId(), "Kiv.DataCore.ModuleLoader");
        return error.GetMessage();
    }
    return "(no error)";
}

} // namespace

TEST(ModuleLoader, LoadedModuleRegistersAFileTypeThatOpensFiles)
{
    LoadModule(GOOD_MODULE);
    EXPECT_EQ(CountFileType(GOOD_FILE_TYPE), 1u);

    const auto file =
        DataFile::Open("scan.kivtest", DataFile::ACCESS_READ, DataFile::OPEN_EXISTING, "", nullptr);
    ASSERT_TRUE(file);
    EXPECT_EQ(file->GetFileType(), GOOD_FILE_TYPE);
    EXPECT_EQ(file->GetFileName(), "scan.kivtest");
}

TEST(ModuleLoader, AModuleIsLoadedOnceHoweverItsPathIsSpelled)
{
    TempDir dir;
    const fs::path link = dir.Path() / "alias.so";
    fs::create_symlink(GOOD_MODULE, link);
    const std::string dotted =
        (fs::path(GOOD_MODULE).parent_path() / "." / fs::path(GOOD_MODULE).filename()).string();

    LoadModule(GOOD_MODULE);
    LoadModule(GOOD_MODULE);
    LoadModule(link.string());
    LoadModule(dotted);
    std::thread other([] { LoadModule(GOOD_MODULE); });
    LoadModule(GOOD_MODULE);
    other.join();

    EXPECT_EQ(CountLoaded(GOOD_MODULE), 1u);
    EXPECT_EQ(CountFileType(GOOD_FILE_TYPE), 1u);
}

TEST(ModuleLoader, ModulesThatCannotServeRaiseOSErrorNamingThePath)
{
    KivTest::ScopedAlertCollector alerts;
    TempDir dir;
    const std::string missing = (dir.Path() / "libMissing.so").string();
    const std::string junk = dir.Write("libJunk.so", "not a shared library").string();
    struct Case
    {
        std::string path;
        std::string start;  // the message starts with this
        std::string reason; // and contains this
    };
    const Case cases[] = {
        {missing, "cannot load module \"" + missing + "\": ", "No such file or directory"},
        {junk, "cannot load module \"" + junk + "\": ", "libJunk.so"},
        {dir.Path().string(), "cannot load module \"" + dir.Path().string() + "\": ", ""},
        {NO_ENTRY_MODULE, "module \"" + NO_ENTRY_MODULE + "\" has no RegisterDataFileTypes entry",
         ""},
    };
    for (const auto& c : cases)
    {
        const std::string message = LoadError(c.path);
        EXPECT_EQ(message.rfind(c.start, 0), 0u) << message;
        EXPECT_NE(message.find(c.reason, c.start.size()), std::string::npos) << message;
        EXPECT_EQ(message.find('\n'), std::string::npos) << "one line: " << message;
    }
    const auto loaded = LoadedModules();
    EXPECT_EQ(std::count(loaded.begin(), loaded.end(), fs::canonical(NO_ENTRY_MODULE).string()), 0);
}

TEST(ModuleLoader, PluginDirectoriesComeFromTheSearchPathOrBesideTheLibrary)
{
    struct Case
    {
        const char* searchPath;
        std::vector<std::string> folders;
    };
    // In the build tree the test modules sit in lib/test-modules, beside DataCore's lib/.
    const std::string besideLibrary =
        (fs::path(GOOD_MODULE).parent_path().parent_path() / "kiv" / "plugins").string();
    const Case cases[] = {
        {"/opt/kiv/plugins", {"/opt/kiv/plugins"}},
        {"/a:/b", {"/a", "/b"}},
        {"::/a::relative/b:", {"/a", "relative/b"}},
        {nullptr, {besideLibrary}},
        {"", {besideLibrary}},
        {":::", {besideLibrary}},
    };
    for (const auto& c : cases)
    {
        ScopedPluginPath path(c.searchPath);
        EXPECT_EQ(PluginDirectories(), c.folders) << (c.searchPath ? c.searchPath : "(unset)");
    }
}

TEST(ModuleLoader, LoadPluginModulesLoadsWhatItCanAndReportsTheRest)
{
    TempDir dir;
    // Made in name order, which a folder listing need not keep (tmpfs lists newest first).
    const std::vector<std::string> modules = {(dir.Path() / "alpha.so").string(),
                                              (dir.Path() / "beta.so").string(),
                                              (dir.Path() / "zeta.so").string()};
    for (const auto& module : modules)
    {
        fs::copy_file(GOOD_MODULE, module);
    }
    dir.Write("broken.so", std::string("\x7f") + "ELF and nothing else");
    dir.Write("readme.txt", "not a module, not even tried");
    fs::create_directory(dir.Path() / "folder.so");
    const std::string notAFolder = dir.Write("plugins", "").string();
    const std::string searchPath =
        dir.Path().string() + ":" + (dir.Path() / "absent").string() + ":" + notAFolder;
    ScopedPluginPath path(searchPath.c_str());

    KivTest::ScopedAlertCollector alerts;
    const ModuleLoadReport report = LoadPluginModules();

    EXPECT_EQ(report.loaded, modules) << "in name order";
    ASSERT_EQ(report.errors.size(), 2u) << "the absent folder is no error";
    const std::string broken = (dir.Path() / "broken.so").string();
    EXPECT_EQ(report.errors[0].rfind("cannot load module \"" + broken + "\": ", 0), 0u)
        << report.errors[0];
    EXPECT_EQ(report.errors[1], "cannot read plug-in folder \"" + notAFolder + "\": not a folder");
    for (const auto& module : modules)
    {
        EXPECT_EQ(CountLoaded(module), 1u) << module;
    }
    EXPECT_EQ(CountFileType(GOOD_FILE_TYPE), 1u) << "a copy replaces the same class's factory";

    const ModuleLoadReport again = LoadPluginModules();
    EXPECT_TRUE(again.loaded.empty()) << "nothing new to load";
    EXPECT_EQ(again.errors, report.errors);
}

TEST(ModuleLoader, TheTestSuiteOfALoadedModuleRunsAndOnlyOfOne)
{
    LoadModule(GOOD_MODULE);
    const boost::shared_ptr<ModuleTestSuite> suite = GetModuleTestSuite(GOOD_MODULE);
    ASSERT_TRUE(suite);
    EXPECT_EQ(suite->GetName(), "KivTestModuleGood");

    const auto results = suite->Run();
    ASSERT_EQ(results.size(), 2u);
    EXPECT_EQ(results[0].check, "factory is registered");
    EXPECT_TRUE(results[0].passed) << results[0].message;
    EXPECT_EQ(results[1].check, "fails on purpose");
    EXPECT_FALSE(results[1].passed);
    EXPECT_EQ(results[1].message, "this check always fails");

    KivTest::ScopedAlertCollector alerts;
    TempDir dir;
    const std::string notLoaded = (dir.Path() / "copy.so").string();
    fs::copy_file(GOOD_MODULE, notLoaded);
    try
    {
        GetModuleTestSuite(notLoaded);
        FAIL() << "no error";
    }
    catch (const Kiv::Core::OSError& error)
    {
        EXPECT_EQ(error.GetMessage(), "module \"" + notLoaded + "\" is not loaded");
    }
}
