#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace Kiv::Core
{

// Filling fresh memory costs one page fault per 4 KiB page, which for a large bulk read takes
// far longer than the copy itself. These helpers let the kernel back large buffers with 2 MiB
// pages instead. They only advise: where huge pages are unavailable everything still works.

// Buffers smaller than this are not worth advising: they span no whole huge page, or so few
// that the faults saved do not pay for the call.
constexpr std::size_t HUGE_PAGE_SIZE = std::size_t{2} << 20;
constexpr std::size_t HUGE_PAGE_MIN_BUFFER = 2 * HUGE_PAGE_SIZE;

// Asks for huge pages on the 2 MiB-aligned blocks of [data, data + bytes). Call it on freshly
// allocated, not yet written storage (a matrix constructed without initialisation, say): pages
// already faulted in stay small.
void AdviseHugePages(void* data, std::size_t bytes);

// For storage about to be filled whole by one bulk read: the advice above, then the pages
// outside any huge page mapped ahead of the read. A read into unmapped memory takes a fault per
// page; a buffer from malloc is seldom 2 MiB-aligned, so its first and last stretch fall outside
// any huge page and cost hundreds of faults, each an expensive trap on a virtual machine.
void PrepareForBulkRead(void* data, std::size_t bytes);

// A block of bytes allocated on a 2 MiB boundary and advised as above. The contents start
// undefined. Throws std::bad_alloc when the memory cannot be had; the caller checks the
// allocation limit first, as for any buffer sized by a file.
struct HugePageFree
{
    void operator()(char* block) const noexcept;
};
using HugePageBuffer = std::unique_ptr<char[], HugePageFree>;
HugePageBuffer AllocateHugePageBuffer(std::size_t bytes);

} // namespace Kiv::Core
