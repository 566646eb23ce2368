#include "Pelrix/PelrixDataFile.h"

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "Kiv/Core/AllocationLimit.h"
#include "PelrixIdentity.h"
#include "SectionValues.h"

namespace Pelrix
{

using namespace Kiv::DataCore;

namespace
{
constexpr long DEFAULT_FORCE_LINES = 16384;

// C's atof on one token: leading numeric text counts, anything unparsable gives 0. The common
// decimal form takes the fast path; signs, blanks, hexadecimal and out-of-range texts go
// through strtod itself so that every token reads exactly as atof reads it.
double ParseForceValue(const char* begin, const char* end)
{
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
    std::string line;
    for (long taken = 0; taken < lines; ++taken)
    {
        line.clear();
        ReadLine(line);
        if (line.empty())
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
        bool moreValues = false;
        for (std::uint64_t j = 0; j < columns; ++j)
        {
            const char* tab = static_cast<const char*>(std::memchr(rest, '\t', end - rest));
            const char* tokenEnd = tab ? tab : end;
            if (tokenEnd == rest)
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
                              " has an empty value; it and what follows are not kept");
            break;
        }
        if (moreValues && rest < end)
        {
            NoteUnkeptContent("force data line " + std::to_string(taken + 1) + " holds more than " +
                              std::to_string(columns) + " values; the rest are not kept");
        }
        curves.push_back(std::move(values));
    }
    if (pointCount > 0 && curves.size() < static_cast<std::uint64_t>(pointCount) &&
        static_cast<std::uint64_t>(m_InputStream->GetInputPos()) >= m_FileSize)
    {
        const double missingLines = static_cast<double>(pointCount) - curves.size();
        PublishShortData("force data", 0, missingLines * static_cast<double>(columns),
                         missingLines);
    }
    NoteBytesAfter(m_InputStream->GetInputPos(), "after the force data");
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
    const long plists = GetFileOverviewInfo<long>("NumberOfDataPlists");
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
            const double value = static_cast<std::size_t>(j) < curve.size1() && curve.size2() > 0
                                     ? static_cast<double>(curve(static_cast<std::size_t>(j), 0))
                                     : 0.0;
            // to_chars with precision 6 prints exactly what printf's "%f" prints, at a fraction
            // of its cost; the widest float needs 47 characters, so 50 always do.
            char* const end = std::to_chars(number, number + sizeof number - 1, value,
                                            std::chars_format::fixed, 6)
                                  .ptr;
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
