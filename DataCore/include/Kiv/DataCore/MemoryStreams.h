#pragma once

#include <cstdint>
#include <vector>

#include "Kiv/Core/BinaryStream.h"

namespace Kiv::DataCore
{

// Reads from a byte range that the caller keeps alive for the stream's lifetime.
class MemoryInputStream : public Kiv::Core::BinaryInputStream
{
public:
    MemoryInputStream(const void* data, std::uint64_t size);
    explicit MemoryInputStream(const std::vector<char>& bytes);

    std::uint64_t Read(void* buffer, std::uint64_t count) override;
    std::int64_t GetInputPos() const override;
    // Raises Kiv::Core::IOError for a position outside the range.
    void SetInputPos(std::int64_t offset, Kiv::Core::EMoveMethod from) override;

    std::uint64_t GetSize() const { return m_Size; }
    std::uint64_t GetRemaining() const { return m_Size - m_Pos; }

private:
    const char* m_Data;
    std::uint64_t m_Size;
    std::uint64_t m_Pos = 0;
};

// Collects written bytes in a growing buffer. Moving the position past the end and writing
// there fills the gap with zero bytes.
class MemoryOutputStream : public Kiv::Core::BinaryOutputStream
{
public:
    MemoryOutputStream() = default;

    void Write(const void* buffer, std::uint64_t count) override;
    std::int64_t GetOutputPos() const override;
    // Raises Kiv::Core::IOError for a position before the start.
    void SetOutputPos(std::int64_t offset, Kiv::Core::EMoveMethod from) override;

    const std::vector<char>& GetBytes() const { return m_Bytes; }
    // Hands the buffer over and leaves the stream empty.
    std::vector<char> TakeBytes();

private:
    std::vector<char> m_Bytes;
    std::uint64_t m_Pos = 0;
};

} // namespace Kiv::DataCore
