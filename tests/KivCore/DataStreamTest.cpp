#include <cstring>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "Kiv/Core/BinaryFileStream.h"
#include "Kiv/Core/BufferedBinaryInputStream.h"
#include "Kiv/Core/BufferedBinaryOutputStream.h"
#include "Kiv/Core/DataInputStream.h"
#include "Kiv/Core/DataOutputStream.h"
#include "Kiv/Core/Error.h"
#include "StreamTestSupport.h"

using namespace Kiv::Core;
using namespace Kiv::Core::Testing;

namespace
{

template <class T>
Bytes RawBytes(const T& value)
{
    Bytes bytes(sizeof(T));
    std::memcpy(bytes.data(), &value, sizeof(T));
    return bytes;
}

TEST(DataStreamTest, EveryTypeRoundTripsThroughAFileInMachineOrder)
{
    const int i = -123456789;
    const HostLong l = std::numeric_limits<std::int32_t>::min() + 5;
    const float f = -0.012500f;
    const double d = 6.02214076e23;
    const std::string texts[] = {"", "[Data Parameters]", std::string("\0\xB5m\n", 4)};

    TempDir dir;
    const std::string path = dir.File("values.bin");
    BinaryFileStream file;
    file.Open(path, BinaryFileStream::READ_WRITE_MODE, BinaryFileStream::CREATE_NEW);
    {
        BufferedBinaryOutputStream buffered(file, 16);
        DataOutputStream out(buffered);
        out << i << l << f << d;
        for (const std::string& text : texts)
        {
            out << text;
        }
        buffered.Close();
    }

    Bytes expected;
    for (const Bytes& part : {RawBytes(i), RawBytes(l), RawBytes(f), RawBytes(d)})
    {
        expected.insert(expected.end(), part.begin(), part.end());
    }
    for (const std::string& text : texts)
    {
        const Bytes length = RawBytes(std::uint32_t(text.size()));
        expected.insert(expected.end(), length.begin(), length.end());
        expected.insert(expected.end(), text.begin(), text.end());
    }
    EXPECT_EQ(ReadFileBytes(path), expected);

    BufferedBinaryInputStream buffered(file, 16);
    DataInputStream in(buffered);
    int i2 = 0;
    HostLong l2;
    float f2 = 0;
    double d2 = 0;
    in >> i2 >> l2 >> f2 >> d2;
    EXPECT_EQ(i2, i);
    EXPECT_EQ(l2, l);
    EXPECT_EQ(f2, f);
    EXPECT_EQ(d2, d);
    for (const std::string& text : texts)
    {
        std::string read = "stale";
        in >> read;
        EXPECT_EQ(read, text);
    }
    EXPECT_EQ(in.ReadByte(), -1);
}

TEST(DataStreamTest, AnAbsurdTextLengthRaisesWithoutBeingAllocated)
{
    Bytes bytes = RawBytes(std::uint32_t(0xFFFFFFF0u));
    bytes.insert(bytes.end(), {'a', 'b', 'c'});
    MemoryInputStream source(bytes);
    DataInputStream in(source);

    std::string text = "kept";
    try
    {
        in >> text;
        FAIL() << "read a text of 4 GiB from 7 bytes";
    }
    catch (const IOError& error)
    {
        EXPECT_NE(error.GetMessage().find("memory.bin: unexpected end of input"), std::string::npos)
            << error.GetMessage();
    }
    EXPECT_EQ(text, "kept");
    // Nothing near the announced size was ever asked for, so nothing that size was allocated.
    for (const std::uint64_t request : source.Requests())
    {
        EXPECT_LE(request, 1u << 20);
    }
}

} // namespace
