#include "PageText.h"

#include <cstdint>
#include <cstring>
#include <vector>

#include "Kiv/Core/XMLWriter.h"

namespace Kiv::Export
{

namespace
{
const char BASE64_DIGITS[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

bool HostIsLittleEndian()
{
    const std::uint32_t one = 1;
    unsigned char first = 0;
    std::memcpy(&first, &one, 1);
    return first == 1;
}
} // namespace

std::string EscapeHtml(std::string_view text)
{
    // XML's escapes of an attribute value are HTML's too, and serve for element content.
    return Kiv::Core::XMLWriter::EscapeAttribute(std::string(text));
}

std::string JsonForScript(std::string_view json)
{
    std::string safe;
    safe.reserve(json.size());
    for (const char c : json)
    {
        if (c == '<')
        {
            safe += "\\u003c";
        }
        else
        {
            safe += c;
        }
    }
    return safe;
}

void AppendBase64(const void* bytes, std::size_t count, std::string& out)
{
    const auto* in = static_cast<const unsigned char*>(bytes);
    const std::size_t start = out.size();
    out.resize(start + (count + 2) / 3 * 4);
    char* next = out.data() + start;
    std::size_t i = 0;
    for (; i + 3 <= count; i += 3)
    {
        const std::uint32_t group =
            std::uint32_t{in[i]} << 16 | std::uint32_t{in[i + 1]} << 8 | std::uint32_t{in[i + 2]};
        *next++ = BASE64_DIGITS[group >> 18];
        *next++ = BASE64_DIGITS[group >> 12 & 63];
        *next++ = BASE64_DIGITS[group >> 6 & 63];
        *next++ = BASE64_DIGITS[group & 63];
    }
    if (i < count)
    {
        const bool two = i + 1 < count;
        const std::uint32_t group =
            std::uint32_t{in[i]} << 16 | (two ? std::uint32_t{in[i + 1]} << 8 : 0);
        *next++ = BASE64_DIGITS[group >> 18];
        *next++ = BASE64_DIGITS[group >> 12 & 63];
        *next++ = two ? BASE64_DIGITS[group >> 6 & 63] : '=';
        *next++ = '=';
    }
}

std::string Float32Base64(const float* values, std::size_t count)
{
    std::string text;
    const std::size_t bytes = count * sizeof(float);
    if (HostIsLittleEndian())
    {
        AppendBase64(values, bytes, text);
        return text;
    }
    std::vector<unsigned char> little(bytes);
    for (std::size_t i = 0; i < count; ++i)
    {
        unsigned char word[sizeof(float)];
        std::memcpy(word, values + i, sizeof word);
        for (std::size_t b = 0; b < sizeof word; ++b)
        {
            little[i * sizeof word + b] = word[sizeof word - 1 - b];
        }
    }
    AppendBase64(little.data(), bytes, text);
    return text;
}

void WriteTemplate(std::string_view page, BufferedOutput& out,
                   const std::function<void(std::string_view name, BufferedOutput& out)>& fill)
{
    constexpr std::string_view MARK = "@@";
    std::size_t position = 0;
    while (position < page.size())
    {
        const std::size_t open = page.find(MARK, position);
        const std::size_t close =
            open == std::string_view::npos ? open : page.find(MARK, open + MARK.size());
        if (close == std::string_view::npos)
        {
            out.Write(page.data() + position, page.size() - position);
            return;
        }
        out.Write(page.data() + position, open - position);
        fill(page.substr(open + MARK.size(), close - open - MARK.size()), out);
        position = close + MARK.size();
    }
}

} // namespace Kiv::Export
