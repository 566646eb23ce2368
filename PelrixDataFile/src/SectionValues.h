#pragma once

#include <cstdint>
#include <string>

#include "Kiv/DataCore/DataContainer.h"

namespace Pelrix
{

// A header number that drives the data ("ResolutionX", "Series Number", ...). It is stored as
// the host's 32-bit long, so every reader of the file sees the number the header reader made.
// Missing or of another kind reads as 0.
inline std::int32_t ReadHeaderInt32(Kiv::DataCore::DataContainer& section, const std::string& key)
{
    Kiv::DataCore::HostLong value;
    section.Get(key, value);
    return value;
}

// A stored value shared rather than copied, with its data lock held while the holder lives.
template <class T>
struct LockedValue
{
    boost::shared_ptr<Kiv::Core::Lock> lock;
    boost::shared_ptr<T> value;
};

// One look-up, so that the entry cannot go away between finding it and locking it.
template <class T>
LockedValue<T> GetLockedValue(Kiv::DataCore::DataContainer& section, const std::string& key)
{
    LockedValue<T> result;
    const auto wrapper =
        boost::dynamic_pointer_cast<Kiv::DataCore::GenericWrapper<T>>(section.Get(key));
    if (wrapper)
    {
        result.lock = wrapper->GetDataLock();
        result.value = wrapper->GetDataReference();
    }
    return result;
}

} // namespace Pelrix
