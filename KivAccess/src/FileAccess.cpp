#include "Kiv/Access/FileAccess.h"

#include <cerrno>
#include <cstring>
#include <iostream>
#include <mutex>

#include <sys/stat.h>
#include <unistd.h>

#include "Kiv/Access/Failure.h"
#include "Kiv/Access/Latin1.h"
#include "Kiv/DataCore/ModuleLoader.h"

namespace Kiv::Access
{

using Kiv::DataCore::DataFile;

void LoadFileTypeModules()
{
    LoadFileTypeModules([](const std::string& warning)
                        { std::cerr << "kiv: warning: " << warning << '\n'; });
}

void LoadFileTypeModules(const std::function<void(const std::string&)>& warn)
{
    // Front ends may open files from many threads at once; the first caller loads the
    // modules while the others wait for it, so that no one opens a file with half the types.
    static std::once_flag loaded;
    std::call_once(loaded,
                   [&warn]
                   {
                       for (const auto& error : Kiv::DataCore::LoadPluginModules().errors)
                       {
                           warn(ToDisplayText(error));
                       }
                   });
}

void RequireReadableFile(const std::string& path)
{
    struct stat status
    {
    };
    if (::stat(path.c_str(), &status) != 0)
    {
        FailWithSystemError(path, errno);
    }
    if (S_ISDIR(status.st_mode))
    {
        Fail(path + ": is a folder, not a file");
    }
    if (!S_ISREG(status.st_mode))
    {
        Fail(path + ": is not a regular file");
    }
    // Checked here because a file type that cannot read a file only says it does not
    // recognise it.
    if (::access(path.c_str(), R_OK) != 0)
    {
        FailWithSystemError(path, errno);
    }
}

std::string ReplaceAll(std::string text, const std::string& from, const std::string& to)
{
    if (from.empty())
    {
        return text;
    }
    for (std::size_t at = text.find(from); at != std::string::npos;
         at = text.find(from, at + to.size()))
    {
        text.replace(at, from.size(), to);
    }
    return text;
}

boost::shared_ptr<DataFile> OpenDataFile(const std::string& path, DataFile::EAccess access,
                                         DataFile::EOpenBehavior behavior,
                                         const std::string& displayName)
{
    boost::shared_ptr<DataFile> file;
    try
    {
        file = DataFile::Open(path, access, behavior, "", nullptr);
    }
    catch (...)
    {
        const std::string reason = ReplaceAll(DescribeCurrentException(), path, displayName);
        FailWithFormatError(displayName + ": " + WithoutFilePrefix(reason, displayName));
    }
    if (!file || !file->IsOpen())
    {
        FailWithFormatError(displayName + ": the " +
                            (file ? ToDisplayText(file->GetFileType()) : std::string("file type")) +
                            " module could not open the file");
    }
    return file;
}

boost::shared_ptr<DataFile> OpenForReading(const std::string& path)
{
    RequireReadableFile(path);
    return OpenDataFile(path, DataFile::ACCESS_READ, DataFile::OPEN_EXISTING, path);
}

} // namespace Kiv::Access
