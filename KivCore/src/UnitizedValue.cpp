#include "Kiv/Core/UnitizedValue.h"

#include <new>
#include <sstream>

#include <boost/make_shared.hpp>

namespace Kiv::Core
{

namespace
{

const char* const ALERT_ID = "Kiv.Core.UnitizedValue";
const char* const SOURCE_FILE = "KivCore/UnitizedValue";
const char* const CONSTRUCTOR_NAME = "Kiv::Core::UnitizedValue<double>::UnitizedValue";

// Copies everything that decides how a number is written; ios_base alone has no fill
// character, so that comes along only when the source is a full stream.
void CopyFormatState(const std::ios_base& source, std::ostream& target)
{
    target.flags(source.flags());
    target.precision(source.precision());
    target.width(source.width());
    target.imbue(source.getloc());
    if (const auto* const stream = dynamic_cast<const std::ios*>(&source))
    {
        target.fill(stream->fill());
    }
}

} // namespace

// Built during static initialisation; the unit database itself is read on the first look-up.
boost::shared_ptr<UnitDictionary> UnitizedValueBase::sm_spGlobalDictionary =
    boost::make_shared<UnitDictionary>();

UnitizedValue<double>::XUnitNotFound::XUnitNotFound(const std::string& unitText)
    : LogicError(std::string())
{
    SetSeverity(SEVERITY_ERROR);
    SetData(sMESSAGE, FormatAlertMessage("%1% unit not found in the unit dictionary", unitText));
    AppendAncestry(typeid(XUnitNotFound));
}

UnitizedValue<double>::UnitizedValue(double value, const std::string& unitText) : m_Value(value)
{
    m_Unit = sm_spGlobalDictionary->LookupUnit(unitText, boost::shared_ptr<UnitDescriptor>());
    if (!m_Unit)
    {
        XUnitNotFound(unitText).RaiseError(CodeContext(SOURCE_FILE, 357, KIV_SOURCE_TIME_STAMP,
                                                       CONSTRUCTOR_NAME, __PRETTY_FUNCTION__),
                                           ALERT_ID, false);
    }
}

UnitizedValue<double>::UnitizedValue(double value) : m_Value(value)
{
    try
    {
        // A value's own descriptor, not the dictionary's: nobody else changes it.
        m_Unit = boost::make_shared<UnitDescriptor>("", "");
    }
    catch (const std::bad_alloc&)
    {
        // Raised below, outside the handler, so the error is not thrown from within it.
    }
    if (!m_Unit)
    {
        AllocationFailed("UnitDescriptor")
            .RaiseError(CodeContext(SOURCE_FILE, 333, KIV_SOURCE_TIME_STAMP, CONSTRUCTOR_NAME,
                                    __PRETTY_FUNCTION__),
                        ALERT_ID, false);
    }
}

UnitizedValue<double>::UnitizedValue(double value, boost::shared_ptr<UnitDescriptor> unit)
    : m_Value(value), m_Unit(std::move(unit))
{
    if (!m_Unit)
    {
        LogicError("A unitized value needs a unit descriptor; an empty one was given")
            .RaiseError(KIV_CODE_CONTEXT, ALERT_ID, false);
    }
}

UnitizedValue<double>::~UnitizedValue() = default;

std::string UnitizedValue<double>::ToString(const std::ios_base& formatSource) const
{
    std::ostringstream text;
    CopyFormatState(formatSource, text);
    text << *this;
    return text.str();
}

std::ostream& operator<<(std::ostream& out, const UnitizedValue<double>& value)
{
    const std::string& abbreviation = value.GetUnit()->GetAbbreviation();
    if (out.width() != 0 && !abbreviation.empty())
    {
        // Pad "number unit" as one field rather than the number alone.
        std::ostringstream field;
        CopyFormatState(out, field);
        field.width(0);
        field << value.GetValue() << ' ' << abbreviation;
        return out << field.str();
    }
    out << value.GetValue();
    if (!abbreviation.empty())
    {
        out << ' ' << abbreviation;
    }
    return out;
}

} // namespace Kiv::Core
