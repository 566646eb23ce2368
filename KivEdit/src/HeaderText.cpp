#include "HeaderText.h"

#include <cerrno>
#include <cstdlib>
#include <fstream>

#include "Kiv/Access/Failure.h"

namespace Kiv::Edit
{

namespace
{
// A header longer than this is not shown whole; no writer produces one.
constexpr std::size_t MAX_HEADER_BYTES = 16u << 20;

// The end of the line "[Data]" (after its line break), or npos.
std::size_t FindHeaderEnd(const std::string& text, std::size_t from)
{
    for (std::size_t at = text.find("[Data]", from); at != std::string::npos;
         at = text.find("[Data]", at + 1))
    {
        if (at != 0 && text[at - 1] != '\n')
        {
            continue;
        }
        std::size_t end = at + 6;
        if (end < text.size() && text[end] == '\r')
        {
            ++end;
        }
        if (end < text.size() && text[end] == '\n')
        {
            return end + 1;
        }
        if (end == text.size())
        {
            return end;
        }
    }
    return std::string::npos;
}
} // namespace

std::string ReadHeaderText(const std::string& path, const std::string& displayName)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
    {
        Kiv::Access::FailWithSystemError(displayName + ": cannot read the header", errno);
    }
    std::string text;
    char buffer[4096];
    while (text.size() < MAX_HEADER_BYTES)
    {
        in.read(buffer, sizeof buffer);
        const std::size_t got = static_cast<std::size_t>(in.gcount());
        if (got == 0)
        {
            break;
        }
        // Look again from a little before the new bytes: the line may straddle the two reads.
        const std::size_t from = text.size() > 16 ? text.size() - 16 : 0;
        text.append(buffer, got);
        const std::size_t end = FindHeaderEnd(text, from);
        if (end != std::string::npos && end < text.size())
        {
            return text.substr(0, end);
        }
    }
    const std::size_t end = FindHeaderEnd(text, 0);
    return end == std::string::npos ? text : text.substr(0, end);
}

long FindDataOffset(const std::string& header)
{
    const std::size_t section = header.find("[Data Parameters]");
    if (section == std::string::npos)
    {
        return -1;
    }
    const std::size_t key = header.find("\nDataOffset=", section);
    const std::size_t next = header.find("\n[", section + 1);
    if (key == std::string::npos || (next != std::string::npos && key > next))
    {
        return -1;
    }
    return std::strtol(header.c_str() + key + 12, nullptr, 10);
}

} // namespace Kiv::Edit
