#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <thread>

#include "CollectingAlertHandler.h"
#include "Kiv/Core/Lock.h"

using namespace Kiv::Core;

namespace
{
// Tries the mutex from another thread with a short wait.
bool LockableFromOtherThread(const Mutex& mutex)
{
    return std::async(std::launch::async,
                      [&mutex]
                      {
                          Lock lock(mutex, Elapse(20, Elapse::MILLISECONDS));
                          return lock.IsLocked();
                      })
        .get();
}
} // namespace

TEST(Lock, OwnerMayLockAgain)
{
    Mutex mutex;
    Lock outer(mutex, Elapse::Unlimited());
    Lock inner(mutex, Elapse::Unlimited());
    EXPECT_TRUE(outer.IsLocked());
    EXPECT_TRUE(inner.IsLocked());
}

TEST(Lock, ExcludesOtherThreadsUntilEveryLevelIsReleased)
{
    Mutex mutex;
    {
        Lock outer(mutex, Elapse::Unlimited());
        {
            Lock inner(mutex, Elapse::Unlimited());
            EXPECT_FALSE(LockableFromOtherThread(mutex));
        }
        EXPECT_FALSE(LockableFromOtherThread(mutex)) << "outer level still held";
    }
    EXPECT_TRUE(LockableFromOtherThread(mutex));
}

TEST(Lock, CountersIncrementedUnderTheLockLoseNothing)
{
    Mutex mutex;
    long counter = 0;
    auto work = [&]
    {
        for (int i = 0; i < 20000; ++i)
        {
            Lock lock(mutex, Elapse::Unlimited());
            ++counter;
        }
    };
    std::thread a(work), b(work);
    a.join();
    b.join();
    EXPECT_EQ(counter, 40000);
}

TEST(Lock, NullMutexReportsTheAssertionAndLocksNothing)
{
    KivTest::ScopedAlertCollector alerts;
    const IMutex* none = nullptr;
    Lock lock(none, Elapse::Unlimited());
    EXPECT_FALSE(lock.IsLocked());
    const auto records = alerts->Records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].kind, "assert");
    EXPECT_EQ(records[0].message, "m_Mutex != 0");
    EXPECT_EQ(records[0].context.GetSourceFile(), "KivCore/Lock");
    EXPECT_EQ(records[0].context.GetLine(), 99);
    EXPECT_EQ(records[0].context.GetShortFunctionName(), "Kiv::Core::Lock::Lock");
    EXPECT_NE(records[0].context.GetFunctionSignature().find("Lock::Lock("), std::string::npos);
}

TEST(Elapse, TheLargestCountWaitsWithoutLimitInEveryUnit)
{
    for (int unit = Elapse::NANOSECONDS; unit <= Elapse::HOURS; ++unit)
    {
        EXPECT_TRUE(Elapse(Elapse::INFINITE, unit).IsUnlimited()) << unit;
    }
    EXPECT_FALSE(Elapse(Elapse::INFINITE - 1, Elapse::SECONDS).IsUnlimited());
    EXPECT_EQ(Elapse(3, Elapse::MILLISECONDS).ToDuration(), std::chrono::milliseconds(3));
    EXPECT_EQ(Elapse(-5, Elapse::SECONDS).ToDuration(), std::chrono::nanoseconds(0));
}

TEST(Elapse, CountsTooLargeForNanosecondsGiveTheLongestWait)
{
    using namespace std::chrono;
    const std::int32_t largest = Elapse::INFINITE - 1;
    const struct
    {
        std::int32_t count;
        int unit;
        nanoseconds expected;
    } cases[] = {
        {largest, Elapse::NANOSECONDS, nanoseconds(largest)},
        {largest, Elapse::SECONDS, seconds(largest)}, // 68 years still fit
        {largest, Elapse::MINUTES, nanoseconds::max()},
        {1000000000, Elapse::MINUTES, nanoseconds::max()},
        {largest, Elapse::HOURS, nanoseconds::max()},
        {2, Elapse::HOURS, hours(2)},
    };
    for (const auto& c : cases)
    {
        EXPECT_EQ(Elapse(c.count, c.unit).ToDuration(), c.expected) << c.count << " in " << c.unit;
    }
}

TEST(Lock, AWaitTooLongToMeasureStillWaits)
{
    Mutex mutex;
    auto held = std::make_unique<Lock>(mutex, Elapse::Unlimited());
    std::atomic<bool> started{false};
    auto waiter = std::async(std::launch::async,
                             [&]
                             {
                                 started = true;
                                 Lock lock(mutex, Elapse(Elapse::INFINITE - 1, Elapse::HOURS));
                                 return lock.IsLocked();
                             });
    while (!started)
    {
        std::this_thread::yield();
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20)); // let it start waiting
    held.reset();
    EXPECT_TRUE(waiter.get()) << "the wait ended before the mutex was free";
}
