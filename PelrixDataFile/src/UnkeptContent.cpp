#include "Pelrix/PelrixDataFile.h"

#include <algorithm>

#include "PelrixIdentity.h"

namespace Pelrix
{

using namespace Kiv::DataCore;

namespace
{
// Enough to tell a user what would be lost; a hostile file must not grow the list unbounded.
constexpr std::size_t MAX_UNKEPT_ITEMS = 100;
constexpr std::size_t MAX_QUOTED_LINE = 60;

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
// reader took. The scan stops at the first such byte.
void PelrixDataFile::NoteBytesAfter(std::int64_t position, const std::string& what)
{
    if (position < 0 || static_cast<std::uint64_t>(position) >= m_FileSize)
    {
        return;
    }
    m_FileStream.SetInputPos(position, Kiv::Core::FROM_BEGIN);
    for (int byte = m_InputStream->ReadByte(); byte >= 0; byte = m_InputStream->ReadByte())
    {
        if (byte != '\r' && byte != '\n' && byte != '\0')
        {
            NoteUnkeptContent(std::to_string(m_FileSize - static_cast<std::uint64_t>(position)) +
                              " bytes " + what + " are not kept");
            return;
        }
    }
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
