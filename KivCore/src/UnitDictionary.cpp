#include "Kiv/Core/UnitDescriptor.h"

#include <algorithm>
#include <iterator>
#include <mutex>
#include <unordered_map>

#include <boost/make_shared.hpp>
#include <boost/weak_ptr.hpp>

#include "Kiv/Core/Error.h"
#include "UnitLibrary.h"
#include "UnitText.h"

namespace Kiv::Core
{

struct UnitDictionary::Impl
{
    std::mutex mutex;
    // Loaded on the first look-up that needs it: reading the database costs tens of
    // milliseconds, which a program that never meets a unit should not pay at start.
    Detail::UnitSystemPtr system;
    // Only units that were found, and only while some value holds them: a hostile file may
    // hold any number of distinct unit texts, good or bad.
    std::unordered_map<std::string, boost::weak_ptr<UnitDescriptor>> descriptors;
    // The map's size after the last sweep of expired entries.
    std::size_t sizeAfterSweep = 0;

    const Detail::UnitSystemPtr& System();
    void Remember(const std::string& unitText, const boost::shared_ptr<UnitDescriptor>& unit);
};

void UnitDictionary::Impl::Remember(const std::string& unitText,
                                    const boost::shared_ptr<UnitDescriptor>& unit)
{
    // Sweeping only once the map has doubled keeps the cost per insertion constant.
    constexpr std::size_t SMALLEST_SWEPT_SIZE = 64;
    if (descriptors.size() >= std::max(SMALLEST_SWEPT_SIZE, 2 * sizeAfterSweep))
    {
        for (auto entry = descriptors.begin(); entry != descriptors.end();)
        {
            entry = entry->second.expired() ? descriptors.erase(entry) : std::next(entry);
        }
        sizeAfterSweep = descriptors.size();
    }
    descriptors[unitText] = unit;
}

const Detail::UnitSystemPtr& UnitDictionary::Impl::System()
{
    if (!system)
    {
        std::string failureReason;
        system = Detail::LoadUnitSystem(failureReason);
        if (!system)
        {
            IOError("No unit can be looked up: " + failureReason)
                .RaiseError(KIV_CODE_CONTEXT, "Kiv.Core.UnitDictionary", false);
        }
    }
    return system;
}

UnitDictionary::UnitDictionary() : m_Impl(std::make_unique<Impl>()) {}

UnitDictionary::~UnitDictionary() = default;

std::size_t UnitDictionary::GetRememberedTextCount() const
{
    const std::lock_guard<std::mutex> lock(m_Impl->mutex);
    return m_Impl->descriptors.size();
}

boost::shared_ptr<UnitDescriptor>
UnitDictionary::LookupUnit(const std::string& unitText, boost::shared_ptr<UnitDescriptor> fallback)
{
    const std::lock_guard<std::mutex> lock(m_Impl->mutex);
    const auto cached = m_Impl->descriptors.find(unitText);
    if (cached != m_Impl->descriptors.end())
    {
        if (auto live = cached->second.lock())
        {
            return live;
        }
    }

    const std::string librarySpelling = Detail::ToUnitLibrarySpelling(unitText);
    if (!Detail::NamesAUnit(librarySpelling))
    {
        return fallback;
    }
    Detail::UnitHandlePtr handle = Detail::ParseUnit(m_Impl->System(), librarySpelling);
    if (!handle)
    {
        return fallback;
    }
    std::string name = handle->LongName();
    if (name.empty())
    {
        name = unitText;
    }
    // The abbreviation is the text as given, so a value written back reads exactly as it did.
    auto descriptor = boost::make_shared<UnitDescriptor>(name, unitText, std::move(handle));
    m_Impl->Remember(unitText, descriptor);
    return descriptor;
}

} // namespace Kiv::Core
