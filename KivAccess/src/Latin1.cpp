#include "Kiv/Access/Latin1.h"

#include <cstdint>
#include <cstdio>

#include "Kiv/Core/Error.h"

namespace Kiv::Access
{

namespace
{
struct Decoded
{
    bool valid;
    std::uint32_t codePoint;
    std::size_t length;
};

// One UTF-8 sequence at text[at]; rejects overlong forms, surrogates and values past U+10FFFF
// so that only one byte sequence ever maps to a Latin-1 character.
Decoded DecodeAt(const std::string& text, std::size_t at)
{
    const auto byte = [&text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(at);
    if (lead < 0x80)
    {
        return {true, lead, 1};
    }
    std::size_t length = 0;
    std::uint32_t minimum = 0;
    std::uint32_t value = 0;
    if ((lead & 0xE0) == 0xC0)
    {
        length = 2;
        minimum = 0x80;
        value = lead & 0x1F;
    }
    else if ((lead & 0xF0) == 0xE0)
    {
        length = 3;
        minimum = 0x800;
        value = lead & 0x0F;
    }
    else if ((lead & 0xF8) == 0xF0)
    {
        length = 4;
        minimum = 0x10000;
        value = lead & 0x07;
    }
    else
    {
        return {false, 0, 1};
    }
    if (at + length > text.size())
    {
        return {false, 0, 1};
    }
    for (std::size_t i = 1; i < length; ++i)
    {
        if ((byte(at + i) & 0xC0) != 0x80)
        {
            return {false, 0, 1};
        }
        value = (value << 6) | (byte(at + i) & 0x3F);
    }
    const bool surrogate = value >= 0xD800 && value <= 0xDFFF;
    if (value < minimum || value > 0x10FFFF || surrogate)
    {
        return {false, 0, 1};
    }
    return {true, value, length};
}

std::string Hex(unsigned value, int digits)
{
    char text[16];
    std::snprintf(text, sizeof text, "%0*X", digits, value);
    return text;
}
} // namespace

std::string Latin1ToUtf8(const std::string& latin1)
{
    std::string utf8;
    utf8.reserve(latin1.size());
    for (const char c : latin1)
    {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80)
        {
            utf8.push_back(c);
        }
        else
        {
            utf8.push_back(static_cast<char>(0xC0 | (byte >> 6)));
            utf8.push_back(static_cast<char>(0x80 | (byte & 0x3F)));
        }
    }
    return utf8;
}

std::string Utf8ToLatin1(const std::string& utf8)
{
    std::string latin1;
    latin1.reserve(utf8.size());
    for (std::size_t at = 0; at < utf8.size();)
    {
        const Decoded decoded = DecodeAt(utf8, at);
        if (!decoded.valid)
        {
            Kiv::Core::LogicError("the text is not valid UTF-8 (byte 0x" +
                                  Hex(static_cast<unsigned char>(utf8[at]), 2) + " at position " +
                                  std::to_string(at + 1) + ")")
                .RaiseError(KIV_CODE_CONTEXT, "Kiv.Tool.Latin1", false);
        }
        if (decoded.codePoint > 0xFF)
        {
            Kiv::Core::LogicError("the character \"" + utf8.substr(at, decoded.length) + "\" (U+" +
                                  Hex(decoded.codePoint, 4) + ") is outside Latin-1")
                .RaiseError(KIV_CODE_CONTEXT, "Kiv.Tool.Latin1", false);
        }
        latin1.push_back(static_cast<char>(decoded.codePoint));
        at += decoded.length;
    }
    return latin1;
}

bool IsValidUtf8(const std::string& text)
{
    for (std::size_t at = 0; at < text.size();)
    {
        const Decoded decoded = DecodeAt(text, at);
        if (!decoded.valid)
        {
            return false;
        }
        at += decoded.length;
    }
    return true;
}

std::string ToDisplayText(const std::string& text)
{
    return IsValidUtf8(text) ? text : Latin1ToUtf8(text);
}

} // namespace Kiv::Access
