#include "Kiv/DataCore/DataObject.h"

#include <boost/make_shared.hpp>

#include "Kiv/DataCore/Serializer.h"

namespace Kiv::DataCore
{

bool DataObject::EnableSerialization(bool enable)
{
    // A plain data object has no serializer to create; dropping none always succeeds.
    return !enable;
}

boost::shared_ptr<Serializer> DataObject::GetSerializer() const
{
    return nullptr;
}

MutexLockableDataObject::MutexLockableDataObject(const MutexLockableDataObject& other)
    : DataObject(other)
{
    if (other.IsLockable())
    {
        m_DataMutex = boost::make_shared<Kiv::Core::Mutex>();
    }
}

std::uint32_t MutexLockableDataObject::GetDataFlags() const
{
    const std::uint32_t flags = DATA_FLAG_CLONEABLE | DATA_FLAG_TYPED;
    return IsLockable() ? (flags | DATA_FLAG_LOCKABLE) : flags;
}

bool MutexLockableDataObject::IsLockable() const
{
    return static_cast<bool>(m_DataMutex);
}

bool MutexLockableDataObject::EnableDataLocking()
{
    if (m_DataMutex)
    {
        return false;
    }
    m_DataMutex = boost::make_shared<Kiv::Core::Mutex>();
    return true;
}

void MutexLockableDataObject::AcquireLocks(LockList& locks) const
{
    if (auto lock = GetDataLock())
    {
        locks.push_back(std::move(lock));
    }
}

boost::shared_ptr<Kiv::Core::Lock> MutexLockableDataObject::GetDataLock() const
{
    if (!m_DataMutex)
    {
        return nullptr;
    }
    return boost::make_shared<Kiv::Core::Lock>(*m_DataMutex, Kiv::Core::Elapse::Unlimited());
}

} // namespace Kiv::DataCore
