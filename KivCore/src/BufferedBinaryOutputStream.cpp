#include "Kiv/Core/BufferedBinaryOutputStream.h"

#include <cstring>

#include "Kiv/Core/CodeContext.h"
#include "Kiv/Core/Error.h"

namespace Kiv::Core
{

namespace
{
const char* const ALERT_ID = "Kiv.Core.BufferedBinaryOutputStream";

std::size_t CheckedBufferSize(std::size_t bufferSize)
{
    if (bufferSize == 0)
    {
        LogicError("a buffered output stream needs a buffer of at least one byte")
            .RaiseError(KIV_CODE_CONTEXT, ALERT_ID, false);
    }
    return bufferSize;
}
} // namespace

BufferedBinaryOutputStream::BufferedBinaryOutputStream(BinaryOutputStream& sink,
                                                       std::size_t bufferSize)
    : m_Sink(sink), m_Buffer(CheckedBufferSize(bufferSize))
{
    m_Sink.AddListener(this);
    m_Attached = true;
}

BufferedBinaryOutputStream::~BufferedBinaryOutputStream()
{
    if (!m_Closed)
    {
        try
        {
            WritePendingToSink();
        }
        catch (...)
        {
            // A destructor cannot report; Close is the way to learn about this failure.
        }
    }
    Detach();
}

void BufferedBinaryOutputStream::Write(const void* buffer, std::uint64_t count)
{
    RequireOpen();
    if (count > m_Buffer.size() - m_Pending)
    {
        WritePendingToSink();
    }
    if (count >= m_Buffer.size())
    {
        m_Sink.Write(buffer, count);
        return;
    }
    if (count > 0)
    {
        std::memcpy(m_Buffer.data() + m_Pending, buffer, static_cast<std::size_t>(count));
        m_Pending += static_cast<std::size_t>(count);
    }
}

void BufferedBinaryOutputStream::Write(unsigned char byte)
{
    RequireOpen();
    if (m_Pending == m_Buffer.size())
    {
        WritePendingToSink();
    }
    m_Buffer[m_Pending++] = byte;
}

void BufferedBinaryOutputStream::Flush()
{
    RequireOpen();
    WritePendingToSink();
    m_Sink.Flush();
}

void BufferedBinaryOutputStream::Close()
{
    if (m_Closed)
    {
        return;
    }
    // Closed before the hand-over, so that a failing sink leaves nothing for the destructor.
    m_Closed = true;
    Detach();
    WritePendingToSink();
    m_Sink.Flush();
}

std::int64_t BufferedBinaryOutputStream::GetOutputPos() const
{
    return m_Sink.GetOutputPos() + static_cast<std::int64_t>(m_Pending);
}

void BufferedBinaryOutputStream::SetOutputPos(std::int64_t offset, EMoveMethod from)
{
    RequireOpen();
    // After the hand-over the sink's position is the logical one, so FROM_CURRENT needs no
    // translation.
    WritePendingToSink();
    m_Sink.SetOutputPos(offset, from);
}

std::string BufferedBinaryOutputStream::GetStreamName() const
{
    return m_Sink.GetStreamName();
}

void BufferedBinaryOutputStream::WritePendingToSink()
{
    if (m_Pending == 0)
    {
        return;
    }
    // Emptied first: the sink tells us of its own position change while it writes, and we
    // must not answer that by writing the same bytes again.
    const std::size_t count = m_Pending;
    m_Pending = 0;
    m_Sink.Write(m_Buffer.data(), count);
}

void BufferedBinaryOutputStream::RequireOpen() const
{
    if (m_Closed)
    {
        const std::string name = GetStreamName();
        IOError(name.empty()
                    ? std::string("cannot write: the buffered output stream is closed")
                    : FormatAlertMessage(
                          "cannot write \"%1%\": the buffered output stream is closed", name))
            .RaiseError(KIV_CODE_CONTEXT, ALERT_ID, false);
    }
}

void BufferedBinaryOutputStream::Detach() noexcept
{
    if (m_Attached)
    {
        m_Attached = false;
        try
        {
            m_Sink.RemoveListener(this);
        }
        catch (...)
        {
            // Removing a listener has nothing to fail on in our streams; a foreign sink that
            // raises here must not take the caller down with it.
        }
    }
}

void BufferedBinaryOutputStream::OnOutputPositionChanging(BinaryOutputStream&)
{
    WritePendingToSink();
}

} // namespace Kiv::Core
