#include "Kiv/Core/Lock.h"

#include "Kiv/Core/Warning.h"

namespace Kiv::Core
{

namespace
{
// Timed waits longer than this are waited for without limit: the standard library adds the
// wait to the clock's present time, which overflows for durations near the largest one.
constexpr std::chrono::hours LONGEST_TIMED_WAIT(24 * 365 * 100);

// count units as nanoseconds, or the largest nanosecond count when it does not fit.
template <class Unit>
std::chrono::nanoseconds ClampedToNanoseconds(std::int64_t count)
{
    using std::chrono::nanoseconds;
    constexpr std::int64_t nanosecondsPerUnit =
        std::chrono::duration_cast<nanoseconds>(Unit(1)).count();
    if (count > nanoseconds::max().count() / nanosecondsPerUnit)
    {
        return nanoseconds::max();
    }
    return nanoseconds(count * nanosecondsPerUnit);
}
} // namespace

std::chrono::nanoseconds Elapse::ToDuration() const
{
    using namespace std::chrono;
    const auto count = static_cast<std::int64_t>(m_Count < 0 ? 0 : m_Count);
    switch (m_TimeUnit)
    {
    case NANOSECONDS:
        return nanoseconds(count);
    case MICROSECONDS:
        return ClampedToNanoseconds<microseconds>(count);
    case MILLISECONDS:
        return ClampedToNanoseconds<milliseconds>(count);
    case SECONDS:
        return ClampedToNanoseconds<seconds>(count);
    case MINUTES:
        return ClampedToNanoseconds<minutes>(count);
    case HOURS:
        return ClampedToNanoseconds<hours>(count);
    default:
        return ClampedToNanoseconds<milliseconds>(count);
    }
}

bool Mutex::Lock(const Elapse& timeout) const
{
    if (timeout.IsUnlimited() || timeout.ToDuration() > LONGEST_TIMED_WAIT)
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
        AssertFailed("m_Mutex != 0", CodeContext("KivCore/Lock", 99, KIV_SOURCE_TIME_STAMP,
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
