#include "Kiv/Core/AllocationLimit.h"

#include <atomic>
#include <cstdlib>
#include <limits>

#include <unistd.h>

#include "Kiv/Core/Error.h"
#include "Kiv/Core/Warning.h"

namespace Kiv::Core
{

namespace
{

const char* const ALERT_ID = "Kiv.Core.Allocation";
const char* const LIMIT_VARIABLE = "KIV_MAX_ALLOC_MB";
constexpr std::uint64_t BYTES_PER_MIB = 1024 * 1024;
// Used when the system cannot tell its memory size.
constexpr std::uint64_t FALLBACK_LIMIT = 1024 * BYTES_PER_MIB;
// Zero is never a valid limit, so it marks "not decided yet".
constexpr std::uint64_t UNDECIDED = 0;

std::atomic<std::uint64_t> g_Limit{UNDECIDED};

std::uint64_t HalfOfPhysicalMemory()
{
    const long pages = sysconf(_SC_PHYS_PAGES);
    const long pageSize = sysconf(_SC_PAGE_SIZE);
    std::uint64_t total = 0;
    if (pages <= 0 || pageSize <= 0 ||
        !MultiplyWithoutOverflow(static_cast<std::uint64_t>(pages),
                                 static_cast<std::uint64_t>(pageSize), total) ||
        total < 2)
    {
        return FALLBACK_LIMIT;
    }
    return total / 2;
}

// Accepts digits only: a sign, spaces or a unit suffix would hide a typo.
bool ParseMegabytes(const std::string& text, std::uint64_t& bytes)
{
    if (text.empty())
    {
        return false;
    }
    std::uint64_t megabytes = 0;
    for (const char c : text)
    {
        if (c < '0' || c > '9')
        {
            return false;
        }
        const auto digit = static_cast<std::uint64_t>(c - '0');
        if (!MultiplyWithoutOverflow(megabytes, 10, megabytes) ||
            megabytes > std::numeric_limits<std::uint64_t>::max() - digit)
        {
            return false;
        }
        megabytes += digit;
    }
    return megabytes != 0 && MultiplyWithoutOverflow(megabytes, BYTES_PER_MIB, bytes);
}

void WarnInvalidLimit(const std::string& text)
{
    Warning warning;
    warning.SetData(AlertInfo::sMESSAGE, std::string(LIMIT_VARIABLE) + "=\"" + text +
                                             "\" is not a positive whole number of MiB; "
                                             "keeping the default allocation limit");
    warning.RaiseWarning(KIV_CODE_CONTEXT, ALERT_ID);
}

std::uint64_t LimitFromEnvironment()
{
    const char* const text = std::getenv(LIMIT_VARIABLE);
    if (text == nullptr)
    {
        return HalfOfPhysicalMemory();
    }
    std::uint64_t bytes = 0;
    if (!ParseMegabytes(text, bytes))
    {
        WarnInvalidLimit(text);
        return HalfOfPhysicalMemory();
    }
    return bytes;
}

} // namespace

std::uint64_t GetMaxAllocationBytes()
{
    std::uint64_t limit = g_Limit.load();
    if (limit != UNDECIDED)
    {
        return limit;
    }
    // Two threads may both read the environment; the first store wins, and a limit set
    // through the API in the meantime is kept.
    const std::uint64_t decided = LimitFromEnvironment();
    if (g_Limit.compare_exchange_strong(limit, decided))
    {
        return decided;
    }
    return limit;
}

void SetMaxAllocationBytes(std::uint64_t bytes)
{
    if (bytes == 0)
    {
        LogicError("The allocation limit must be at least one byte")
            .RaiseError(KIV_CODE_CONTEXT, ALERT_ID, false);
    }
    g_Limit.store(bytes);
}

void ResetMaxAllocationBytes()
{
    g_Limit.store(UNDECIDED);
}

void CheckAllocation(std::uint64_t bytes, const std::string& what)
{
    const std::uint64_t limit = GetMaxAllocationBytes();
    if (bytes <= limit)
    {
        return;
    }
    AllocationFailed(what + " (" + std::to_string(bytes) + " bytes, limit " +
                     std::to_string(limit) + ")")
        .RaiseError(KIV_CODE_CONTEXT, ALERT_ID, false);
}

bool MultiplyWithoutOverflow(std::uint64_t a, std::uint64_t b, std::uint64_t& product)
{
    if (a != 0 && b > std::numeric_limits<std::uint64_t>::max() / a)
    {
        return false;
    }
    product = a * b;
    return true;
}

} // namespace Kiv::Core
