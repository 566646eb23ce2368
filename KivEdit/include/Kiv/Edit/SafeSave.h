#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Kiv/Access/Failure.h"
#include "Kiv/Edit/HeaderEdit.h"

namespace Kiv::Edit
{

struct SaveOptions
{
    // Save even though the file type's writer drops content it cannot keep; the dropped items
    // are listed in the report. Verification of every kept value and sample stays as strict.
    bool allowLoss = false;
    // Write nothing; report what the save would change and whether it would go through.
    bool dryRun = false;
};

// What a save did, or for a dry run what it would do. Texts are UTF-8.
struct SaveReport
{
    // The file was replaced by the verified new version (never for a dry run).
    bool saved = false;
    // A dry run found nothing that would refuse the save.
    bool wouldSave = false;
    // For a dry run that would be refused: the one-line reason, as a real save would raise it.
    std::string refusal;
    // Content the writer left out (or would), one line each: "line 21: \"Note=tip 3, sample
    // A\" (holds a comma)".
    std::vector<std::string> droppedItems;
    // "DataOffset" moved to make room for a header that grew past it.
    struct OffsetMove
    {
        long from = 0;
        long to = 0;
    };
    std::optional<OffsetMove> offsetMove;
    // The header text (everything in front of the data) before and after the save.
    std::string headerBefore;
    std::string headerAfter;

    // A unified diff of headerBefore against headerAfter; empty when they are equal.
    std::string HeaderDiff() const;
};

// A save refused because the writer would drop content and loss was not allowed: the message
// names the file and the first item; Items() lists them all.
class SaveRefused : public Kiv::Access::Failure
{
public:
    SaveRefused(const std::string& message, std::vector<std::string> items)
        : Failure(message), m_Items(std::move(items))
    {
    }
    const std::vector<std::string>& Items() const { return m_Items; }

private:
    std::vector<std::string> m_Items;
};

// Applies the edits, in order, to the file at path and saves it so that the file is either
// fully replaced by a verified new version or left byte for byte as it was: the edits are made
// in a copy beside the file, written by the file type's own writer, cut to what the writer
// wrote, flushed to disk, read back and compared with the original's tree, and only then put
// in the file's place. Saves of the same file by any front end wait for each other. No edit
// at all writes the file again unchanged. Raises a Kiv::Access::Failure ("PATH: reason"),
// SaveRefused for content the writer would drop.
SaveReport SaveEdits(const std::string& path, const std::vector<HeaderEdit>& edits,
                     const SaveOptions& options = {});

} // namespace Kiv::Edit
