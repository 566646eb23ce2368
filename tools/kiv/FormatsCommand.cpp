#include "Commands.h"
#include "Kiv/Access/FileAccess.h"
#include "Kiv/Access/Latin1.h"
#include "TreeRenderer.h"

namespace Kiv::Tool
{

using namespace Kiv::Access;

int RunFormats(std::ostream& out, bool json)
{
    LoadFileTypeModules();
    const auto types = Kiv::DataCore::DataFile::ListFileTypes();
    if (json)
    {
        nlohmann::ordered_json list = nlohmann::ordered_json::array();
        for (const auto& type : types)
        {
            nlohmann::ordered_json extensions = nlohmann::ordered_json::array();
            for (const auto& extension : type.extensions)
            {
                extensions.push_back(ToDisplayText(extension));
            }
            list.push_back({{"type", ToDisplayText(type.fileType)},
                            {"description", ToDisplayText(type.description)},
                            {"extensions", std::move(extensions)}});
        }
        WriteJson(out, {{"fileTypes", std::move(list)}});
        return 0;
    }
    for (const auto& type : types)
    {
        std::string extensions;
        for (const auto& extension : type.extensions)
        {
            extensions += (extensions.empty() ? "" : ", ") + ToDisplayText(extension);
        }
        out << ToDisplayText(type.fileType) << ": " << ToDisplayText(type.description)
            << " (extensions: " << (extensions.empty() ? "none" : extensions) << ")\n";
    }
    return 0;
}

} // namespace Kiv::Tool
