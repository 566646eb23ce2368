#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Kiv/Core/BinaryFileStream.h"
#include "Kiv/Core/Error.h"
#include "Kiv/Core/PathName.h"
#include "StreamTestSupport.h"

using namespace Kiv::Core;
using namespace Kiv::Core::Testing;

namespace
{

using Stream = BinaryFileStream;

struct OpenCase
{
    const char* name;
    Stream::EOpenBehavior behavior;
    Stream::EMode mode;
    bool fileExists;
    // Empty when the open must succeed; otherwise part of the expected error text.
    const char* error;
};

class OpenBehaviorTest : public testing::TestWithParam<OpenCase>
{
};

TEST_P(OpenBehaviorTest, OpensCreatesOrFailsAndNeverTruncates)
{
    const OpenCase& c = GetParam();
    TempDir dir;
    const std::string path = dir.File("scan.flt");
    const Bytes original = Pattern(40);
    if (c.fileExists)
    {
        WriteFileBytes(path, original);
    }

    Stream stream;
    if (*c.error != '\0')
    {
        try
        {
            stream.Open(path, c.mode, c.behavior);
            FAIL() << "open succeeded";
        }
        catch (const IOError& error)
        {
            const std::string expected = "cannot open \"" + path + "\": " + c.error;
            EXPECT_EQ(error.GetMessage(), expected);
        }
        EXPECT_FALSE(stream.IsOpen());
        EXPECT_EQ(PathName(path).Exists(), c.fileExists);

        std::string errorText;
        EXPECT_FALSE(stream.TryOpen(path, c.mode, c.behavior, &errorText));
        EXPECT_NE(errorText.find(c.error), std::string::npos) << errorText;
        return;
    }

    stream.Open(path, c.mode, c.behavior);
    EXPECT_TRUE(stream.IsOpen());
    EXPECT_EQ(stream.GetFileName(), path);
    EXPECT_EQ(stream.GetSize(), c.fileExists ? original.size() : 0u);
    stream.Close();
    EXPECT_EQ(ReadFileBytes(path), c.fileExists ? original : Bytes());
}

const OpenCase OPEN_CASES[] = {
    {"ExistingMissing", Stream::OPEN_EXISTING, Stream::READ_MODE, false,
     "No such file or directory"},
    {"TrimMissing", Stream::OPEN_EXISTING_TRIM_ON_CLOSE, Stream::READ_WRITE_MODE, false,
     "No such file or directory"},
    {"CreateNewPresent", Stream::CREATE_NEW, Stream::WRITE_MODE, true, "File exists"},
    {"AlwaysMissingCreates", Stream::OPEN_ALWAYS, Stream::WRITE_MODE, false, ""},
    {"CreateNewMissingCreates", Stream::CREATE_NEW, Stream::READ_WRITE_MODE, false, ""},
    {"ExistingPresentWrite", Stream::OPEN_EXISTING, Stream::WRITE_MODE, true, ""},
    {"AlwaysPresentReadWrite", Stream::OPEN_ALWAYS, Stream::READ_WRITE_MODE, true, ""},
    {"TrimPresentWrite", Stream::OPEN_EXISTING_TRIM_ON_CLOSE, Stream::WRITE_MODE, true, ""},
};

INSTANTIATE_TEST_SUITE_P(BinaryFileStream, OpenBehaviorTest, testing::ValuesIn(OPEN_CASES),
                         [](const testing::TestParamInfo<OpenCase>& info)
                         { return std::string(info.param.name); });

TEST(BinaryFileStreamTest, RefusesToOpenAFolder)
{
    TempDir dir;
    Stream stream;
    EXPECT_THROW(stream.Open(dir.Path(), Stream::READ_MODE, Stream::OPEN_EXISTING), IOError);
    EXPECT_FALSE(stream.IsOpen());
}

struct TrimCase
{
    const char* name;
    Stream::EOpenBehavior behavior;
    // Blocks of 'x' written as (position, length).
    std::vector<std::pair<std::int64_t, std::size_t>> writes;
    std::size_t sizeAfterClose;
};

class TrimOnCloseTest : public testing::TestWithParam<TrimCase>
{
};

TEST_P(TrimOnCloseTest, CutsAfterTheFurthestByteWrittenOnlyWhenAsked)
{
    const TrimCase& c = GetParam();
    TempDir dir;
    const std::string path = dir.File("scan.flt");
    WriteFileBytes(path, Pattern(100));

    Bytes expected = Pattern(100);
    Stream stream;
    stream.Open(path, Stream::READ_WRITE_MODE, c.behavior);
    for (const auto& [pos, length] : c.writes)
    {
        const std::string block(length, 'x');
        stream.SetOutputPos(pos, FROM_BEGIN);
        stream.Write(block.data(), block.size());
        expected.resize(std::max(expected.size(), std::size_t(pos) + length));
        std::memset(expected.data() + pos, 'x', length);
    }
    stream.Close();
    stream.Close(); // a second close does nothing

    expected.resize(c.sizeAfterClose);
    EXPECT_EQ(ReadFileBytes(path), expected);
}

const TrimCase TRIM_CASES[] = {
    {"ShorterRewrite", Stream::OPEN_EXISTING_TRIM_ON_CLOSE, {{0, 10}}, 10},
    {"FurthestWriteCounts", Stream::OPEN_EXISTING_TRIM_ON_CLOSE, {{50, 10}, {0, 5}}, 60},
    {"GrowsBeyondOldEnd", Stream::OPEN_EXISTING_TRIM_ON_CLOSE, {{0, 120}}, 120},
    {"NothingWrittenKeepsFile", Stream::OPEN_EXISTING_TRIM_ON_CLOSE, {}, 100},
    {"EmptyWriteKeepsFile", Stream::OPEN_EXISTING_TRIM_ON_CLOSE, {{0, 0}}, 100},
    {"OtherBehaviorKeepsTail", Stream::OPEN_EXISTING, {{0, 10}}, 100},
};

INSTANTIATE_TEST_SUITE_P(BinaryFileStream, TrimOnCloseTest, testing::ValuesIn(TRIM_CASES),
                         [](const testing::TestParamInfo<TrimCase>& info)
                         { return std::string(info.param.name); });

class OpenPatternFile : public testing::Test
{
protected:
    void SetUp() override
    {
        WriteFileBytes(m_Path, Pattern(300));
        m_Stream.Open(m_Path, Stream::READ_WRITE_MODE, Stream::OPEN_EXISTING);
    }

    TempDir m_Dir;
    std::string m_Path = m_Dir.File("pattern.bin");
    Stream m_Stream;
};

TEST_F(OpenPatternFile, InputAndOutputPositionsAreIndependent)
{
    m_Stream.SetInputPos(10, FROM_BEGIN);
    m_Stream.Write("ABC", 3);
    EXPECT_EQ(m_Stream.GetOutputPos(), 3);
    EXPECT_EQ(m_Stream.GetInputPos(), 10);

    unsigned char bytes[4] = {};
    ASSERT_EQ(m_Stream.Read(bytes, 4), 4u);
    EXPECT_EQ(Bytes(bytes, bytes + 4), (Bytes{10, 11, 12, 13}));
    EXPECT_EQ(m_Stream.GetOutputPos(), 3);

    m_Stream.SetInputPos(0, FROM_BEGIN);
    ASSERT_EQ(m_Stream.Read(bytes, 4), 4u);
    EXPECT_EQ(Bytes(bytes, bytes + 4), (Bytes{'A', 'B', 'C', 3}));
}

TEST_F(OpenPatternFile, ReadsFewerBytesOnlyAtTheEnd)
{
    Bytes buffer(64);
    m_Stream.SetInputPos(-20, FROM_END);
    EXPECT_EQ(m_Stream.Read(buffer.data(), buffer.size()), 20u);
    EXPECT_EQ(buffer[0], 280 % 256);
    EXPECT_EQ(m_Stream.GetInputPos(), 300);
    EXPECT_EQ(m_Stream.Read(buffer.data(), buffer.size()), 0u);
}

// Reads of many megabytes are split between two threads; whatever the file's length, the
// result is what one read delivers: every byte in its place, and a short count only at the end.
TEST(BinaryFileStreamTest, ALargeReadDeliversTheFileUpToItsEnd)
{
    constexpr std::size_t BLOCK = std::size_t(40) << 20;
    constexpr std::int64_t START = 1000;
    std::mt19937 random(7);
    Bytes content(BLOCK);
    for (std::size_t i = 0; i < BLOCK; i += sizeof(std::uint32_t))
    {
        const std::uint32_t word = random();
        std::memcpy(&content[i], &word, sizeof word);
    }
    // The whole block, a file that ends in the first half of the read, one that ends in the
    // second.
    for (const std::size_t length : {BLOCK, std::size_t(5) << 20, std::size_t(30) << 20})
    {
        SCOPED_TRACE(length);
        TempDir dir;
        const std::string path = dir.File("large.bin");
        WriteFileBytes(path, Bytes(content.begin(), content.begin() + length));
        Stream stream;
        stream.Open(path, Stream::READ_MODE, Stream::OPEN_EXISTING);
        stream.SetInputPos(START, FROM_BEGIN);
        Bytes buffer(BLOCK, 0);
        const std::uint64_t expected = length - START;
        ASSERT_EQ(stream.Read(buffer.data(), BLOCK), expected);
        EXPECT_EQ(stream.GetInputPos(), static_cast<std::int64_t>(length));
        EXPECT_TRUE(std::equal(buffer.begin(), buffer.begin() + expected, content.begin() + START));
        EXPECT_TRUE(std::all_of(buffer.begin() + expected, buffer.end(),
                                [](unsigned char byte) { return byte == 0; }));
    }
}

struct MoveCase
{
    std::int64_t offset;
    EMoveMethod from;
    std::int64_t expected; // -1: the move must raise and leave the position alone
};

TEST_F(OpenPatternFile, MovesCountFromBeginCurrentOrEndAndNeverBeforeTheStart)
{
    const MoveCase cases[] = {
        {7, FROM_BEGIN, 7},   {5, FROM_CURRENT, 105},   {-100, FROM_CURRENT, 0},
        {0, FROM_END, 300},   {-1, FROM_END, 299},      {50, FROM_END, 350},
        {-1, FROM_BEGIN, -1}, {-101, FROM_CURRENT, -1}, {-301, FROM_END, -1},
    };
    for (const MoveCase& c : cases)
    {
        SCOPED_TRACE(testing::Message() << "offset " << c.offset << " from " << c.from);
        m_Stream.SetInputPos(100, FROM_BEGIN);
        m_Stream.SetOutputPos(100, FROM_BEGIN);
        if (c.expected < 0)
        {
            EXPECT_THROW(m_Stream.SetInputPos(c.offset, c.from), IOError);
            EXPECT_THROW(m_Stream.SetOutputPos(c.offset, c.from), IOError);
            EXPECT_EQ(m_Stream.GetInputPos(), 100);
            EXPECT_EQ(m_Stream.GetOutputPos(), 100);
            continue;
        }
        m_Stream.SetInputPos(c.offset, c.from);
        m_Stream.SetOutputPos(c.offset, c.from);
        EXPECT_EQ(m_Stream.GetInputPos(), c.expected);
        EXPECT_EQ(m_Stream.GetOutputPos(), c.expected);
    }
}

TEST(BinaryFileStreamTest, RefusesTransfersTheModeOrStateDoesNotAllow)
{
    TempDir dir;
    const std::string path = dir.File("scan.flt");
    WriteFileBytes(path, Pattern(10));
    unsigned char byte = 0;

    Stream reader;
    reader.Open(path, Stream::READ_MODE, Stream::OPEN_EXISTING);
    EXPECT_THROW(reader.Write(&byte, 1), IOError);

    Stream writer;
    writer.Open(path, Stream::WRITE_MODE, Stream::OPEN_EXISTING);
    EXPECT_THROW(writer.Read(&byte, 1), IOError);

    writer.Close();
    try
    {
        writer.Write(&byte, 1);
        FAIL() << "wrote to a closed stream";
    }
    catch (const IOError& error)
    {
        EXPECT_NE(error.GetMessage().find(path), std::string::npos) << error.GetMessage();
    }
    EXPECT_THROW(Stream().GetSize(), IOError);
    EXPECT_EQ(ReadFileBytes(path), Pattern(10));
}

struct PathCase
{
    const char* path;
    const char* fileName;
    const char* directory;
};

TEST(PathNameTest, SplitsAtTheLastSlash)
{
    const PathCase cases[] = {
        {"data/scan.flt", "scan.flt", "data"},
        {"/work/data/scan.flt", "scan.flt", "/work/data"},
        {"scan.flt", "scan.flt", ""},
        {"/scan.flt", "scan.flt", "/"},
        {"data//scan.flt", "scan.flt", "data"},
        {"data/", "", "data"},
        {"", "", ""},
    };
    for (const PathCase& c : cases)
    {
        const PathName path(c.path);
        EXPECT_EQ(path.GetPath(), c.path);
        EXPECT_EQ(path.GetFileName(), c.fileName) << c.path;
        EXPECT_EQ(path.GetDirectory(), c.directory) << c.path;
    }
}

TEST(PathNameTest, ExistsForFilesAndFoldersOnly)
{
    TempDir dir;
    WriteFileBytes(dir.File("scan.flt"), Bytes{1});
    EXPECT_TRUE(PathName(dir.File("scan.flt")).Exists());
    EXPECT_TRUE(PathName(dir.Path()).Exists());
    EXPECT_FALSE(PathName(dir.File("missing.flt")).Exists());
    EXPECT_FALSE(PathName("").Exists());
}

} // namespace
