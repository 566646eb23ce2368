#include "FirstLinesSearch.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include <unistd.h>

namespace Pelrix
{

FirstLinesSearch::FirstLinesSearch(std::vector<std::string> markers, int lines,
                                   bool dropCarriageReturns)
    : m_Markers(std::move(markers)), m_LinesLeft(lines), m_DropCarriageReturns(dropCarriageReturns)
{
    for (const auto& marker : m_Markers)
    {
        m_Overlap = std::max(m_Overlap, marker.size() - 1);
    }
    m_Decided = m_LinesLeft <= 0;
}

bool FirstLinesSearch::Feed(const char* bytes, std::size_t size)
{
    if (m_Decided)
    {
        return true;
    }
    // Only what comes before the last line feed that still counts belongs to the lines.
    std::size_t length = size;
    for (const char* at = bytes; at != bytes + size;)
    {
        const auto* feed = static_cast<const char*>(std::memchr(at, '\n', bytes + size - at));
        if (feed == nullptr)
        {
            break;
        }
        if (--m_LinesLeft == 0)
        {
            length = static_cast<std::size_t>(feed - bytes);
            m_Decided = true;
            break;
        }
        at = feed + 1;
    }
    const char* text = bytes;
    if (m_DropCarriageReturns && std::memchr(bytes, '\r', length) != nullptr)
    {
        m_WithoutReturns.clear();
        std::copy_if(bytes, bytes + length, std::back_inserter(m_WithoutReturns),
                     [](char c) { return c != '\r'; });
        text = m_WithoutReturns.data();
        length = m_WithoutReturns.size();
    }
    // A marker across the joint of the carried bytes and these, then one wholly in these.
    m_Joint = m_Carried;
    m_Joint.append(text, std::min(length, m_Overlap));
    if (HoldsMarker(m_Joint.data(), m_Joint.size()) || HoldsMarker(text, length))
    {
        m_Found = true;
        m_Decided = true;
        return true;
    }
    Carry(text, length);
    return m_Decided;
}

void FirstLinesSearch::SkipZeros()
{
    m_Carried.clear();
}

bool FirstLinesSearch::HoldsMarker(const char* text, std::size_t size) const
{
    // memchr finds the marker's first character at memory speed; a block of samples rarely
    // holds it, so the comparisons behind it cost nothing there.
    const char* const end = text + size;
    for (const auto& marker : m_Markers)
    {
        for (const char* at = text; marker.size() <= static_cast<std::size_t>(end - at); ++at)
        {
            at = static_cast<const char*>(
                std::memchr(at, marker[0], static_cast<std::size_t>(end - at) - marker.size() + 1));
            if (at == nullptr)
            {
                break;
            }
            if (std::memcmp(at, marker.data(), marker.size()) == 0)
            {
                return true;
            }
        }
    }
    return false;
}

void FirstLinesSearch::Carry(const char* text, std::size_t size)
{
    if (size >= m_Overlap)
    {
        m_Carried.assign(text + size - m_Overlap, m_Overlap);
        return;
    }
    m_Carried.append(text, size);
    if (m_Carried.size() > m_Overlap)
    {
        m_Carried.erase(0, m_Carried.size() - m_Overlap);
    }
}

bool SearchFile(int descriptor, FirstLinesSearch& search, std::uint64_t start, std::uint64_t end)
{
    // Every file a batch opens is searched twice, nearly always within its first block: the
    // large block is allocated only for the rare long run without a line feed.
    constexpr std::size_t LARGEST_BLOCK = std::size_t{1} << 20;
    std::size_t blockSize = start == 0 ? FIRST_LINES_BLOCK : LARGEST_BLOCK;
    std::unique_ptr<char[]> block(new char[blockSize]);
    auto position = static_cast<off_t>(start);
    while (!search.Decided() && static_cast<std::uint64_t>(position) < end)
    {
        if (static_cast<std::uint64_t>(position) != start && blockSize < LARGEST_BLOCK)
        {
            blockSize = LARGEST_BLOCK;
            block.reset(new char[blockSize]);
        }
        const auto wanted = static_cast<std::size_t>(
            std::min<std::uint64_t>(blockSize, end - static_cast<std::uint64_t>(position)));
        const ssize_t got = ::pread(descriptor, block.get(), wanted, position);
        if (got < 0 && errno == EINTR)
        {
            continue;
        }
        if (got < 0)
        {
            return false;
        }
        if (got == 0)
        {
            search.End();
            break;
        }
        if (search.Feed(block.get(), static_cast<std::size_t>(got)))
        {
            break;
        }
        position += got;
        // A hole reads as zeros: skip to the next data, or to the end when none follows.
        const off_t data = ::lseek(descriptor, position, SEEK_DATA);
        if (data > position)
        {
            search.SkipZeros();
            position = data;
        }
        else if (data < 0 && errno == ENXIO)
        {
            search.End();
        }
    }
    return true;
}

} // namespace Pelrix
