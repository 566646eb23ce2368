#include "Pelrix/PelrixDataFile.h"

#include <algorithm>
#include <iomanip>
#include <limits>
#include <locale>
#include <sstream>

#include "PelrixIdentity.h"

namespace Pelrix
{

using namespace Kiv::DataCore;

namespace
{
const char* const CRLF = "\r\n";
}

PelrixDataFile::BufferedBinaryOutputStreamWithByteCounter::
    BufferedBinaryOutputStreamWithByteCounter(Kiv::Core::BinaryOutputStream& sink,
                                              std::size_t bufferSize)
    : Kiv::Core::BufferedBinaryOutputStream(sink, bufferSize)
{
}

void PelrixDataFile::BufferedBinaryOutputStreamWithByteCounter::Write(unsigned char byte)
{
    Kiv::Core::BufferedBinaryOutputStream::Write(byte);
    ++m_ByteCount;
}

void PelrixDataFile::BufferedBinaryOutputStreamWithByteCounter::Write(const void* buffer,
                                                                      std::uint32_t count)
{
    Kiv::Core::BufferedBinaryOutputStream::Write(buffer, static_cast<std::uint64_t>(count));
    m_ByteCount += count;
}

void PelrixDataFile::WriteToBufferedOutputStream(const std::string& text)
{
    if (m_OutputStream)
    {
        WriteCountedBlock(text.data(), text.size());
    }
}

// Every block goes through the counted 32-bit write; a block beyond 4 GiB goes in pieces
// rather than having its count cut to 32 bits.
void PelrixDataFile::WriteCountedBlock(const void* data, std::uint64_t count)
{
    const char* bytes = static_cast<const char*>(data);
    while (count > 0)
    {
        const std::uint32_t piece = static_cast<std::uint32_t>(
            std::min<std::uint64_t>(count, std::numeric_limits<std::uint32_t>::max()));
        m_OutputStream->Write(bytes, piece);
        bytes += piece;
        count -= piece;
    }
}

void PelrixDataFile::WriteHeaderToDisk()
{
    for (const auto& name : GetFileOverviewInfo<StringList>("DataPlistNames"))
    {
        WriteHeaderSectionToDisk(name);
    }
}

void PelrixDataFile::WriteHeaderSectionToDisk(std::string sectionName)
{
    const auto section = GetSubData({sectionName}, false);
    if (!section)
    {
        return;
    }
    WriteToBufferedOutputStream(sectionName + CRLF);
    std::vector<std::string> keys;
    section->EnumData(keys);
    for (const auto& key : keys)
    {
        if (key == Names::RAW_DATA)
        {
            continue;
        }
        std::ostringstream line;
        line.imbue(std::locale::classic());
        if (key.empty())
        {
            line << CRLF;
        }
        else if (key == "DataOffset")
        {
            // A fixed width keeps the header's length independent of the offset's value.
            HostLong offset;
            if (section->Get(key, offset))
            {
                line << key << '=' << std::setw(6) << std::setfill(' ') << std::right << offset
                     << CRLF;
            }
            else
            {
                line << key << '=' << GetFormattedValueString(section, key) << CRLF;
            }
        }
        else
        {
            line << key << '=' << GetFormattedValueString(section, key) << CRLF;
        }
        WriteToBufferedOutputStream(line.str());
    }
    if (sectionName == Names::SERIES_LAYOUT_SECTION)
    {
        // The labels line has always ended in a bare line feed.
        WriteToBufferedOutputStream(GetFileOverviewInfo<std::string>("ForceCurveDataLabels") +
                                    "\n");
    }
    WriteToBufferedOutputStream(CRLF);
}

void PelrixDataFile::WriteHeaderPaddingToDisk()
{
    const std::string subType = GetFileOverviewInfo<std::string>("FileSubType");
    WriteToBufferedOutputStream(std::string(Names::DATA_SECTION) + CRLF);
    if (subType == Names::FORCE || !m_OutputStream)
    {
        return;
    }
    // The count is never reset while the file is open, so a second save of the same open
    // file computes no padding; a header that outgrew "DataOffset" gets none either.
    const std::int64_t padding = static_cast<std::int64_t>(GetHeaderLength()) -
                                 static_cast<std::int64_t>(m_OutputStream->GetByteCount());
    const std::int32_t count = static_cast<std::int32_t>(padding);
    // "DataOffset" comes from the file and may ask for up to 2 GiB of padding: write the zeros
    // from one fixed block rather than allocating all of them at once.
    static const std::string zeros(Names::STREAM_BUFFER_SIZE, '\0');
    for (std::int32_t left = count; left > 0;)
    {
        const std::size_t piece = std::min(static_cast<std::size_t>(left), zeros.size());
        WriteCountedBlock(zeros.data(), piece);
        left -= static_cast<std::int32_t>(piece);
    }
}

std::int32_t PelrixDataFile::GetHeaderLength()
{
    if (const auto parameters = GetSubData({Names::DATA_PARAMETERS_SECTION}, false))
    {
        HostLong offset;
        parameters->Get("DataOffset", offset);
        return offset;
    }
    return GetFileOverviewInfo<HostLong>("DataOffset");
}

} // namespace Pelrix
