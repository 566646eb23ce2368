#include "UnkeptContent.h"

#include "Failure.h"
#include "Kiv/DataCore/ValueTypes.h"
#include "Latin1.h"

namespace Kiv::Tool
{

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

} // namespace Kiv::Tool
