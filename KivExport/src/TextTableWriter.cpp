// Comma- or tab-separated text: force curves as a table with a row of labels, images (csv only)
// as a matrix after two comment lines that give the lateral size.
#include <charconv>

#include "Kiv/Access/ValueView.h"
#include "Writers.h"

namespace Kiv::Export
{

namespace
{
// The shortest text that reads back to the same float32.
void PutNumber(BufferedOutput& out, float value)
{
    char text[32];
    const auto result = std::to_chars(std::begin(text), std::end(text), value);
    out.Write(text, static_cast<std::size_t>(result.ptr - text));
}

void PutRow(BufferedOutput& out, const float* values, std::size_t count, char separator)
{
    for (std::size_t column = 0; column < count; ++column)
    {
        if (column > 0)
        {
            out.Put(separator);
        }
        PutNumber(out, values[column]);
    }
    out.Put('\n');
}

// A CSV field is quoted when it holds the separator, a quote or a line break; TSV has no
// quoting, so those characters become blanks there.
std::string Field(const std::string& text, char separator)
{
    if (separator == '\t')
    {
        std::string field = text;
        for (char& c : field)
        {
            c = (c == '\t' || c == '\n' || c == '\r') ? ' ' : c;
        }
        return field;
    }
    if (text.find_first_of(",\"\n\r") == std::string::npos)
    {
        return text;
    }
    std::string quoted = "\"";
    for (const char c : text)
    {
        quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    }
    return quoted + "\"";
}

std::string ColumnLabel(const ExportSource& source, std::size_t column)
{
    if (column < source.curveLabels.size() && !source.curveLabels[column].empty())
    {
        return source.curveLabels[column];
    }
    return "Column " + std::to_string(column + 1);
}

void WriteCurves(const ExportSource& source, BufferedOutput& out, char separator)
{
    const auto& table = *source.curves;
    for (std::size_t column = 0; column < table.columns; ++column)
    {
        if (column > 0)
        {
            out.Put(separator);
        }
        out.Write(Field(ColumnLabel(source, column), separator));
    }
    out.Put('\n');
    for (std::size_t point = 0; point < table.points; ++point)
    {
        PutRow(out, table.values.data() + point * table.columns, table.columns, separator);
    }
}

std::string AxisComment(const char* axis,
                        const boost::shared_ptr<Kiv::DataCore::UnitizedDouble>& range,
                        std::size_t samples)
{
    return std::string("# ") + axis + ": " +
           (range ? Kiv::Access::FormatUnitized(*range) + ", " : std::string()) +
           std::to_string(samples) + " samples\n";
}

void WriteImage(const ExportSource& source, BufferedOutput& out, char separator)
{
    const auto& geometry = source.geometry;
    out.Write(AxisComment("x", geometry.rangeX, geometry.columns));
    out.Write(AxisComment("y", geometry.rangeY, geometry.rows));
    for (std::size_t row = 0; row < geometry.rows; ++row)
    {
        PutRow(out, source.ImageSamples() + row * geometry.columns, geometry.columns, separator);
    }
}
} // namespace

void WriteTextTable(const ExportSource& source, OutputFile& output, char separator)
{
    BufferedOutput out(output);
    if (source.curves)
    {
        WriteCurves(source, out, separator);
    }
    else
    {
        WriteImage(source, out, separator);
    }
    out.Flush();
}

} // namespace Kiv::Export
