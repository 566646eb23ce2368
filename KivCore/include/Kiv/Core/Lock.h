#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>

namespace Kiv::Core
{

// A waiting time: a count of some time unit. The count INFINITE waits without limit,
// whatever the unit.
class Elapse
{
public:
    enum ETimeUnit
    {
        NANOSECONDS = 0,
        MICROSECONDS = 1,
        MILLISECONDS = 2,
        SECONDS = 3,
        MINUTES = 4,
        HOURS = 5,
    };
    static constexpr std::int32_t INFINITE = 0x7FFFFFFF;

    Elapse() = default;
    Elapse(std::int32_t count, int timeUnit) : m_Count(count), m_TimeUnit(timeUnit) {}

    // The wait every lock of the host and the plug-in uses.
    static Elapse Unlimited() { return Elapse(INFINITE, SECONDS); }

    std::int32_t GetCount() const { return m_Count; }
    int GetTimeUnit() const { return m_TimeUnit; }
    bool IsUnlimited() const { return m_Count == INFINITE; }
    // The wait as a duration; a negative count waits not at all, and one too large for
    // nanoseconds gives the largest duration. Meaningless when unlimited.
    std::chrono::nanoseconds ToDuration() const;

private:
    std::int32_t m_Count = 0;
    int m_TimeUnit = MILLISECONDS;
};

class IMutex
{
public:
    virtual ~IMutex() = default;
    // True when the calling thread now holds the mutex.
    virtual bool Lock(const Elapse& timeout) const = 0;
    virtual void Unlock() const = 0;
};

// A re-entrant timed mutex: the thread that holds it may lock it again. A wait longer than a
// hundred years is taken as a wait without limit.
class Mutex : public IMutex
{
public:
    Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    bool Lock(const Elapse& timeout) const override;
    void Unlock() const override;

private:
    mutable std::recursive_timed_mutex m_Mutex;
};

// Holds a mutex for its lifetime. A null mutex is reported as a failed assertion and
// nothing is locked.
class Lock
{
public:
    Lock(const IMutex& mutex, const Elapse& timeout);
    Lock(const IMutex* mutex, const Elapse& timeout);
    ~Lock();
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

    bool IsLocked() const { return m_Locked; }

private:
    const IMutex* m_Mutex;
    bool m_Locked = false;
};

} // namespace Kiv::Core
