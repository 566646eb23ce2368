#include <sstream>

#include "Kiv/Access/JsonStream.h"
#include "Kiv/Access/Latin1.h"
#include "Kiv/Access/ValueView.h"
#include "Writers.h"

namespace Kiv::Export
{

using namespace Kiv::Access;
using namespace Kiv::DataCore;

namespace
{

// The header as the values a program reads back: the same mapping as the Python module's
// File.header (numbers as numbers, a unitized number as {"value", "unit"}), one key a line.
class HeaderJson
{
public:
    explicit HeaderJson(JsonStream& json) : m_Json(json) {}

    void Object(DataContainer& container, int depth)
    {
        bool first = true;
        for (const auto& [key, object] : container.GetEntries())
        {
            const ValueKind kind = object ? ClassifyValue(*object) : ValueKind::Other;
            if (kind == ValueKind::Matrix || kind == ValueKind::Matrices)
            {
                continue; // samples are the data exports' business, not the header's
            }
            m_Json.Raw(first ? "{\n" : ",\n").Indent(depth + 1).String(Latin1ToUtf8(key));
            m_Json.Raw(": ");
            Value(object, kind, depth + 1);
            first = false;
        }
        if (first)
        {
            m_Json.Raw("{}");
            return;
        }
        m_Json.Raw('\n').Indent(depth).Raw('}');
    }

private:
    void Value(const boost::shared_ptr<DataObject>& object, ValueKind kind, int depth)
    {
        switch (kind)
        {
        case ValueKind::Container:
            return Object(dynamic_cast<DataContainer&>(*object), depth);
        case ValueKind::String:
            return Held<std::string>(object, [this](const std::string& text)
                                     { m_Json.String(Latin1ToUtf8(text)); });
        case ValueKind::Int:
            return Held<int>(object, [this](int n) { m_Json.Integer(n); });
        case ValueKind::Long:
            // The host's long is 32 bits wide in every file it writes.
            return Held<HostLong>(object, [this](HostLong n)
                                  { m_Json.Integer(static_cast<std::int32_t>(n)); });
        case ValueKind::Float:
            return Held<float>(object, [this](float x) { m_Json.Number(static_cast<double>(x)); });
        case ValueKind::Double:
            return Held<double>(object, [this](double x) { m_Json.Number(x); });
        case ValueKind::Unitized:
            return Held<UnitizedDouble>(object,
                                        [this](const UnitizedDouble& value)
                                        {
                                            m_Json.Raw("{\"value\": ").Number(value.GetValue());
                                            m_Json.Raw(", \"unit\": ").String(UnitSpelling(value));
                                            m_Json.Raw('}');
                                        });
        case ValueKind::Strings:
            return Held<StringList>(object,
                                    [this](const StringList& texts)
                                    {
                                        m_Json.Raw('[');
                                        for (std::size_t i = 0; i < texts.size(); ++i)
                                        {
                                            m_Json.Raw(i == 0 ? "" : ", ");
                                            m_Json.String(Latin1ToUtf8(texts[i]));
                                        }
                                        m_Json.Raw(']');
                                    });
        case ValueKind::Matrix:
        case ValueKind::Matrices:
        case ValueKind::Other:
            break;
        }
        m_Json.Raw("null");
    }

    // A wrapper may hold no value at all; that reads as null rather than as a crash.
    template <class T, class Write>
    void Held(const boost::shared_ptr<DataObject>& object, Write write)
    {
        if (const auto value = ValueOf<T>(object))
        {
            write(*value);
            return;
        }
        m_Json.Raw("null");
    }

    JsonStream& m_Json;
};

} // namespace

void WriteHeaderJson(DataContainer& file, OutputFile& output)
{
    std::ostringstream text;
    {
        JsonStream json(text);
        HeaderJson(json).Object(file, 0);
        json.Raw('\n');
    }
    const std::string bytes = text.str();
    output.Write(bytes.data(), bytes.size());
}

} // namespace Kiv::Export
