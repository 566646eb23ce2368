#pragma once

#include <string>
#include <vector>

#include "Kiv/Access/TreeSnapshot.h"
#include "Kiv/DataCore/DataFile.h"

namespace Kiv::Edit
{

// One change to a file's header: a value stored under a key of a section, a key removed, or nothing
// changed and the file only written again. Texts are Latin-1, as the header holds them.
struct HeaderEdit
{
    enum class Action
    {
        Set,
        Unset,
        Resave,
    };

    Action action = Action::Resave;
    std::string section;
    std::string key;
    std::string value;
};

// The edits a user asks for with UTF-8 texts (a command line, a Python str), as the header
// holds them in Latin-1. Raises "FILE: cannot store the value in the header: ..." for a
// character Latin-1 lacks, so that every front end words it the same.
HeaderEdit MakeSetEdit(const std::string& displayName, const std::string& section,
                       const std::string& key, const std::string& value);
HeaderEdit MakeUnsetEdit(const std::string& displayName, const std::string& section,
                         const std::string& key);

// Raises "FILE: reason" when the edit cannot apply to the file: a section it does not have,
// or, to unset, a key the section does not have.
void CheckEditApplies(Kiv::DataCore::DataFile& file, const HeaderEdit& edit,
                      const std::string& displayName);

// Changes the open file's tree so that the file type's writer saves the edit: a set stores
// the text, or, under a key that holds an int, long, float or double, the number the whole
// text spells in that kind (other typed keys are typed again when the file is read back); an
// unset removes the key; a resave only reports a change, which marks the file modified.
void ApplyEdit(Kiv::DataCore::DataFile& file, const HeaderEdit& edit,
               const std::string& displayName);

// The edit as the file will hold it: a value typed for a key that holds a number with a unit
// gets the file's own micro sign ("20 um" becomes "20 \xB5m"). Raises "FILE: reason" with a
// hint when such a value has no unit.
HeaderEdit PrepareEdit(Kiv::DataCore::DataFile& file, const HeaderEdit& edit,
                       const std::string& displayName);

// What the verification of a saved file found: a problem that refuses the save whatever the
// options, and items of loss that only --allow-loss accepts (force values that the writer's
// six-decimal rounding changed).
struct SaveProblems
{
    std::string problem;
    std::vector<std::string> lossItems;
};

// What is wrong with a saved file read back after the edits, compared with the tree before
// them; both empty when it holds exactly what was intended. Entries of a section that one of
// droppedItems (the writer's own list of what it leaves out, UTF-8) names are not missed.
SaveProblems FindSaveProblems(const Kiv::Access::TreeSnapshot& before,
                              Kiv::DataCore::DataFile& saved, const std::vector<HeaderEdit>& edits,
                              const std::vector<std::string>& droppedItems = {});

} // namespace Kiv::Edit
