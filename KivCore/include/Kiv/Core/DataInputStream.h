#pragma once

#include <cstdint>
#include <string>

#include "Kiv/Core/BinaryStream.h"
#include "Kiv/Core/HostLong.h"

namespace Kiv::Core
{

class BufferedBinaryInputStream;

// Typed reads over a binary input stream: numbers as raw bytes in the machine's byte order
// (the same bytes DataOutputStream writes), texts as a 4-byte length and their bytes. A short
// input raises IOError; the target of a failed read is left unchanged.
class DataInputStream
{
public:
    explicit DataInputStream(BinaryInputStream& stream);
    DataInputStream(const DataInputStream&) = delete;
    DataInputStream& operator=(const DataInputStream&) = delete;

    // Reads exactly count bytes or raises "unexpected end of input".
    void ReadFully(void* buffer, std::uint64_t count);
    // The next byte (0..255), or -1 at the end of the input.
    int ReadByte();

    DataInputStream& operator>>(int& value);
    DataInputStream& operator>>(HostLong& value);
    DataInputStream& operator>>(float& value);
    DataInputStream& operator>>(double& value);
    DataInputStream& operator>>(std::string& value);

    BinaryInputStream& GetStream() { return m_Stream; }

private:
    template <class T>
    void ReadRaw(T& value);

    BinaryInputStream& m_Stream;
    // The same stream when it is buffered: its inline byte read saves a virtual call per byte.
    BufferedBinaryInputStream* m_Buffered = nullptr;
};

} // namespace Kiv::Core
