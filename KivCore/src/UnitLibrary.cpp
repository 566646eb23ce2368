#include "UnitLibrary.h"

#include <mutex>
#include <vector>

namespace Kiv::Core::Detail
{

namespace
{

// Never destroyed: descriptors held by static objects release their units while the program
// exits, in an order nobody controls. Recursive, so that a unit released while the lock is
// held (taking its unit system along) cannot deadlock.
std::recursive_mutex& LibraryMutex()
{
    static auto* const mutex = new std::recursive_mutex;
    return *mutex;
}

using LibraryLock = std::lock_guard<std::recursive_mutex>;

// Frees a unit; the caller holds the library lock.
struct UnitDeleter
{
    void operator()(ut_unit* unit) const { ut_free(unit); }
};
using OwnedUnit = std::unique_ptr<ut_unit, UnitDeleter>;

struct ConverterDeleter
{
    void operator()(cv_converter* converter) const { cv_free(converter); }
};
using OwnedConverter = std::unique_ptr<cv_converter, ConverterDeleter>;

// Builds the base-unit form of a unit: the product of its base units with the scale, offset,
// time origin and logarithm peeled off. The library has no call for this, only a visitor.
struct BaseUnitBuilder
{
    const ut_visitor* visitor;
    OwnedUnit base;
};

ut_status VisitBasic(const ut_unit* unit, void* arg)
{
    auto& builder = *static_cast<BaseUnitBuilder*>(arg);
    builder.base.reset(ut_clone(unit));
    return builder.base ? UT_SUCCESS : UT_BAD_ARG;
}

ut_status VisitProduct(const ut_unit* unit, int count, const ut_unit* const* basicUnits,
                       const int* powers, void* arg)
{
    auto& builder = *static_cast<BaseUnitBuilder*>(arg);
    OwnedUnit product(ut_get_dimensionless_unit_one(ut_get_system(unit)));
    for (int index = 0; index < count && product; ++index)
    {
        const OwnedUnit power(ut_raise(basicUnits[index], powers[index]));
        product.reset(power ? ut_multiply(product.get(), power.get()) : nullptr);
    }
    builder.base = std::move(product);
    return builder.base ? UT_SUCCESS : UT_BAD_ARG;
}

ut_status VisitGalilean(const ut_unit*, double, const ut_unit* underlyingUnit, double, void* arg)
{
    return ut_accept_visitor(underlyingUnit, static_cast<BaseUnitBuilder*>(arg)->visitor, arg);
}

ut_status VisitTimestamp(const ut_unit*, const ut_unit* timeUnit, double, void* arg)
{
    return ut_accept_visitor(timeUnit, static_cast<BaseUnitBuilder*>(arg)->visitor, arg);
}

ut_status VisitLogarithmic(const ut_unit*, double, const ut_unit* reference, void* arg)
{
    return ut_accept_visitor(reference, static_cast<BaseUnitBuilder*>(arg)->visitor, arg);
}

OwnedUnit BaseUnitOf(const ut_unit* unit)
{
    static const ut_visitor visitor = {VisitBasic, VisitProduct, VisitGalilean, VisitTimestamp,
                                       VisitLogarithmic};
    BaseUnitBuilder builder{&visitor, nullptr};
    if (ut_accept_visitor(unit, &visitor, &builder) != UT_SUCCESS)
    {
        return nullptr;
    }
    return std::move(builder.base);
}

// Wraps a unit with its base-unit converters; empty when there are none.
UnitHandlePtr AdoptUnit(const UnitSystemPtr& system, OwnedUnit unit)
{
    if (!unit)
    {
        return nullptr;
    }
    const OwnedUnit base = BaseUnitOf(unit.get());
    if (!base)
    {
        return nullptr;
    }
    OwnedConverter toBase(ut_get_converter(unit.get(), base.get()));
    OwnedConverter fromBase(ut_get_converter(base.get(), unit.get()));
    if (!toBase || !fromBase)
    {
        return nullptr;
    }
    auto handle =
        std::make_shared<const UnitHandle>(system, unit.get(), toBase.get(), fromBase.get());
    // The handle owns them now; released only after it exists so a failed allocation leaks none.
    unit.release();
    toBase.release();
    fromBase.release();
    return handle;
}

// The unit to compare with: a handle's own, or the number one of the other side's system.
OwnedUnit CloneOrOne(const UnitHandlePtr& handle, const UnitHandlePtr& other)
{
    return OwnedUnit(handle ? ut_clone(handle->Unit())
                            : ut_get_dimensionless_unit_one(other->System().get()));
}

} // namespace

UnitSystemPtr LoadUnitSystem(std::string& failureReason)
{
    const LibraryLock lock(LibraryMutex());
    // The library prints its complaints to stderr by default; ours go into alerts instead.
    ut_set_error_message_handler(ut_ignore);
    ut_system* const system = ut_read_xml(nullptr);
    if (!system)
    {
        ut_status pathStatus = UT_SUCCESS;
        const char* const path = ut_get_path_xml(nullptr, &pathStatus);
        failureReason = std::string("the unit database \"") + (path ? path : "") +
                        "\" could not be read" +
                        (pathStatus == UT_OPEN_ENV ? " (named by UDUNITS2_XML_PATH)" : "");
        return nullptr;
    }
    return UnitSystemPtr(system,
                         [](ut_system* doomed)
                         {
                             const LibraryLock freeLock(LibraryMutex());
                             ut_free_system(doomed);
                         });
}

UnitHandle::UnitHandle(UnitSystemPtr system, ut_unit* unit, cv_converter* toBase,
                       cv_converter* fromBase)
    : m_System(std::move(system)), m_Unit(unit), m_ToBase(toBase), m_FromBase(fromBase)
{
}

UnitHandle::~UnitHandle()
{
    const LibraryLock lock(LibraryMutex());
    cv_free(m_FromBase);
    cv_free(m_ToBase);
    ut_free(m_Unit);
}

double UnitHandle::ToBaseUnits(double value) const
{
    const LibraryLock lock(LibraryMutex());
    return cv_convert_double(m_ToBase, value);
}

double UnitHandle::FromBaseUnits(double value) const
{
    const LibraryLock lock(LibraryMutex());
    return cv_convert_double(m_FromBase, value);
}

std::string UnitHandle::LongName() const
{
    const LibraryLock lock(LibraryMutex());
    std::vector<char> buffer(128);
    for (;;)
    {
        const int length = ut_format(m_Unit, buffer.data(), buffer.size(), UT_NAMES | UT_ASCII);
        if (length < 0)
        {
            return std::string();
        }
        // A text that fills the buffer exactly may have been cut short: try again, larger.
        if (static_cast<std::size_t>(length) < buffer.size())
        {
            return std::string(buffer.data(), static_cast<std::size_t>(length));
        }
        buffer.resize(buffer.size() * 2);
    }
}

bool UnitHandle::IsDimensionlessOne() const
{
    const LibraryLock lock(LibraryMutex());
    const OwnedUnit one(ut_get_dimensionless_unit_one(m_System.get()));
    return one && ut_compare(m_Unit, one.get()) == 0;
}

UnitHandlePtr ParseUnit(const UnitSystemPtr& system, const std::string& librarySpelling)
{
    const LibraryLock lock(LibraryMutex());
    return AdoptUnit(system, OwnedUnit(ut_parse(system.get(), librarySpelling.c_str(), UT_ASCII)));
}

bool AreUnitsEqual(const UnitHandlePtr& left, const UnitHandlePtr& right)
{
    if (!left && !right)
    {
        return true;
    }
    const LibraryLock lock(LibraryMutex());
    const OwnedUnit leftUnit = CloneOrOne(left, right);
    const OwnedUnit rightUnit = CloneOrOne(right, left);
    return leftUnit && rightUnit && ut_compare(leftUnit.get(), rightUnit.get()) == 0;
}

bool AreUnitsConvertible(const UnitHandlePtr& left, const UnitHandlePtr& right)
{
    if (!left && !right)
    {
        return true;
    }
    const LibraryLock lock(LibraryMutex());
    const OwnedUnit leftUnit = CloneOrOne(left, right);
    const OwnedUnit rightUnit = CloneOrOne(right, left);
    return leftUnit && rightUnit && ut_are_convertible(leftUnit.get(), rightUnit.get()) != 0;
}

std::optional<UnitHandlePtr> CombineUnits(const UnitHandlePtr& left, char operation,
                                          const UnitHandlePtr& right)
{
    if (!right)
    {
        return left;
    }
    if (!left && operation == '*')
    {
        return right;
    }
    const LibraryLock lock(LibraryMutex());
    const OwnedUnit leftUnit = CloneOrOne(left, right);
    if (!leftUnit)
    {
        return std::nullopt;
    }
    OwnedUnit combined(operation == '*' ? ut_multiply(leftUnit.get(), right->Unit())
                                        : ut_divide(leftUnit.get(), right->Unit()));
    UnitHandlePtr handle = AdoptUnit(right->System(), std::move(combined));
    if (!handle)
    {
        return std::nullopt;
    }
    return handle;
}

} // namespace Kiv::Core::Detail
