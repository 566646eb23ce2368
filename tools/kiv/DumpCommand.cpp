#include "Commands.h"
#include "Kiv/Access/FileAccess.h"
#include "TreeRenderer.h"

namespace Kiv::Tool
{

using namespace Kiv::Access;

int RunDump(std::ostream& out, const std::string& path, bool json, bool withData)
{
    LoadFileTypeModules();
    const auto file = OpenForReading(path);
    if (json)
    {
        WriteJsonDump(out, path, *file, withData);
    }
    else
    {
        WriteTextDump(out, path, *file, withData);
    }
    file->Close();
    return 0;
}

} // namespace Kiv::Tool
