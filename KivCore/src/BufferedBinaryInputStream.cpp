#include "Kiv/Core/BufferedBinaryInputStream.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "Kiv/Core/CodeContext.h"
#include "Kiv/Core/Error.h"

namespace Kiv::Core
{

namespace
{
const char* const ALERT_ID = "Kiv.Core.BufferedBinaryInputStream";

std::size_t CheckedBufferSize(std::size_t bufferSize)
{
    if (bufferSize == 0)
    {
        LogicError("a buffered input stream needs a buffer of at least one byte")
            .RaiseError(KIV_CODE_CONTEXT, ALERT_ID, false);
    }
    return bufferSize;
}
} // namespace

BufferedBinaryInputStream::BufferedBinaryInputStream(BinaryInputStream& source,
                                                     std::size_t bufferSize)
    : m_Source(source), m_Buffer(CheckedBufferSize(bufferSize))
{
    m_Source.AddListener(this);
    m_Attached = true;
}

BufferedBinaryInputStream::~BufferedBinaryInputStream()
{
    Detach();
}

std::uint64_t BufferedBinaryInputStream::Read(void* buffer, std::uint64_t count)
{
    RequireOpen();
    auto* out = static_cast<unsigned char*>(buffer);
    std::uint64_t done = 0;
    while (done < count)
    {
        if (m_Next < m_End)
        {
            const std::size_t take =
                static_cast<std::size_t>(std::min<std::uint64_t>(UnreadCount(), count - done));
            std::memcpy(out + done, m_Buffer.data() + m_Next, take);
            m_Next += take;
            done += take;
            continue;
        }
        if (count - done >= m_Buffer.size())
        {
            // Copying a large block through the buffer would only cost time.
            done += m_Source.Read(out + done, count - done);
            break;
        }
        if (!Refill())
        {
            break;
        }
    }
    return done;
}

std::int64_t BufferedBinaryInputStream::GetInputPos() const
{
    return m_Source.GetInputPos() - static_cast<std::int64_t>(UnreadCount());
}

void BufferedBinaryInputStream::SetInputPos(std::int64_t offset, EMoveMethod from)
{
    RequireOpen();
    if (from == FROM_CURRENT)
    {
        // The source stands ahead of the logical position by the unread bytes.
        const std::int64_t current = GetInputPos();
        if (offset > 0 && current > std::numeric_limits<std::int64_t>::max() - offset)
        {
            IOError(FormatAlertMessage("cannot move the input position of \"%1%\" by %2%: "
                                       "beyond the largest file position",
                                       GetStreamName(), offset))
                .RaiseError(KIV_CODE_CONTEXT, ALERT_ID, false);
        }
        m_Source.SetInputPos(current + offset, FROM_BEGIN);
    }
    else
    {
        m_Source.SetInputPos(offset, from);
    }
    // A source that keeps no listeners has not told us.
    m_Next = 0;
    m_End = 0;
}

void BufferedBinaryInputStream::Close()
{
    m_Closed = true;
    m_Next = 0;
    m_End = 0;
    Detach();
}

std::string BufferedBinaryInputStream::GetStreamName() const
{
    return m_Source.GetStreamName();
}

void BufferedBinaryInputStream::DropReadAhead()
{
    const std::uint64_t unread = UnreadCount();
    m_Next = 0;
    m_End = 0;
    if (unread > 0)
    {
        m_Source.SetInputPos(-static_cast<std::int64_t>(unread), FROM_CURRENT);
    }
}

int BufferedBinaryInputStream::ReadByteFromSource()
{
    RequireOpen();
    if (!Refill())
    {
        return -1;
    }
    return m_Buffer[m_Next++];
}

bool BufferedBinaryInputStream::Refill()
{
    // The read tells us of the source's position change, which empties the buffer first.
    const std::uint64_t got = m_Source.Read(m_Buffer.data(), m_Buffer.size());
    m_Next = 0;
    m_End = static_cast<std::size_t>(got);
    return got > 0;
}

void BufferedBinaryInputStream::RequireOpen() const
{
    if (m_Closed)
    {
        const std::string name = GetStreamName();
        IOError(name.empty()
                    ? std::string("cannot read: the buffered input stream is closed")
                    : FormatAlertMessage("cannot read \"%1%\": the buffered input stream is closed",
                                         name))
            .RaiseError(KIV_CODE_CONTEXT, ALERT_ID, false);
    }
}

void BufferedBinaryInputStream::Detach() noexcept
{
    if (m_Attached)
    {
        m_Attached = false;
        try
        {
            m_Source.RemoveListener(this);
        }
        catch (...)
        {
            // Removing a listener has nothing to fail on in our streams; a foreign source that
            // raises here must not take the caller down with it.
        }
    }
}

void BufferedBinaryInputStream::OnInputPositionChanging(BinaryInputStream&)
{
    m_Next = 0;
    m_End = 0;
}

void BufferedBinaryInputStream::OnBytesWritten(BinaryOutputStream&, std::int64_t pos,
                                               std::uint64_t count)
{
    const std::uint64_t unread = UnreadCount();
    if (unread == 0)
    {
        return;
    }
    const std::int64_t unreadEnd = m_Source.GetInputPos();
    const std::int64_t unreadBegin = unreadEnd - static_cast<std::int64_t>(unread);
    const bool overlaps =
        pos < unreadEnd && count > std::uint64_t(unreadBegin > pos ? unreadBegin - pos : 0);
    if (overlaps)
    {
        DropReadAhead();
    }
}

} // namespace Kiv::Core
