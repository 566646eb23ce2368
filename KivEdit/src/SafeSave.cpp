#include "Kiv/Edit/SafeSave.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include <unistd.h>

#include "Kiv/Access/Failure.h"
#include "Kiv/Access/FileAccess.h"
#include "Kiv/Access/TreeSnapshot.h"
#include "SaveLock.h"
#include "TemporaryCopy.h"
#include "UnkeptContent.h"

namespace Kiv::Edit
{

using namespace Kiv::Access;

using Kiv::DataCore::DataFile;

namespace
{
const char* const NOT_SAVED = "not saved: ";

// The file that is really replaced: a symbolic link stays a link to the edited file.
std::string ResolveTarget(const std::string& path)
{
    char resolved[PATH_MAX];
    if (::realpath(path.c_str(), resolved) == nullptr)
    {
        FailWithSystemError(path, errno);
    }
    return resolved;
}

void RequireWritableFile(const std::string& path)
{
    // The file is replaced, not written, so only the user's intent is checked here: a file
    // made read-only is not to be changed behind its owner's back.
    if (::access(path.c_str(), W_OK) != 0)
    {
        FailWithSystemError(path + ": cannot be changed", errno);
    }
}

TreeSnapshot ReadOriginal(const std::string& target, const std::string& path,
                          const HeaderEdit& edit)
{
    const auto original =
        OpenDataFile(target, DataFile::ACCESS_READ, DataFile::OPEN_EXISTING, path);
    CheckEditApplies(*original, edit, path);
    TreeSnapshot snapshot(*original);
    original->Close();
    return snapshot;
}

void EditAndWrite(const TemporaryCopy& copy, const std::string& path, const HeaderEdit& edit)
{
    // The trimming open behaviour cuts the copy after the last byte the writer wrote, so no
    // stale bytes of a longer old content stay behind a shorter new one.
    const auto file = OpenDataFile(copy.Path(), DataFile::ACCESS_READ_WRITE,
                                   DataFile::OPEN_EXISTING_TRIM_ON_CLOSE, path);
    RefuseToDropUnkeptContent(*file, path);
    ApplyEdit(*file, edit, path);
    file->Close();
}

void VerifySaved(const TemporaryCopy& copy, const std::string& path, const TreeSnapshot& before,
                 const HeaderEdit& edit)
{
    const auto saved =
        OpenDataFile(copy.Path(), DataFile::ACCESS_READ, DataFile::OPEN_EXISTING, path);
    const std::string problem = FindSaveProblem(before, *saved, edit);
    saved->Close();
    if (!problem.empty())
    {
        Fail(path + ": " + NOT_SAVED + problem);
    }
}

// Every failure after the copy was made says that nothing was saved, and names the user's
// file rather than the copy.
[[noreturn]] void FailNotSaved(const std::string& path, const std::string& copyPath)
{
    std::string reason =
        WithoutFilePrefix(ReplaceAll(DescribeCurrentException(), copyPath, path), path);
    if (reason.compare(0, std::strlen(NOT_SAVED), NOT_SAVED) != 0)
    {
        reason = NOT_SAVED + reason;
    }
    Fail(path + ": " + reason);
}
} // namespace

void SaveWithEdit(const std::string& path, const HeaderEdit& edit)
{
    RequireReadableFile(path);
    RequireWritableFile(path);
    const std::string target = ResolveTarget(path);
    // Held until the new version has replaced the file and the folder is on disk: the
    // content read here is the content the saved version is made from.
    const SaveLock lock(target, path);
    const TreeSnapshot before = ReadOriginal(target, path, edit);

    TemporaryCopy copy(target, lock.Descriptor(), path);
    try
    {
        EditAndWrite(copy, path, edit);
        copy.SyncToDisk();
        VerifySaved(copy, path, before, edit);
    }
    catch (...)
    {
        FailNotSaved(path, copy.Path());
    }
    copy.ReplaceTarget(lock.Status().st_mode & 07777);
}

} // namespace Kiv::Edit
