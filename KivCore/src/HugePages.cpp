#include "Kiv/Core/HugePages.h"

#include <cstdlib>
#include <new>

#include <sys/mman.h>
#include <unistd.h>

namespace Kiv::Core
{

void AdviseHugePages(void* data, std::size_t bytes)
{
    if (data == nullptr || bytes < HUGE_PAGE_MIN_BUFFER)
    {
        return;
    }
    const auto begin = reinterpret_cast<std::uintptr_t>(data);
    const std::uintptr_t first = (begin + HUGE_PAGE_SIZE - 1) & ~(HUGE_PAGE_SIZE - 1);
    const std::uintptr_t last = (begin + bytes) & ~(HUGE_PAGE_SIZE - 1);
    if (last <= first)
    {
        return;
    }
    // A refusal (no transparent huge pages in this kernel) leaves ordinary pages, which work.
    static_cast<void>(::madvise(reinterpret_cast<void*>(first), last - first, MADV_HUGEPAGE));
}

void PrepareForBulkRead(void* data, std::size_t bytes)
{
    AdviseHugePages(data, bytes);
    // Below a few pages one call costs more than the faults it saves.
    constexpr std::size_t POPULATE_MIN_BUFFER = std::size_t{64} << 10;
    if (data == nullptr || bytes < POPULATE_MIN_BUFFER)
    {
        return;
    }
    // Whole pages inside the storage only: the partial pages at its ends may belong to other
    // allocations, and the read faults those two in itself.
    const auto pageSize = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
    const auto begin = reinterpret_cast<std::uintptr_t>(data);
    const std::uintptr_t first = (begin + pageSize - 1) & ~(pageSize - 1);
    const std::uintptr_t last = (begin + bytes) & ~(pageSize - 1);
    if (last > first)
    {
        static_cast<void>(
            ::madvise(reinterpret_cast<void*>(first), last - first, MADV_POPULATE_WRITE));
    }
}

void HugePageFree::operator()(char* block) const noexcept
{
    std::free(block);
}

HugePageBuffer AllocateHugePageBuffer(std::size_t bytes)
{
    // aligned_alloc wants a size that is a multiple of the alignment.
    const std::size_t rounded =
        bytes == 0 ? HUGE_PAGE_SIZE : (bytes + HUGE_PAGE_SIZE - 1) & ~(HUGE_PAGE_SIZE - 1);
    if (rounded < bytes)
    {
        throw std::bad_alloc();
    }
    void* const block = std::aligned_alloc(HUGE_PAGE_SIZE, rounded);
    if (block == nullptr)
    {
        throw std::bad_alloc();
    }
    AdviseHugePages(block, rounded);
    return HugePageBuffer(static_cast<char*>(block));
}

} // namespace Kiv::Core
