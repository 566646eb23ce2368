#include "ExportSource.h"

#include "Kiv/Access/Failure.h"
#include "Kiv/Access/Latin1.h"
#include "Kiv/Access/ValueView.h"

namespace Kiv::Export
{

using namespace Kiv::Access;
using namespace Kiv::DataCore;

namespace
{
// The value as a user would type it back; nothing for data and containers.
std::optional<std::string> HeaderValueText(const boost::shared_ptr<DataObject>& object)
{
    switch (ClassifyValue(*object))
    {
    case ValueKind::String:
        return Latin1ToUtf8(*ValueOf<std::string>(object));
    case ValueKind::Int:
        return std::to_string(*ValueOf<int>(object));
    case ValueKind::Long:
        return std::to_string(*ValueOf<HostLong>(object));
    case ValueKind::Float:
        return FormatNumber(*ValueOf<float>(object));
    case ValueKind::Double:
        return FormatNumber(*ValueOf<double>(object));
    case ValueKind::Unitized:
        return FormatUnitized(*ValueOf<UnitizedDouble>(object));
    case ValueKind::Strings:
    {
        std::string joined;
        for (const auto& text : *ValueOf<std::vector<std::string>>(object))
        {
            joined += (joined.empty() ? "" : ", ") + Latin1ToUtf8(text);
        }
        return joined;
    }
    default:
        return std::nullopt;
    }
}

// Header sections are the bracketed top-level containers; the file type's own records are not
// part of what the instrument wrote.
std::string SectionName(const std::string& key)
{
    if (key.size() < 2 || key.front() != '[' || key.back() != ']')
    {
        return std::string();
    }
    return key.substr(1, key.size() - 2);
}

std::vector<std::pair<std::string, std::string>> ReadHeaderValues(DataFile& file)
{
    std::vector<std::pair<std::string, std::string>> values;
    for (const auto& [sectionKey, object] : file.GetEntries())
    {
        const auto section = boost::dynamic_pointer_cast<DataContainer>(object);
        const std::string name = SectionName(sectionKey);
        if (!section || name.empty())
        {
            continue;
        }
        for (const auto& [key, value] : section->GetEntries())
        {
            if (const auto text = HeaderValueText(value))
            {
                values.emplace_back(Latin1ToUtf8(name + "/" + key), *text);
            }
        }
    }
    return values;
}

std::string BaseName(const std::string& path)
{
    const std::size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string ReadTitle(DataFile& file, const std::string& displayName)
{
    for (const char* key : {"Title", "Channel"})
    {
        const auto text = FindValueInSections<std::string>(file, key);
        if (text && text->find_first_not_of(" \t") != std::string::npos)
        {
            return Latin1ToUtf8(*text);
        }
    }
    return BaseName(displayName);
}

} // namespace

const float* ExportSource::ImageSamples() const
{
    return levelled.empty() ? MatrixSamples(*image) : levelled.data();
}

std::size_t ExportSource::ImageSampleCount() const
{
    return image->size1() * image->size2();
}

std::optional<std::string> ReadValueUnit(DataFile& file)
{
    for (const char* key : {"ZUnits", "ZUnit", "Z Unit", "Unit"})
    {
        const auto text = FindValueInSections<std::string>(file, key);
        if (text && text->find_first_not_of(" \t") != std::string::npos)
        {
            return Latin1ToUtf8(*text);
        }
    }
    return std::nullopt;
}

ExportSource ReadExportSource(DataFile& file, const std::string& displayName)
{
    ExportSource source;
    source.displayName = displayName;
    source.title = ReadTitle(file, displayName);
    source.headerValues = ReadHeaderValues(file);
    if (const auto image = FindImage(file); image && image->size1() > 0 && image->size2() > 0)
    {
        source.image = image;
        source.geometry = ReadImageGeometry(file, *image);
        source.valueUnit = ReadValueUnit(file);
        return source;
    }
    if (const auto curves = FindForceCurves(file); curves && !curves->empty())
    {
        source.curves = MakeCurveTable(*curves);
        for (const auto& label : FindCurveLabels(file))
        {
            source.curveLabels.push_back(Latin1ToUtf8(label));
        }
        return source;
    }
    Fail(displayName + ": holds no image and no force curves to export");
}

} // namespace Kiv::Export
