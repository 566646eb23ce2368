#pragma once

#include <string>

#include <sys/stat.h>

namespace Kiv::Edit
{

// An exclusive lock on the file a save replaces, held from before its content is read until
// after the new version has taken its place. Two kiv saves of one file then run one after the
// other, and the second edits what the first saved instead of the content both started from.
// Failures raise "DISPLAYNAME: not saved: reason".
class SaveLock
{
public:
    SaveLock(const std::string& target, const std::string& displayName);
    ~SaveLock();
    SaveLock(const SaveLock&) = delete;
    SaveLock& operator=(const SaveLock&) = delete;

    // The locked file, open for reading.
    int Descriptor() const { return m_Descriptor; }
    // The locked file's status as it was once the lock was held.
    const struct stat& Status() const { return m_Status; }

private:
    bool TryLockCurrentFile();
    [[noreturn]] void FailWithErrno(const std::string& what);

    std::string m_Target;
    std::string m_DisplayName;
    int m_Descriptor = -1;
    struct stat m_Status
    {
    };
};

} // namespace Kiv::Edit
