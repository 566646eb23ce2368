#include "Parallel.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

namespace Kiv::Analysis::Detail
{

namespace
{
// Small enough to balance two threads, large enough that a block's bookkeeping is noise.
const std::size_t PIXELS_PER_BLOCK = 1 << 16;
const std::size_t PIXELS_PER_EXTRA_THREAD = 1 << 20;
} // namespace

RowBlocks MakeRowBlocks(std::size_t rows, std::size_t columns)
{
    RowBlocks blocks;
    blocks.rows = rows;
    blocks.rowsPerBlock =
        std::max<std::size_t>(1, PIXELS_PER_BLOCK / std::max<std::size_t>(1, columns));
    return blocks;
}

unsigned ThreadsFor(std::size_t pixels)
{
    // Asked once: the library reads it from the system's files each time.
    static const unsigned processors = std::max(1u, std::thread::hardware_concurrency());
    const std::size_t useful = std::max<std::size_t>(1, pixels / PIXELS_PER_EXTRA_THREAD);
    return static_cast<unsigned>(std::min<std::size_t>(processors, useful));
}

void RunBlocks(const RowBlocks& blocks, unsigned threads,
               const std::function<void(std::size_t block, unsigned thread)>& work)
{
    const std::size_t count = blocks.Count();
    threads = static_cast<unsigned>(std::min<std::size_t>(std::max(1u, threads), count));
    if (threads <= 1)
    {
        for (std::size_t block = 0; block < count; ++block)
        {
            work(block, 0);
        }
        return;
    }
    std::atomic<std::size_t> next{0};
    std::exception_ptr failure;
    std::mutex failureLock;
    const auto run = [&](unsigned thread)
    {
        try
        {
            for (std::size_t block = next++; block < count; block = next++)
            {
                work(block, thread);
            }
        }
        catch (...)
        {
            // Stop handing out blocks; the first failure is raised to the caller.
            next = count;
            const std::lock_guard<std::mutex> lock(failureLock);
            if (!failure)
            {
                failure = std::current_exception();
            }
        }
    };
    std::vector<std::thread> helpers;
    for (unsigned thread = 1; thread < threads; ++thread)
    {
        helpers.emplace_back(run, thread);
    }
    run(0);
    for (auto& helper : helpers)
    {
        helper.join();
    }
    if (failure)
    {
        std::rethrow_exception(failure);
    }
}

} // namespace Kiv::Analysis::Detail
