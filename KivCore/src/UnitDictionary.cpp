#include "Kiv/Core/UnitDescriptor.h"

#include <mutex>
#include <unordered_map>

#include <boost/make_shared.hpp>

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
    // Only units that were found: a hostile file may hold any number of bad unit texts.
    std::unordered_map<std::string, boost::shared_ptr<UnitDescriptor>> descriptors;

    const Detail::UnitSystemPtr& System();
};

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

boost::shared_ptr<UnitDescriptor>
UnitDictionary::LookupUnit(const std::string& unitText, boost::shared_ptr<UnitDescriptor> fallback)
{
    const std::lock_guard<std::mutex> lock(m_Impl->mutex);
    const auto cached = m_Impl->descriptors.find(unitText);
    if (cached != m_Impl->descriptors.end())
    {
        return cached->second;
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
    m_Impl->descriptors.emplace(unitText, descriptor);
    return descriptor;
}

} // namespace Kiv::Core
