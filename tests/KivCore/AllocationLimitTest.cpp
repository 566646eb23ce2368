#include <cstdlib>
#include <limits>
#include <optional>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

#include "CollectingAlertHandler.h"
#include "Kiv/Core/AllocationLimit.h"
#include "Kiv/Core/Error.h"

using namespace Kiv::Core;

namespace
{

constexpr std::uint64_t MIB = 1024 * 1024;
constexpr std::uint64_t MAX = std::numeric_limits<std::uint64_t>::max();

// Sets (or, with a null value, removes) KIV_MAX_ALLOC_MB for one scope and forgets the limit
// decided before, so that the next use reads the variable; both are undone afterwards.
class ScopedLimitVariable
{
public:
    explicit ScopedLimitVariable(const char* value)
    {
        if (const char* const old = std::getenv("KIV_MAX_ALLOC_MB"))
        {
            m_Old = old;
        }
        Set(value);
    }
    ~ScopedLimitVariable() { Set(m_Old ? m_Old->c_str() : nullptr); }

private:
    static void Set(const char* value)
    {
        value != nullptr ? setenv("KIV_MAX_ALLOC_MB", value, 1) : unsetenv("KIV_MAX_ALLOC_MB");
        ResetMaxAllocationBytes();
    }

    std::optional<std::string> m_Old;
};

std::uint64_t HalfOfPhysicalMemory()
{
    return static_cast<std::uint64_t>(sysconf(_SC_PHYS_PAGES)) *
           static_cast<std::uint64_t>(sysconf(_SC_PAGE_SIZE)) / 2;
}

} // namespace

TEST(AllocationLimit, EnvironmentGivesWholeMebibytesOrTheDefault)
{
    struct Case
    {
        const char* value; // null: not set
        std::uint64_t bytes;
        bool warns;
    };
    const std::uint64_t half = HalfOfPhysicalMemory();
    const Case cases[] = {
        {nullptr, half, false},
        {"1", MIB, false},
        {"64", 64 * MIB, false},
        {"007", 7 * MIB, false},
        // (2^44 - 1) MiB is the largest that fits in 64 bits; 2^44 MiB is 2^64 bytes.
        {"17592186044415", (MAX / MIB) * MIB, false},
        {"17592186044416", half, true},
        {"99999999999999999999999", half, true},
        {"", half, true},
        {"0", half, true},
        {"000", half, true},
        {"-5", half, true},
        {"+5", half, true},
        {" 5", half, true},
        {"5 ", half, true},
        {"5M", half, true},
        {"1.5", half, true},
        {"abc", half, true}};
    for (const auto& c : cases)
    {
        const std::string shown = c.value != nullptr ? '"' + std::string(c.value) + '"' : "unset";
        ScopedLimitVariable variable(c.value);
        KivTest::ScopedAlertCollector alerts;
        EXPECT_EQ(GetMaxAllocationBytes(), c.bytes) << shown;
        const auto records = alerts->Records();
        ASSERT_EQ(records.size(), c.warns ? 1u : 0u) << shown;
        if (c.warns)
        {
            EXPECT_EQ(records[0].kind, "warning");
            EXPECT_NE(records[0].message.find("KIV_MAX_ALLOC_MB=" + shown), std::string::npos)
                << records[0].message;
        }
    }
}

TEST(AllocationLimit, EnvironmentIsReadOnceAndTheApiWinsUntilReset)
{
    ScopedLimitVariable variable("10");
    EXPECT_EQ(GetMaxAllocationBytes(), 10 * MIB);
    setenv("KIV_MAX_ALLOC_MB", "20", 1);
    EXPECT_EQ(GetMaxAllocationBytes(), 10 * MIB) << "read at first use only";

    SetMaxAllocationBytes(12345);
    EXPECT_EQ(GetMaxAllocationBytes(), 12345u);
    ResetMaxAllocationBytes();
    EXPECT_EQ(GetMaxAllocationBytes(), 20 * MIB);

    KivTest::ScopedAlertCollector alerts;
    EXPECT_THROW(SetMaxAllocationBytes(0), LogicError);
    EXPECT_EQ(GetMaxAllocationBytes(), 20 * MIB) << "a rejected limit changes nothing";
}

TEST(AllocationLimit, CheckAllocationRaisesAllocationFailedPastTheLimit)
{
    ScopedLimitVariable variable(nullptr);
    SetMaxAllocationBytes(1000);
    EXPECT_NO_THROW(CheckAllocation(1000, "exactly the limit"));

    KivTest::ScopedAlertCollector alerts;
    try
    {
        CheckAllocation(1001, "image data of topo.flt");
        FAIL() << "no error";
    }
    catch (const AllocationFailed& error)
    {
        EXPECT_EQ(error.GetMessage(),
                  "Attempt to allocate image data of topo.flt (1001 bytes, limit 1000) failed");
        EXPECT_EQ(error.GetAlertId(), "Kiv.Core.Allocation");
    }
}

TEST(AllocationLimit, MultiplyWithoutOverflow)
{
    struct Case
    {
        std::uint64_t a;
        std::uint64_t b;
        bool fits;
        std::uint64_t product;
    };
    const std::uint64_t twoTo32 = std::uint64_t{1} << 32;
    const Case cases[] = {
        {0, MAX, true, 0},
        {MAX, 1, true, MAX},
        {2, MAX, false, 0},
        {twoTo32, twoTo32, false, 0},
        {twoTo32, twoTo32 - 1, true, MAX - twoTo32 + 1}, // 2^64 - 2^32
        {3, MAX / 3, true, MAX},                         // 2^64 - 1 is divisible by 3
        {3, MAX / 3 + 1, false, 0},
    };
    for (const auto& c : cases)
    {
        std::uint64_t product = 7;
        EXPECT_EQ(MultiplyWithoutOverflow(c.a, c.b, product), c.fits) << c.a << " * " << c.b;
        EXPECT_EQ(product, c.fits ? c.product : 7u) << c.a << " * " << c.b;
    }
}
