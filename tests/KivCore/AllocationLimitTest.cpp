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

// Sets (or, with a null value, removes) KIV_MAX_ALLOC_MB for one test and forgets any limit
// decided before, so that the next use reads the variable; both are undone afterwards.
class ScopedLimitVariable
{
public:
    explicit ScopedLimitVariable(const char* value)
    {
        if (const char* const old = std::getenv(NAME))
        {
            m_Old = old;
        }
        if (value != nullptr)
        {
            setenv(NAME, value, 1);
        }
        else
        {
            unsetenv(NAME);
        }
        ResetMaxAllocationBytes();
    }
    ~ScopedLimitVariable()
    {
        if (m_Old)
        {
            setenv(NAME, m_Old->c_str(), 1);
        }
        else
        {
            unsetenv(NAME);
        }
        ResetMaxAllocationBytes();
    }

private:
    static constexpr const char* NAME = "KIV_MAX_ALLOC_MB";
    std::optional<std::string> m_Old;
};

std::uint64_t HalfOfPhysicalMemory()
{
    return static_cast<std::uint64_t>(sysconf(_SC_PHYS_PAGES)) *
           static_cast<std::uint64_t>(sysconf(_SC_PAGE_SIZE)) / 2;
}

} // namespace

TEST(AllocationLimit, DefaultIsHalfOfPhysicalMemory)
{
    ScopedLimitVariable unset(nullptr);
    EXPECT_EQ(GetMaxAllocationBytes(), HalfOfPhysicalMemory());
}

TEST(AllocationLimit, EnvironmentGivesWholeMebibytes)
{
    struct Case
    {
        const char* value;
        std::uint64_t bytes;
    };
    const Case cases[] = {
        {"1", MIB},
        {"64", 64 * MIB},
        {"007", 7 * MIB},
        // The largest count whose bytes still fit in 64 bits: (2^44 - 1) MiB.
        {"17592186044415", (MAX / MIB) * MIB},
    };
    for (const auto& c : cases)
    {
        ScopedLimitVariable variable(c.value);
        KivTest::ScopedAlertCollector alerts;
        EXPECT_EQ(GetMaxAllocationBytes(), c.bytes) << c.value;
        EXPECT_EQ(alerts->Count("warning"), 0u) << c.value;
    }
}

TEST(AllocationLimit, InvalidEnvironmentKeepsTheDefaultAndWarns)
{
    const char* const invalid[] = {
        "",
        "0",
        "000",
        "-5",
        "+5",
        " 5",
        "5 ",
        "5M",
        "1.5",
        "abc",
        "17592186044416", // 2^44 MiB is 2^64 bytes
        "99999999999999999999999",
    };
    for (const char* value : invalid)
    {
        ScopedLimitVariable variable(value);
        KivTest::ScopedAlertCollector alerts;
        EXPECT_EQ(GetMaxAllocationBytes(), HalfOfPhysicalMemory()) << '"' << value << '"';
        const auto records = alerts->Records();
        ASSERT_EQ(records.size(), 1u) << '"' << value << '"';
        EXPECT_EQ(records[0].kind, "warning");
        EXPECT_NE(records[0].message.find(std::string("KIV_MAX_ALLOC_MB=\"") + value + "\""),
                  std::string::npos)
            << records[0].message;
    }
}

TEST(AllocationLimit, EnvironmentIsReadOnceAtFirstUse)
{
    ScopedLimitVariable variable("10");
    EXPECT_EQ(GetMaxAllocationBytes(), 10 * MIB);
    setenv("KIV_MAX_ALLOC_MB", "20", 1);
    EXPECT_EQ(GetMaxAllocationBytes(), 10 * MIB);
}

TEST(AllocationLimit, ApiSettingWinsOverTheEnvironmentUntilReset)
{
    ScopedLimitVariable variable("10");
    SetMaxAllocationBytes(12345);
    EXPECT_EQ(GetMaxAllocationBytes(), 12345u);
    ResetMaxAllocationBytes();
    EXPECT_EQ(GetMaxAllocationBytes(), 10 * MIB);

    KivTest::ScopedAlertCollector alerts;
    EXPECT_THROW(SetMaxAllocationBytes(0), LogicError);
    EXPECT_EQ(GetMaxAllocationBytes(), 10 * MIB) << "a rejected limit changes nothing";
}

TEST(AllocationLimit, CheckAllocationRaisesAllocationFailedPastTheLimit)
{
    ScopedLimitVariable variable(nullptr);
    SetMaxAllocationBytes(1000);
    EXPECT_NO_THROW(CheckAllocation(0, "nothing"));
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
    EXPECT_THROW(CheckAllocation(MAX, "everything"), OSError) << "catchable as its base";
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
        {MAX, 0, true, 0},
        {1, MAX, true, MAX},
        {MAX, 1, true, MAX},
        {2, MAX, false, 0},
        {twoTo32, twoTo32, false, 0},
        {twoTo32, twoTo32 - 1, true, MAX - twoTo32 + 1}, // 2^64 - 2^32
        {3, MAX / 3, true, MAX},                         // 2^64 - 1 is divisible by 3
        {3, MAX / 3 + 1, false, 0},
        {512, 75, true, 38400},
    };
    for (const auto& c : cases)
    {
        std::uint64_t product = 7;
        EXPECT_EQ(MultiplyWithoutOverflow(c.a, c.b, product), c.fits) << c.a << " * " << c.b;
        EXPECT_EQ(product, c.fits ? c.product : 7u) << c.a << " * " << c.b;
    }
}
