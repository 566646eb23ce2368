#include "Kiv/DataCore/MemoryStreams.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "Kiv/Core/CodeContext.h"
#include "Kiv/Core/Error.h"

namespace Kiv::DataCore
{

namespace
{
const char* const ALERT_ID = "Kiv.DataCore.MemoryStream";

// The position that offset names from the given origin, or raises when it leaves [0, limit].
std::uint64_t ResolvePosition(std::int64_t offset, Kiv::Core::EMoveMethod from,
                              std::uint64_t current, std::uint64_t end, std::uint64_t limit)
{
    std::uint64_t origin = 0;
    switch (from)
    {
    case Kiv::Core::FROM_BEGIN:
        origin = 0;
        break;
    case Kiv::Core::FROM_CURRENT:
        origin = current;
        break;
    case Kiv::Core::FROM_END:
        origin = end;
        break;
    }
    const bool fits = offset < 0 ? static_cast<std::uint64_t>(-(offset + 1)) < origin
                                 : static_cast<std::uint64_t>(offset) <= limit - origin;
    if (!fits || origin > limit)
    {
        Kiv::Core::IOError(Kiv::Core::FormatAlertMessage(
                               "cannot move a memory stream of %1% bytes by %2% from position %3%",
                               end, offset, origin))
            .RaiseError(KIV_CODE_CONTEXT, ALERT_ID, false);
    }
    return offset < 0 ? origin - static_cast<std::uint64_t>(-(offset + 1)) - 1
                      : origin + static_cast<std::uint64_t>(offset);
}
} // namespace

MemoryInputStream::MemoryInputStream(const void* data, std::uint64_t size)
    : m_Data(static_cast<const char*>(data)), m_Size(data != nullptr ? size : 0)
{
}

MemoryInputStream::MemoryInputStream(const std::vector<char>& bytes)
    : MemoryInputStream(bytes.data(), bytes.size())
{
}

std::uint64_t MemoryInputStream::Read(void* buffer, std::uint64_t count)
{
    const std::uint64_t available = std::min(count, m_Size - m_Pos);
    if (available > 0)
    {
        std::memcpy(buffer, m_Data + m_Pos, static_cast<std::size_t>(available));
        m_Pos += available;
    }
    return available;
}

std::int64_t MemoryInputStream::GetInputPos() const
{
    return static_cast<std::int64_t>(m_Pos);
}

void MemoryInputStream::SetInputPos(std::int64_t offset, Kiv::Core::EMoveMethod from)
{
    m_Pos = ResolvePosition(offset, from, m_Pos, m_Size, m_Size);
}

void MemoryOutputStream::Write(const void* buffer, std::uint64_t count)
{
    if (count == 0)
    {
        return;
    }
    if (count > std::numeric_limits<std::size_t>::max() - m_Pos)
    {
        Kiv::Core::IOError(Kiv::Core::FormatAlertMessage(
                               "cannot write %1% more bytes into a memory stream", count))
            .RaiseError(KIV_CODE_CONTEXT, ALERT_ID, false);
    }
    const auto end = static_cast<std::size_t>(m_Pos + count);
    if (end > m_Bytes.size())
    {
        m_Bytes.resize(end, 0);
    }
    std::memcpy(m_Bytes.data() + m_Pos, buffer, static_cast<std::size_t>(count));
    m_Pos += count;
}

std::int64_t MemoryOutputStream::GetOutputPos() const
{
    return static_cast<std::int64_t>(m_Pos);
}

void MemoryOutputStream::SetOutputPos(std::int64_t offset, Kiv::Core::EMoveMethod from)
{
    m_Pos = ResolvePosition(offset, from, m_Pos, m_Bytes.size(),
                            static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()));
}

std::vector<char> MemoryOutputStream::TakeBytes()
{
    std::vector<char> bytes;
    bytes.swap(m_Bytes);
    m_Pos = 0;
    return bytes;
}

} // namespace Kiv::DataCore
