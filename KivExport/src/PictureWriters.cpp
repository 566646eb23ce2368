#include "PictureWriters.h"

#include <mutex>
#include <string>
#include <system_error>

#include <dlfcn.h>

#include "Kiv/Access/Failure.h"

namespace Kiv::Export
{

namespace
{
const char MODULE_NAME[] = "libKivExportPictures.so";
const char ENTRY_NAME[] = "KivExportPictureWriters";

// The folder holding this library: the module is installed beside it, in the build tree and
// under any prefix alike.
std::string ThisLibraryFolder()
{
    Dl_info info{};
    if (::dladdr(reinterpret_cast<void*>(&LoadPictureWriters), &info) == 0 ||
        info.dli_fname == nullptr)
    {
        return {};
    }
    const std::string path = info.dli_fname;
    const std::size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

const PictureWriters* Load(std::string& problem)
{
    const std::string path = ThisLibraryFolder() + MODULE_NAME;
    // Kept loaded for the rest of the process: the writers are called from any thread.
    void* const module = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (module == nullptr)
    {
        problem = ::dlerror();
        return nullptr;
    }
    using Entry = const PictureWriters* (*)();
    const auto entry = reinterpret_cast<Entry>(::dlsym(module, ENTRY_NAME));
    if (entry == nullptr)
    {
        problem = path + " has no " + ENTRY_NAME;
        return nullptr;
    }
    return entry();
}

struct LoadedWriters
{
    const PictureWriters* writers = nullptr;
    std::string problem;
};

const LoadedWriters& LoadOnce()
{
    static std::once_flag once;
    static LoadedWriters loaded;
    std::call_once(once, [] { loaded.writers = Load(loaded.problem); });
    return loaded;
}
} // namespace

PictureWritersPreload::PictureWritersPreload()
{
    try
    {
        m_Thread = std::thread([] { LoadOnce(); });
    }
    catch (const std::system_error&)
    {
        // No thread to spare: the first picture loads the module itself.
    }
}

PictureWritersPreload::~PictureWritersPreload()
{
    if (m_Thread.joinable())
    {
        m_Thread.join();
    }
}

const PictureWriters& LoadPictureWriters()
{
    const auto& [writers, problem] = LoadOnce();
    if (writers == nullptr)
    {
        Kiv::Access::Fail("cannot load the PNG and TIFF writers: " + problem);
    }
    return *writers;
}

} // namespace Kiv::Export
