#include "Kiv/Core/HugePages.h"

#include <cstdlib>
#include <new>

#include <sys/mman.h>
#include <unistd.h>

namespace Kiv::Core
{

namespace
{
// The whole pages that hold [data, data + bytes): the partial pages at the ends belong to the
// same mapping as the buffer (a malloc chunk's header, or its neighbours on the heap).
struct PageSpan
{
    std::uintptr_t first;
    std::uintptr_t last;
};

PageSpan PagesHolding(const void* data, std::size_t bytes)
{
    const auto pageSize = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
    const auto begin = reinterpret_cast<std::uintptr_t>(data);
    return {begin & ~(pageSize - 1), (begin + bytes + pageSize - 1) & ~(pageSize - 1)};
}

std::uintptr_t HugePageUp(std::uintptr_t address)
{
    return (address + HUGE_PAGE_SIZE - 1) & ~(HUGE_PAGE_SIZE - 1);
}

std::uintptr_t HugePageDown(std::uintptr_t address)
{
    return address & ~(HUGE_PAGE_SIZE - 1);
}

void Populate(std::uintptr_t first, std::uintptr_t last)
{
    if (last > first)
    {
        // Advice as well: a kernel without the call faults the pages in during the read.
        static_cast<void>(
            ::madvise(reinterpret_cast<void*>(first), last - first, MADV_POPULATE_WRITE));
    }
}
} // namespace

void AdviseHugePages(void* data, std::size_t bytes)
{
    if (data == nullptr || bytes < HUGE_PAGE_MIN_BUFFER)
    {
        return;
    }
    // The kernel backs every 2 MiB-aligned block that lies wholly inside the advised pages with a
    // huge page. Advising the pages up to the buffer's ends rather than only its aligned
    // interior also wins the block at an end when the buffer's mapping ends on a boundary.
    const PageSpan pages = PagesHolding(data, bytes);
    // A refusal (no transparent huge pages in this kernel) leaves ordinary pages, which work.
    static_cast<void>(
        ::madvise(reinterpret_cast<void*>(pages.first), pages.last - pages.first, MADV_HUGEPAGE));
}

void PrepareForBulkRead(void* data, std::size_t bytes)
{
    // Below a few pages one call costs more than the faults it saves.
    constexpr std::size_t POPULATE_MIN_BUFFER = std::size_t{64} << 10;
    if (data == nullptr || bytes < POPULATE_MIN_BUFFER)
    {
        return;
    }
    AdviseHugePages(data, bytes);
    const PageSpan pages = PagesHolding(data, bytes);
    const std::uintptr_t hugeFirst = HugePageUp(pages.first);
    const std::uintptr_t hugeLast = HugePageDown(pages.last);
    if (bytes < HUGE_PAGE_MIN_BUFFER || hugeLast <= hugeFirst)
    {
        Populate(pages.first, pages.last);
        return;
    }
    // Only the small pages at the ends: a huge page is best faulted by the read itself, which
    // then copies into the 2 MiB the kernel has just cleared while they are still in the cache.
    Populate(pages.first, hugeFirst);
    Populate(hugeLast, pages.last);
}

void HugePageFree::operator()(char* block) const noexcept
{
    std::free(block);
}

HugePageBuffer AllocateHugePageBuffer(std::size_t bytes)
{
    // aligned_alloc wants a size that is a multiple of the alignment.
    const std::size_t rounded = bytes == 0 ? HUGE_PAGE_SIZE : HugePageUp(bytes);
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
