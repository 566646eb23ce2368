#include "Kiv/Access/ValueView.h"

#include <charconv>
#include <cmath>
#include <cstdio>

#include "Kiv/Access/Latin1.h"
#include "Kiv/Access/Statistics.h"

namespace Kiv::Access
{

using namespace Kiv::DataCore;

ValueKind ClassifyValue(const DataObject& object)
{
    if (dynamic_cast<const DataContainer*>(&object) != nullptr)
    {
        return ValueKind::Container;
    }
    struct Known
    {
        const std::type_info& type;
        ValueKind kind;
    };
    static const Known known[] = {
        {typeid(std::string), ValueKind::String},
        {typeid(int), ValueKind::Int},
        {typeid(HostLong), ValueKind::Long},
        {typeid(float), ValueKind::Float},
        {typeid(double), ValueKind::Double},
        {typeid(UnitizedDouble), ValueKind::Unitized},
        {typeid(StringList), ValueKind::Strings},
        {typeid(FloatMatrix), ValueKind::Matrix},
        {typeid(FloatMatrixList), ValueKind::Matrices},
    };
    for (const auto& entry : known)
    {
        if (object.IsType(entry.type))
        {
            return entry.kind;
        }
    }
    return ValueKind::Other;
}

std::string KindName(const DataObject& object)
{
    switch (ClassifyValue(object))
    {
    case ValueKind::Container:
        return "container";
    case ValueKind::String:
        return "string";
    case ValueKind::Int:
        return "int";
    case ValueKind::Long:
        return "long";
    case ValueKind::Float:
        return "float";
    case ValueKind::Double:
        return "double";
    case ValueKind::Unitized:
        return "unitized";
    case ValueKind::Strings:
        return "strings";
    case ValueKind::Matrix:
        return "matrix";
    case ValueKind::Matrices:
        return "matrices";
    case ValueKind::Other:
        break;
    }
    return ToDisplayText(object.GetTypeName());
}

namespace
{
template <class T>
std::string ShortestText(T value)
{
    if (std::isnan(value))
    {
        return "nan";
    }
    if (std::isinf(value))
    {
        return value < 0 ? "-inf" : "inf";
    }
    char text[64];
    const auto result = std::to_chars(text, text + sizeof text, value);
    return std::string(text, result.ptr);
}

std::string DescribeFigures(const float* samples, std::size_t count)
{
    const SampleStatistics figures = ComputeStatistics(samples, count);
    return "min " + FormatNumber(figures.minimum) + ", max " + FormatNumber(figures.maximum) +
           ", mean " + FormatNumber(figures.mean);
}
} // namespace

std::string FormatNumber(double value)
{
    return ShortestText(value);
}

std::string FormatNumber(float value)
{
    return ShortestText(value);
}

std::string QuoteText(const std::string& latin1)
{
    std::string quoted = "\"";
    for (const char c : Latin1ToUtf8(latin1))
    {
        switch (c)
        {
        case '"':
            quoted += "\\\"";
            break;
        case '\\':
            quoted += "\\\\";
            break;
        case '\n':
            quoted += "\\n";
            break;
        case '\r':
            quoted += "\\r";
            break;
        case '\t':
            quoted += "\\t";
            break;
        default:
            if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F)
            {
                char escaped[8];
                std::snprintf(escaped, sizeof escaped, "\\x%02X", static_cast<unsigned char>(c));
                quoted += escaped;
            }
            else
            {
                quoted.push_back(c);
            }
        }
    }
    return quoted + "\"";
}

std::string UnitSpelling(const Kiv::Core::UnitDescriptor& unit)
{
    return Latin1ToUtf8(unit.GetAbbreviation());
}

std::string UnitSpelling(const UnitizedDouble& value)
{
    return value.GetUnit() ? UnitSpelling(*value.GetUnit()) : std::string();
}

std::string FormatUnitized(const UnitizedDouble& value)
{
    const std::string unit = UnitSpelling(value);
    return FormatNumber(value.GetValue()) + (unit.empty() ? "" : " " + unit);
}

const float* MatrixSamples(const FloatMatrix& matrix)
{
    return matrix.data().size() == 0 ? nullptr : &matrix.data()[0];
}

namespace
{
// The value's text after its kind, or an empty text when the object holds no value at all.
std::string RenderHeldValue(const boost::shared_ptr<DataObject>& object)
{
    switch (ClassifyValue(*object))
    {
    case ValueKind::Container:
    {
        const auto count = boost::dynamic_pointer_cast<DataContainer>(object)->NumDataObjects();
        return std::to_string(count) + (count == 1 ? " entry" : " entries");
    }
    case ValueKind::String:
        if (const auto text = ValueOf<std::string>(object))
        {
            return QuoteText(*text);
        }
        break;
    case ValueKind::Int:
        if (const auto number = ValueOf<int>(object))
        {
            return std::to_string(*number);
        }
        break;
    case ValueKind::Long:
        if (const auto number = ValueOf<HostLong>(object))
        {
            return std::to_string(*number);
        }
        break;
    case ValueKind::Float:
        if (const auto number = ValueOf<float>(object))
        {
            return FormatNumber(*number);
        }
        break;
    case ValueKind::Double:
        if (const auto number = ValueOf<double>(object))
        {
            return FormatNumber(*number);
        }
        break;
    case ValueKind::Unitized:
        if (const auto value = ValueOf<UnitizedDouble>(object))
        {
            return FormatUnitized(*value);
        }
        break;
    case ValueKind::Strings:
        if (const auto list = ValueOf<StringList>(object))
        {
            std::string text = "[";
            for (std::size_t i = 0; i < list->size(); ++i)
            {
                text += (i == 0 ? "" : ", ") + QuoteText((*list)[i]);
            }
            return text + "]";
        }
        break;
    case ValueKind::Matrix:
        if (const auto matrix = ValueOf<FloatMatrix>(object))
        {
            return std::to_string(matrix->size1()) + " x " + std::to_string(matrix->size2()) +
                   ", " + DescribeFigures(MatrixSamples(*matrix), matrix->data().size());
        }
        break;
    case ValueKind::Matrices:
        if (const auto list = ValueOf<FloatMatrixList>(object))
        {
            std::string text = std::to_string(list->size());
            if (!list->empty())
            {
                text += " of " + std::to_string(list->front().size1()) + " x " +
                        std::to_string(list->front().size2());
            }
            return text;
        }
        break;
    case ValueKind::Other:
        break;
    }
    return std::string();
}
} // namespace

std::string RenderValue(const boost::shared_ptr<DataObject>& object)
{
    if (!object)
    {
        return "(nothing)";
    }
    const std::string kind = KindName(*object);
    const std::string value = RenderHeldValue(object);
    if (value.empty())
    {
        return kind;
    }
    const ValueKind valueKind = ClassifyValue(*object);
    const bool described = valueKind == ValueKind::Container || valueKind == ValueKind::Matrix ||
                           valueKind == ValueKind::Matrices;
    return kind + (described ? ", " : " ") + value;
}

} // namespace Kiv::Access
