#include "Pelrix/PelrixDataFile.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "PelrixIdentity.h"

namespace Pelrix
{

using namespace Kiv::DataCore;

namespace
{
// Enough to tell a user what would be lost; a hostile file must not grow the list unbounded.
constexpr std::size_t MAX_UNKEPT_ITEMS = 100;
constexpr std::size_t MAX_QUOTED_LINE = 60;

bool IsUnexpectedByte(unsigned char byte, bool lineBreaksAllowed)
{
    return byte != 0 && !(lineBreaksAllowed && (byte == '\r' || byte == '\n'));
}

// Words of eight zero bytes are passed whole: zeros are by far the usual filler.
bool ContainsUnexpectedByte(const unsigned char* bytes, std::size_t count, bool lineBreaksAllowed)
{
    std::size_t i = 0;
    while (i < count)
    {
        std::uint64_t word = 0;
        if (i + sizeof(word) <= count)
        {
            std::memcpy(&word, bytes + i, sizeof(word));
            if (word == 0)
            {
                i += sizeof(word);
                continue;
            }
        }
        const std::size_t stop = std::min(count, i + sizeof(word));
        for (; i < stop; ++i)
        {
            if (IsUnexpectedByte(bytes[i], lineBreaksAllowed))
            {
                return true;
            }
        }
    }
    return false;
}

std::string Quoted(const std::string& line)
{
    return "\"" + (line.size() > MAX_QUOTED_LINE ? line.substr(0, MAX_QUOTED_LINE) + "..." : line) +
           "\"";
}
} // namespace

void PelrixDataFile::NoteUnkeptContent(const std::string& description)
{
    if (m_UnkeptContent.size() < MAX_UNKEPT_ITEMS)
    {
        m_UnkeptContent.push_back(description);
    }
    else
    {
        ++m_UnkeptOverflow;
    }
}

void PelrixDataFile::NoteUnkeptLine(std::int64_t lineNumber, const std::string& line,
                                    const std::string& why)
{
    NoteUnkeptContent("line " + std::to_string(lineNumber) + ": " + Quoted(line) + " " + why +
                      " and is not kept");
}

// The writer writes only the sections of the file's kind, in their fixed order.
void PelrixDataFile::NoteUnwrittenSections()
{
    const auto& written = Names::WrittenSections(m_FileSubType == Names::FORCE);
    std::vector<std::string> keys;
    EnumData(keys);
    for (const auto& key : keys)
    {
        if (std::find(written.begin(), written.end(), key) == written.end() &&
            key != Names::DATA_SECTION && key != Names::OVERVIEW && GetSubData({key}, false))
        {
            NoteUnkeptContent("section " + key + " is not written back");
        }
    }
}

// Bytes from position to the end of the file that are not blank: what follows the data the
// reader took.
void PelrixDataFile::NoteBytesAfter(std::int64_t position, const std::string& what)
{
    if (position < 0 || static_cast<std::uint64_t>(position) >= m_FileSize)
    {
        return;
    }
    if (HoldsUnexpectedBytes(position, static_cast<std::int64_t>(m_FileSize), true))
    {
        NoteUnkeptContent(std::to_string(m_FileSize - static_cast<std::uint64_t>(position)) +
                          " bytes " + what + " are not kept");
    }
}

bool PelrixDataFile::HoldsUnexpectedBytes(std::int64_t begin, std::int64_t end,
                                          bool lineBreaksAllowed)
{
    // Blocks straight from the file, not bytes through the read-ahead: what follows the data
    // may be gigabytes of zeros, and only their first odd byte matters.
    constexpr std::size_t BLOCK_BYTES = std::size_t{1} << 20;
    end = std::min(end, static_cast<std::int64_t>(m_FileSize));
    std::vector<unsigned char> block;
    std::int64_t position = begin;
    while (position < end)
    {
        // Holes read as zeros, which are always allowed.
        position = m_FileStream.NextDataPos(position);
        if (position >= end)
        {
            break;
        }
        if (block.empty())
        {
            block.resize(static_cast<std::size_t>(
                std::min<std::int64_t>(static_cast<std::int64_t>(BLOCK_BYTES), end - begin)));
        }
        const auto wanted = static_cast<std::size_t>(
            std::min<std::int64_t>(static_cast<std::int64_t>(block.size()), end - position));
        m_FileStream.SetInputPos(position, Kiv::Core::FROM_BEGIN);
        const auto got = static_cast<std::size_t>(m_FileStream.Read(block.data(), wanted));
        if (got == 0)
        {
            break;
        }
        if (ContainsUnexpectedByte(block.data(), got, lineBreaksAllowed))
        {
            return true;
        }
        position += static_cast<std::int64_t>(got);
    }
    return false;
}

void PelrixDataFile::PublishShortData(const std::string& block, double missingBytes,
                                      double missingSamples, double missingLines)
{
    boost::shared_ptr<DataContainer> record(new DataContainer(false));
    record->Put<std::string>("Block", block);
    record->Put<double>("MissingBytes", missingBytes);
    record->Put<double>("MissingSamples", missingSamples);
    record->Put<double>("MissingLines", missingLines);
    SetMetaData("ShortData", record);
}

void PelrixDataFile::PublishUnkeptContent()
{
    StringList items = m_UnkeptContent;
    if (m_UnkeptOverflow > 0)
    {
        items.push_back("and " + std::to_string(m_UnkeptOverflow) + " more");
    }
    boost::shared_ptr<DataContainer> record(new DataContainer(false));
    record->Put<StringList>("Items", items);
    SetMetaData("UnkeptContent", record);
}

} // namespace Pelrix
