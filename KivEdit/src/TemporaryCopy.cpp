#include "TemporaryCopy.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Kiv/Access/Failure.h"
#include "Kiv/Access/UnnamedFiles.h"
#include "Kiv/Core/ScopedDescriptor.h"

namespace Kiv::Edit
{

using namespace Kiv::Access;
using Kiv::Core::ScopedDescriptor;

namespace
{
// The random part of a hidden copy's name: mkstemp's six characters, so that RemoveStale
// recognises the copies of this file and nothing else of the user's.
constexpr std::size_t HIDDEN_NAME_LETTERS = 6;

bool WriteAll(int descriptor, const char* bytes, std::size_t count)
{
    while (count > 0)
    {
        const ssize_t written = ::write(descriptor, bytes, count);
        if (written < 0 && errno == EINTR)
        {
            continue;
        }
        if (written <= 0)
        {
            return false;
        }
        bytes += written;
        count -= static_cast<std::size_t>(written);
    }
    return true;
}
} // namespace

TemporaryCopy::TemporaryCopy(const std::string& target, int source, const std::string& displayName)
    : m_Target(target), m_DisplayName(displayName)
{
    const std::filesystem::path targetPath(target);
    m_Folder = targetPath.has_parent_path() ? targetPath.parent_path().string() : ".";
    if (!CreateUnnamed())
    {
        CreateHidden(targetPath, source);
        return;
    }
    try
    {
        CopyInto(source, m_Unnamed);
    }
    catch (...)
    {
        ::close(m_Unnamed);
        throw;
    }
}

bool TemporaryCopy::CreateUnnamed()
{
    if (!Kiv::Access::CanNameOpenFiles())
    {
        return false;
    }
    m_Unnamed = ::open(m_Folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (m_Unnamed < 0)
    {
        // Not every file system has unnamed files; the hidden file takes their place.
        return false;
    }
    m_Path = Kiv::Access::OpenFilePath(m_Unnamed);
    return true;
}

void TemporaryCopy::CreateHidden(const std::filesystem::path& targetPath, int source)
{
    std::string pattern =
        (std::filesystem::path(m_Folder) /
         (HiddenNamePrefix(targetPath.filename().string()) + std::string(HIDDEN_NAME_LETTERS, 'X')))
            .string();
    ScopedDescriptor copy(Kiv::Access::InterruptCleanup::CreateTemporaryFile(pattern, m_Watch));
    if (copy.Get() < 0)
    {
        FailWithErrno("cannot create a temporary file in \"" + m_Folder + "\"");
    }
    m_Path = pattern;
    // The destructor does not run for a constructor that throws: remove the copy here.
    try
    {
        CopyInto(source, copy.Get());
        if (!copy.Close())
        {
            FailWithErrno("cannot write the temporary file \"" + m_Path + "\"");
        }
    }
    catch (...)
    {
        ::unlink(m_Path.c_str());
        Kiv::Access::InterruptCleanup::Release(m_Watch);
        throw;
    }
}

void TemporaryCopy::CopyInto(int source, int copy) const
{
    // The kernel copies (or shares extents) without the bytes passing through this process;
    // where it cannot (other file systems, old kernels) the loop below copies what is left.
    off_t offset = 0;
    for (;;)
    {
        loff_t from = offset;
        const ssize_t copied =
            ::copy_file_range(source, &from, copy, nullptr, std::size_t(1) << 30, 0);
        if (copied < 0 && errno == EINTR)
        {
            continue;
        }
        if (copied <= 0)
        {
            break;
        }
        offset += copied;
    }
    std::vector<char> buffer(1 << 16);
    for (;;)
    {
        const ssize_t got = ::pread(source, buffer.data(), buffer.size(), offset);
        if (got < 0 && errno == EINTR)
        {
            continue;
        }
        if (got < 0)
        {
            FailWithErrno("cannot read the file");
        }
        if (got == 0)
        {
            break;
        }
        if (!WriteAll(copy, buffer.data(), static_cast<std::size_t>(got)))
        {
            FailWithErrno("cannot write the temporary file \"" + m_Path + "\"");
        }
        offset += got;
    }
}

void TemporaryCopy::RemoveStale(const std::string& target)
{
    const std::filesystem::path targetPath(target);
    const std::string prefix = HiddenNamePrefix(targetPath.filename().string());
    const std::filesystem::path folder =
        targetPath.has_parent_path() ? targetPath.parent_path() : std::filesystem::path(".");
    std::error_code error;
    for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error))
    {
        const std::string name = entry->path().filename().string();
        // mkstemp's six characters follow the prefix: nothing else of the user's matches.
        if (name.size() == prefix.size() + HIDDEN_NAME_LETTERS &&
            name.compare(0, prefix.size(), prefix) == 0)
        {
            ::unlink(entry->path().c_str());
        }
    }
}

TemporaryCopy::~TemporaryCopy()
{
    if (m_Unnamed >= 0)
    {
        // An unnamed copy that was not linked vanishes with its last descriptor.
        ::close(m_Unnamed);
    }
    else if (!m_Replaced && !m_Path.empty())
    {
        ::unlink(m_Path.c_str());
    }
    Kiv::Access::InterruptCleanup::Release(m_Watch);
}

void TemporaryCopy::SyncToDisk()
{
    if (m_Unnamed >= 0)
    {
        if (::fsync(m_Unnamed) != 0)
        {
            FailWithErrno("cannot flush the saved copy to disk");
        }
        return;
    }
    ScopedDescriptor copy(::open(m_Path.c_str(), O_RDONLY | O_CLOEXEC));
    if (copy.Get() < 0 || ::fsync(copy.Get()) != 0)
    {
        FailWithErrno("cannot flush the saved copy to disk");
    }
}

void TemporaryCopy::ReplaceTarget(mode_t permissions)
{
    if (::chmod(m_Path.c_str(), permissions) != 0)
    {
        FailWithErrno("cannot give the saved copy the file's permissions");
    }
    if (m_Unnamed >= 0)
    {
        // A kill between link and rename leaves the hidden name, in the shape mkstemp gives the
        // hidden copies, so that the next save of the file (RemoveStale) removes it.
        if (const auto failure = Kiv::Access::LinkOver(m_Path, m_Target, HIDDEN_NAME_LETTERS))
        {
            errno = failure->error;
            FailWithErrno(failure->step == Kiv::Access::NamingFailure::LINK
                              ? "cannot give the saved copy a name"
                              : "cannot put the saved copy in the file's place");
        }
    }
    else if (::rename(m_Path.c_str(), m_Target.c_str()) != 0)
    {
        FailWithErrno("cannot put the saved copy in the file's place");
    }
    m_Replaced = true;
    Kiv::Access::InterruptCleanup::Release(m_Watch);
    m_Watch = Kiv::Access::InterruptCleanup::NOT_WATCHED;
    // The rename is done; a folder that cannot be synced only loses durability, not data.
    ScopedDescriptor folder(::open(m_Folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.Get() >= 0)
    {
        ::fsync(folder.Get());
    }
}

void TemporaryCopy::FailWithErrno(const std::string& what) const
{
    FailWithSystemError(m_DisplayName + ": not saved: " + what, errno);
}

} // namespace Kiv::Edit
