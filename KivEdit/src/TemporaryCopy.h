#pragma once

#include <filesystem>
#include <string>

#include <sys/types.h>

#include "Kiv/Access/InterruptCleanup.h"

namespace Kiv::Edit
{

// A copy of a file in a new file beside it: in the same folder, so that putting it in the
// file's place is one atomic rename. Where the file system allows, the copy has no name at all
// (O_TMPFILE) until it is complete and verified, so that a save killed at any moment leaves
// nothing behind; elsewhere it is a hidden file, removed unless it replaced the file, also when
// a front end that watches signals is interrupted or terminated. Path() opens the copy in either
// case. Failures raise "DISPLAYNAME: not saved: reason".
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
    bool CreateUnnamed();
    void CreateHidden(const std::filesystem::path& targetPath, int source);
    [[noreturn]] void FailWithErrno(const std::string& what) const;

    std::string m_Target;
    std::string m_DisplayName;
    std::string m_Folder;
    std::string m_Path;
    bool m_Replaced = false;
    int m_Unnamed = -1; // the unnamed copy's descriptor; -1 for a hidden file
    std::size_t m_Watch = Kiv::Access::InterruptCleanup::NOT_WATCHED;
};

} // namespace Kiv::Edit
