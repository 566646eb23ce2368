#include "Kiv/Edit/SafeSave.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <unistd.h>

#include "HeaderText.h"
#include "Kiv/Access/Failure.h"
#include "Kiv/Access/FileAccess.h"
#include "Kiv/Access/Latin1.h"
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

// The data file opened, the edits checked against it and prepared as the file will hold them.
struct Original
{
    TreeSnapshot tree;
    std::vector<HeaderEdit> edits;
    bool hasImage = false;
};

Original ReadOriginal(const std::string& target, const std::string& path,
                      const std::vector<HeaderEdit>& edits)
{
    const auto file = OpenDataFile(target, DataFile::ACCESS_READ, DataFile::OPEN_EXISTING, path);
    Original original{TreeSnapshot(*file), {}, false};
    // Each edit is checked against the tree the edits before it left (a key set and then
    // unset exists when it is unset); opened for reading, the file itself is never written.
    for (const HeaderEdit& edit : edits)
    {
        original.edits.push_back(PrepareEdit(*file, edit, path));
        ApplyEdit(*file, original.edits.back(), path);
    }
    if (original.edits.empty())
    {
        original.edits.push_back(HeaderEdit{});
    }
    file->Close();
    for (const auto& entry : original.tree.SampleSets())
    {
        original.hasImage = original.hasImage || entry.second.shape.size() == 2;
    }
    return original;
}

// Writes the edited file into the copy; returns the content the writer dropped.
std::vector<std::string> EditAndWrite(const TemporaryCopy& copy, const std::string& path,
                                      const std::vector<HeaderEdit>& edits)
{
    // The trimming open behaviour cuts the copy after the last byte the writer wrote, so no
    // stale bytes of a longer old content stay behind a shorter new one.
    const auto file = OpenDataFile(copy.Path(), DataFile::ACCESS_READ_WRITE,
                                   DataFile::OPEN_EXISTING_TRIM_ON_CLOSE, path);
    std::vector<std::string> dropped = ListUnkeptContent(*file);
    for (const HeaderEdit& edit : edits)
    {
        ApplyEdit(*file, edit, path);
    }
    file->Close();
    return dropped;
}

std::vector<std::string> VerifySaved(const TemporaryCopy& copy, const std::string& path,
                                     const TreeSnapshot& before,
                                     const std::vector<HeaderEdit>& edits,
                                     const std::vector<std::string>& dropped)
{
    const auto saved =
        OpenDataFile(copy.Path(), DataFile::ACCESS_READ, DataFile::OPEN_EXISTING, path);
    const SaveProblems found = FindSaveProblems(before, *saved, edits, dropped);
    saved->Close();
    if (!found.problem.empty())
    {
        Fail(path + ": " + NOT_SAVED + found.problem);
    }
    return found.lossItems;
}

// The image follows the header at "DataOffset": a header that grew past it would push the
// samples out of place, so the offset moves to the next multiple of 1024 past the header.
std::optional<SaveReport::OffsetMove> FindNeededOffsetMove(const std::string& header)
{
    const long offset = FindDataOffset(header);
    const long length = static_cast<long>(header.size());
    if (offset < 0 || length <= offset)
    {
        return std::nullopt;
    }
    return SaveReport::OffsetMove{offset, (length + 1023) / 1024 * 1024};
}

HeaderEdit MoveDataOffset(long to)
{
    return HeaderEdit{HeaderEdit::Action::Set, "[Data Parameters]", "DataOffset",
                      std::to_string(to)};
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

SaveReport SaveEdits(const std::string& path, const std::vector<HeaderEdit>& edits,
                     const SaveOptions& options)
{
    RequireReadableFile(path);
    if (!options.dryRun)
    {
        RequireWritableFile(path);
    }
    const std::string target = ResolveTarget(path);
    // Held until the new version has replaced the file and the folder is on disk: the
    // content read here is the content the saved version is made from.
    const SaveLock lock(target, path);
    // No other save of this file runs now, so every temporary left beside it is stale.
    TemporaryCopy::RemoveStale(target);
    Original original = ReadOriginal(target, path, edits);

    SaveReport report;
    report.headerBefore = Latin1ToUtf8(ReadHeaderText(target, path));
    auto copy = std::make_unique<TemporaryCopy>(target, lock.Descriptor(), path);
    std::vector<std::string> dropped;
    try
    {
        dropped = EditAndWrite(*copy, path, original.edits);
        std::string header = ReadHeaderText(copy->Path(), path);
        if (original.hasImage)
        {
            report.offsetMove = FindNeededOffsetMove(header);
        }
        if (report.offsetMove)
        {
            original.edits.push_back(MoveDataOffset(report.offsetMove->to));
            copy = std::make_unique<TemporaryCopy>(target, lock.Descriptor(), path);
            dropped = EditAndWrite(*copy, path, original.edits);
            header = ReadHeaderText(copy->Path(), path);
        }
        report.headerAfter = Latin1ToUtf8(header);
        if (!options.dryRun)
        {
            copy->SyncToDisk();
        }
        const std::vector<std::string> rounded =
            VerifySaved(*copy, path, original.tree, original.edits, dropped);
        dropped.insert(dropped.end(), rounded.begin(), rounded.end());
    }
    catch (...)
    {
        if (!options.dryRun)
        {
            FailNotSaved(path, copy->Path());
        }
        try
        {
            FailNotSaved(path, copy->Path());
        }
        catch (const Failure& failure)
        {
            report.refusal = failure.what();
            return report;
        }
    }
    report.droppedItems = dropped;
    if (!dropped.empty() && !options.allowLoss)
    {
        if (options.dryRun)
        {
            report.refusal = DescribeRefusedLoss(path, dropped);
            return report;
        }
        throw SaveRefused(DescribeRefusedLoss(path, dropped), dropped);
    }
    if (options.dryRun)
    {
        report.wouldSave = true;
        return report;
    }
    copy->ReplaceTarget(lock.Status().st_mode & 07777);
    report.saved = true;
    return report;
}

} // namespace Kiv::Edit
