#include "UnkeptContent.h"

#include "Kiv/Access/Failure.h"
#include "Kiv/Access/Latin1.h"
#include "Kiv/DataCore/ValueTypes.h"

namespace Kiv::Edit
{

using namespace Kiv::Access;

using Kiv::DataCore::StringList;

void RefuseToDropUnkeptContent(Kiv::DataCore::DataFile& file, const std::string& displayName)
{
    const auto unkept = file.GetMetaData("UnkeptContent");
    StringList items;
    if (!unkept || !unkept->Get<StringList>("Items", items) || items.empty())
    {
        return;
    }
    std::string message =
        displayName +
        ": not saved: the writer would drop content it cannot keep: " + Latin1ToUtf8(items.front());
    if (items.size() > 1)
    {
        message += " (and " + std::to_string(items.size() - 1) + " more)";
    }
    Fail(message);
}

} // namespace Kiv::Edit
