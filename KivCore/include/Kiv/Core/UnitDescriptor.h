#pragma once

#include <cstddef>
#include <memory>

#include <boost/shared_ptr.hpp>
#include <string>

namespace Kiv::Core
{

namespace Detail
{
struct UnitHandle; // the unit library's representation, private to the dictionary
}

// A physical unit, shared between every value of the same unit text. The abbreviation is the
// text the unit was looked up by, byte for byte, so that a header written back carries exactly
// the unit it was read with. Conversion and comparison go through the unit library.
class UnitDescriptor
{
public:
    UnitDescriptor(const std::string& name, const std::string& abbreviation);
    UnitDescriptor(const std::string& name, const std::string& abbreviation,
                   std::shared_ptr<const Detail::UnitHandle> handle);
    UnitDescriptor(const UnitDescriptor&) = default;

    virtual ~UnitDescriptor();
    virtual boost::shared_ptr<UnitDescriptor> MakeCopy() const;
    virtual const std::string& GetName() const;
    virtual void SetName(const std::string& name);
    virtual const std::string& GetAbbreviation() const;
    virtual void SetAbbreviation(const std::string& abbreviation);
    virtual double ConvertToBaseUnits(double value) const;
    virtual double ConvertFromBaseUnits(double value) const;
    virtual bool IsUnitless() const;
    virtual UnitDescriptor& operator=(const UnitDescriptor& other);
    virtual UnitDescriptor& operator*=(const UnitDescriptor& other);
    virtual UnitDescriptor& operator/=(const UnitDescriptor& other);
    virtual boost::shared_ptr<UnitDescriptor> operator*(const UnitDescriptor& other) const;
    virtual boost::shared_ptr<UnitDescriptor> operator/(const UnitDescriptor& other) const;
    virtual bool operator==(const UnitDescriptor& other) const;
    virtual bool operator!=(const UnitDescriptor& other) const;
    virtual bool IsDimensionallyEquivalent(const UnitDescriptor& other) const;
    virtual bool RequiresConversion(const UnitDescriptor& other) const;

private:
    std::string m_Name;
    std::string m_Abbreviation;
    std::shared_ptr<const Detail::UnitHandle> m_Handle; // empty for a unitless descriptor
};

// The units a program knows, looked up by their text. Loaded on the first look-up;
// look-ups are safe from any thread.
class UnitDictionary
{
public:
    UnitDictionary();
    virtual ~UnitDictionary();
    UnitDictionary(const UnitDictionary&) = delete;
    UnitDictionary& operator=(const UnitDictionary&) = delete;

    // The descriptor for unitText, the same object for every look-up of the same text while
    // any holder keeps it; fallback when the text names no unit.
    virtual boost::shared_ptr<UnitDescriptor>
    LookupUnit(const std::string& unitText, boost::shared_ptr<UnitDescriptor> fallback);

    // How many unit texts the dictionary keeps track of, counting those whose descriptor
    // nobody holds any more and that have not been swept out yet.
    std::size_t GetRememberedTextCount() const;

private:
    struct Impl;
    std::unique_ptr<Impl> m_Impl;
};

} // namespace Kiv::Core
