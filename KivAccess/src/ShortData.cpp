#include "Kiv/Access/ShortData.h"

#include <cstdint>

namespace Kiv::Access
{

namespace
{
std::string Count(double value)
{
    return std::to_string(static_cast<std::uint64_t>(value));
}
} // namespace

std::string DescribeShortData(Kiv::DataCore::DataFile& file, const std::string& displayName)
{
    const auto record = file.GetMetaData("ShortData");
    std::string block;
    double bytes = 0;
    double samples = 0;
    double lines = 0;
    if (!record || !record->Get<std::string>("Block", block))
    {
        return std::string();
    }
    record->Get<double>("MissingBytes", bytes);
    record->Get<double>("MissingSamples", samples);
    record->Get<double>("MissingLines", lines);
    const std::string early =
        lines > 0 ? Count(lines) + " lines early" : Count(bytes) + " bytes early";
    const char* const verb = block == "image" ? " ends " : " end ";
    return "warning: " + displayName + ": the " + block + verb + early + "; " + Count(samples) +
           " samples were missing and read as 0";
}

} // namespace Kiv::Access
