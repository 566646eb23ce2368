#pragma once

#include <string>

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

// What is wrong with a saved file read back after the edit, compared with the tree before it,
// or an empty text when it holds exactly what was intended.
std::string FindSaveProblem(const Kiv::Access::TreeSnapshot& before, Kiv::DataCore::DataFile& saved,
                            const HeaderEdit& edit);

} // namespace Kiv::Edit
