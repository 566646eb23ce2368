#pragma once

#include <cstdint>
#include <string>

#include "Kiv/Core/BinaryStream.h"
#include "Kiv/Core/HostLong.h"

namespace Kiv::Core
{

// Typed writes over a binary output stream: numbers as raw bytes in the machine's byte order
// (what DataInputStream reads back), texts as a 4-byte length and their bytes.
class DataOutputStream
{
public:
    explicit DataOutputStream(BinaryOutputStream& stream) : m_Stream(stream) {}
    DataOutputStream(const DataOutputStream&) = delete;
    DataOutputStream& operator=(const DataOutputStream&) = delete;

    void Write(const void* buffer, std::uint64_t count) { m_Stream.Write(buffer, count); }

    DataOutputStream& operator<<(int value);
    DataOutputStream& operator<<(HostLong value);
    DataOutputStream& operator<<(float value);
    DataOutputStream& operator<<(double value);
    // Raises IOError for a text longer than a 4-byte length can state.
    DataOutputStream& operator<<(const std::string& value);

    BinaryOutputStream& GetStream() { return m_Stream; }

private:
    BinaryOutputStream& m_Stream;
};

} // namespace Kiv::Core
