#include <cmath>

#include "Kiv/Access/JsonStream.h"
#include "Kiv/Access/Latin1.h"
#include "Kiv/Access/Statistics.h"
#include "Kiv/Access/ValueView.h"
#include "TreeRenderer.h"

namespace Kiv::Tool
{

using namespace Kiv::Access;
using namespace Kiv::DataCore;

namespace
{

// Writes the tree as it walks it, in the layout WriteJson gives a document: an object of plain
// values (one typed value) on one line, a list of plain values (one matrix row) on one line,
// everything larger one item a line.
class JsonDumpWriter
{
public:
    JsonDumpWriter(JsonStream& json, bool withData) : m_Json(json), m_WithData(withData) {}

    void Entries(DataContainer& container, int depth)
    {
        bool first = true;
        for (const auto& [key, object] : container.GetEntries())
        {
            m_Json.Raw(first ? "{\n" : ",\n").Indent(depth + 1).String(Latin1ToUtf8(key)).Raw(": ");
            Value(object, depth + 1);
            first = false;
        }
        if (first)
        {
            m_Json.Raw("{}");
            return;
        }
        m_Json.Raw('\n').Indent(depth).Raw('}');
    }

    void Value(const boost::shared_ptr<DataObject>& object, int depth)
    {
        if (!object)
        {
            m_Json.Raw("{\"type\": \"nothing\"}");
        }
        else if (!TypedValue(object, depth))
        {
            m_Json.Raw("{\"type\": ").String(KindName(*object)).Raw('}');
        }
    }

private:
    // Starts the one-line form {"type": KIND, "value": ...; the caller ends it.
    JsonStream& OpenInline(const std::string& kind)
    {
        return m_Json.Raw("{\"type\": ").String(kind).Raw(", \"value\": ");
    }

    // False when the object holds no value of the type it claims.
    bool TypedValue(const boost::shared_ptr<DataObject>& object, int depth)
    {
        const std::string kind = KindName(*object);
        switch (ClassifyValue(*object))
        {
        case ValueKind::Container:
            m_Json.Raw("{\n").Indent(depth + 1).Raw("\"type\": ").String(kind).Raw(",\n");
            m_Json.Indent(depth + 1).Raw("\"entries\": ");
            Entries(*boost::dynamic_pointer_cast<DataContainer>(object), depth + 1);
            m_Json.Raw('\n').Indent(depth).Raw('}');
            return true;
        case ValueKind::String:
            return Inline(kind, ValueOf<std::string>(object),
                          [this](const std::string& text) { m_Json.String(Latin1ToUtf8(text)); });
        case ValueKind::Int:
            return Inline(kind, ValueOf<int>(object), [this](int n) { m_Json.Integer(n); });
        case ValueKind::Long:
            return Inline(kind, ValueOf<HostLong>(object),
                          [this](HostLong n) { m_Json.Integer(static_cast<std::int32_t>(n)); });
        case ValueKind::Float:
            return Inline(kind, ValueOf<float>(object),
                          [this](float x) { m_Json.Number(static_cast<double>(x)); });
        case ValueKind::Double:
            return Inline(kind, ValueOf<double>(object), [this](double x) { m_Json.Number(x); });
        case ValueKind::Unitized:
            if (const auto value = ValueOf<UnitizedDouble>(object))
            {
                OpenInline(kind).Number(value->GetValue()).Raw(", \"unit\": ");
                m_Json.String(UnitSpelling(*value)).Raw('}');
                return true;
            }
            return false;
        case ValueKind::Strings:
            return Inline(kind, ValueOf<StringList>(object),
                          [this](const StringList& texts) { TextList(texts); });
        case ValueKind::Matrix:
            if (const auto matrix = ValueOf<FloatMatrix>(object))
            {
                Matrix(*matrix, depth);
                return true;
            }
            return false;
        case ValueKind::Matrices:
            if (const auto list = ValueOf<FloatMatrixList>(object))
            {
                Matrices(*list, depth);
                return true;
            }
            return false;
        case ValueKind::Other:
            break;
        }
        return false;
    }

    template <class Shared, class WriteValue>
    bool Inline(const std::string& kind, const Shared& value, WriteValue write)
    {
        if (!value)
        {
            return false;
        }
        OpenInline(kind);
        write(*value);
        m_Json.Raw('}');
        return true;
    }

    void TextList(const StringList& texts)
    {
        m_Json.Raw('[');
        for (std::size_t i = 0; i < texts.size(); ++i)
        {
            m_Json.Raw(i == 0 ? "" : ", ").String(Latin1ToUtf8(texts[i]));
        }
        m_Json.Raw(']');
    }

    // A float widened to double is exact, and the shortest text of that double reads back to it.
    void Samples(const float* samples, std::size_t count)
    {
        m_Json.Raw('[');
        for (std::size_t i = 0; i < count; ++i)
        {
            if (i != 0)
            {
                m_Json.Raw(", ");
            }
            m_Json.Number(static_cast<double>(samples[i]));
        }
        m_Json.Raw(']');
    }

    void Matrix(const FloatMatrix& matrix, int depth)
    {
        const float* const samples = MatrixSamples(matrix);
        if (!m_WithData)
        {
            const SampleStatistics figures = ComputeStatistics(samples, matrix.data().size());
            m_Json.Raw("{\"type\": \"matrix\", \"rows\": ").Unsigned(matrix.size1());
            m_Json.Raw(", \"cols\": ").Unsigned(matrix.size2());
            m_Json.Raw(", \"min\": ").Number(figures.minimum);
            m_Json.Raw(", \"max\": ").Number(figures.maximum);
            m_Json.Raw(", \"mean\": ").Number(figures.mean).Raw('}');
            return;
        }
        const std::size_t columns = matrix.size2();
        if (matrix.size1() == 0)
        {
            m_Json.Raw("{\"type\": \"matrix\", \"rows\": 0, \"cols\": ").Unsigned(columns);
            m_Json.Raw(", \"data\": []}");
            return;
        }
        m_Json.Raw("{\n").Indent(depth + 1).Raw("\"type\": \"matrix\",\n");
        m_Json.Indent(depth + 1).Raw("\"rows\": ").Unsigned(matrix.size1()).Raw(",\n");
        m_Json.Indent(depth + 1).Raw("\"cols\": ").Unsigned(columns).Raw(",\n");
        m_Json.Indent(depth + 1).Raw("\"data\": [\n");
        for (std::size_t row = 0; row < matrix.size1(); ++row)
        {
            m_Json.Raw(row == 0 ? "" : ",\n").Indent(depth + 2);
            Samples(samples + row * columns, columns);
        }
        m_Json.Raw('\n').Indent(depth + 1).Raw("]\n").Indent(depth).Raw('}');
    }

    void Matrices(const FloatMatrixList& list, int depth)
    {
        if (!m_WithData || list.empty())
        {
            m_Json.Raw("{\"type\": \"matrices\", \"count\": ").Unsigned(list.size());
            m_Json.Raw(m_WithData ? ", \"data\": []}" : "}");
            return;
        }
        m_Json.Raw("{\n").Indent(depth + 1).Raw("\"type\": \"matrices\",\n");
        m_Json.Indent(depth + 1).Raw("\"count\": ").Unsigned(list.size()).Raw(",\n");
        m_Json.Indent(depth + 1).Raw("\"data\": [\n");
        for (std::size_t i = 0; i < list.size(); ++i)
        {
            m_Json.Raw(i == 0 ? "" : ",\n").Indent(depth + 2);
            Samples(MatrixSamples(list[i]), list[i].data().size());
        }
        m_Json.Raw('\n').Indent(depth + 1).Raw("]\n").Indent(depth).Raw('}');
    }

    JsonStream& m_Json;
    const bool m_WithData;
};

} // namespace

void WriteJsonDump(std::ostream& out, const std::string& path, DataFile& file, bool withData)
{
    JsonStream json(out);
    json.Raw("{\n  \"file\": ").String(ToDisplayText(path));
    json.Raw(",\n  \"fileType\": ").String(ToDisplayText(file.GetFileType()));
    json.Raw(",\n  \"entries\": ");
    JsonDumpWriter(json, withData).Entries(file, 1);
    json.Raw("\n}\n");
}

} // namespace Kiv::Tool
