// Looking for section names in the first lines of a file without holding a line: the answer
// must not depend on where the blocks the file is read in happen to end, nor on how long a run
// without a line feed is.

#include <gtest/gtest.h>

#include "FirstLinesSearch.h"
#include "ReadTestFiles.h"

using namespace ReadTest;

namespace
{

struct SearchCase
{
    const char* name;
    std::string text;
    int lines;
    bool dropCarriageReturns;
    bool expected;
};

bool SearchInBlocks(const SearchCase& c, std::size_t blockSize)
{
    Pelrix::FirstLinesSearch search({"[Mark]", "[Longer Mark]"}, c.lines, c.dropCarriageReturns);
    for (std::size_t at = 0; at < c.text.size() && !search.Decided(); at += blockSize)
    {
        search.Feed(c.text.data() + at, std::min(blockSize, c.text.size() - at));
    }
    search.End();
    return search.Found();
}

} // namespace

TEST(FirstLinesSearch, AnswersAlikeForEveryWayOfCuttingTheStream)
{
    const SearchCase cases[] = {
        {"a marker on the first line", "[Mark]\n", 1, false, true},
        {"a marker on the last line looked at", "a\nb\nxx[Longer Mark]yy", 3, false, true},
        {"a marker one line too late", "a\nb\nc\n[Mark]\n", 3, false, false},
        {"a marker after a long run without a line feed", std::string(5000, '\0') + "[Mark]", 1,
         false, true},
        {"a carriage return in the marker, lines as the header reader sees them", "[Ma\rrk]\n", 1,
         true, true},
        {"a carriage return in the marker, lines as they stand", "[Ma\rrk]\n", 1, false, false},
        {"carriage returns do not end lines", "a\rb\r\r[Longer\r Mark]", 1, true, true},
        {"a line feed in the marker", "[Ma\nrk]\n", 5, false, false},
        {"the start of a marker at the end", "x\n[Longer Ma", 5, false, false},
        {"the shorter marker inside a longer text", "[Longer [Mark]", 1, false, true},
    };
    for (const auto& c : cases)
    {
        for (const std::size_t blockSize : {std::size_t{1}, std::size_t{2}, std::size_t{3},
                                            std::size_t{5}, std::size_t{12}, c.text.size()})
        {
            EXPECT_EQ(SearchInBlocks(c, blockSize), c.expected)
                << c.name << ", blocks of " << blockSize << " bytes";
        }
    }
}

// Zeros skipped unread (a hole in a sparse file) hold neither a line feed nor marker bytes.
TEST(FirstLinesSearch, SkippedZerosSeparateTheBytesAroundThem)
{
    Pelrix::FirstLinesSearch search({"[Mark]"}, 1, false);
    search.Feed("[Ma", 3);
    search.SkipZeros();
    search.Feed("rk]", 3);
    search.End();
    EXPECT_FALSE(search.Found());
}

namespace
{

// An image file whose header has fewer than ten lines: the file kind then depends on the first
// lines of the data, which for real samples may be megabytes without a line feed.
std::string ShortHeaderFile(const std::string& samples)
{
    const std::string header =
        Lines({"[Data Version]", "[Data Parameters]", "DataOffset=256",
               "ResolutionX=" + std::to_string(samples.size() / 4), "ResolutionY=1",
               "[Series layout]", "Series Number=1", "[Data]"});
    return ImageFile(header, 256, samples);
}

// Samples of 1.5 (bytes 00 00 C0 3F), a value without a line end byte, with text written over
// them at a byte position.
std::string SamplesWith(const std::string& text, std::size_t at)
{
    std::string samples = FloatBytes(std::vector<float>(65536, 1.5f));
    samples.replace(at, text.size(), text);
    return samples;
}

struct KindCase
{
    const char* name;
    std::string samples;
    const char* kind;
};

} // namespace

// The header above ends on line 8, so the force section counts on lines 9 and 10 of the data.
TEST(FileKind, IsDecidedByTheFirstTenLinesWhereverTheyEnd)
{
    const std::string force = "[Point Spectroscopy Data]";
    const KindCase cases[] = {
        {"samples without a line end", SamplesWith("", 0), "IMAGE"},
        {"the force section in the samples on line 9", SamplesWith(force, 100000), "FORCE"},
        {"the force section across the first read block", SamplesWith(force, 16384 - 256 - 10),
         "FORCE"},
        {"the force section on line 10", SamplesWith("\n" + force, 200000), "FORCE"},
        {"the force section on line 11", SamplesWith("\n\n" + force, 200000), "IMAGE"},
        {"the force section with a carriage return in it",
         SamplesWith(std::string(force).insert(6, "\r"), 4000), "FORCE"},
    };
    for (const auto& c : cases)
    {
        TempFolder folder;
        const auto file = OpenForReading(folder.Write("short.flt", ShortHeaderFile(c.samples)));
        ASSERT_TRUE(file->IsOpen()) << c.name;
        EXPECT_EQ(ValueIn<std::string>(*file, "PelrixFileOverviewInfo", "FileSubType"), c.kind)
            << c.name;
    }
}

// The one-line recognition of the host's factory looks at a hundred lines the same way.
TEST(FileKind, ARecognisedFileMayHoldItsSectionNameFarIntoALongFirstLine)
{
    TempFolder folder;
    for (const std::size_t at :
         {std::size_t{16384} - 3, (std::size_t{1} << 20) + 16384 - 7, std::size_t{80} << 20})
    {
        EXPECT_TRUE(PelrixDataFile::IsPelrixFile(
            folder.Write("long.txt", std::string(at, '\0') + "[Data Parameters]")))
            << at;
    }
}
