#include "Commands.h"

#include <iostream>

#include "Kiv/Access/Failure.h"
#include "Kiv/Access/FileAccess.h"
#include "Kiv/Access/Latin1.h"
#include "Kiv/Edit/SafeSave.h"

namespace Kiv::Tool
{

using namespace Kiv::Access;
using namespace Kiv::Edit;

namespace
{
// What a dry run would do: the header diff, the items the save would drop, the moved offset;
// status 1 when the save would be refused.
int ShowDryRun(std::ostream& out, const std::string& path, const SaveReport& report)
{
    out << report.HeaderDiff();
    for (const std::string& item : report.droppedItems)
    {
        out << path << ": would drop: " << item << '\n';
    }
    if (report.offsetMove)
    {
        out << path << ": DataOffset would move from " << report.offsetMove->from << " to "
            << report.offsetMove->to << " to make room\n";
    }
    if (!report.wouldSave)
    {
        std::cerr << "kiv: " << report.refusal << '\n';
        return 1;
    }
    out << path << ": would be saved\n";
    return 0;
}

// Runs the save and reports it: "FILE: saved, WHAT", the dropped items on stderr.
int Save(std::ostream& out, const std::string& path, const std::vector<HeaderEdit>& edits,
         const SaveOptions& options, const std::string& what)
{
    LoadFileTypeModules();
    const SaveReport report = SaveEdits(path, edits, options);
    if (options.dryRun)
    {
        return ShowDryRun(out, path, report);
    }
    for (const std::string& item : report.droppedItems)
    {
        std::cerr << "kiv: " << path << ": dropped: " << item << '\n';
    }
    out << path << ": saved" << what;
    if (report.offsetMove)
    {
        out << "; DataOffset moved from " << report.offsetMove->from << " to "
            << report.offsetMove->to << " to make room";
    }
    out << '\n';
    return 0;
}
} // namespace

int RunSet(std::ostream& out, const std::string& path, const std::string& section,
           const std::string& key, const std::string& value, const SaveOptions& options)
{
    const HeaderEdit edit = MakeSetEdit(path, section, key, value);
    return Save(out, path, {edit}, options, ", " + section + " " + key + " set");
}

int RunUnset(std::ostream& out, const std::string& path, const std::string& section,
             const std::string& key, const SaveOptions& options)
{
    const HeaderEdit edit = MakeUnsetEdit(path, section, key);
    return Save(out, path, {edit}, options, ", " + section + " " + key + " removed");
}

int RunResave(std::ostream& out, const std::string& path, const SaveOptions& options)
{
    return Save(out, path, {}, options, "");
}

} // namespace Kiv::Tool
