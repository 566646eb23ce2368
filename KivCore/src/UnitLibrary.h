#pragma once

#include <memory>
#include <optional>
#include <string>

#include <udunits2.h>

namespace Kiv::Core::Detail
{

// The unit library's unit system. Every unit taken from it holds it, so the system outlives
// the last descriptor however long that is kept.
using UnitSystemPtr = std::shared_ptr<ut_system>;

// Reads the unit database (the file named by UDUNITS2_XML_PATH, else the installed one).
// Empty on failure, with the reason in failureReason.
UnitSystemPtr LoadUnitSystem(std::string& failureReason);

// One unit of the library with its converters to and from its base units. Immutable, so
// descriptors share it freely. Every call into the unit library, these included, goes under
// one process-wide lock: the library's parser and status are global state.
struct UnitHandle
{
    // Takes ownership of unit and both converters.
    UnitHandle(UnitSystemPtr system, ut_unit* unit, cv_converter* toBase, cv_converter* fromBase);
    ~UnitHandle();
    UnitHandle(const UnitHandle&) = delete;
    UnitHandle& operator=(const UnitHandle&) = delete;

    double ToBaseUnits(double value) const;
    double FromBaseUnits(double value) const;
    // The library's long form of the unit; empty when it cannot write one.
    std::string LongName() const;
    bool IsDimensionlessOne() const;

    const ut_unit* Unit() const { return m_Unit; }
    const UnitSystemPtr& System() const { return m_System; }

private:
    UnitSystemPtr m_System;
    ut_unit* m_Unit;
    cv_converter* m_ToBase;
    cv_converter* m_FromBase;
};

using UnitHandlePtr = std::shared_ptr<const UnitHandle>;

// The unit a text in the library's ASCII spelling names; empty when the library cannot parse
// it or cannot convert it to base units.
UnitHandlePtr ParseUnit(const UnitSystemPtr& system, const std::string& librarySpelling);

// In the comparisons and the combination below an empty handle stands for the number one.
bool AreUnitsEqual(const UnitHandlePtr& left, const UnitHandlePtr& right);
bool AreUnitsConvertible(const UnitHandlePtr& left, const UnitHandlePtr& right);
// The product ('*') or quotient ('/'). Nothing when the library refuses, as it does for units
// of two different unit systems.
std::optional<UnitHandlePtr> CombineUnits(const UnitHandlePtr& left, char operation,
                                          const UnitHandlePtr& right);

} // namespace Kiv::Core::Detail
