#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Pelrix
{

// Whether one of a few markers stands within the first lines of a stream that arrives in
// blocks. Only the last (longest marker - 1) bytes are carried from one block to the next, so
// the memory used is the same for a file of short lines and for gigabytes without a line feed.
// The markers hold no line feed, so a marker "in one of the first N lines" is exactly a marker
// that ends before the Nth line feed.
class FirstLinesSearch
{
public:
    // The markers are not empty. dropCarriageReturns: look at the lines as the header reader sees
    // them, with every carriage return left out wherever it stands.
    FirstLinesSearch(std::vector<std::string> markers, int lines, bool dropCarriageReturns);

    // Looks at the stream's next bytes; true once the answer is known.
    bool Feed(const char* bytes, std::size_t size);
    // The next bytes are all zero (a hole, say): no line ends there and no marker can reach
    // into them or start in them, so they need not be looked at.
    void SkipZeros();
    // The stream has ended: whatever was not found is not there.
    void End() { m_Decided = true; }

    bool Decided() const { return m_Decided; }
    bool Found() const { return m_Found; }

private:
    bool HoldsMarker(const char* text, std::size_t size) const;
    void Carry(const char* text, std::size_t size);

    std::vector<std::string> m_Markers;
    std::size_t m_Overlap = 0;
    int m_LinesLeft;
    bool m_DropCarriageReturns;
    bool m_Found = false;
    bool m_Decided = false;
    std::string m_Carried;
    std::string m_Joint;
    std::string m_WithoutReturns;
};

// The first block a search reads: nearly every file's first lines end within it.
constexpr std::uint64_t FIRST_LINES_BLOCK = 16384;

// Runs a search over bytes [start, end) of a file (start 0, or where an earlier call stopped), in
// blocks read by position, skipping holes; the end of the file ends the search. Returns false
// when the file cannot be read; the search then holds what was seen until then.
bool SearchFile(int descriptor, FirstLinesSearch& search, std::uint64_t start = 0,
                std::uint64_t end = UINT64_MAX);

} // namespace Pelrix
