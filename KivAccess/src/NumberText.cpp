#include "Kiv/Access/NumberText.h"

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdlib>

namespace Kiv::Access
{

namespace
{
// strto* skip leading blanks and stop at the first character they cannot use: a whole number
// starts at its first character and ends at the text's end.
bool StartsANumber(const std::string& text)
{
    return !text.empty() && !std::isspace(static_cast<unsigned char>(text.front()));
}

template <class T, class Parse>
std::optional<T> ParseWhole(const std::string& text, Parse parse)
{
    if (!StartsANumber(text))
    {
        return std::nullopt;
    }
    char* end = nullptr;
    errno = 0;
    const T value = parse(text.c_str(), &end);
    const bool overflow = errno == ERANGE && std::isinf(static_cast<double>(value));
    if (end != text.c_str() + text.size() || overflow)
    {
        return std::nullopt;
    }
    return value;
}
} // namespace

namespace
{
std::optional<std::int32_t> ParseWholeInt32(const std::string& text)
{
    if (!StartsANumber(text))
    {
        return std::nullopt;
    }
    char* end = nullptr;
    errno = 0;
    const long long value = std::strtoll(text.c_str(), &end, 10);
    if (end != text.c_str() + text.size() || errno == ERANGE || value < INT32_MIN ||
        value > INT32_MAX)
    {
        return std::nullopt;
    }
    return static_cast<std::int32_t>(value);
}
} // namespace

std::optional<Kiv::DataCore::HostLong> ParseWholeLong(const std::string& text)
{
    if (const auto value = ParseWholeInt32(text))
    {
        return Kiv::DataCore::HostLong(*value);
    }
    return std::nullopt;
}

std::optional<int> ParseWholeInt(const std::string& text)
{
    return ParseWholeInt32(text);
}

std::optional<double> ParseWholeDouble(const std::string& text)
{
    return ParseWhole<double>(text, [](const char* start, char** end)
                              { return std::strtod(start, end); });
}

std::optional<float> ParseWholeFloat(const std::string& text)
{
    // strtof rounds once, where strtod and a conversion to float would round twice.
    return ParseWhole<float>(text,
                             [](const char* start, char** end) { return std::strtof(start, end); });
}

} // namespace Kiv::Access
