#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "Kiv/Core/BinaryStream.h"

namespace Kiv::Core
{

// Reads ahead from a source stream in blocks so that small reads, above all byte-wise text
// parsing, cost no call into the source per byte. Its input position is logical: the position
// after the last byte handed out, not the source's. Whoever moves the source or writes into
// the bytes read ahead causes the read-ahead to be dropped, so the next read always returns
// what the source holds at the position that read stands for.
//
// The source is not owned and must outlive this stream, or this stream must be closed first.
class BufferedBinaryInputStream : public BinaryInputStream, private StreamPositionListener
{
public:
    BufferedBinaryInputStream(BinaryInputStream& source, std::size_t bufferSize);
    ~BufferedBinaryInputStream() override;

    // The next byte (0..255), or -1 at the end of the input.
    int ReadByte()
    {
        if (m_Next < m_End)
        {
            return m_Buffer[m_Next++];
        }
        return ReadByteFromSource();
    }

    // Serves from the read-ahead first; a remainder of at least the buffer's size goes from
    // the source straight into the caller's buffer.
    std::uint64_t Read(void* buffer, std::uint64_t count) override;
    std::int64_t GetInputPos() const override;
    // Moves the logical position (FROM_CURRENT counts from it) and drops the read-ahead.
    void SetInputPos(std::int64_t offset, EMoveMethod from) override;
    // Drops the read-ahead and stops listening to the source; the source stays open. Reading
    // afterwards raises.
    void Close() override;
    std::string GetStreamName() const override;

    // Forgets the bytes read ahead and moves the source back to the logical position, so they
    // are fetched afresh: for when the source's content changed without this stream being told.
    void DropReadAhead();

private:
    int ReadByteFromSource();
    // Reads the next block into the buffer; false at the end of the input.
    bool Refill();
    void RequireOpen() const;
    void Detach() noexcept;
    std::uint64_t UnreadCount() const { return m_End - m_Next; }

    // The source was moved by someone: follow it to the new position.
    void OnInputPositionChanging(BinaryInputStream& stream) override;
    // Bytes written over the unread read-ahead make it stale.
    void OnBytesWritten(BinaryOutputStream& stream, std::int64_t pos, std::uint64_t count) override;

    BinaryInputStream& m_Source;
    // While the buffer holds bytes, the source stands right behind the last of them.
    std::vector<unsigned char> m_Buffer;
    std::size_t m_Next = 0;
    std::size_t m_End = 0;
    bool m_Closed = false;
    bool m_Attached = false;
};

} // namespace Kiv::Core
