#include "Kiv/Core/Lock.h"

#include "Kiv/Core/Warning.h"

namespace Kiv::Core
{

std::chrono::nanoseconds Elapse::ToDuration() const
{
    using namespace std::chrono;
    const auto count = static_cast<std::int64_t>(m_Count < 0 ? 0 : m_Count);
    switch (m_TimeUnit)
    {
    case NANOSECONDS:
        return nanoseconds(count);
    case MICROSECONDS:
        return microseconds(count);
    case MILLISECONDS:
        return milliseconds(count);
    case SECONDS:
        return seconds(count);
    case MINUTES:
        return minutes(count);
    case HOURS:
        return hours(count);
    default:
        return milliseconds(count);
    }
}

bool Mutex::Lock(const Elapse& timeout) const
{
    if (timeout.IsUnlimited())
    {
        m_Mutex.lock();
        return true;
    }
    return m_Mutex.try_lock_for(timeout.ToDuration());
}

void Mutex::Unlock() const
{
    m_Mutex.unlock();
}

Lock::Lock(const IMutex& mutex, const Elapse& timeout) : Lock(&mutex, timeout) {}

Lock::Lock(const IMutex* mutex, const Elapse& timeout) : m_Mutex(mutex)
{
    if (m_Mutex == nullptr)
    {
        // The source file and line are the ones this assertion has always been reported with.
        AssertFailed("m_Mutex != 0", CodeContext("KivCore/Lock", 99, __TIMESTAMP__,
                                                 "Kiv::Core::Lock::Lock", __PRETTY_FUNCTION__));
        return;
    }
    m_Locked = m_Mutex->Lock(timeout);
}

Lock::~Lock()
{
    if (m_Locked)
    {
        m_Mutex->Unlock();
    }
}

} // namespace Kiv::Core
