#include "Kiv/Core/DataInputStream.h"

#include <algorithm>

#include "Kiv/Core/BufferedBinaryInputStream.h"
#include "Kiv/Core/CodeContext.h"
#include "Kiv/Core/Error.h"

namespace Kiv::Core
{

namespace
{
const char* const ALERT_ID = "Kiv.Core.DataInputStream";

// A text's length comes from the input and may be garbage: its bytes are read in pieces of
// this size, so memory grows only with bytes that really arrive.
constexpr std::uint64_t TEXT_CHUNK = 64 * 1024;

std::string UnexpectedEndMessage(const std::string& streamName, std::uint64_t wanted,
                                 std::uint64_t got)
{
    const std::string detail =
        FormatAlertMessage("unexpected end of input: needed %1% bytes, got %2%", wanted, got);
    return streamName.empty() ? detail : streamName + ": " + detail;
}
} // namespace

DataInputStream::DataInputStream(BinaryInputStream& stream)
    : m_Stream(stream), m_Buffered(dynamic_cast<BufferedBinaryInputStream*>(&stream))
{
}

void DataInputStream::ReadFully(void* buffer, std::uint64_t count)
{
    auto* bytes = static_cast<unsigned char*>(buffer);
    std::uint64_t done = 0;
    while (done < count)
    {
        const std::uint64_t got = m_Stream.Read(bytes + done, count - done);
        if (got == 0)
        {
            IOError(UnexpectedEndMessage(m_Stream.GetStreamName(), count, done))
                .RaiseError(KIV_CODE_CONTEXT, ALERT_ID, false);
        }
        done += got;
    }
}

int DataInputStream::ReadByte()
{
    if (m_Buffered != nullptr)
    {
        return m_Buffered->ReadByte();
    }
    unsigned char byte = 0;
    return m_Stream.Read(&byte, 1) == 1 ? byte : -1;
}

template <class T>
void DataInputStream::ReadRaw(T& value)
{
    T read{};
    ReadFully(&read, sizeof(T));
    value = read;
}

DataInputStream& DataInputStream::operator>>(int& value)
{
    ReadRaw(value);
    return *this;
}

DataInputStream& DataInputStream::operator>>(HostLong& value)
{
    ReadRaw(value);
    return *this;
}

DataInputStream& DataInputStream::operator>>(float& value)
{
    ReadRaw(value);
    return *this;
}

DataInputStream& DataInputStream::operator>>(double& value)
{
    ReadRaw(value);
    return *this;
}

DataInputStream& DataInputStream::operator>>(std::string& value)
{
    std::uint32_t length = 0;
    ReadRaw(length);

    std::string text;
    std::uint64_t done = 0;
    while (done < length)
    {
        const std::uint64_t piece = std::min<std::uint64_t>(length - done, TEXT_CHUNK);
        text.resize(static_cast<std::size_t>(done + piece));
        const std::uint64_t got = m_Stream.Read(&text[static_cast<std::size_t>(done)], piece);
        done += got;
        if (got < piece)
        {
            IOError(UnexpectedEndMessage(m_Stream.GetStreamName(), length, done) + " of a text")
                .RaiseError(KIV_CODE_CONTEXT, ALERT_ID, false);
        }
    }
    value.swap(text);
    return *this;
}

} // namespace Kiv::Core
