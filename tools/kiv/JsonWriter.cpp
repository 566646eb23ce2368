#include "TreeRenderer.h"

namespace Kiv::Tool
{

using Json = nlohmann::ordered_json;

namespace
{
std::string Scalar(const Json& value)
{
    // Paths and messages of unknown encoding must not stop the output.
    return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

bool HoldsOnlyScalars(const Json& value)
{
    for (const auto& item : value)
    {
        if (item.is_structured())
        {
            return false;
        }
    }
    return true;
}

// An object of plain values, or of plain values and lists of them, such as one typed value of
// the dump, reads best on one line.
bool IsFlatObject(const Json& value)
{
    for (const auto& item : value)
    {
        if (item.is_object() || (item.is_array() && !HoldsOnlyScalars(item)))
        {
            return false;
        }
    }
    return true;
}

void WriteInline(std::ostream& out, const Json& value)
{
    if (value.is_object())
    {
        out << '{';
        bool first = true;
        for (const auto& [key, item] : value.items())
        {
            out << (first ? "" : ", ") << Scalar(Json(key)) << ": ";
            WriteInline(out, item);
            first = false;
        }
        out << '}';
    }
    else if (value.is_array())
    {
        out << '[';
        bool first = true;
        for (const auto& item : value)
        {
            out << (first ? "" : ", ") << Scalar(item);
            first = false;
        }
        out << ']';
    }
    else
    {
        out << Scalar(value);
    }
}

void WriteValue(std::ostream& out, const Json& value, int depth)
{
    const std::string inner(static_cast<std::size_t>(depth + 1) * 2, ' ');
    const std::string closing(static_cast<std::size_t>(depth) * 2, ' ');
    if (value.is_object() && !value.empty() && !IsFlatObject(value))
    {
        out << "{\n";
        bool first = true;
        for (const auto& [key, item] : value.items())
        {
            out << (first ? "" : ",\n") << inner << Scalar(Json(key)) << ": ";
            WriteValue(out, item, depth + 1);
            first = false;
        }
        out << '\n' << closing << '}';
    }
    else if (value.is_array() && !value.empty() && !HoldsOnlyScalars(value))
    {
        out << "[\n";
        bool first = true;
        for (const auto& item : value)
        {
            out << (first ? "" : ",\n") << inner;
            WriteValue(out, item, depth + 1);
            first = false;
        }
        out << '\n' << closing << ']';
    }
    else
    {
        WriteInline(out, value);
    }
}
} // namespace

void WriteJson(std::ostream& out, const Json& value)
{
    WriteValue(out, value, 0);
    out << '\n';
}

} // namespace Kiv::Tool
