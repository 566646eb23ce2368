#include <cmath>

#include "Kiv/Access/Latin1.h"
#include "Kiv/Access/Statistics.h"
#include "Kiv/Access/ValueView.h"
#include "TreeRenderer.h"

namespace Kiv::Tool
{

using namespace Kiv::Access;

using namespace Kiv::DataCore;
using Json = nlohmann::ordered_json;

namespace
{
// JSON has no NaN or infinity; they travel as the strings the text dump uses.
Json NumberToJson(double value)
{
    return std::isfinite(value) ? Json(value) : Json(FormatNumber(value));
}

// A float widened to double is exact, and the shortest text of that double reads back to it.
Json SamplesToJson(const float* samples, std::size_t count)
{
    Json row = Json::array();
    for (std::size_t i = 0; i < count; ++i)
    {
        row.push_back(NumberToJson(static_cast<double>(samples[i])));
    }
    return row;
}

Json ContainerToJson(DataContainer& container, bool withData)
{
    Json entries = Json::object();
    for (const auto& [key, object] : container.GetEntries())
    {
        entries[Latin1ToUtf8(key)] = ValueToJson(object, withData);
    }
    return entries;
}

Json MatrixToJson(const FloatMatrix& matrix, bool withData)
{
    Json value = {{"type", "matrix"}, {"rows", matrix.size1()}, {"cols", matrix.size2()}};
    const float* const samples = MatrixSamples(matrix);
    if (withData)
    {
        Json rows = Json::array();
        for (std::size_t row = 0; row < matrix.size1(); ++row)
        {
            rows.push_back(SamplesToJson(samples + row * matrix.size2(), matrix.size2()));
        }
        value["data"] = std::move(rows);
    }
    else
    {
        const SampleStatistics figures = ComputeStatistics(samples, matrix.data().size());
        value["min"] = NumberToJson(figures.minimum);
        value["max"] = NumberToJson(figures.maximum);
        value["mean"] = NumberToJson(figures.mean);
    }
    return value;
}

Json MatricesToJson(const FloatMatrixList& list, bool withData)
{
    Json value = {{"type", "matrices"}, {"count", list.size()}};
    if (withData)
    {
        Json data = Json::array();
        for (const FloatMatrix& item : list)
        {
            data.push_back(SamplesToJson(MatrixSamples(item), item.data().size()));
        }
        value["data"] = std::move(data);
    }
    return value;
}

// The value JSON of a typed object, or null when the object holds no value of its type.
Json TypedValueToJson(const boost::shared_ptr<DataObject>& object, bool withData)
{
    const std::string kind = KindName(*object);
    switch (ClassifyValue(*object))
    {
    case ValueKind::Container:
        return {{"type", kind},
                {"entries",
                 ContainerToJson(*boost::dynamic_pointer_cast<DataContainer>(object), withData)}};
    case ValueKind::String:
        if (const auto text = ValueOf<std::string>(object))
        {
            return {{"type", kind}, {"value", Latin1ToUtf8(*text)}};
        }
        break;
    case ValueKind::Int:
        if (const auto number = ValueOf<int>(object))
        {
            return {{"type", kind}, {"value", *number}};
        }
        break;
    case ValueKind::Long:
        if (const auto number = ValueOf<HostLong>(object))
        {
            return {{"type", kind}, {"value", static_cast<std::int32_t>(*number)}};
        }
        break;
    case ValueKind::Float:
        if (const auto number = ValueOf<float>(object))
        {
            return {{"type", kind}, {"value", NumberToJson(static_cast<double>(*number))}};
        }
        break;
    case ValueKind::Double:
        if (const auto number = ValueOf<double>(object))
        {
            return {{"type", kind}, {"value", NumberToJson(*number)}};
        }
        break;
    case ValueKind::Unitized:
        if (const auto value = ValueOf<UnitizedDouble>(object))
        {
            const auto& unit = value->GetUnit();
            return {{"type", kind},
                    {"value", NumberToJson(value->GetValue())},
                    {"unit", unit ? Latin1ToUtf8(unit->GetAbbreviation()) : std::string()}};
        }
        break;
    case ValueKind::Strings:
        if (const auto list = ValueOf<StringList>(object))
        {
            Json texts = Json::array();
            for (const auto& text : *list)
            {
                texts.push_back(Latin1ToUtf8(text));
            }
            return {{"type", kind}, {"value", std::move(texts)}};
        }
        break;
    case ValueKind::Matrix:
        if (const auto matrix = ValueOf<FloatMatrix>(object))
        {
            return MatrixToJson(*matrix, withData);
        }
        break;
    case ValueKind::Matrices:
        if (const auto list = ValueOf<FloatMatrixList>(object))
        {
            return MatricesToJson(*list, withData);
        }
        break;
    case ValueKind::Other:
        break;
    }
    return nullptr;
}
} // namespace

Json ValueToJson(const boost::shared_ptr<DataObject>& object, bool withData)
{
    if (!object)
    {
        return {{"type", "nothing"}};
    }
    Json value = TypedValueToJson(object, withData);
    return value.is_null() ? Json{{"type", KindName(*object)}} : value;
}

Json MakeJsonDump(const std::string& path, DataFile& file, bool withData)
{
    return {{"file", ToDisplayText(path)},
            {"fileType", ToDisplayText(file.GetFileType())},
            {"entries", ContainerToJson(file, withData)}};
}

} // namespace Kiv::Tool
