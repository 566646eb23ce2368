#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include <boost/shared_ptr.hpp>

#include "Kiv/Access/ValueView.h"
#include "Kiv/DataCore/DataFile.h"

namespace Kiv::Access
{

// What a microscopist reads off any opened file, whatever front end shows it. The host knows
// the keys a microscopist looks for, not which section a file type keeps them in, so each is
// looked up in the top-level sections in file order.

// The first entry of that name in any top-level section, or null.
boost::shared_ptr<Kiv::DataCore::DataObject> FindInSections(Kiv::DataCore::DataContainer& file,
                                                            const std::string& key);

template <class T>
boost::shared_ptr<T> FindValueInSections(Kiv::DataCore::DataContainer& file, const std::string& key)
{
    return ValueOf<T>(FindInSections(file, key));
}

// The first value of type T anywhere in the tree, depth first, or null.
template <class T>
boost::shared_ptr<T> FindFirstOfType(Kiv::DataCore::DataContainer& container)
{
    for (const auto& entry : container.GetEntries())
    {
        if (const auto value = ValueOf<T>(entry.second))
        {
            return value;
        }
        if (const auto child =
                boost::dynamic_pointer_cast<Kiv::DataCore::DataContainer>(entry.second))
        {
            if (const auto value = FindFirstOfType<T>(*child))
            {
                return value;
            }
        }
    }
    return nullptr;
}

// A file's image (rows x columns, row-major), or null for a file without one.
boost::shared_ptr<Kiv::DataCore::FloatMatrix> FindImage(Kiv::DataCore::DataContainer& file);

// A file's force curves: one column of values per point, or null for a file without them.
boost::shared_ptr<Kiv::DataCore::FloatMatrixList>
FindForceCurves(Kiv::DataCore::DataContainer& file);

// The force curves as one row-major table: a row per point, a column per value of a point
// (4 x series). Points holding fewer values than the first are padded with NaN.
struct CurveTable
{
    std::size_t points = 0;
    std::size_t columns = 0;
    std::vector<float> values;
};
CurveTable MakeCurveTable(const Kiv::DataCore::FloatMatrixList& curves);

// The curve labels, split at commas and trimmed of blanks (Latin-1, as the header holds them);
// empty when the file gives none.
std::vector<std::string> SplitCurveLabels(const std::string& labels);
std::vector<std::string> FindCurveLabels(Kiv::DataCore::DataContainer& file);

// The image's lateral size: the header's scan ranges as the file states them, and in metres
// through the unit library when they are lengths.
struct ImageGeometry
{
    std::size_t columns = 0;
    std::size_t rows = 0;
    boost::shared_ptr<Kiv::DataCore::UnitizedDouble> rangeX; // null when the file has none
    boost::shared_ptr<Kiv::DataCore::UnitizedDouble> rangeY;
    std::optional<double> widthMetres;
    std::optional<double> heightMetres;

    std::optional<double> PixelWidthMetres() const;
    std::optional<double> PixelHeightMetres() const;
};
ImageGeometry ReadImageGeometry(Kiv::DataCore::DataContainer& file,
                                const Kiv::DataCore::FloatMatrix& image);

// value, given in unit, in targetUnit (a unit text the unit library knows, e.g. "m", "nm").
// Raises Failure when either unit is unknown to the library or the two measure different
// quantities.
double ConvertUnit(double value, const Kiv::Core::UnitDescriptor& unit,
                   const std::string& targetUnit);

// The value in metres when it is a length the unit library knows; nothing otherwise.
std::optional<double> LengthInMetres(const Kiv::DataCore::UnitizedDouble& value);

} // namespace Kiv::Access
