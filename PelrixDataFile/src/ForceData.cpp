#include "Pelrix/PelrixDataFile.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <string_view>
#include <vector>

#include "FixedSixText.h"
#include "Kiv/Core/AllocationLimit.h"
#include "PelrixIdentity.h"
#include "SectionValues.h"

namespace Pelrix
{

using namespace Kiv::DataCore;

namespace
{
constexpr long DEFAULT_FORCE_LINES = 16384;
// The part of a force line held at most (more for lines of over half a million values): written
// lines take a dozen bytes a value.
constexpr std::uint64_t LONGEST_FORCE_LINE_BYTES = std::uint64_t{8} << 20;

// The form force files are written in, "-12.345678" and the like: the digits gathered into one
// integer and divided once by a power of ten. While the integer is below 2^53 and the power at
// most 10^22 both are exact doubles, so the one correctly rounded division gives the value a
// correct strtod gives. Anything else (more digits, an exponent, trailing text) returns false.
bool ParsePlainDecimal(const char* begin, const char* end, double& value)
{
    static constexpr double POWERS_OF_TEN[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                               1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                               1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
    const bool negative = begin != end && *begin == '-';
    const char* at = negative ? begin + 1 : begin;
    std::uint64_t digits = 0;
    int digitCount = 0;
    int decimals = 0;
    bool point = false;
    for (; at != end; ++at)
    {
        if (*at >= '0' && *at <= '9')
        {
            if (++digitCount > 16)
            {
                return false;
            }
            digits = digits * 10 + static_cast<std::uint64_t>(*at - '0');
            decimals += point ? 1 : 0;
        }
        else if (*at == '.' && !point)
        {
            point = true;
        }
        else
        {
            return false;
        }
    }
    if (digitCount == 0 || digits > (std::uint64_t{1} << 53))
    {
        return false;
    }
    const double magnitude = static_cast<double>(digits) / POWERS_OF_TEN[decimals];
    value = negative ? -magnitude : magnitude;
    return true;
}

// C's atof on one token: leading numeric text counts, anything unparsable gives 0. The common
// decimal forms take the fast paths; signs, blanks, hexadecimal and out-of-range texts go
// through strtod itself so that every token reads exactly as atof reads it.
double ParseForceValue(const char* begin, const char* end)
{
    double plain = 0.0;
    if (ParsePlainDecimal(begin, end, plain))
    {
        return plain;
    }
    if (begin != end && (*begin == '-' || *begin == '.' || (*begin >= '0' && *begin <= '9')))
    {
        double value = 0.0;
        const auto [stop, error] = std::from_chars(begin, end, value);
        const bool hexadecimal = stop < end && (*stop == 'x' || *stop == 'X');
        if (error == std::errc() && !hexadecimal)
        {
            return value;
        }
    }
    const std::string token(begin, end);
    return std::strtod(token.c_str(), nullptr);
}

// The lines of the force data, from blocks read straight into a buffer of its own rather than
// byte by byte: the data are most of a force file. A line comes without its carriage returns,
// as the header's lines do.
class ForceLineReader
{
public:
    // remaining, the bytes left in the file, keeps the block of a small file small.
    // longestLine, the most of one line that is held: a longer line comes cut there.
    ForceLineReader(Kiv::Core::BinaryInputStream& input, std::int64_t start,
                    std::uint64_t remaining, std::size_t longestLine, std::string fileName)
        : m_Input(input), m_Position(start), m_FileName(std::move(fileName)),
          m_Size(static_cast<std::size_t>(
              std::clamp<std::uint64_t>(remaining + 1, MIN_BLOCK_BYTES, BLOCK_BYTES))),
          m_LongestLine(std::max(longestLine, m_Size)),
          // Left uninitialised: every byte is read into before it is looked at.
          m_Block(new char[m_Size])
    {
    }

    // The next line; false when the input ended with nothing left. A line longer than the
    // reader holds comes as its first part with cut set, and the rest of it is passed over
    // without being held. The view lasts until the next call.
    bool Next(std::string_view& line, bool& cut)
    {
        cut = false;
        if (m_PassOverRest)
        {
            PassOverRestOfLine();
        }
        for (;;)
        {
            const char* const begin = m_Block.get() + m_Next;
            const auto* const feed =
                static_cast<const char*>(std::memchr(begin, '\n', m_End - m_Next));
            if (feed != nullptr)
            {
                const auto length = static_cast<std::size_t>(feed - begin);
                m_Next += length + 1;
                m_Position += static_cast<std::int64_t>(length + 1);
                line = WithoutCarriageReturns(begin, length);
                return true;
            }
            if (m_Ended)
            {
                // A last line without a line feed still counts.
                const std::size_t length = m_End - m_Next;
                m_Next = m_End;
                m_Position += static_cast<std::int64_t>(length);
                line = WithoutCarriageReturns(begin, length);
                return length > 0;
            }
            if (m_End - m_Next == m_Size && m_Size >= m_LongestLine)
            {
                m_Position += static_cast<std::int64_t>(m_Size);
                m_Next = m_End;
                m_PassOverRest = true;
                cut = true;
                line = WithoutCarriageReturns(begin, m_Size);
                return true;
            }
            Refill();
        }
    }

    // The file position just after the last line handed out, the whole of a cut one included.
    std::int64_t EndOfLastLine()
    {
        if (m_PassOverRest)
        {
            PassOverRestOfLine();
        }
        return m_Position;
    }

private:
    // Small enough to stay in the cache while its lines are parsed.
    static constexpr std::size_t BLOCK_BYTES = std::size_t{256} << 10;
    static constexpr std::size_t MIN_BLOCK_BYTES = 4096;

    std::string_view WithoutCarriageReturns(const char* begin, std::size_t length)
    {
        if (length > 0 && begin[length - 1] == '\r')
        {
            --length;
        }
        if (std::memchr(begin, '\r', length) == nullptr)
        {
            return {begin, length};
        }
        m_Scratch.clear();
        for (std::size_t i = 0; i < length; ++i)
        {
            if (begin[i] != '\r')
            {
                m_Scratch.push_back(begin[i]);
            }
        }
        return m_Scratch;
    }

    // Reads on to just after the line feed that ends the line handed out cut.
    void PassOverRestOfLine()
    {
        m_PassOverRest = false;
        for (;;)
        {
            const char* const begin = m_Block.get() + m_Next;
            const auto* const feed =
                static_cast<const char*>(std::memchr(begin, '\n', m_End - m_Next));
            const std::size_t length =
                feed ? static_cast<std::size_t>(feed - begin) + 1 : m_End - m_Next;
            m_Next += length;
            m_Position += static_cast<std::int64_t>(length);
            if (feed != nullptr || m_Ended)
            {
                return;
            }
            Refill();
        }
    }

    // Keeps the unfinished line at the front and reads behind it; a line longer than the block
    // grows it, within what an open may allocate.
    void Refill()
    {
        const std::size_t kept = m_End - m_Next;
        if (kept == m_Size)
        {
            const std::size_t larger = std::min(2 * m_Size, m_LongestLine);
            Kiv::Core::CheckAllocation(larger, "a text line of " + m_FileName);
            std::unique_ptr<char[]> block(new char[larger]);
            std::memcpy(block.get(), m_Block.get() + m_Next, kept);
            m_Block = std::move(block);
            m_Size = larger;
        }
        else
        {
            std::memmove(m_Block.get(), m_Block.get() + m_Next, kept);
        }
        m_Next = 0;
        m_End = kept;
        const std::uint64_t got = m_Input.Read(m_Block.get() + m_End, m_Size - m_End);
        m_End += static_cast<std::size_t>(got);
        m_Ended = got == 0;
    }

    Kiv::Core::BinaryInputStream& m_Input;
    std::int64_t m_Position;
    std::string m_FileName;
    std::size_t m_Size;
    std::size_t m_LongestLine;
    std::unique_ptr<char[]> m_Block;
    std::string m_Scratch;
    std::size_t m_Next = 0;
    std::size_t m_End = 0;
    bool m_Ended = false;
    bool m_PassOverRest = false;
};

} // namespace

void PelrixDataFile::LoadForceData()
{
    Exists(Names::SERIES_LAYOUT_SECTION);
    m_CurrentSection = GetSubData({Names::SERIES_LAYOUT_SECTION}, true);
    const std::int32_t pointCount = ReadHeaderInt32(*m_CurrentSection, "Points Number");
    const std::int32_t seriesCount = ReadHeaderInt32(*m_CurrentSection, "Series Number");
    m_DataPlistCount = static_cast<std::int32_t>(2 * static_cast<std::int64_t>(seriesCount));
    if (seriesCount < 1)
    {
        DataFileError("ERROR: Missing Series Number. ")
            .RaiseError(PELRIX_CODE_CONTEXT, Names::LEGACY_ALERT_ID, false);
    }
    ProcessForceData(seriesCount, pointCount);
}

void PelrixDataFile::ProcessForceData(long seriesCount, long pointCount)
{
    const std::uint64_t columns = 4 * static_cast<std::uint64_t>(seriesCount);
    m_FileStream.SetInputPos(m_DataStartPos, Kiv::Core::FROM_BEGIN);
    const long lines = pointCount == 0 ? DEFAULT_FORCE_LINES : pointCount;

    // One line's matrix must fit before any is read (a huge "Series Number"); the curves as a
    // whole are counted as they grow, so a count larger than the file holds costs nothing.
    const std::uint64_t remaining =
        m_FileSize > static_cast<std::uint64_t>(m_DataStartPos) ? m_FileSize - m_DataStartPos : 0;
    const std::uint64_t bytesPerLine = columns * sizeof(float) + sizeof(FloatMatrix);
    const auto what = [&] {
        return "force curves of " + std::to_string(columns) + " values a line for " + GetFileName();
    };
    std::uint64_t used = 0;
    if (remaining > 0 && lines > 0)
    {
        Kiv::Core::CheckAllocation(used + bytesPerLine, what());
    }

    FloatMatrixList curves;
    curves.reserve(static_cast<std::size_t>(std::min<std::uint64_t>(
        lines < 0 ? 0 : static_cast<std::uint64_t>(lines),
        std::min<std::uint64_t>((remaining + 1) / 2, DEFAULT_FORCE_LINES))));
    // A line is held up to a length no written line of this width comes near, so that a file
    // of one endless line costs no more than this; values beyond the kept ones are passed over.
    const std::uint64_t longestLine =
        std::max<std::uint64_t>(LONGEST_FORCE_LINE_BYTES, 16 * columns);
    ForceLineReader reader(*m_InputStream, m_DataStartPos, remaining,
                           static_cast<std::size_t>(std::min<std::uint64_t>(
                               longestLine, std::numeric_limits<std::size_t>::max() / 4)),
                           GetFileName());
    std::string_view line;
    bool cut = false;
    for (long taken = 0; taken < lines; ++taken)
    {
        if (!reader.Next(line, cut) || line.empty())
        {
            break;
        }
        used += bytesPerLine;
        if (used > Kiv::Core::GetMaxAllocationBytes())
        {
            Kiv::Core::CheckAllocation(used, what());
        }
        FloatMatrix values(static_cast<std::size_t>(columns), 1);
        const char* rest = line.data();
        const char* const end = rest + line.size();
        bool complete = true;
        bool tooLong = false;
        bool moreValues = false;
        for (std::uint64_t j = 0; j < columns; ++j)
        {
            const char* tab = static_cast<const char*>(std::memchr(rest, '\t', end - rest));
            const char* tokenEnd = tab ? tab : end;
            if (cut && tab == nullptr)
            {
                // The value goes on past what is held of the line.
                tooLong = true;
            }
            if (tokenEnd == rest || tooLong)
            {
                complete = false;
                break;
            }
            values(static_cast<std::size_t>(j), 0) =
                static_cast<float>(ParseForceValue(rest, tokenEnd));
            // Without a further tab the last value repeats into the remaining columns.
            moreValues = tab != nullptr;
            if (tab)
            {
                rest = tab + 1;
            }
        }
        if (!complete)
        {
            NoteUnkeptContent("force data line " + std::to_string(taken + 1) +
                              (tooLong ? " is longer than " + std::to_string(line.size()) +
                                             " bytes before its last kept value"
                                       : std::string(" has an empty value")) +
                              "; it and what follows are not kept");
            break;
        }
        if (moreValues && (rest < end || cut))
        {
            NoteUnkeptContent("force data line " + std::to_string(taken + 1) + " holds more than " +
                              std::to_string(columns) + " values; the rest are not kept");
        }
        curves.push_back(std::move(values));
    }
    if (pointCount > 0 && curves.size() < static_cast<std::uint64_t>(pointCount) &&
        static_cast<std::uint64_t>(reader.EndOfLastLine()) >= m_FileSize)
    {
        const double missingLines = static_cast<double>(pointCount) - curves.size();
        PublishShortData("force data", 0, missingLines * static_cast<double>(columns),
                         missingLines);
    }
    NoteBytesAfter(reader.EndOfLastLine(), "after the force data");
    m_CurrentSection = GetSubData({Names::DATA_SECTION}, true);
    m_CurrentSection->Put(Names::RAW_DATA, std::move(curves));
}

void PelrixDataFile::WriteForceData()
{
    const auto dataSection = GetSubData({Names::DATA_SECTION}, false);
    if (!dataSection)
    {
        DataFileError("WriteDataToDisk cannot find data section name")
            .RaiseError(PELRIX_CODE_CONTEXT, Names::ALERT_ID, false);
    }
    // Shared, not copied: the curves are only read here, under their data lock.
    const auto stored = GetLockedValue<FloatMatrixList>(*dataSection, Names::RAW_DATA);
    const FloatMatrixList noCurves;
    const FloatMatrixList& curves = stored.value ? *stored.value : noCurves;
    const std::int32_t plists = GetFileOverviewInfo<HostLong>("NumberOfDataPlists");
    const std::uint64_t valuesPerLine = plists > 0 ? 2 * static_cast<std::uint64_t>(plists) : 0;
    // A line is built whole; the widest value takes 48 characters.
    std::uint64_t lineBytes = 0;
    if (!Kiv::Core::MultiplyWithoutOverflow(valuesPerLine, 48, lineBytes))
    {
        lineBytes = std::numeric_limits<std::uint64_t>::max();
    }
    Kiv::Core::CheckAllocation(lineBytes, "a force-curve line for " + GetFileName());
    std::string line;
    char number[50];
    for (const auto& curve : curves)
    {
        line.clear();
        for (std::uint64_t j = 0; j < valuesPerLine; ++j)
        {
            // A matrix shorter than the line is the caller's error; write 0 rather than read
            // past its end.
            const float value = static_cast<std::size_t>(j) < curve.size1() && curve.size2() > 0
                                    ? curve(static_cast<std::size_t>(j), 0)
                                    : 0.0f;
            // Exactly what printf's "%f" prints, at a fraction of its cost; the widest float
            // needs 47 characters, so 50 always do.
            char* const end = WriteFixedSix(number, value);
            *end = j + 1 < valuesPerLine ? '\t' : '\n';
            line.append(number, static_cast<std::size_t>(end + 1 - number));
        }
        if (m_OutputStream)
        {
            WriteCountedBlock(line.data(), line.size());
        }
    }
}

} // namespace Pelrix
