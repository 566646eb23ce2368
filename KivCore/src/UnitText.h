#pragma once

#include <string>

namespace Kiv::Core::Detail
{

// Unit texts arrive as 8-bit bytes in whatever encoding the writer used: Latin-1 from the
// instruments, UTF-8 from anything edited since. The unit library parses ASCII only, so the
// micro, angstrom and degree signs are rewritten to the ASCII names it knows, and surrounding
// blanks are dropped.
std::string ToUnitLibrarySpelling(const std::string& unitText);

// Whether a text in the unit library's spelling names a unit. The library reads a bare number
// (or nothing at all) as a scaled "1", which is no unit a value can carry.
bool NamesAUnit(const std::string& librarySpelling);

// The text of a product ('*') or quotient ('/') of two unit texts. An empty side stands for the
// number one; a side that is itself a compound is parenthesised so it stays one factor.
std::string CombineUnitTexts(const std::string& left, char operation, const std::string& right);

} // namespace Kiv::Core::Detail
