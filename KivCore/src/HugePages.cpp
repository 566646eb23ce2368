#include "Kiv/Core/HugePages.h"

#include <cstdlib>
#include <new>

#include <sys/mman.h>

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
