#include "OutputFile.h"

#include <cerrno>
#include <fcntl.h>
#include <random>
#include <sys/stat.h>
#include <unistd.h>

#include "Kiv/Access/Failure.h"
#include "Kiv/Access/FileAccess.h"
#include "Kiv/Access/InterruptCleanup.h"

namespace Kiv::Export
{

using Kiv::Access::FailWithSystemError;
using Kiv::Access::InterruptCleanup;

namespace
{
const int NAME_ATTEMPTS = 100;

// ".NAME.kiv-" and twelve random letters and digits beside the final path: hidden, and unlikely
// enough to be taken that watching the name before creating it cannot hit another's file.
std::string HiddenTemporaryName(const std::string& finalPath)
{
    static const char LETTERS[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    thread_local std::mt19937_64 engine{std::random_device{}()};
    std::uniform_int_distribution<std::size_t> pick(0, sizeof LETTERS - 2);
    const std::size_t slash = finalPath.find_last_of('/');
    const std::string folder = slash == std::string::npos ? "" : finalPath.substr(0, slash + 1);
    const std::string name = slash == std::string::npos ? finalPath : finalPath.substr(slash + 1);
    std::string path = folder + "." + name + ".kiv-";
    for (int i = 0; i < 12; ++i)
    {
        path += LETTERS[pick(engine)];
    }
    return path;
}

std::string FolderOf(const std::string& path)
{
    const std::size_t slash = path.find_last_of('/');
    if (slash == std::string::npos)
    {
        return ".";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
}

bool Exists(const std::string& path)
{
    struct stat status
    {
    };
    return ::lstat(path.c_str(), &status) == 0;
}
} // namespace

OutputFile::OutputFile(std::string finalPath, bool overwrite)
    : m_FinalPath(std::move(finalPath)), m_Overwrite(overwrite),
      m_Watch(InterruptCleanup::NOT_WATCHED)
{
    if (!m_Overwrite && Exists(m_FinalPath))
    {
        Kiv::Access::Fail(m_FinalPath + ": already exists; not overwritten");
    }
    if (!CreateUnnamed())
    {
        CreateHidden();
    }
}

bool OutputFile::CreateUnnamed()
{
    // A file without a name until it is complete: nothing to hide, nothing to remove after an
    // interruption of any kind, and one entry less for the folder to add and take away. The
    // mode is an ordinary file's, under the user's umask.
    if (!Kiv::Access::CanNameOpenFiles())
    {
        return false;
    }
    const int descriptor =
        ::open(FolderOf(m_FinalPath).c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666);
    if (descriptor < 0)
    {
        // Not every file system has unnamed files (and a folder that is missing or closed is
        // reported by the named way, with its own reason).
        return false;
    }
    m_Descriptor = descriptor;
    m_Unnamed = true;
    return true;
}

void OutputFile::CreateHidden()
{
    // The name is watched before the file exists, so that no moment leaves an interrupted kiv
    // with a file it does not know of.
    for (int attempt = 0; attempt < NAME_ATTEMPTS; ++attempt)
    {
        std::string path = HiddenTemporaryName(m_FinalPath);
        const std::size_t watch = InterruptCleanup::Watch(path);
        const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (descriptor >= 0)
        {
            m_Descriptor = descriptor;
            m_TemporaryPath = std::move(path);
            m_Watch = watch;
            return;
        }
        const int error = errno;
        InterruptCleanup::Release(watch);
        if (error != EEXIST)
        {
            FailWithSystemError(m_FinalPath + ": cannot create the output", error);
        }
    }
    Kiv::Access::Fail(m_FinalPath + ": cannot create the output: no free temporary name");
}

OutputFile::~OutputFile()
{
    if (m_Descriptor >= 0)
    {
        ::close(m_Descriptor);
    }
    if (!m_TemporaryPath.empty())
    {
        ::unlink(m_TemporaryPath.c_str());
    }
    InterruptCleanup::Release(m_Watch);
}

void OutputFile::FailWrite(int error) const
{
    FailWithSystemError(m_FinalPath + ": cannot write the output", error);
}

void OutputFile::Write(const void* bytes, std::size_t count)
{
    const char* next = static_cast<const char*>(bytes);
    while (count > 0)
    {
        const ssize_t written = ::write(m_Descriptor, next, count);
        if (written < 0)
        {
            if (errno == EINTR)
            {
                continue;
            }
            FailWrite(errno);
        }
        next += written;
        count -= static_cast<std::size_t>(written);
    }
}

void OutputFile::Commit()
{
    if (m_Unnamed)
    {
        CommitUnnamed();
        return;
    }
    const int descriptor = m_Descriptor;
    m_Descriptor = -1;
    if (::close(descriptor) != 0)
    {
        FailWrite(errno);
    }
    if (m_Overwrite)
    {
        if (::rename(m_TemporaryPath.c_str(), m_FinalPath.c_str()) != 0)
        {
            FailWithSystemError(m_FinalPath + ": cannot move the output into place", errno);
        }
    }
    else
    {
        // A hard link never replaces a file: an output that another run wrote meanwhile stays.
        if (::link(m_TemporaryPath.c_str(), m_FinalPath.c_str()) != 0)
        {
            if (errno == EEXIST)
            {
                Kiv::Access::Fail(m_FinalPath + ": already exists; not overwritten");
            }
            if ((errno == EPERM || errno == EOPNOTSUPP) && !Exists(m_FinalPath) &&
                ::rename(m_TemporaryPath.c_str(), m_FinalPath.c_str()) == 0)
            {
                // A file system without hard links: the check above is the best it allows.
                m_TemporaryPath.clear();
                return;
            }
            FailWithSystemError(m_FinalPath + ": cannot move the output into place", errno);
        }
        ::unlink(m_TemporaryPath.c_str());
    }
    m_TemporaryPath.clear();
}

void OutputFile::CommitUnnamed()
{
    // The descriptor is the file's only handle until it has a name, so the name comes first.
    const std::string handle = "/proc/self/fd/" + std::to_string(m_Descriptor);
    // A link never replaces a file: an output that another run wrote meanwhile stays.
    if (::linkat(AT_FDCWD, handle.c_str(), AT_FDCWD, m_FinalPath.c_str(), AT_SYMLINK_FOLLOW) != 0)
    {
        if (errno != EEXIST)
        {
            FailWithSystemError(m_FinalPath + ": cannot move the output into place", errno);
        }
        if (!m_Overwrite)
        {
            Kiv::Access::Fail(m_FinalPath + ": already exists; not overwritten");
        }
        ReplaceWithUnnamed(handle);
    }
    const int descriptor = m_Descriptor;
    m_Descriptor = -1;
    if (::close(descriptor) != 0)
    {
        const int error = errno;
        ::unlink(m_FinalPath.c_str());
        FailWrite(error);
    }
}

void OutputFile::ReplaceWithUnnamed(const std::string& handle)
{
    // Only a rename replaces a file in one step, and it needs a name to move: a hidden one,
    // watched for as long as it stands.
    for (int attempt = 0; attempt < NAME_ATTEMPTS; ++attempt)
    {
        const std::string hidden = HiddenTemporaryName(m_FinalPath);
        const std::size_t watch = InterruptCleanup::Watch(hidden);
        if (::linkat(AT_FDCWD, handle.c_str(), AT_FDCWD, hidden.c_str(), AT_SYMLINK_FOLLOW) != 0)
        {
            const int error = errno;
            InterruptCleanup::Release(watch);
            if (error == EEXIST)
            {
                continue;
            }
            FailWithSystemError(m_FinalPath + ": cannot move the output into place", error);
        }
        const bool moved = ::rename(hidden.c_str(), m_FinalPath.c_str()) == 0;
        const int error = errno;
        if (!moved)
        {
            ::unlink(hidden.c_str());
        }
        InterruptCleanup::Release(watch);
        if (!moved)
        {
            FailWithSystemError(m_FinalPath + ": cannot move the output into place", error);
        }
        return;
    }
    Kiv::Access::Fail(m_FinalPath + ": cannot move the output into place: no free temporary name");
}

void BufferedOutput::Write(const void* bytes, std::size_t count)
{
    if (m_Buffer.size() + count > CAPACITY)
    {
        Flush();
    }
    if (count >= CAPACITY)
    {
        m_File.Write(bytes, count);
        return;
    }
    m_Buffer.append(static_cast<const char*>(bytes), count);
}

void BufferedOutput::Put(char c)
{
    if (m_Buffer.size() == CAPACITY)
    {
        Flush();
    }
    m_Buffer.push_back(c);
}

void BufferedOutput::Flush()
{
    m_File.Write(m_Buffer.data(), m_Buffer.size());
    m_Buffer.clear();
}

} // namespace Kiv::Export
