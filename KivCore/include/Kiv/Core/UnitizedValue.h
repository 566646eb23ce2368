#pragma once

#include <boost/shared_ptr.hpp>
#include <memory>
#include <ostream>
#include <string>

#include "Kiv/Core/Error.h"
#include "Kiv/Core/UnitDescriptor.h"

namespace Kiv::Core
{

class UnitizedValueBase
{
public:
    // The dictionary every unitized value takes its units from.
    static boost::shared_ptr<UnitDictionary> sm_spGlobalDictionary;
};

template <class T>
class UnitizedValue;

// A number together with its unit. The number is kept in the unit as given; nothing is
// converted on construction.
template <>
class UnitizedValue<double> : public UnitizedValueBase
{
public:
    class XUnitNotFound : public LogicError
    {
        KIV_ERROR_CLASS(XUnitNotFound)
    public:
        explicit XUnitNotFound(const std::string& unitText);
    };

    // A value in the unit named by unitText; throws XUnitNotFound for an unknown unit.
    UnitizedValue(double value, const std::string& unitText);
    // A value without a unit; its descriptor is its own, not the dictionary's.
    explicit UnitizedValue(double value);
    UnitizedValue(double value, boost::shared_ptr<UnitDescriptor> unit);
    UnitizedValue(const UnitizedValue&) = default;
    UnitizedValue& operator=(const UnitizedValue&) = default;
    virtual ~UnitizedValue();

    double GetValue() const { return m_Value; }
    void SetValue(double value) { m_Value = value; }
    const boost::shared_ptr<UnitDescriptor>& GetUnit() const { return m_Unit; }

    // The value as text, formatted with the whole format state (flags, precision, width,
    // fill) of formatSource.
    std::string ToString(const std::ios_base& formatSource) const;

private:
    double m_Value;
    boost::shared_ptr<UnitDescriptor> m_Unit;
};

// The number in the stream's format, then a blank and the abbreviation when there is one.
// A field width pads "number unit" as a whole.
std::ostream& operator<<(std::ostream& out, const UnitizedValue<double>& value);

} // namespace Kiv::Core
