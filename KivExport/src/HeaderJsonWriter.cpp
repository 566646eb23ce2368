#include <sstream>

#include "Kiv/Access/HeaderValues.h"
#include "Kiv/Access/JsonStream.h"
#include "Kiv/Access/ValueView.h"
#include "Writers.h"

namespace Kiv::Export
{

using namespace Kiv::Access;
using namespace Kiv::DataCore;

namespace
{

// A header is a few kilobytes; the stream's default block is sized for dumps of any size.
constexpr std::size_t HEADER_BLOCK_BYTES = std::size_t{1} << 14;

// The header as the values a program reads back, one key a line.
class HeaderJson
{
public:
    explicit HeaderJson(JsonStream& json, int depth = 0) : m_Json(json), m_Depth(depth) {}

    void Section(DataContainer& section)
    {
        bool first = true;
        ForEachHeaderEntry(section,
                           [&](const std::string& key, const boost::shared_ptr<DataObject>& object)
                           {
                               m_Json.Raw(first ? "{\n" : ",\n").Indent(m_Depth + 1).String(key);
                               m_Json.Raw(": ");
                               HeaderJson inner(m_Json, m_Depth + 1);
                               VisitHeaderValue(object, inner);
                               first = false;
                           });
        if (first)
        {
            m_Json.Raw("{}");
            return;
        }
        m_Json.Raw('\n').Indent(m_Depth).Raw('}');
    }

    void Text(const std::string& utf8) { m_Json.String(utf8); }
    void Whole(std::int64_t number) { m_Json.Integer(number); }
    // NaN and the infinities, which JSON lacks, are written as the strings "nan", "inf", "-inf".
    void Number(double number) { m_Json.Number(number); }

    void Quantity(const boost::shared_ptr<UnitizedDouble>& quantity)
    {
        m_Json.Raw("{\"value\": ").Number(quantity->GetValue());
        m_Json.Raw(", \"unit\": ").String(UnitSpelling(*quantity)).Raw('}');
    }

    void Texts(const std::vector<std::string>& utf8)
    {
        m_Json.Raw('[');
        for (std::size_t i = 0; i < utf8.size(); ++i)
        {
            m_Json.Raw(i == 0 ? "" : ", ").String(utf8[i]);
        }
        m_Json.Raw(']');
    }

    void Nothing() { m_Json.Raw("null"); }

private:
    JsonStream& m_Json;
    int m_Depth;
};

} // namespace

void WriteHeaderJson(DataContainer& file, OutputFile& output)
{
    std::ostringstream text;
    {
        JsonStream json(text, HEADER_BLOCK_BYTES);
        HeaderJson(json).Section(file);
        json.Raw('\n');
    }
    const std::string bytes = text.str();
    output.Write(bytes.data(), bytes.size());
}

} // namespace Kiv::Export
