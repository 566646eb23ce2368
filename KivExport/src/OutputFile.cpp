#include "OutputFile.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Kiv/Access/Failure.h"
#include "Kiv/Access/InterruptCleanup.h"
#include "Kiv/Access/UnnamedFiles.h"

namespace Kiv::Export
{

using Kiv::Access::FailWithSystemError;
using Kiv::Access::InterruptCleanup;

namespace
{
const int NAME_ATTEMPTS = 100;

// Twelve random letters and digits in the hidden name: unlikely enough to be taken that watching
// the name before creating it cannot hit another's file.
constexpr std::size_t HIDDEN_NAME_LETTERS = 12;

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
        std::string path = Kiv::Access::HiddenNameBeside(m_FinalPath, HIDDEN_NAME_LETTERS);
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
    const std::string handle = Kiv::Access::OpenFilePath(m_Descriptor);
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
        if (const auto failure = Kiv::Access::LinkOver(handle, m_FinalPath, HIDDEN_NAME_LETTERS))
        {
            FailWithSystemError(m_FinalPath + ": cannot move the output into place",
                                failure->error);
        }
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
