#include <gtest/gtest.h>

#include <atomic>
#include <future>
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
