#pragma once

#include <string>

namespace Kiv::Access
{

// Header texts are Latin-1 bytes; everything kiv prints or reads from the command line is
// UTF-8.
std::string Latin1ToUtf8(const std::string& latin1);

// Raises Kiv::Core::LogicError naming the offending character when the text is not valid
// UTF-8 or holds a code point above U+00FF.
std::string Utf8ToLatin1(const std::string& utf8);

bool IsValidUtf8(const std::string& text);

// Text of unknown origin (an error message may quote header bytes): kept when it is already
// valid UTF-8, read as Latin-1 otherwise.
std::string ToDisplayText(const std::string& text);

} // namespace Kiv::Access
