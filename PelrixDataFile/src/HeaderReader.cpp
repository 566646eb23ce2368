#include "Pelrix/PelrixDataFile.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include "Kiv/Core/AllocationLimit.h"
#include "Kiv/Core/Warning.h"
#include "PelrixIdentity.h"

namespace Pelrix
{

using namespace Kiv::DataCore;

namespace
{
// What a stored value and a section cost beyond their text: the value object, its serializer
// slot, the container's entry and index, the type map.
constexpr std::uint64_t VALUE_OVERHEAD_BYTES = 256;
constexpr std::uint64_t SECTION_OVERHEAD_BYTES = 1024;
// The longest header line read: written headers hold lines of a few dozen bytes, and a file
// whose "header" runs into megabytes without a line feed (samples, say, when the "[Data]" line
// is missing) must not be held whole in memory.
constexpr std::size_t LONGEST_HEADER_LINE_BYTES = std::size_t{8} << 20;

// Whole numbers as C's atoi/atol read them: leading white space, an optional sign, digits,
// anything after ignored.
long long ParseDecimal(const std::string& text)
{
    return std::strtoll(text.c_str(), nullptr, 10);
}

// atol where long has 32 bits, as on the format's home platform: a number beyond the range
// stops at its limit, the way strtol saturates there.
std::int32_t ParseDecimalLong(const std::string& text)
{
    return static_cast<std::int32_t>(
        std::clamp<long long>(ParseDecimal(text), std::numeric_limits<std::int32_t>::min(),
                              std::numeric_limits<std::int32_t>::max()));
}

int ParseDecimalInt(const std::string& text)
{
    return static_cast<int>(ParseDecimal(text));
}

// The header's "hexadecimal" rule: drop the first two characters wherever the "0x" stood,
// then for each character multiply by 16 and add the value atoi gives for that character
// alone, so only the digits 0 to 9 count and "0x1F" reads as 16. Kept as files rely on it.
// Unsigned arithmetic makes long texts wrap instead of overflowing.
template <class Unsigned>
Unsigned ParseHeaderHex(const std::string& text)
{
    Unsigned value = 0;
    for (std::size_t i = 2; i < text.size(); ++i)
    {
        const char c = text[i];
        value = static_cast<Unsigned>(value * 16u + ((c >= '0' && c <= '9') ? c - '0' : 0));
    }
    return value;
}

bool HoldsHexPrefix(const std::string& text)
{
    return text.find("0x") != std::string::npos;
}
} // namespace

bool isSpace(char c)
{
    return c == '\t' || c == '\n' || c == '\f' || c == '\r' || c == ' ';
}

char* trim(char* text)
{
    while (*text != '\0' && isSpace(*text))
    {
        ++text;
    }
    return text;
}

std::string TrimLeading(const std::string& text)
{
    std::size_t start = 0;
    while (start < text.size() && isSpace(text[start]))
    {
        ++start;
    }
    return text.substr(start);
}

void PelrixDataFile::ReadHeaderLines()
{
    std::string line;
    m_HeaderLineNumber = 0;
    m_ForceCurveLabelsLine = 0;
    m_TreeBytes = 0;
    for (;;)
    {
        line.clear();
        const bool more = ReadLine(line);
        ++m_HeaderLineNumber;
        if (line == Names::DATA_SECTION)
        {
            break;
        }
        if (!more)
        {
            DataFileError(GetFileName() + ": the header ends without a \"[Data]\" line")
                .RaiseError(PELRIX_CODE_CONTEXT, Names::ALERT_ID, false);
        }
        ProcessLine(line);
    }
    // The logical position, not the read-ahead: force data start right after this line.
    m_DataStartPos = m_InputStream->GetInputPos();
}

// What the header holds that the writer would not keep; needs the file kind.
void PelrixDataFile::NoteHeaderContent()
{
    // Only a force file writes its labels line back (the last comma line); an image file
    // writes none.
    if (m_ForceCurveLabelsLine != 0 && m_FileSubType != Names::FORCE)
    {
        NoteUnkeptLine(m_ForceCurveLabelsLine, m_ForceCurveLabels, "holds a comma");
    }
    NoteUnwrittenSections();
}

// Appends the next line to line, dropping every carriage return; false when the input ended
// before a line feed.
bool PelrixDataFile::ReadLine(std::string& line)
{
    for (;;)
    {
        const int byte = m_InputStream->ReadByte();
        if (byte < 0)
        {
            return false;
        }
        if (byte == '\n')
        {
            return true;
        }
        if (byte != '\r')
        {
            if (line.size() == LONGEST_HEADER_LINE_BYTES)
            {
                DataFileError(GetFileName() + ": header line " +
                              std::to_string(m_HeaderLineNumber + 1) + " is longer than " +
                              std::to_string(LONGEST_HEADER_LINE_BYTES >> 20) + " MiB")
                    .RaiseError(PELRIX_CODE_CONTEXT, Names::ALERT_ID, false);
            }
            if (line.size() == line.capacity())
            {
                Kiv::Core::CheckAllocation(2 * line.capacity() + 1,
                                           "a text line of " + GetFileName());
            }
            line.push_back(static_cast<char>(byte));
        }
    }
}

// Every value and section costs more than its text; a header of millions of lines must not
// take more than one open may.
void PelrixDataFile::CountTreeBytes(std::uint64_t bytes)
{
    m_TreeBytes += bytes;
    if (m_TreeBytes > Kiv::Core::GetMaxAllocationBytes())
    {
        Kiv::Core::CheckAllocation(m_TreeBytes, "the header of " + GetFileName());
    }
}

void PelrixDataFile::ProcessLine(const std::string& line)
{
    if (line.empty())
    {
        return;
    }
    if (line.find('[') != std::string::npos)
    {
        SetupNewHeaderSection(line);
    }
    else if (line.find(',') != std::string::npos)
    {
        // The force-curve labels; a value holding a comma is never read, as files expect.
        if (m_ForceCurveLabelsLine != 0)
        {
            NoteUnkeptLine(m_ForceCurveLabelsLine, m_ForceCurveLabels, "holds a comma");
        }
        m_ForceCurveLabels = line;
        m_ForceCurveLabelsLine = m_HeaderLineNumber;
    }
    else if (!m_CurrentSectionName.empty())
    {
        ProcessHeaderSection(line);
    }
    else
    {
        NoteUnkeptLine(m_HeaderLineNumber, line, "stands before the first section");
    }
}

void PelrixDataFile::SetupNewHeaderSection(const std::string& line)
{
    m_CurrentSectionName = line;
    CountTreeBytes(line.size() + SECTION_OVERHEAD_BYTES);
    if (Exists(line))
    {
        Kiv::Core::AssertFailed(
            "KivString(\"Shouldn't have a duplicate section name in header.\") == \"\"",
            Kiv::Core::CodeContext("PelrixDataFile", __LINE__, KIV_SOURCE_TIME_STAMP,
                                   "Pelrix::PelrixDataFile::SetupNewHeaderSection",
                                   __PRETTY_FUNCTION__));
    }
    m_CurrentSection = GetSubData({line}, true);
    m_CurrentTypeMap = m_SectionTypeMaps[line];
}

void PelrixDataFile::ProcessHeaderSection(const std::string& line)
{
    const std::size_t equals = line.find('=');
    const std::string key = equals == std::string::npos ? line : line.substr(0, equals);
    const std::string value =
        TrimLeading(equals == std::string::npos ? line : line.substr(equals + 1));
    CountTreeBytes(key.size() + value.size() + VALUE_OVERHEAD_BYTES);
    if (equals == std::string::npos)
    {
        NoteUnkeptLine(m_HeaderLineNumber, line, "has no \"=\" and would be written back changed");
    }
    else if (key.empty())
    {
        NoteUnkeptLine(m_HeaderLineNumber, line, "has no key");
    }
    else if (key == Names::RAW_DATA)
    {
        NoteUnkeptLine(m_HeaderLineNumber, line, "uses the key the data are kept under");
    }
    else if (m_CurrentSection->Exists(key))
    {
        NoteUnkeptContent("\"" + key + "\" appears more than once in " + m_CurrentSectionName +
                          "; only the last value is kept");
    }
    const auto kind = m_CurrentTypeMap.find(key);
    switch (kind == m_CurrentTypeMap.end() ? static_cast<int>(KindNone) : kind->second)
    {
    case KindInt:
        ProcessIntType(key, value);
        break;
    case KindLong:
        ProcessLongType(key, value);
        break;
    case KindFloat:
        ProcessFloatType(key, value);
        break;
    case KindDouble:
        ProcessDoubleType(key, value);
        break;
    case KindUnitized:
        ProcessUnitizedType(key, value);
        break;
    default:
        ProcessStringType(key, value);
        break;
    }
}

void PelrixDataFile::ProcessStringType(const std::string& key, const std::string& value)
{
    m_CurrentSection->Put(key, value, false, m_CurrentSection->LocksEntries());
}

void PelrixDataFile::ProcessIntType(const std::string& key, const std::string& value)
{
    const int number = HoldsHexPrefix(value) ? static_cast<int>(ParseHeaderHex<unsigned int>(value))
                                             : ParseDecimalInt(value);
    m_CurrentSection->Put<int>(key, number, false, m_CurrentSection->LocksEntries());
}

void PelrixDataFile::ProcessLongType(const std::string& key, const std::string& value)
{
    const std::int32_t number =
        HoldsHexPrefix(value) ? static_cast<std::int32_t>(ParseHeaderHex<std::uint32_t>(value))
                              : ParseDecimalLong(value);
    m_CurrentSection->Put<HostLong>(key, number, false, m_CurrentSection->LocksEntries());
}

void PelrixDataFile::ProcessFloatType(const std::string& key, const std::string& value)
{
    float number = 0.0f;
    std::sscanf(value.c_str(), "%f", &number);
    m_CurrentSection->Put<float>(key, number, false, m_CurrentSection->LocksEntries());
}

void PelrixDataFile::ProcessDoubleType(const std::string& key, const std::string& value)
{
    double number = 0.0;
    std::sscanf(value.c_str(), "%le", &number);
    m_CurrentSection->Put<double>(key, number, false, m_CurrentSection->LocksEntries());
}

void PelrixDataFile::ProcessUnitizedType(const std::string& key, const std::string& value)
{
    if (value.empty())
    {
        m_CurrentSection->Put(key, UnitizedDouble(0.0), false, m_CurrentSection->LocksEntries());
        return;
    }
    const std::size_t blank = value.find(' ');
    const std::string numberText = blank == std::string::npos ? value : value.substr(0, blank);
    const std::string unitText = blank == std::string::npos ? value : value.substr(blank + 1);
    double number = 0.0;
    std::sscanf(numberText.c_str(), "%le", &number);
    // An unknown unit throws the unit's own error: the file does not open.
    m_CurrentSection->Put(key, UnitizedDouble(number, unitText), false,
                          m_CurrentSection->LocksEntries());
}

} // namespace Pelrix
