// kiv set, unset and resave as a user runs them: a saved file reads back with the change and
// nothing else, and a failed save leaves the file byte for byte as it was.
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "KivProcess.h"
#include "SampleBytes.h"

namespace KivToolTest
{
namespace
{

using Json = nlohmann::ordered_json;

const char* const IMAGE = "topography_128.flt";
const char* const FORCE = "force_2x300.flt";

Json DumpJson(const TemporaryFolder& folder, const std::string& name, bool withData = false)
{
    std::vector<std::string> arguments{"dump", "--json"};
    if (withData)
    {
        arguments.push_back("--data");
    }
    arguments.push_back(name);
    const RunResult result = RunKiv(arguments, folder.Path());
    EXPECT_EQ(result.exitStatus, 0) << result.err;
    return Json::parse(result.out);
}

const Json& Entry(const Json& dump, const std::string& section, const std::string& key)
{
    return dump["entries"][section]["entries"][key];
}

void ExpectSaved(const RunResult& result)
{
    EXPECT_EQ(result.exitStatus, 0) << result.err;
    EXPECT_EQ(result.err, "");
}

TEST(KivSet, StoresTheValueAsLatin1AndKeepsTheImage)
{
    TemporaryFolder folder;
    const std::string path = folder.CopySample(IMAGE);
    ASSERT_EQ(chmod(path.c_str(), 0640), 0);
    const std::string before = ReadBytes(path);

    ExpectSaved(RunKiv({"set", IMAGE, "[System Info]", "Operator", "Zo\xC3\xAB M\xC3\xBCller"},
                       folder.Path()));

    const std::string after = ReadBytes(path);
    EXPECT_NE(after.find("\r\nOperator=Zo\xEB M\xFCller\r\n"), std::string::npos);
    EXPECT_EQ(Entry(DumpJson(folder, IMAGE), "[System Info]", "Operator")["value"],
              "Zo\xC3\xAB M\xC3\xBCller");
    // The samples stay where "DataOffset" says, untouched.
    ASSERT_EQ(after.size(), before.size());
    EXPECT_EQ(after.compare(4096, std::string::npos, before, 4096, std::string::npos), 0);
    struct stat status
    {
    };
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640u);
    EXPECT_EQ(folder.List(), std::vector<std::string>{IMAGE}); // no temporary file left
}

TEST(KivSet, ATypedKeyIsReadBackTyped)
{
    TemporaryFolder folder;
    folder.CopySample(IMAGE);
    ExpectSaved(
        RunKiv({"set", IMAGE, "[Data Parameters]", "ScanRangeX", "12.5 \xC2\xB5m"}, folder.Path()));
    EXPECT_EQ(Entry(DumpJson(folder, IMAGE), "[Data Parameters]", "ScanRangeX"),
              Json::parse(R"({"type": "unitized", "value": 12.5, "unit": "µm"})"));
    // set stores the text as given; saved again, the value read with its unit gets the
    // writer's four decimals.
    EXPECT_NE(ReadBytes(folder.File(IMAGE)).find("\r\nScanRangeX=12.5 \xB5m\r\n"),
              std::string::npos);
    ExpectSaved(RunKiv({"resave", IMAGE}, folder.Path()));
    EXPECT_NE(ReadBytes(folder.File(IMAGE)).find("\r\nScanRangeX=12.5000 \xB5m\r\n"),
              std::string::npos);
}

TEST(KivSet, DataOffsetStaysANumberAndMovesTheSamples)
{
    // Stored as text, "DataOffset" would get no padding in front of the samples.
    for (const long offset : {4096L, 8192L})
    {
        SCOPED_TRACE(offset);
        TemporaryFolder folder;
        const std::string path = folder.CopySample(IMAGE);
        const std::string before = ReadBytes(path);

        ExpectSaved(
            RunKiv({"set", IMAGE, "[Data Parameters]", "DataOffset", std::to_string(offset)},
                   folder.Path()));

        EXPECT_EQ(Entry(DumpJson(folder, IMAGE), "[Data Parameters]", "DataOffset"),
                  Json({{"type", "long"}, {"value", offset}}));
        const std::string after = ReadBytes(path);
        EXPECT_EQ(after.size(), static_cast<std::size_t>(offset) + 128 * 128 * 4);
        EXPECT_EQ(ImageSamples(after), ImageSamples(before));
    }
}

TEST(KivSet, AValueStartingWithAMinusFollowsADoubleDash)
{
    TemporaryFolder folder;
    folder.CopySample(FORCE);
    ExpectSaved(
        RunKiv({"set", FORCE, "[Point Spectroscopy Data]", "Z Start", "--", "-0.75 \xC2\xB5m"},
               folder.Path()));
    EXPECT_EQ(Entry(DumpJson(folder, FORCE), "[Point Spectroscopy Data]", "Z Start")["value"],
              -0.75);
}

TEST(KivSet, ANewKeyLeavesTheForceCurvesAsTheyWere)
{
    TemporaryFolder folder;
    folder.CopySample(FORCE);
    const Json before = DumpJson(folder, FORCE, true);
    ExpectSaved(RunKiv({"set", FORCE, "[Point Spectroscopy Data]", "Tip", "Si3N4"}, folder.Path()));
    const Json after = DumpJson(folder, FORCE, true);
    EXPECT_EQ(Entry(after, "[Point Spectroscopy Data]", "Tip")["value"], "Si3N4");
    EXPECT_EQ(after["entries"]["[Data]"], before["entries"]["[Data]"]);
    EXPECT_EQ(after["entries"]["[Series layout]"], before["entries"]["[Series layout]"]);
}

TEST(KivUnset, RemovesTheKeyAndCutsTheFileToItsNewLength)
{
    TemporaryFolder folder;
    const std::string path = folder.CopySample(FORCE);
    const std::string before = ReadBytes(path);
    const std::string line = "Dwell Time=0.1000 s\r\n";
    ASSERT_NE(before.find(line), std::string::npos);

    ExpectSaved(RunKiv({"unset", FORCE, "[Point Spectroscopy Data]", "Dwell Time"}, folder.Path()));

    // A force file has no padding: the save is shorter by the line, and no stale bytes of the
    // old end remain behind the new one.
    std::string expected = before;
    expected.erase(expected.find(line), line.size());
    EXPECT_EQ(ReadBytes(path), expected);
    EXPECT_FALSE(
        DumpJson(folder, FORCE)["entries"]["[Point Spectroscopy Data]"]["entries"].contains(
            "Dwell Time"));
}

TEST(KivResave, WritesTheSamplesBackByteForByte)
{
    for (const std::string name : {IMAGE, FORCE})
    {
        SCOPED_TRACE(name);
        TemporaryFolder folder;
        const std::string path = folder.CopySample(name);
        ExpectSaved(RunKiv({"resave", name}, folder.Path()));
        EXPECT_EQ(ReadBytes(path), SampleBytes(name));
        EXPECT_EQ(folder.List(), std::vector<std::string>{name});
    }
}

TEST(KivResave, ThroughASymbolicLinkReplacesTheFileAndKeepsTheLink)
{
    TemporaryFolder folder;
    folder.CopySample(IMAGE);
    ASSERT_EQ(symlink(IMAGE, folder.File("link.flt").c_str()), 0);
    ExpectSaved(RunKiv({"set", "link.flt", "[PreProcessing]", "Leveling", "Line"}, folder.Path()));
    struct stat status
    {
    };
    ASSERT_EQ(lstat(folder.File("link.flt").c_str(), &status), 0);
    EXPECT_TRUE(S_ISLNK(status.st_mode));
    EXPECT_EQ(Entry(DumpJson(folder, IMAGE), "[PreProcessing]", "Leveling")["value"], "Line");
}

// Long values are 32 bits wide: a header number beyond the range reads as atol reads it where
// long has 32 bits (stopped at the limit), and the dump, the data reader and the writer all see
// that same number. The series layout carries the data parameters' long keys.
TEST(KivLong, OutOfRangeNumbersReadDumpAndSaveAsTheir32BitLimits)
{
    TemporaryFolder folder;
    std::string bytes = SampleBytes(FORCE);
    bytes.insert(bytes.find("Points Number="),
                 "DataOffset=4294967400\r\nResolutionX=-99999999999\r\n");
    WriteBytes(folder.File("long.flt"), bytes);

    for (const char* step : {"as read", "after a save"})
    {
        SCOPED_TRACE(step);
        const Json dump = DumpJson(folder, "long.flt");
        EXPECT_EQ(Entry(dump, "[Series layout]", "DataOffset")["value"], 2147483647);
        EXPECT_EQ(Entry(dump, "[Series layout]", "ResolutionX")["value"], -2147483648LL);
        EXPECT_EQ(Entry(dump, "[Series layout]", "ResolutionX")["type"], "long");
        ExpectSaved(RunKiv({"resave", "long.flt"}, folder.Path()));
        const std::string saved = ReadBytes(folder.File("long.flt"));
        EXPECT_NE(saved.find("\r\nDataOffset=2147483647\r\n"), std::string::npos);
        EXPECT_NE(saved.find("\r\nResolutionX=-2147483648\r\n"), std::string::npos);
    }

    // The force reader takes the same saturated count: four columns a series.
    std::string huge = SampleBytes(FORCE);
    const std::string series = "Series Number=2";
    huge.replace(huge.find(series), series.size(), "Series Number=99999999999");
    WriteBytes(folder.File("series.flt"), huge);
    const RunResult result = RunKiv({"dump", "series.flt"}, folder.Path());
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_NE(result.err.find("8589934588 values a line"), std::string::npos) << result.err;
}

// The image with a header section that the writer does not keep, taken out of the padding so
// that the samples stay at "DataOffset".
std::string ImageWithExtraSection()
{
    const std::string section = "[Scanner Calibration]\r\nX Linearity=0.9980\r\n\r\n";
    std::string bytes = SampleBytes(IMAGE);
    bytes.insert(bytes.find("[Data]\r\n"), section);
    bytes.erase(4096, section.size());
    return bytes;
}

TEST(KivEdit, FailuresLeaveTheFileByteForByteAsItWas)
{
    struct Case
    {
        const char* what;
        std::vector<std::string> arguments; // the file is the second argument
        std::string bytes;                  // the file's content; no file when empty
        const char* reason;                 // part of the one line on stderr
    };
    const Case cases[] = {
        {"missing file",
         {"set", "missing.flt", "[System Info]", "Operator", "x"},
         "",
         "missing.flt: No such file or directory"},
        {"unrecognised file",
         {"set", "notes.txt", "[System Info]", "Operator", "x"},
         "just some text\n",
         "no registered file type recognises this file"},
        {"missing section",
         {"set", IMAGE, "[No Such Section]", "Operator", "x"},
         SampleBytes(IMAGE),
         "no section \"[No Such Section]\""},
        {"unset of a missing key",
         {"unset", IMAGE, "[System Info]", "Nobody"},
         SampleBytes(IMAGE),
         "no key \"Nobody\" in section \"[System Info]\""},
        {"value outside Latin-1",
         {"set", IMAGE, "[System Info]", "Operator", "5 \xE2\x82\xAC"},
         SampleBytes(IMAGE),
         "(U+20AC) is outside Latin-1"},
        {"value not UTF-8",
         {"set", IMAGE, "[System Info]", "Operator", "a\xFF"},
         SampleBytes(IMAGE),
         "not valid UTF-8"},
        {"number that reads back otherwise",
         {"set", IMAGE, "[Data Parameters]", "ResolutionX", "1.5"},
         SampleBytes(IMAGE),
         "ResolutionX reads back as 1, not 1.5"},
        {"resolution that reshapes the image",
         {"set", IMAGE, "[Data Parameters]", "ResolutionX", "64"},
         SampleBytes(IMAGE),
         "read back as 64 x 128 samples instead of 128 x 128 samples"},
        {"unit the dictionary lacks",
         {"set", IMAGE, "[Data Parameters]", "ScanRangeX", "12 ux"},
         SampleBytes(IMAGE),
         "ux unit not found"},
        {"number without its unit",
         {"set", IMAGE, "[Data Parameters]", "ScanRangeX", "12"},
         SampleBytes(IMAGE),
         "ScanRangeX holds a length with a unit, for example \"20 \xC2\xB5m\""},
        {"value with a comma",
         {"set", IMAGE, "[System Info]", "Operator", "Doe, Jane"},
         SampleBytes(IMAGE),
         "Operator is missing after saving"},
        {"section the writer drops",
         {"set", IMAGE, "[System Info]", "Operator", "x"},
         ImageWithExtraSection(),
         "not saved: the writer would drop content it cannot keep: section [Scanner "
         "Calibration] is not written back"},
        {"value the writer cannot read back",
         {"resave", IMAGE},
         ImageWithEmptyScanRange(),
         "not saved: 0.0000 unit not found"},
        {"series count that reshapes the curves",
         {"set", FORCE, "[Series layout]", "Series Number", "1"},
         SampleBytes(FORCE),
         "read back as 300 curves of 1200 values instead of 300 curves of 2400 values"},
    };
    for (const Case& test : cases)
    {
        SCOPED_TRACE(test.what);
        TemporaryFolder folder;
        const std::string& name = test.arguments[1];
        if (!test.bytes.empty())
        {
            WriteBytes(folder.File(name), test.bytes);
        }
        const auto filesBefore = folder.List();

        const RunResult result = RunKiv(test.arguments, folder.Path());

        EXPECT_EQ(result.exitStatus, 1);
        ASSERT_EQ(result.ErrorLines().size(), 1u) << result.err;
        EXPECT_EQ(result.err.rfind("kiv: " + name + ": ", 0), 0u) << result.err;
        EXPECT_NE(result.err.find(test.reason), std::string::npos) << result.err;
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(folder.List(), filesBefore);
        if (!test.bytes.empty())
        {
            EXPECT_EQ(ReadBytes(folder.File(name)), test.bytes);
        }
    }
}

TEST(KivEdit, AReadOnlyFileIsNotReplaced)
{
    if (geteuid() == 0)
    {
        GTEST_SKIP() << "root may write any file";
    }
    TemporaryFolder folder;
    const std::string path = folder.CopySample(IMAGE);
    ASSERT_EQ(chmod(path.c_str(), 0444), 0);
    const RunResult result =
        RunKiv({"set", IMAGE, "[System Info]", "Operator", "x"}, folder.Path());
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(result.ErrorLines().size(), 1u) << result.err;
    EXPECT_EQ(ReadBytes(path), SampleBytes(IMAGE));
}

} // namespace
} // namespace KivToolTest
