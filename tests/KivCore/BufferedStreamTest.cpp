#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Kiv/Core/BinaryFileStream.h"
#include "Kiv/Core/BufferedBinaryInputStream.h"
#include "Kiv/Core/BufferedBinaryOutputStream.h"
#include "Kiv/Core/DataInputStream.h"
#include "Kiv/Core/Error.h"
#include "StreamTestSupport.h"

using namespace Kiv::Core;
using namespace Kiv::Core::Testing;

namespace
{

constexpr std::size_t BUFFER = 16;

// A pattern file open for reading and writing with a 16-byte buffered reader over it.
class BufferedReading : public testing::Test
{
protected:
    void SetUp() override
    {
        WriteFileBytes(m_Path, Pattern(m_Size));
        m_File.Open(m_Path, BinaryFileStream::READ_WRITE_MODE, BinaryFileStream::OPEN_EXISTING);
    }

    const std::size_t m_Size = 263;
    TempDir m_Dir;
    std::string m_Path = m_Dir.File("pattern.bin");
    BinaryFileStream m_File;
    BufferedBinaryInputStream m_Reader{m_File, BUFFER};
};

TEST_F(BufferedReading, ReadsByteWiseAcrossBufferBoundaries)
{
    for (std::size_t i = 0; i < m_Size; ++i)
    {
        ASSERT_EQ(m_Reader.ReadByte(), int(i % 256)) << "at " << i;
        ASSERT_EQ(m_Reader.GetInputPos(), std::int64_t(i + 1));
    }
    EXPECT_EQ(m_Reader.ReadByte(), -1);
    EXPECT_EQ(m_Reader.GetInputPos(), std::int64_t(m_Size));
}

TEST_F(BufferedReading, ReadsOddSizedBlocksAcrossBufferBoundaries)
{
    const std::size_t sizes[] = {1, 3, 5, 7, 15, 16, 17, 31, 33};
    Bytes read;
    for (std::size_t i = 0; read.size() < m_Size; ++i)
    {
        Bytes block(sizes[i % std::size(sizes)]);
        const std::uint64_t got = m_Reader.Read(block.data(), block.size());
        ASSERT_EQ(got, std::min<std::size_t>(block.size(), m_Size - read.size()));
        read.insert(read.end(), block.begin(), block.begin() + std::ptrdiff_t(got));
        ASSERT_EQ(m_Reader.GetInputPos(), std::int64_t(read.size()));
    }
    EXPECT_EQ(read, Pattern(m_Size));
}

TEST_F(BufferedReading, FollowsTheFileWhenItIsMovedFromOutside)
{
    ASSERT_EQ(m_Reader.ReadByte(), 0); // 15 bytes are now read ahead

    m_File.SetInputPos(100, FROM_BEGIN);
    EXPECT_EQ(m_Reader.GetInputPos(), 100);
    EXPECT_EQ(m_Reader.ReadByte(), 100);
    EXPECT_EQ(m_Reader.GetInputPos(), 101);

    // The file already stands at 116 behind the read-ahead: placing it there must still count.
    m_File.SetInputPos(116, FROM_BEGIN);
    EXPECT_EQ(m_Reader.ReadByte(), 116);
}

TEST_F(BufferedReading, MovesRelativeToItsLogicalPosition)
{
    Bytes skipped(3);
    m_Reader.Read(skipped.data(), skipped.size());
    m_Reader.SetInputPos(2, FROM_CURRENT);
    EXPECT_EQ(m_Reader.GetInputPos(), 5);
    EXPECT_EQ(m_Reader.ReadByte(), 5);
    m_Reader.SetInputPos(-1, FROM_END);
    EXPECT_EQ(m_Reader.ReadByte(), int((m_Size - 1) % 256));
    EXPECT_THROW(m_Reader.SetInputPos(-1, FROM_BEGIN), IOError);
}

TEST_F(BufferedReading, DropsReadAheadThatAWriteMadeStale)
{
    ASSERT_EQ(m_Reader.ReadByte(), 0);
    m_File.SetOutputPos(4, FROM_BEGIN);
    m_File.Write("ZZ", 2);
    EXPECT_EQ(m_Reader.GetInputPos(), 1);

    Bytes next(6);
    ASSERT_EQ(m_Reader.Read(next.data(), next.size()), 6u);
    EXPECT_EQ(next, (Bytes{1, 2, 3, 'Z', 'Z', 6}));
}

TEST_F(BufferedReading, DropReadAheadKeepsTheLogicalPosition)
{
    ASSERT_EQ(m_Reader.ReadByte(), 0);
    ASSERT_EQ(m_Reader.ReadByte(), 1);
    WriteFileBytes(m_Path, Bytes(m_Size, 7)); // behind the stream's back
    m_Reader.DropReadAhead();
    EXPECT_EQ(m_Reader.GetInputPos(), 2);
    EXPECT_EQ(m_Reader.ReadByte(), 7);
}

TEST_F(BufferedReading, KnowsTheLogicalPositionAfterALine)
{
    WriteFileBytes(m_Path, ToBytes("Key=1\r\n[Data]\r\nXYZ"));
    m_Reader.SetInputPos(0, FROM_BEGIN);
    DataInputStream data(m_Reader);
    std::string lines[2];
    for (std::string& line : lines)
    {
        for (int c = data.ReadByte(); c != '\n' && c != -1; c = data.ReadByte())
        {
            line += char(c);
        }
    }
    EXPECT_EQ(lines[1], "[Data]\r");
    EXPECT_EQ(m_Reader.GetInputPos(), 15);
    EXPECT_EQ(m_File.GetInputPos(), 16); // one buffer read ahead, not in the logical position

    m_File.SetInputPos(m_Reader.GetInputPos(), FROM_BEGIN);
    EXPECT_EQ(m_Reader.ReadByte(), 'X');
}

TEST(BufferedInputTest, LargeReadsBypassTheBuffer)
{
    MemoryInputStream source(Pattern(300));
    BufferedBinaryInputStream reader(source, BUFFER);
    Bytes head(3);
    Bytes bulk(200);
    reader.Read(head.data(), head.size());
    ASSERT_EQ(reader.Read(bulk.data(), bulk.size()), bulk.size());

    const Bytes pattern = Pattern(203);
    EXPECT_EQ(bulk, Bytes(pattern.begin() + 3, pattern.end()));
    // One refill for the head; then the 13 bytes left in the buffer, the rest asked for at once.
    EXPECT_EQ(source.Requests(), (std::vector<std::uint64_t>{BUFFER, 200 - 13}));
    EXPECT_EQ(reader.GetInputPos(), 203);
}

class BufferedWriting : public testing::Test
{
protected:
    void SetUp() override
    {
        m_File.Open(m_Path, BinaryFileStream::READ_WRITE_MODE, BinaryFileStream::CREATE_NEW);
    }

    TempDir m_Dir;
    std::string m_Path = m_Dir.File("out.bin");
    BinaryFileStream m_File;
};

TEST_F(BufferedWriting, FileHoldsEveryByteAfterClose)
{
    const Bytes expected = Pattern(400);
    BufferedBinaryOutputStream writer(m_File, BUFFER);
    // Single bytes, blocks that fit, that overflow and that exceed the buffer.
    const std::size_t blocks[] = {1, 5, 16, 40, 3, 15, 0, 17, 2};
    std::size_t written = 0;
    for (std::size_t i = 0; written < expected.size(); ++i)
    {
        const std::size_t size = std::min(blocks[i % std::size(blocks)], expected.size() - written);
        if (size == 1)
        {
            writer.Write(expected[written]);
        }
        else
        {
            writer.Write(expected.data() + written, size);
        }
        written += size;
        ASSERT_EQ(writer.GetOutputPos(), std::int64_t(written));
    }
    writer.Close();
    EXPECT_EQ(ReadFileBytes(m_Path), expected);
    EXPECT_THROW(writer.Write('x'), IOError);
}

TEST_F(BufferedWriting, PendingBytesLandAtTheOldPositionWhenTheFileIsMoved)
{
    BufferedBinaryOutputStream writer(m_File, BUFFER);
    writer.Write("abcde", 5);
    m_File.SetOutputPos(20, FROM_BEGIN);
    EXPECT_EQ(writer.GetOutputPos(), 20);
    writer.Write("XY", 2);
    writer.Close();

    Bytes expected(22, 0);
    std::copy_n("abcde", 5, expected.begin());
    std::copy_n("XY", 2, expected.begin() + 20);
    EXPECT_EQ(ReadFileBytes(m_Path), expected);
}

TEST_F(BufferedWriting, PendingBytesGoFirstWhenTheFileIsWrittenDirectly)
{
    BufferedBinaryOutputStream writer(m_File, BUFFER);
    writer.Write("abc", 3);
    m_File.Write("XY", 2);
    writer.Write('d');
    writer.SetOutputPos(0, FROM_END);
    writer.Write('e');
    writer.Flush();
    EXPECT_EQ(ReadFileBytes(m_Path), ToBytes("abcXYde"));
}

TEST_F(BufferedWriting, DestructorHandsOverPendingBytes)
{
    {
        BufferedBinaryOutputStream writer(m_File, BUFFER);
        writer.Write("abc", 3);
    }
    EXPECT_EQ(ReadFileBytes(m_Path), ToBytes("abc"));
}

TEST_F(BufferedWriting, CloseReportsWhatTheDestructorWouldSwallow)
{
    m_File.Open(m_Path, BinaryFileStream::READ_MODE, BinaryFileStream::OPEN_EXISTING);
    BufferedBinaryOutputStream writer(m_File, BUFFER);
    writer.Write("abc", 3);
    EXPECT_THROW(writer.Close(), IOError);
    EXPECT_NO_THROW(writer.Close());
}

} // namespace
