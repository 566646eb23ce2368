#include "SaveLock.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "Kiv/Access/Failure.h"

namespace Kiv::Edit
{

using namespace Kiv::Access;

namespace
{
// Each retry means another save replaced the file while this one waited; a file that keeps
// changing under a save this often is being rewritten by something else.
const int MAX_ATTEMPTS = 100;

bool SameFile(const struct stat& a, const struct stat& b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}
} // namespace

SaveLock::SaveLock(const std::string& target, const std::string& displayName)
    : m_Target(target), m_DisplayName(displayName)
{
    for (int attempt = 1; !TryLockCurrentFile(); ++attempt)
    {
        if (attempt == MAX_ATTEMPTS)
        {
            Fail(m_DisplayName + ": not saved: the file kept being replaced while waiting to " +
                 "save it");
        }
    }
}

SaveLock::~SaveLock()
{
    if (m_Descriptor >= 0)
    {
        ::close(m_Descriptor); // closing releases the lock
    }
}

// False when the file that was locked is no longer the one at the path: a save that held the
// lock before renamed its new version over it, and that version is the one to edit.
bool SaveLock::TryLockCurrentFile()
{
    m_Descriptor = ::open(m_Target.c_str(), O_RDONLY | O_CLOEXEC);
    if (m_Descriptor < 0)
    {
        FailWithErrno("cannot open the file");
    }
    while (::flock(m_Descriptor, LOCK_EX) != 0)
    {
        if (errno != EINTR)
        {
            FailWithErrno("cannot lock the file");
        }
    }
    if (::fstat(m_Descriptor, &m_Status) != 0)
    {
        FailWithErrno("cannot read the file's status");
    }
    struct stat current
    {
    };
    if (::stat(m_Target.c_str(), &current) == 0 && SameFile(current, m_Status))
    {
        return true;
    }
    ::close(m_Descriptor);
    m_Descriptor = -1;
    return false;
}

void SaveLock::FailWithErrno(const std::string& what)
{
    const int error = errno;
    // Only the constructor fails, and the destructor does not run for a constructor that
    // throws.
    if (m_Descriptor >= 0)
    {
        ::close(m_Descriptor);
        m_Descriptor = -1;
    }
    FailWithSystemError(m_DisplayName + ": not saved: " + what, error);
}

} // namespace Kiv::Edit
