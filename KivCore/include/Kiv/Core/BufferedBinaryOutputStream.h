#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "Kiv/Core/BinaryStream.h"

namespace Kiv::Core
{

// Collects small writes and hands them to a sink stream in blocks. Its output position is
// logical: the sink's position plus the bytes still pending. When someone else is about to
// move or write the sink, the pending bytes go out first, at the place they were meant for.
//
// The sink is not owned and must outlive this stream, or this stream must be closed first.
// The destructor writes pending bytes but cannot report a failure: call Close (or Flush) to
// learn about errors.
class BufferedBinaryOutputStream : public BinaryOutputStream, private StreamPositionListener
{
public:
    BufferedBinaryOutputStream(BinaryOutputStream& sink, std::size_t bufferSize);
    ~BufferedBinaryOutputStream() override;

    // A block of at least the buffer's size goes straight to the sink after the pending bytes.
    void Write(const void* buffer, std::uint64_t count) override;
    void Write(unsigned char byte) override;
    // Hands the pending bytes to the sink and flushes the sink.
    void Flush() override;
    // Flushes and stops listening to the sink, which stays open: its owner closes it.
    // Writing afterwards raises. If the last hand-over fails, the error raises and the pending
    // bytes are lost.
    void Close() override;
    std::int64_t GetOutputPos() const override;
    // Moves the logical position; the pending bytes are written first at the old one.
    void SetOutputPos(std::int64_t offset, EMoveMethod from) override;
    std::string GetStreamName() const override;

protected:
    // Hands the pending bytes to the sink. They leave the buffer before the sink sees them, so
    // a failing sink raises once and is not fed the same bytes again.
    void WritePendingToSink();

private:
    void RequireOpen() const;
    void Detach() noexcept;

    // Someone is about to move or write the sink: our bytes belong at its current position.
    void OnOutputPositionChanging(BinaryOutputStream& stream) override;

    BinaryOutputStream& m_Sink;
    std::vector<unsigned char> m_Buffer;
    std::size_t m_Pending = 0;
    bool m_Closed = false;
    bool m_Attached = false;
};

} // namespace Kiv::Core
