#include <cstdio>
#include <sys/stat.h>

#include "Commands.h"
#include "Kiv/Access/FileAccess.h"
#include "Kiv/Access/FileFacts.h"
#include "Kiv/Access/Latin1.h"
#include "Kiv/Access/ShortData.h"
#include "Kiv/Access/ValueView.h"
#include "Kiv/Analysis/HeightParameters.h"

namespace Kiv::Tool
{

using namespace Kiv::Access;

using namespace Kiv::DataCore;

namespace
{
const std::size_t LABEL_WIDTH = 24;

std::string Figure(double value)
{
    char text[64];
    std::snprintf(text, sizeof text, "%.6g", value);
    return text;
}

// Display width of UTF-8 text: one column a character.
std::size_t Columns(const std::string& utf8)
{
    std::size_t columns = 0;
    for (const char c : utf8)
    {
        columns += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    }
    return columns;
}

std::string PadRight(const std::string& utf8, std::size_t width)
{
    const std::size_t columns = Columns(utf8);
    return utf8 + std::string(columns < width ? width - columns : 1, ' ');
}

void Line(std::ostream& out, int indent, const std::string& label, const std::string& value)
{
    out << std::string(static_cast<std::size_t>(indent), ' ')
        << PadRight(label + ":", LABEL_WIDTH - static_cast<std::size_t>(indent)) << value << '\n';
}

std::string SizeText(const std::string& path)
{
    struct stat status
    {
    };
    return ::stat(path.c_str(), &status) == 0 ? std::to_string(status.st_size) + " bytes"
                                              : std::string("unknown");
}

void WriteSections(std::ostream& out, DataFile& file)
{
    const auto entries = file.GetEntries();
    std::size_t width = 0;
    for (const auto& entry : entries)
    {
        width = std::max(width, Columns(Latin1ToUtf8(entry.first)));
    }
    out << "Sections:\n";
    for (const auto& [key, object] : entries)
    {
        const auto section = boost::dynamic_pointer_cast<DataContainer>(object);
        const std::string what = section ? std::to_string(section->NumDataObjects()) +
                                               (section->NumDataObjects() == 1 ? " key" : " keys")
                                         : RenderValue(object);
        out << "  " << PadRight(Latin1ToUtf8(key), width + 2) << what << '\n';
    }
}

std::string RangeText(const boost::shared_ptr<DataObject>& object)
{
    if (const auto range = ValueOf<UnitizedDouble>(object))
    {
        return FormatUnitized(*range);
    }
    return object ? RenderValue(object) : std::string("unknown");
}

std::string PixelSizeText(const boost::shared_ptr<DataObject>& range, std::size_t samples)
{
    const auto value = ValueOf<UnitizedDouble>(range);
    if (!value || samples == 0)
    {
        return "unknown";
    }
    const std::string unit = UnitSpelling(*value);
    return Figure(value->GetValue() / static_cast<double>(samples)) +
           (unit.empty() ? "" : " " + unit);
}

void WriteImage(std::ostream& out, DataFile& file, const FloatMatrix& image)
{
    const auto rangeX = FindInSections(file, "ScanRangeX");
    const auto rangeY = FindInSections(file, "ScanRangeY");
    // The raw figures carry the scan's tilt; the levelled ones are what a microscopist compares.
    // Both come from the passes of the plane's fit and of its figures; no median is shown, and
    // skipping it spares its selection.
    const auto summary =
        Kiv::Analysis::SummariseSurface({MatrixSamples(image), image.size1(), image.size2()},
                                        Kiv::Analysis::LevelMethod::Parse("plane"));
    const auto& figures = summary.asTheyAre;
    out << "Image:\n";
    Line(out, 2, "Resolution",
         std::to_string(image.size2()) + " x " + std::to_string(image.size1()) + " samples");
    Line(out, 2, "Scan range", RangeText(rangeX) + " x " + RangeText(rangeY));
    Line(out, 2, "Pixel size",
         PixelSizeText(rangeX, image.size2()) + " x " + PixelSizeText(rangeY, image.size1()));
    Line(out, 2, "Minimum", Figure(figures.minimum));
    Line(out, 2, "Maximum", Figure(figures.maximum));
    Line(out, 2, "Mean", Figure(figures.mean));
    Line(out, 2, "RMS roughness", Figure(figures.Sq));
    Line(out, 2, "Sa (plane-levelled)", Figure(summary.levelled.Sa));
    Line(out, 2, "Sq (plane-levelled)", Figure(summary.levelled.Sq));
    if (figures.excluded != 0)
    {
        Line(out, 2, "Not a number", std::to_string(figures.excluded) + " samples");
    }
}

std::string CountText(DataFile& file, const std::string& key)
{
    const auto object = FindInSections(file, key);
    if (const auto number = ValueOf<HostLong>(object))
    {
        return std::to_string(*number);
    }
    return object ? RenderValue(object) : std::string("not given");
}

void WriteForceCurves(std::ostream& out, DataFile& file, const FloatMatrixList& curves)
{
    out << "Force curves:\n";
    Line(out, 2, "Series", CountText(file, "Series Number"));
    Line(out, 2, "Points",
         CountText(file, "Points Number") + " (" + std::to_string(curves.size()) + " read)");
    if (!curves.empty())
    {
        Line(out, 2, "Values a point", std::to_string(curves.front().data().size()));
    }
    const std::vector<std::string> labels = FindCurveLabels(file);
    if (labels.empty())
    {
        Line(out, 2, "Curve labels", "none");
        return;
    }
    out << "  Curve labels:\n";
    std::size_t number = 1;
    for (const std::string& label : labels)
    {
        out << "    " << number++ << ". " << Latin1ToUtf8(label) << '\n';
    }
}
} // namespace

int RunInfo(std::ostream& out, const std::string& path)
{
    LoadFileTypeModules();
    const auto file = OpenForReading(path);
    WarnIfShort(path, *file);
    Line(out, 0, "File", ToDisplayText(path));
    Line(out, 0, "Type",
         ToDisplayText(file->GetFileType()) + " (" + ToDisplayText(file->DescribeFileType()) + ")");
    if (const auto subType = FindValueInSections<std::string>(*file, "FileSubType"))
    {
        Line(out, 0, "Sub-type", Latin1ToUtf8(*subType));
    }
    Line(out, 0, "Size", SizeText(path));
    WriteSections(out, *file);
    if (const auto image = FindFirstOfType<FloatMatrix>(*file))
    {
        WriteImage(out, *file, *image);
    }
    if (const auto curves = FindFirstOfType<FloatMatrixList>(*file))
    {
        WriteForceCurves(out, *file, *curves);
    }
    file->Close();
    return 0;
}

} // namespace Kiv::Tool
