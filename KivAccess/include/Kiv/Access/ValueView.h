#pragma once

#include <string>

#include <boost/shared_ptr.hpp>

#include "Kiv/DataCore/DataContainer.h"
#include "Kiv/DataCore/ValueTypes.h"

namespace Kiv::Access
{

// The value types kiv shows on their own terms; anything else is shown by its type name.
enum class ValueKind
{
    Container,
    String,
    Int,
    Long,
    Float,
    Double,
    Unitized,
    Strings,
    Matrix,
    Matrices,
    Other,
};

ValueKind ClassifyValue(const Kiv::DataCore::DataObject& object);

// The kind's name in dumps: "container", "string", "int", ..., "matrices"; for Other the
// object's own type name.
std::string KindName(const Kiv::DataCore::DataObject& object);

// The value a data object holds, shared, or an empty pointer when it holds another type.
template <class T>
boost::shared_ptr<T> ValueOf(const boost::shared_ptr<Kiv::DataCore::DataObject>& object)
{
    const auto wrapper = boost::dynamic_pointer_cast<Kiv::DataCore::GenericWrapper<T>>(object);
    return wrapper ? wrapper->GetDataReference() : nullptr;
}

// Numbers as the shortest text that reads back to the same value; "nan", "inf", "-inf".
std::string FormatNumber(double value);
std::string FormatNumber(float value);

// A Latin-1 header text as a quoted UTF-8 string, with control characters escaped so that the
// value stays on one line.
std::string QuoteText(const std::string& latin1);

// A unit as the file spells it (UTF-8).
std::string UnitSpelling(const Kiv::Core::UnitDescriptor& unit);
// The unit of a unitized value as the file spells it, or "" when it has none.
std::string UnitSpelling(const Kiv::DataCore::UnitizedDouble& value);
// A unitized value as "number unit" (UTF-8), or the bare number when it has no unit.
std::string FormatUnitized(const Kiv::DataCore::UnitizedDouble& value);

// One line describing the value: its kind, then its value or, for matrices, their shape and
// figures. Two objects that render alike hold the same header value.
std::string RenderValue(const boost::shared_ptr<Kiv::DataCore::DataObject>& object);

// The samples of a matrix in row order (the storage is row-major).
const float* MatrixSamples(const Kiv::DataCore::FloatMatrix& matrix);

} // namespace Kiv::Access
