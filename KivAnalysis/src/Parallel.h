#pragma once

#include <cstddef>
#include <functional>

namespace Kiv::Analysis::Detail
{

// Passes over an image go in fixed blocks of rows, and each block keeps its own sums, which are
// combined in block order afterwards: the figures come out the same to the last bit however
// many threads did the work.
struct RowBlocks
{
    std::size_t rows = 0;
    std::size_t rowsPerBlock = 1;

    std::size_t Count() const { return (rows + rowsPerBlock - 1) / rowsPerBlock; }
    std::size_t Begin(std::size_t block) const { return block * rowsPerBlock; }
    std::size_t End(std::size_t block) const
    {
        const std::size_t end = (block + 1) * rowsPerBlock;
        return end < rows ? end : rows;
    }
};

RowBlocks MakeRowBlocks(std::size_t rows, std::size_t columns);

// The threads a pass over that many pixels is worth: one for small images, where starting a
// thread costs more than it saves.
unsigned ThreadsFor(std::size_t pixels);

// Calls work(block, thread) once for every block, on `threads` threads (thread < threads).
void RunBlocks(const RowBlocks& blocks, unsigned threads,
               const std::function<void(std::size_t block, unsigned thread)>& work);

} // namespace Kiv::Analysis::Detail
