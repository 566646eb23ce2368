#include "Kiv/Core/UnitDescriptor.h"

#include <boost/make_shared.hpp>

#include "Kiv/Core/Error.h"
#include "UnitLibrary.h"
#include "UnitText.h"

namespace Kiv::Core
{

namespace
{

struct UnitParts
{
    std::string name;
    std::string abbreviation;
    Detail::UnitHandlePtr handle;
};

[[noreturn]] void RaiseCannotCombine(const UnitParts& left, char operation, const UnitParts& right)
{
    LogicError("units \"" + left.abbreviation + "\" and \"" + right.abbreviation +
               "\" cannot be combined with '" + operation +
               "': they come from different unit dictionaries")
        .RaiseError(KIV_CODE_CONTEXT, "Kiv.Core.UnitDescriptor", false);
}

UnitParts Combine(const UnitParts& left, char operation, const UnitParts& right)
{
    const std::optional<Detail::UnitHandlePtr> handle =
        Detail::CombineUnits(left.handle, operation, right.handle);
    if (!handle)
    {
        RaiseCannotCombine(left, operation, right);
    }
    UnitParts combined;
    combined.handle = *handle;
    combined.abbreviation =
        Detail::CombineUnitTexts(left.abbreviation, operation, right.abbreviation);
    combined.name = combined.handle ? combined.handle->LongName() : std::string();
    if (combined.name.empty())
    {
        combined.name = Detail::CombineUnitTexts(left.name, operation, right.name);
    }
    return combined;
}

} // namespace

UnitDescriptor::UnitDescriptor(const std::string& name, const std::string& abbreviation)
    : m_Name(name), m_Abbreviation(abbreviation)
{
}

UnitDescriptor::UnitDescriptor(const std::string& name, const std::string& abbreviation,
                               std::shared_ptr<const Detail::UnitHandle> handle)
    : m_Name(name), m_Abbreviation(abbreviation), m_Handle(std::move(handle))
{
}

UnitDescriptor::~UnitDescriptor() = default;

boost::shared_ptr<UnitDescriptor> UnitDescriptor::MakeCopy() const
{
    return boost::make_shared<UnitDescriptor>(*this);
}

const std::string& UnitDescriptor::GetName() const
{
    return m_Name;
}

void UnitDescriptor::SetName(const std::string& name)
{
    m_Name = name;
}

const std::string& UnitDescriptor::GetAbbreviation() const
{
    return m_Abbreviation;
}

void UnitDescriptor::SetAbbreviation(const std::string& abbreviation)
{
    m_Abbreviation = abbreviation;
}

double UnitDescriptor::ConvertToBaseUnits(double value) const
{
    return m_Handle ? m_Handle->ToBaseUnits(value) : value;
}

double UnitDescriptor::ConvertFromBaseUnits(double value) const
{
    return m_Handle ? m_Handle->FromBaseUnits(value) : value;
}

bool UnitDescriptor::IsUnitless() const
{
    return !m_Handle || m_Handle->IsDimensionlessOne();
}

UnitDescriptor& UnitDescriptor::operator=(const UnitDescriptor& other)
{
    m_Name = other.m_Name;
    m_Abbreviation = other.m_Abbreviation;
    m_Handle = other.m_Handle;
    return *this;
}

UnitDescriptor& UnitDescriptor::operator*=(const UnitDescriptor& other)
{
    UnitParts combined = Combine({m_Name, m_Abbreviation, m_Handle}, '*',
                                 {other.m_Name, other.m_Abbreviation, other.m_Handle});
    m_Name = std::move(combined.name);
    m_Abbreviation = std::move(combined.abbreviation);
    m_Handle = std::move(combined.handle);
    return *this;
}

UnitDescriptor& UnitDescriptor::operator/=(const UnitDescriptor& other)
{
    UnitParts combined = Combine({m_Name, m_Abbreviation, m_Handle}, '/',
                                 {other.m_Name, other.m_Abbreviation, other.m_Handle});
    m_Name = std::move(combined.name);
    m_Abbreviation = std::move(combined.abbreviation);
    m_Handle = std::move(combined.handle);
    return *this;
}

boost::shared_ptr<UnitDescriptor> UnitDescriptor::operator*(const UnitDescriptor& other) const
{
    auto product = boost::make_shared<UnitDescriptor>(*this);
    *product *= other;
    return product;
}

boost::shared_ptr<UnitDescriptor> UnitDescriptor::operator/(const UnitDescriptor& other) const
{
    auto quotient = boost::make_shared<UnitDescriptor>(*this);
    *quotient /= other;
    return quotient;
}

bool UnitDescriptor::operator==(const UnitDescriptor& other) const
{
    return Detail::AreUnitsEqual(m_Handle, other.m_Handle);
}

bool UnitDescriptor::operator!=(const UnitDescriptor& other) const
{
    return !(*this == other);
}

bool UnitDescriptor::IsDimensionallyEquivalent(const UnitDescriptor& other) const
{
    return Detail::AreUnitsConvertible(m_Handle, other.m_Handle);
}

bool UnitDescriptor::RequiresConversion(const UnitDescriptor& other) const
{
    return IsDimensionallyEquivalent(other) && *this != other;
}

} // namespace Kiv::Core
