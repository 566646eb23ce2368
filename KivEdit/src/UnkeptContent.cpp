#include "UnkeptContent.h"

#include "Kiv/Access/Latin1.h"
#include "Kiv/DataCore/ValueTypes.h"

namespace Kiv::Edit
{

using Kiv::DataCore::StringList;

std::vector<std::string> ListUnkeptContent(Kiv::DataCore::DataFile& file)
{
    const auto unkept = file.GetMetaData("UnkeptContent");
    StringList items;
    if (!unkept || !unkept->Get<StringList>("Items", items))
    {
        return {};
    }
    std::vector<std::string> described;
    for (const std::string& item : items)
    {
        described.push_back(Kiv::Access::Latin1ToUtf8(item));
    }
    return described;
}

std::string DescribeRefusedLoss(const std::string& displayName,
                                const std::vector<std::string>& items)
{
    std::string message =
        displayName + ": not saved: the writer would drop content it cannot keep: " + items.front();
    if (items.size() > 1)
    {
        message +=
            " (and " + std::to_string(items.size() - 1) + " more; --allow-loss saves anyway)";
    }
    else
    {
        message += " (--allow-loss saves anyway)";
    }
    return message;
}

} // namespace Kiv::Edit
