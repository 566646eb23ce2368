#include "Commands.h"
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
std::string ToHeaderText(const std::string& path, const std::string& what, const std::string& utf8)
{
    try
    {
        return Utf8ToLatin1(utf8);
    }
    catch (...)
    {
        Fail(path + ": cannot store the " + what + " in the header: " + DescribeCurrentException());
    }
}
} // namespace

int RunSet(std::ostream& out, const std::string& path, const std::string& section,
           const std::string& key, const std::string& value)
{
    HeaderEdit edit;
    edit.action = HeaderEdit::Action::Set;
    edit.section = ToHeaderText(path, "section name", section);
    edit.key = ToHeaderText(path, "key", key);
    edit.value = ToHeaderText(path, "value", value);
    LoadFileTypeModules();
    SaveWithEdit(path, edit);
    out << path << ": saved, " << section << " " << key << " set\n";
    return 0;
}

int RunUnset(std::ostream& out, const std::string& path, const std::string& section,
             const std::string& key)
{
    HeaderEdit edit;
    edit.action = HeaderEdit::Action::Unset;
    edit.section = ToHeaderText(path, "section name", section);
    edit.key = ToHeaderText(path, "key", key);
    LoadFileTypeModules();
    SaveWithEdit(path, edit);
    out << path << ": saved, " << section << " " << key << " removed\n";
    return 0;
}

int RunResave(std::ostream& out, const std::string& path)
{
    LoadFileTypeModules();
    SaveWithEdit(path, HeaderEdit{});
    out << path << ": saved\n";
    return 0;
}

} // namespace Kiv::Tool
