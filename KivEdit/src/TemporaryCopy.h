#pragma once

#include <string>

#include <sys/types.h>

#include "RemoveOnInterrupt.h"

namespace Kiv::Edit
{

// A copy of a file in a new hidden file beside it: in the same folder, so that putting it in
// the file's place is one atomic rename. The copy is removed unless it replaced the file, also
// when kiv is interrupted or terminated. Failures raise "DISPLAYNAME: not saved: reason".
class TemporaryCopy
{
public:
    // source is the target, open for reading; it is read from its start.
    TemporaryCopy(const std::string& target, int source, const std::string& displayName);
    ~TemporaryCopy();
    TemporaryCopy(const TemporaryCopy&) = delete;
    TemporaryCopy& operator=(const TemporaryCopy&) = delete;

    // Removes the temporaries that saves of target killed before they could clean up left
    // beside it. Only to be called while no other save of target runs.
    static void RemoveStale(const std::string& target);

    const std::string& Path() const { return m_Path; }

    // Forces the copy's bytes onto the disk.
    void SyncToDisk();

    // Gives the copy the permission bits, renames it over the target and forces the folder's
    // new entry onto the disk.
    void ReplaceTarget(mode_t permissions);

private:
    void CopyInto(int source, int copy) const;
    [[noreturn]] void FailWithErrno(const std::string& what) const;

    std::string m_Target;
    std::string m_DisplayName;
    std::string m_Folder;
    std::string m_Path;
    bool m_Replaced = false;
    RemoveOnInterrupt m_RemoveOnInterrupt;
};

} // namespace Kiv::Edit
