#include "Kiv/Access/FileFacts.h"

#include <algorithm>
#include <limits>

#include "Kiv/Access/Failure.h"
#include "Kiv/Access/Latin1.h"

namespace Kiv::Access
{

using namespace Kiv::DataCore;

boost::shared_ptr<DataObject> FindInSections(DataContainer& file, const std::string& key)
{
    for (const auto& entry : file.GetEntries())
    {
        if (const auto section = boost::dynamic_pointer_cast<DataContainer>(entry.second))
        {
            if (const auto found = section->Get(key))
            {
                return found;
            }
        }
    }
    return nullptr;
}

boost::shared_ptr<FloatMatrix> FindImage(DataContainer& file)
{
    return FindFirstOfType<FloatMatrix>(file);
}

boost::shared_ptr<FloatMatrixList> FindForceCurves(DataContainer& file)
{
    return FindFirstOfType<FloatMatrixList>(file);
}

CurveTable MakeCurveTable(const FloatMatrixList& curves)
{
    CurveTable table;
    table.points = curves.size();
    table.columns = curves.empty() ? 0 : curves.front().data().size();
    table.values.assign(table.points * table.columns, std::numeric_limits<float>::quiet_NaN());
    for (std::size_t point = 0; point < curves.size(); ++point)
    {
        const FloatMatrix& values = curves[point];
        const std::size_t count = std::min(values.data().size(), table.columns);
        std::copy_n(MatrixSamples(values), count, table.values.begin() + point * table.columns);
    }
    return table;
}

std::vector<std::string> SplitCurveLabels(const std::string& labels)
{
    std::vector<std::string> split;
    if (labels.find_first_not_of(" \t\r\n") == std::string::npos)
    {
        return split;
    }
    std::size_t start = 0;
    for (;;)
    {
        const std::size_t comma = labels.find(',', start);
        std::string label =
            labels.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
        const std::size_t first = label.find_first_not_of(" \t\r\n");
        const std::size_t last = label.find_last_not_of(" \t\r\n");
        split.push_back(first == std::string::npos ? std::string()
                                                   : label.substr(first, last - first + 1));
        if (comma == std::string::npos)
        {
            return split;
        }
        start = comma + 1;
    }
}

std::vector<std::string> FindCurveLabels(DataContainer& file)
{
    const auto labels = FindValueInSections<std::string>(file, "ForceCurveDataLabels");
    return labels ? SplitCurveLabels(*labels) : std::vector<std::string>();
}

namespace
{
std::optional<double> PerSample(const std::optional<double>& length, std::size_t samples)
{
    if (!length || samples == 0)
    {
        return std::nullopt;
    }
    return *length / static_cast<double>(samples);
}

boost::shared_ptr<Kiv::Core::UnitDescriptor> LookupKnownUnit(const std::string& unitText)
{
    auto& dictionary = Kiv::Core::UnitizedValueBase::sm_spGlobalDictionary;
    const auto unit = dictionary ? dictionary->LookupUnit(unitText, nullptr) : nullptr;
    if (!unit || unit->IsUnitless())
    {
        Fail("unknown unit \"" + ToDisplayText(unitText) + "\"");
    }
    return unit;
}
} // namespace

std::optional<double> ImageGeometry::PixelWidthMetres() const
{
    return PerSample(widthMetres, columns);
}

std::optional<double> ImageGeometry::PixelHeightMetres() const
{
    return PerSample(heightMetres, rows);
}

ImageGeometry ReadImageGeometry(DataContainer& file, const FloatMatrix& image)
{
    ImageGeometry geometry;
    geometry.columns = image.size2();
    geometry.rows = image.size1();
    geometry.rangeX = FindValueInSections<UnitizedDouble>(file, "ScanRangeX");
    geometry.rangeY = FindValueInSections<UnitizedDouble>(file, "ScanRangeY");
    if (geometry.rangeX)
    {
        geometry.widthMetres = LengthInMetres(*geometry.rangeX);
    }
    if (geometry.rangeY)
    {
        geometry.heightMetres = LengthInMetres(*geometry.rangeY);
    }
    return geometry;
}

double ConvertUnit(double value, const Kiv::Core::UnitDescriptor& unit,
                   const std::string& targetUnit)
{
    if (unit.IsUnitless())
    {
        Fail("a value without a unit cannot be converted to \"" + ToDisplayText(targetUnit) + "\"");
    }
    const auto target = LookupKnownUnit(targetUnit);
    if (!unit.IsDimensionallyEquivalent(*target))
    {
        Fail("\"" + UnitSpelling(unit) + "\" cannot be converted to \"" +
             ToDisplayText(targetUnit) + "\"");
    }
    return target->ConvertFromBaseUnits(unit.ConvertToBaseUnits(value));
}

std::optional<double> LengthInMetres(const UnitizedDouble& value)
{
    const auto& unit = value.GetUnit();
    if (!unit || unit->IsUnitless() || !unit->IsDimensionallyEquivalent(*LookupKnownUnit("m")))
    {
        return std::nullopt;
    }
    return ConvertUnit(value.GetValue(), *unit, "m");
}

} // namespace Kiv::Access
