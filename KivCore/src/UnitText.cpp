#include "UnitText.h"

#include <cctype>
#include <cstdlib>

namespace Kiv::Core::Detail
{

namespace
{

const char* const BLANKS = " \t\r\n\v\f";

struct SignSpelling
{
    const char* bytes;
    const char* ascii;
};

// Longer sequences first: the Latin-1 bytes B5, C5 and B0 are also the second byte of the
// UTF-8 pairs, and C2 B5 is far more likely a UTF-8 micro sign than the Latin-1 pair "A^ mu".
const SignSpelling SIGN_SPELLINGS[] = {
    {"\xE2\x84\xAB", "angstrom"}, // U+212B ANGSTROM SIGN
    {"\xC3\x85", "angstrom"},     // U+00C5 as UTF-8
    {"\xC2\xB5", "u"},            // U+00B5 MICRO SIGN as UTF-8
    {"\xCE\xBC", "u"},            // U+03BC GREEK SMALL LETTER MU
    {"\xC2\xB0", "deg"},          // U+00B0 DEGREE SIGN as UTF-8
    {"\xC5", "angstrom"},         // Latin-1
    {"\xB5", "u"},                // Latin-1
    {"\xB0", "deg"},              // Latin-1
};

std::string Trim(const std::string& text)
{
    const std::size_t first = text.find_first_not_of(BLANKS);
    if (first == std::string::npos)
    {
        return std::string();
    }
    return text.substr(first, text.find_last_not_of(BLANKS) - first + 1);
}

std::string ReplaceSigns(const std::string& text)
{
    std::string result;
    result.reserve(text.size() + 8);
    std::size_t at = 0;
    while (at < text.size())
    {
        bool replaced = false;
        for (const SignSpelling& sign : SIGN_SPELLINGS)
        {
            if (text.compare(at, std::char_traits<char>::length(sign.bytes), sign.bytes) == 0)
            {
                result += sign.ascii;
                at += std::char_traits<char>::length(sign.bytes);
                replaced = true;
                break;
            }
        }
        if (!replaced)
        {
            result += text[at++];
        }
    }
    return result;
}

bool IsWordCharacter(char c)
{
    return std::isalpha(static_cast<unsigned char>(c)) != 0 || c == '_';
}

// The library knows "degC" and "degF" but not a lone "deg"; its name for the angle is "arcdeg".
std::string SpellDegreeAsArcDegree(const std::string& text)
{
    std::string result;
    std::size_t at = 0;
    while (at < text.size())
    {
        if (!IsWordCharacter(text[at]))
        {
            result += text[at++];
            continue;
        }
        std::size_t end = at;
        while (end < text.size() && IsWordCharacter(text[end]))
        {
            ++end;
        }
        const std::string word = text.substr(at, end - at);
        result += word == "deg" ? "arcdeg" : word;
        at = end;
    }
    return result;
}

bool StartsNumber(const std::string& text, std::size_t at)
{
    const auto isDigit = [](char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; };
    return isDigit(text[at]) || (text[at] == '.' && at + 1 < text.size() && isDigit(text[at + 1]));
}

bool NeedsParentheses(const std::string& text)
{
    return text.find_first_of("/*. ") != std::string::npos;
}

std::string AsFactor(const std::string& text)
{
    return NeedsParentheses(text) ? "(" + text + ")" : text;
}

} // namespace

std::string ToUnitLibrarySpelling(const std::string& unitText)
{
    return SpellDegreeAsArcDegree(ReplaceSigns(Trim(unitText)));
}

bool NamesAUnit(const std::string& librarySpelling)
{
    const char* const text = librarySpelling.c_str();
    std::size_t at = 0;
    while (at < librarySpelling.size())
    {
        if (StartsNumber(librarySpelling, at))
        {
            // Skip the whole literal so that the "e" of "1e3" is not taken for a unit name.
            char* end = nullptr;
            std::strtod(text + at, &end);
            // A locale whose decimal point is not '.' may refuse ".5": step over the byte then.
            at = end > text + at ? static_cast<std::size_t>(end - text) : at + 1;
            continue;
        }
        if (IsWordCharacter(text[at]) || text[at] == '%')
        {
            return true;
        }
        ++at;
    }
    return false;
}

std::string CombineUnitTexts(const std::string& left, char operation, const std::string& right)
{
    const std::string leftText = Trim(left);
    const std::string rightText = Trim(right);
    if (rightText.empty())
    {
        return leftText;
    }
    if (leftText.empty())
    {
        return operation == '/' ? "1/" + AsFactor(rightText) : rightText;
    }
    return AsFactor(leftText) + operation + AsFactor(rightText);
}

} // namespace Kiv::Core::Detail
