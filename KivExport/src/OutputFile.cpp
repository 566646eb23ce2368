#include "OutputFile.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "InterruptCleanup.h"
#include "Kiv/Access/Failure.h"

namespace Kiv::Export
{

using Kiv::Access::FailWithSystemError;

namespace
{
std::string HiddenTemporaryName(const std::string& finalPath)
{
    const std::size_t slash = finalPath.find_last_of('/');
    const std::string folder = slash == std::string::npos ? "" : finalPath.substr(0, slash + 1);
    const std::string name = slash == std::string::npos ? finalPath : finalPath.substr(slash + 1);
    return folder + "." + name + ".kiv-XXXXXX";
}

bool Exists(const std::string& path)
{
    struct stat status
    {
    };
    return ::lstat(path.c_str(), &status) == 0;
}

// mkstemp makes the file private; an export is an ordinary file and gets the usual mode.
void GiveUsualPermissions(int descriptor)
{
    const mode_t mask = ::umask(0);
    ::umask(mask);
    ::fchmod(descriptor, 0666 & ~mask);
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
    std::string pattern = HiddenTemporaryName(m_FinalPath);
    m_Descriptor = ::mkostemp(pattern.data(), O_CLOEXEC);
    if (m_Descriptor < 0)
    {
        FailWithSystemError(m_FinalPath + ": cannot create the output", errno);
    }
    m_TemporaryPath = pattern;
    m_Watch = InterruptCleanup::Watch(m_TemporaryPath);
    GiveUsualPermissions(m_Descriptor);
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
