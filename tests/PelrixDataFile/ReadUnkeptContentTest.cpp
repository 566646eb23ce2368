#include <fstream>

#include <gtest/gtest.h>

#include "ReadTestFiles.h"

using namespace ReadTest;

namespace
{

// A 2 x 2 image whose header is given line by line, with its data at byte 512.
std::string Image(std::initializer_list<std::string> extraLines, const std::string& after = "")
{
    std::string header = Lines({"[Data Version]", "Version=1", "", "[Data Parameters]",
                                "DataOffset=512", "ResolutionX=2", "ResolutionY=2"});
    for (const auto& line : extraLines)
    {
        header += line + "\r\n";
    }
    header += Lines({"", "[Data]"});
    return ImageFile(header, 512, FloatBytes({1, 2, 3, 4})) + after;
}

StringList UnkeptItems(const std::string& bytes)
{
    TempFolder folder;
    const auto file = OpenForReading(folder.Write("file.flt", bytes));
    const auto record = file->GetMetaData("UnkeptContent");
    StringList items{"(no record)"};
    if (record)
    {
        record->Get("Items", items);
    }
    return items;
}

struct UnkeptCase
{
    const char* name;
    std::string file;
    std::string expected; // a part of the one item expected; empty for none
};

} // namespace

// Saving writes back only what the reader stored; everything else a file held is listed, so
// that a program can refuse to save rather than silently lose it.
TEST(UnkeptContent, ListsWhatTheWriterWouldDrop)
{
    std::string padded = Image({});
    padded[300] = 'X';
    std::string paddedAtTheEnd = Image({});
    paddedAtTheEnd[511] = 'Y';
    // The trailing bytes are scanned in blocks of a MiB and words of eight bytes.
    const std::string pastABlock = std::string((std::size_t{1} << 20) + 3, '\0') + "x";
    std::string manyValues;
    while (manyValues.size() < (std::size_t{9} << 20))
    {
        manyValues += "-12.345678\t";
    }
    manyValues += "\n";
    // Force lines are read in blocks of 256 KiB; a longer line grows the block.
    std::string longLine;
    for (int i = 0; i < 80000; ++i)
    {
        longLine += (i == 0 ? "" : "\t") + std::to_string(i % 10);
    }
    const std::string longLines = longLine + "\r\n" + longLine + "\r\n";
    const UnkeptCase cases[] = {
        {"a clean image", Image({}), ""},
        {"a clean force file", ForceFile("1", "2", "1\t2\t3\t4\n5\t6\t7\t8\n"), ""},
        {"a line before the first section",
         ImageFile("Owner=me\r\n" + ImageHeader(2, 2, 512), 512, FloatBytes({1, 2, 3, 4})),
         "line 1: \"Owner=me\" stands before the first section"},
        {"a comma in an image header", Image({"Note=a, b"}), "line 8: \"Note=a, b\" holds a comma"},
        {"a key given twice", Image({"ResolutionX=2"}),
         "\"ResolutionX\" appears more than once in [Data Parameters]"},
        {"a line without =", Image({"just words"}), "\"just words\" has no \"=\""},
        {"a value without a key", Image({"=5"}), "\"=5\" has no key"},
        {"the data key in a header", Image({"RawData=1"}), "uses the key the data are kept under"},
        {"a section of no known place", Image({"", "[Vendor Notes]", "Lens=50x"}),
         "section [Vendor Notes] is not written back"},
        {"bytes in the padding", padded, "between the header and \"DataOffset\" are not all zero"},
        {"bytes after the image", Image({}, "TRAILER"), "7 bytes after the image data"},
        {"zeros after the image", Image({}, std::string(5, '\0')), ""},
        {"line breaks and zeros after the image", Image({}, "\r\n\n\0\r\0\0\0\0\0\0\0\0\n"), ""},
        {"the last byte of the padding", paddedAtTheEnd, "are not all zero"},
        {"a byte past a MiB of zeros", Image({}, pastABlock), "1048580 bytes after the image data"},
        {"a force file ending without a line feed", ForceFile("1", "2", "1\t2\t3\t4\n5\t6\t7\t8"),
         ""},
        {"force lines longer than a read block", ForceFile("20000", "2", longLines + "\r\n"), ""},
        {"a long force line beyond the count", ForceFile("20000", "1", longLines),
         "160001 bytes after the force data"},
        {"blank lines after the force data", ForceFile("1", "1", "1\t2\t3\t4\r\n\r\n\r\n"), ""},
        {"more force values than columns", ForceFile("1", "1", "1\t2\t3\t4\t5\n"),
         "force data line 1 holds more than 4 values"},
        // A line is held up to 8 MiB; what lies beyond is passed over, or not kept when a value
        // reaches past it.
        {"more force values than a line holds", ForceFile("1", "1", "1\t2\t3\t4\t" + manyValues),
         "force data line 1 holds more than 4 values"},
        {"a force value longer than a line holds",
         ForceFile("1", "2", "1\t2\t3\t4\n5\t" + std::string(9 << 20, '6') + "\n"),
         "force data line 2 is longer than 8388608 bytes before its last kept value; it and what "
         "follows are not kept"},
        {"an incomplete force line", ForceFile("1", "2", "1\t2\t3\t4\n5\t\t7\t8\n"),
         "force data line 2 has an empty value"},
        {"force lines beyond the count", ForceFile("1", "1", "1\t2\t3\t4\n5\t6\t7\t8\n"),
         "bytes after the force data"},
    };
    for (const auto& c : cases)
    {
        const StringList items = UnkeptItems(c.file);
        if (c.expected.empty())
        {
            EXPECT_TRUE(items.empty()) << c.name << ": " << (items.empty() ? "" : items[0]);
            continue;
        }
        ASSERT_EQ(items.size(), 1u) << c.name << ": " << items.back();
        EXPECT_NE(items[0].find(c.expected), std::string::npos) << c.name << ": " << items[0];
    }
}

// Zeros after the data are often a hole in a sparse file, which the scan skips without reading;
// a byte behind the hole must still be found.
TEST(UnkeptContent, LooksBehindAHoleAfterTheData)
{
    constexpr std::streamoff HOLE = 3 << 20;
    const std::string image = Image({});
    for (const bool byteBehind : {false, true})
    {
        TempFolder folder;
        const std::string path = folder.Write("sparse.flt", image);
        {
            std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
            file.seekp(static_cast<std::streamoff>(image.size()) + HOLE);
            file.put(byteBehind ? 'x' : '\0');
        }
        const auto record = OpenForReading(path)->GetMetaData("UnkeptContent");
        ASSERT_TRUE(record);
        StringList items;
        record->Get("Items", items);
        if (!byteBehind)
        {
            EXPECT_TRUE(items.empty()) << items.front();
            continue;
        }
        ASSERT_EQ(items.size(), 1u);
        EXPECT_EQ(items[0], std::to_string(HOLE + 1) + " bytes after the image data are not kept");
    }
}

TEST(UnkeptContent, OnlyTheLastCommaLineOfAForceFileIsKept)
{
    const std::string file = Lines({"[Point Spectroscopy Data]", "Old,labels", "",
                                    "[Series layout]", "Points Number=1", "Series Number=1"}) +
                             "Z,Force,Z,Force\n" + Lines({"", "[Data]"}) + "1\t2\t3\t4\n";
    const StringList items = UnkeptItems(file);
    ASSERT_EQ(items.size(), 1u);
    EXPECT_NE(items[0].find("\"Old,labels\" holds a comma"), std::string::npos) << items[0];
}

TEST(UnkeptContent, AHostileFileCannotGrowTheListWithoutBound)
{
    std::string lines;
    for (int i = 0; i < 500; ++i)
    {
        lines += "Note" + std::to_string(i) + "=a, b\r\n";
    }
    const StringList items =
        UnkeptItems(ImageFile(lines + ImageHeader(2, 2, 8192), 8192, FloatBytes({1, 2, 3, 4})));
    ASSERT_EQ(items.size(), 101u);
    EXPECT_EQ(items.back(), "and 400 more");
}
