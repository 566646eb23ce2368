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
// One writer in its module, loaded at most once and kept for the rest of the process: the
// writers are called from any thread.
struct ModuleWriter
{
    ModuleWriter(const char* module, const char* symbol, const char* format)
        : moduleName(module), symbolName(symbol), formatName(format)
    {
    }

    const char* moduleName;
    const char* symbolName;
    const char* formatName;
    std::once_flag once;
    void* address = nullptr;
    std::string problem;
};

// Private modules, not libraries to link with: they live in a folder of their own below this
// library's, so that the public library folder holds only what has a SONAME.
ModuleWriter TIFF_WRITER{"kiv/writers/libKivExportTiff.so", "KivExportWriteTiff", "TIFF"};
ModuleWriter PNG_WRITER{"kiv/writers/libKivExportPng.so", "KivExportWritePng", "PNG"};

// The folder holding this library: the modules' folder is below it, in the build tree and
// under any prefix alike.
std::string ThisLibraryFolder()
{
    Dl_info info{};
    if (::dladdr(reinterpret_cast<void*>(&LoadTiffWriter), &info) == 0 || info.dli_fname == nullptr)
    {
        return {};
    }
    const std::string path = info.dli_fname;
    const std::size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

void LoadOnce(ModuleWriter& writer)
{
    std::call_once(writer.once,
                   [&writer]
                   {
                       const std::string path = ThisLibraryFolder() + writer.moduleName;
                       void* const module = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
                       if (module == nullptr)
                       {
                           writer.problem = ::dlerror();
                           return;
                       }
                       writer.address = ::dlsym(module, writer.symbolName);
                       if (writer.address == nullptr)
                       {
                           writer.problem = path + " has no " + writer.symbolName;
                       }
                   });
}

void* Require(ModuleWriter& writer)
{
    LoadOnce(writer);
    if (writer.address == nullptr)
    {
        Kiv::Access::Fail(std::string("cannot load the ") + writer.formatName +
                          " writer: " + writer.problem);
    }
    return writer.address;
}

ModuleWriter* WriterFor(Format format)
{
    switch (format)
    {
    case Format::Tiff:
        return &TIFF_WRITER;
    case Format::Png:
        return &PNG_WRITER;
    default:
        return nullptr;
    }
}
} // namespace

TiffWriterFunction LoadTiffWriter()
{
    return reinterpret_cast<TiffWriterFunction>(Require(TIFF_WRITER));
}

PngWriterFunction LoadPngWriter()
{
    return reinterpret_cast<PngWriterFunction>(Require(PNG_WRITER));
}

PictureWritersPreload::PictureWritersPreload(Format format)
{
    ModuleWriter* const writer = WriterFor(format);
    if (writer == nullptr)
    {
        return;
    }
    try
    {
        m_Thread = std::thread([writer] { LoadOnce(*writer); });
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

} // namespace Kiv::Export
