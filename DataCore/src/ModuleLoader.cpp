#include "Kiv/DataCore/ModuleLoader.h"

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <mutex>
#include <system_error>

#include <dlfcn.h>

#include "Kiv/Core/Error.h"

namespace Kiv::DataCore
{

namespace
{

namespace fs = std::filesystem;

const char* const ALERT_ID = "Kiv.DataCore.ModuleLoader";
const char* const REGISTER_ENTRY = "RegisterDataFileTypes";
const char* const TEST_SUITE_ENTRY = "GetModuleTestSuite";
const char* const PLUGIN_PATH_VARIABLE = "KIV_PLUGIN_PATH";
const char* const MODULE_EXTENSION = ".so";

using RegisterEntry = void (*)();

[[noreturn]] void RaiseModuleError(const std::string& message,
                                   const Kiv::Core::CodeContext& context)
{
    Kiv::Core::OSError(message).RaiseError(context, ALERT_ID, false);
}

std::string Quoted(const std::string& text)
{
    return "\"" + text + "\"";
}

std::string LastDlError()
{
    const char* const reason = dlerror();
    return reason != nullptr ? reason : "unknown reason";
}

std::string DescribeException(const std::exception_ptr& thrown)
{
    try
    {
        std::rethrow_exception(thrown);
    }
    catch (const std::exception& error)
    {
        return error.what();
    }
    catch (...)
    {
        return "unknown exception";
    }
}

// One path per file, so that a module reached through a symbolic link or a relative path is
// recognised as the one already loaded.
bool TryCanonical(const std::string& path, std::string& canonical, std::string& reason)
{
    std::error_code error;
    const fs::path resolved = fs::canonical(path, error);
    if (error)
    {
        reason = error.message();
        return false;
    }
    canonical = resolved.string();
    return true;
}

// The modules of the process, in load order. One mutex guards the list and the whole of a
// load, so that a module is never loaded or registered twice by racing callers; it is
// recursive so that a module's registration may itself load a module it depends on.
class ModuleRegistry
{
public:
    static ModuleRegistry& Instance()
    {
        static ModuleRegistry registry;
        return registry;
    }

    // Returns false when the module was already loaded.
    bool Load(const std::string& path)
    {
        std::string canonical;
        std::string reason;
        if (!TryCanonical(path, canonical, reason))
        {
            RaiseModuleError("cannot load module " + Quoted(path) + ": " + reason,
                             KIV_CODE_CONTEXT);
        }
        std::lock_guard<std::recursive_mutex> guard(m_Mutex);
        if (Find(canonical) != nullptr)
        {
            return false;
        }
        // Handles are never closed, even on failure: a module's static initialisers may
        // already have handed objects to the host.
        void* const handle = dlopen(canonical.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (handle == nullptr)
        {
            RaiseModuleError("cannot load module " + Quoted(path) + ": " + LastDlError(),
                             KIV_CODE_CONTEXT);
        }
        const auto entry = reinterpret_cast<RegisterEntry>(dlsym(handle, REGISTER_ENTRY));
        if (entry == nullptr)
        {
            RaiseModuleError("module " + Quoted(path) + " has no " + REGISTER_ENTRY + " entry",
                             KIV_CODE_CONTEXT);
        }
        CallRegistration(path, entry);
        m_Modules.push_back({canonical, handle});
        return true;
    }

    std::vector<std::string> Paths() const
    {
        std::lock_guard<std::recursive_mutex> guard(m_Mutex);
        std::vector<std::string> paths;
        for (const auto& module : m_Modules)
        {
            paths.push_back(module.path);
        }
        return paths;
    }

    // The module's test-suite entry, or null when it exports none.
    ModuleTestSuiteEntry FindTestSuiteEntry(const std::string& path) const
    {
        std::string canonical;
        std::string reason;
        std::lock_guard<std::recursive_mutex> guard(m_Mutex);
        const Module* const module =
            TryCanonical(path, canonical, reason) ? Find(canonical) : nullptr;
        if (module == nullptr)
        {
            RaiseModuleError("module " + Quoted(path) + " is not loaded", KIV_CODE_CONTEXT);
        }
        return reinterpret_cast<ModuleTestSuiteEntry>(dlsym(module->handle, TEST_SUITE_ENTRY));
    }

private:
    struct Module
    {
        std::string path;
        void* handle;
    };

    const Module* Find(const std::string& canonical) const
    {
        const auto found =
            std::find_if(m_Modules.begin(), m_Modules.end(),
                         [&canonical](const Module& module) { return module.path == canonical; });
        return found == m_Modules.end() ? nullptr : &*found;
    }

    // A module that throws out of its registration is not recorded, so a later load may try
    // again; what it threw becomes the host's error.
    static void CallRegistration(const std::string& path, RegisterEntry entry)
    {
        try
        {
            entry();
        }
        catch (...)
        {
            RaiseModuleError("module " + Quoted(path) + " failed to register its file types: " +
                                 DescribeException(std::current_exception()),
                             KIV_CODE_CONTEXT);
        }
    }

    mutable std::recursive_mutex m_Mutex;
    std::vector<Module> m_Modules;
};

std::vector<std::string> SplitSearchPath(const std::string& text)
{
    std::vector<std::string> parts;
    std::size_t start = 0;
    while (start <= text.size())
    {
        const std::size_t end = std::min(text.find(':', start), text.size());
        if (end > start)
        {
            parts.push_back(text.substr(start, end - start));
        }
        start = end + 1;
    }
    return parts;
}

// The folder of the file that holds this library's code, as the dynamic loader found it.
std::string DataCoreLibraryFolder()
{
    static const char anchor = 0;
    Dl_info info{};
    if (dladdr(&anchor, &info) == 0 || info.dli_fname == nullptr)
    {
        return std::string();
    }
    std::error_code error;
    const fs::path library = fs::absolute(info.dli_fname, error);
    return error ? std::string() : library.parent_path().string();
}

// The *.so files of one plug-in folder in name order, or none when the folder is missing.
std::vector<fs::path> ModuleFilesIn(const std::string& folder, std::vector<std::string>& errors)
{
    std::error_code error;
    const fs::file_status status = fs::status(folder, error);
    if (status.type() == fs::file_type::not_found)
    {
        return {};
    }
    if (error || !fs::is_directory(status))
    {
        errors.push_back("cannot read plug-in folder " + Quoted(folder) + ": " +
                         (error ? error.message() : std::string("not a folder")));
        return {};
    }
    std::vector<fs::path> files;
    fs::directory_iterator entries(folder, error);
    for (; !error && entries != fs::directory_iterator(); entries.increment(error))
    {
        std::error_code typeError;
        const fs::path& path = entries->path();
        if (path.extension() == MODULE_EXTENSION && entries->is_regular_file(typeError))
        {
            files.push_back(path);
        }
    }
    if (error)
    {
        errors.push_back("cannot read plug-in folder " + Quoted(folder) + ": " + error.message());
    }
    std::sort(files.begin(), files.end(),
              [](const fs::path& a, const fs::path& b) { return a.filename() < b.filename(); });
    return files;
}

} // namespace

void LoadModule(const std::string& path)
{
    ModuleRegistry::Instance().Load(path);
}

std::vector<std::string> PluginDirectories()
{
    const char* const searchPath = std::getenv(PLUGIN_PATH_VARIABLE);
    if (searchPath != nullptr)
    {
        auto folders = SplitSearchPath(searchPath);
        if (!folders.empty())
        {
            return folders;
        }
    }
    const std::string libraryFolder = DataCoreLibraryFolder();
    if (libraryFolder.empty())
    {
        return {};
    }
    return {(fs::path(libraryFolder) / "kiv" / "plugins").string()};
}

ModuleLoadReport LoadPluginModules()
{
    ModuleLoadReport report;
    for (const auto& folder : PluginDirectories())
    {
        for (const auto& file : ModuleFilesIn(folder, report.errors))
        {
            try
            {
                if (ModuleRegistry::Instance().Load(file.string()))
                {
                    report.loaded.push_back(file.string());
                }
            }
            catch (const Kiv::Core::Error& error)
            {
                report.errors.push_back(error.GetMessage());
            }
        }
    }
    return report;
}

std::vector<std::string> LoadedModules()
{
    return ModuleRegistry::Instance().Paths();
}

boost::shared_ptr<ModuleTestSuite> GetModuleTestSuite(const std::string& modulePath)
{
    const ModuleTestSuiteEntry entry = ModuleRegistry::Instance().FindTestSuiteEntry(modulePath);
    if (entry == nullptr)
    {
        return {};
    }
    try
    {
        return boost::shared_ptr<ModuleTestSuite>(entry());
    }
    catch (...)
    {
        RaiseModuleError("module " + Quoted(modulePath) + " could not make its test suite: " +
                             DescribeException(std::current_exception()),
                         KIV_CODE_CONTEXT);
    }
}

} // namespace Kiv::DataCore
