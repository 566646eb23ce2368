#include "Kiv/Access/Latin1.h"
#include "Kiv/Access/ValueView.h"
#include "TreeRenderer.h"

namespace Kiv::Tool
{

using namespace Kiv::Access;

using namespace Kiv::DataCore;

namespace
{
std::string Indent(int depth)
{
    return std::string(static_cast<std::size_t>(depth) * 2, ' ');
}

void WriteSampleRow(std::ostream& out, int depth, const std::string& label, const float* values,
                    std::size_t count)
{
    out << Indent(depth) << label << ":";
    for (std::size_t i = 0; i < count; ++i)
    {
        out << ' ' << FormatNumber(values[i]);
    }
    out << '\n';
}

void WriteSamples(std::ostream& out, int depth, const boost::shared_ptr<DataObject>& object)
{
    if (const auto matrix = ValueOf<FloatMatrix>(object))
    {
        for (std::size_t row = 0; row < matrix->size1(); ++row)
        {
            WriteSampleRow(out, depth, "row " + std::to_string(row),
                           MatrixSamples(*matrix) + row * matrix->size2(), matrix->size2());
        }
    }
    else if (const auto list = ValueOf<FloatMatrixList>(object))
    {
        for (std::size_t i = 0; i < list->size(); ++i)
        {
            const FloatMatrix& item = (*list)[i];
            WriteSampleRow(out, depth, std::to_string(i), MatrixSamples(item), item.data().size());
        }
    }
}

void WriteEntries(std::ostream& out, DataContainer& container, int depth, bool withData)
{
    for (const auto& [key, object] : container.GetEntries())
    {
        out << Indent(depth) << Latin1ToUtf8(key) << ": " << RenderValue(object) << '\n';
        if (const auto child = boost::dynamic_pointer_cast<DataContainer>(object))
        {
            WriteEntries(out, *child, depth + 1, withData);
        }
        else if (withData)
        {
            WriteSamples(out, depth + 1, object);
        }
    }
}
} // namespace

void WriteTextDump(std::ostream& out, const std::string& path, DataFile& file, bool withData)
{
    out << "file: " << ToDisplayText(path) << '\n';
    out << "fileType: " << ToDisplayText(file.GetFileType()) << '\n';
    out << "entries:\n";
    WriteEntries(out, file, 1, withData);
}

} // namespace Kiv::Tool
