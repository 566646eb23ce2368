#include "Commands.h"

#include <iostream>

#include "Kiv/Access/FileAccess.h"
#include "Kiv/Access/Latin1.h"
#include "Kiv/Access/ShortData.h"
#include "TreeRenderer.h"

namespace Kiv::Tool
{

using namespace Kiv::Access;

void WarnIfShort(const std::string& path, Kiv::DataCore::DataFile& file)
{
    const std::string warning = DescribeShortData(file, ToDisplayText(path));
    if (!warning.empty())
    {
        std::cerr << warning << '\n';
    }
}

int RunDump(std::ostream& out, const std::string& path, bool json, bool withData)
{
    LoadFileTypeModules();
    const auto file = OpenForReading(path);
    WarnIfShort(path, *file);
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
