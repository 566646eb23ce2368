// How header text becomes typed values: line classes, key/value splitting, the per-section
// value kinds and every conversion a file can reach.

#include <sstream>

#include <gtest/gtest.h>

#include "CollectingAlertHandler.h"
#include "Kiv/DataCore/Alerts.h"
#include "ReadTestFiles.h"

using namespace ReadTest;

namespace
{

// What a section holds under key, in one comparable text: "long 512", "text "512"",
// "unitized 10 nm" or "absent".
std::string Describe(DataContainer& file, const std::string& sectionName, const std::string& key)
{
    const auto section = Section(file, sectionName);
    if (!section || !section->Exists(key))
    {
        return "absent";
    }
    HostLong number;
    std::string text;
    UnitizedDouble unitized(0.0);
    if (section->Get(key, number))
    {
        return "long " + std::to_string(number);
    }
    if (section->Get(key, text))
    {
        return "text \"" + text + "\"";
    }
    if (section->Get(key, unitized))
    {
        std::ostringstream out;
        out << "unitized " << unitized.GetValue() << " " << unitized.GetUnit()->GetAbbreviation();
        return out.str();
    }
    return "another type";
}

// Opens a file made of the given header lines and a closing "[Data]" line.
boost::shared_ptr<PelrixDataFile> OpenHeader(const TempFolder& folder, const std::string& lines)
{
    const auto file = OpenForReading(folder.Write("header.flt", lines + "[Data]\r\n"));
    if (!file->IsOpen())
    {
        throw std::runtime_error("the header did not open");
    }
    return file;
}

struct LineCase
{
    const char* why;
    std::string section;
    std::string line;
    std::string key;
    std::string expected;
};

void PrintTo(const LineCase& c, std::ostream* out)
{
    *out << PrintableName(c.why);
}

class HeaderLineTest : public ::testing::TestWithParam<LineCase>
{
};

TEST_P(HeaderLineTest, StoresTheValueTheSectionTableAsksFor)
{
    const LineCase& c = GetParam();
    TempFolder folder;
    // A force file needs its series count to open.
    const std::string seriesLayout = c.section == "[Point Spectroscopy Data]"
                                         ? Lines({"[Series layout]", "Series Number=1"})
                                         : std::string();
    const auto file = OpenHeader(folder, Lines({c.section, c.line}) + seriesLayout);
    EXPECT_EQ(Describe(*file, c.section, c.key), c.expected) << c.why;
}

INSTANTIATE_TEST_SUITE_P(
    Splitting, HeaderLineTest,
    ::testing::Values(LineCase{"the key keeps its blank", "[Data Parameters]", "ResolutionX = 512",
                               "ResolutionX ", "text \"512\""},
                      LineCase{"trailing blanks of a value stay", "[Data Version]", "Value=512   ",
                               "Value", "text \"512   \""},
                      LineCase{"leading blanks of a value go", "[Data Version]", "Value=   512",
                               "Value", "text \"512\""},
                      LineCase{"tab, form feed and blank are white space", "[Data Version]",
                               "Value=\t\f v", "Value", "text \"v\""},
                      LineCase{"a vertical tab is not white space", "[Data Version]", "Value=\vv",
                               "Value", "text \"\vv\""},
                      LineCase{"split at the first equals sign", "[Data Version]", "Formula=a=b",
                               "Formula", "text \"a=b\""},
                      LineCase{"a leading tab stays in the key, a trailing CR goes",
                               "[Data Version]", "\tTabbed=1\r", "\tTabbed", "text \"1\""},
                      LineCase{"carriage returns inside a line are dropped", "[Data Version]",
                               "Mid\rdle=va\rlue", "Middle", "text \"value\""},
                      LineCase{"a line without equals is its own key and value", "[Data Version]",
                               "  Just words", "  Just words", "text \"Just words\""},
                      LineCase{"a value holding a comma is never read", "[Data Version]",
                               "Comment=a, b", "Comment", "absent"},
                      LineCase{"an empty value of a long reads 0", "[Data Parameters]",
                               "Color Table Index=", "Color Table Index", "long 0"}));

INSTANTIATE_TEST_SUITE_P(
    SectionTables, HeaderLineTest,
    ::testing::Values(
        LineCase{"a unit value in the data parameters", "[Data Parameters]",
                 "ScanRangeX=10 " + MICRO + "m", "ScanRangeX", "unitized 10 " + MICRO + "m"},
        LineCase{"the same line in an unknown section is text", "[Piezo Parameters]",
                 "ScanRangeX=10 " + MICRO + "m", "ScanRangeX", "text \"10 " + MICRO + "m\""},
        LineCase{"the colour table has no typed keys", "[Custom Color Table]",
                 "Color Table Index=3", "Color Table Index", "text \"3\""},
        LineCase{"the colour table index is a long in the data parameters", "[Data Parameters]",
                 "Color Table Index=3", "Color Table Index", "long 3"},
        LineCase{"Points Number is text in the force parameters", "[Point Spectroscopy Data]",
                 "Points Number=7", "Points Number", "text \"7\""},
        LineCase{"Points Number is a long in the series layout", "[Series layout]",
                 "Points Number=7", "Points Number", "long 7"},
        LineCase{"the series layout carries DataOffset", "[Series layout]", "DataOffset=0x10",
                 "DataOffset", "long 16"},
        LineCase{"the series layout carries the scan ranges", "[Series layout]", "ScanRangeY=2 nm",
                 "ScanRangeY", "unitized 2 nm"},
        LineCase{"rates stay text although they carry a unit", "[Point Spectroscopy Data]",
                 "Approach Rate=750.0000 " + MICRO + "m/s", "Approach Rate",
                 "text \"750.0000 " + MICRO + "m/s\""},
        LineCase{"Z Start has a unit", "[Point Spectroscopy Data]", "Z Start=0.3488 " + MICRO + "m",
                 "Z Start", "unitized 0.3488 " + MICRO + "m"},
        LineCase{"the force parameters carry Leveling", "[Point Spectroscopy Data]",
                 "Leveling=None", "Leveling", "text \"None\""}));

// The "hexadecimal" rule drops the first two characters wherever "0x" stands and counts only
// the digits 0 to 9; without "0x" a long reads as atol reads it.
struct LongCase
{
    std::string text;
    std::int32_t expected;
};

void PrintTo(const LongCase& c, std::ostream* out)
{
    *out << PrintableName(c.text) << " reads " << c.expected;
}

class LongValueTest : public ::testing::TestWithParam<LongCase>
{
};

TEST_P(LongValueTest, ReadsAsTheFormatReadsLongs)
{
    TempFolder folder;
    const auto file =
        OpenHeader(folder, Lines({"[Data Parameters]", "Color Table Index=" + GetParam().text}));
    EXPECT_EQ(Describe(*file, "[Data Parameters]", "Color Table Index"),
              "long " + std::to_string(GetParam().expected))
        << "value text \"" << GetParam().text << "\"";
}

INSTANTIATE_TEST_SUITE_P(
    Conversions, LongValueTest,
    ::testing::Values(LongCase{"0x200", 512}, LongCase{"0xFF", 0}, LongCase{"0x1F", 16},
                      LongCase{"0x10", 16}, LongCase{"0x123", 291}, LongCase{"12x", 12},
                      LongCase{"10x", 0}, LongCase{"2 0x1", 1}, LongCase{"x0x5", 5},
                      LongCase{"0x", 0}, LongCase{"-17", -17}, LongCase{"+5", 5},
                      LongCase{"7abc", 7}, LongCase{"abc", 0}, LongCase{"  42", 42},
                      // atol of a 32-bit long: saturated decimals, hexadecimals wrapped.
                      LongCase{"99999999999", 2147483647}, LongCase{"4294967400", 2147483647},
                      LongCase{"-99999999999", -2147483647 - 1},
                      LongCase{"0x80000000", -2147483647 - 1}, LongCase{"0x100000005", 5}));

struct UnitizedCase
{
    std::string valueText;
    double number;
    std::string unit;
};

void PrintTo(const UnitizedCase& c, std::ostream* out)
{
    *out << PrintableName(c.valueText);
}

class UnitizedValueTest : public ::testing::TestWithParam<UnitizedCase>
{
};

TEST_P(UnitizedValueTest, SplitsNumberAndUnitAtTheFirstBlank)
{
    const UnitizedCase& c = GetParam();
    TempFolder folder;
    const auto file = OpenHeader(folder, Lines({"[Data Parameters]", "ScanRangeX=" + c.valueText}));
    const UnitizedDouble value = UnitizedIn(*file, "[Data Parameters]", "ScanRangeX");
    EXPECT_DOUBLE_EQ(value.GetValue(), c.number) << "value text \"" << c.valueText << "\"";
    EXPECT_EQ(value.GetUnit()->GetAbbreviation(), c.unit) << "value text \"" << c.valueText << "\"";
}

INSTANTIATE_TEST_SUITE_P(
    Conversions, UnitizedValueTest,
    ::testing::Values(UnitizedCase{"10 " + MICRO + "m", 10.0, MICRO + "m"},
                      UnitizedCase{" 5 nm", 5.0, "nm"}, UnitizedCase{"", 0.0, ""},
                      UnitizedCase{"1e3 nm", 1000.0, "nm"}, UnitizedCase{"-2.5 nm", -2.5, "nm"},
                      UnitizedCase{".5 nm", 0.5, "nm"}, UnitizedCase{"abc nm", 0.0, "nm"},
                      UnitizedCase{"0.3488 " + MICRO + "m/V", 0.3488, MICRO + "m/V"}));

TEST(HeaderReader, AnEmptyUnitValueHasNoUnit)
{
    TempFolder folder;
    const auto file = OpenHeader(folder, Lines({"[Data Parameters]", "ScanRangeX="}));
    EXPECT_TRUE(UnitizedIn(*file, "[Data Parameters]", "ScanRangeX").GetUnit()->IsUnitless());
}

// A number without a unit is taken whole as the unit text, which names no unit.
TEST(HeaderReader, AnUnknownUnitEndsTheOpen)
{
    using XUnitNotFound = Kiv::Core::UnitizedValue<double>::XUnitNotFound;
    for (const std::string value : {"10", "10 qqqx"})
    {
        TempFolder folder;
        const std::string path =
            folder.Write("unit.flt", Lines({"[Data Parameters]", "ScanRangeX=" + value, "[Data]"}));
        PelrixDataFile file;
        const std::string message = MessageOf<XUnitNotFound>(
            [&] { file.Open(path, DataFile::ACCESS_READ, DataFile::OPEN_EXISTING); });
        const std::string unitText = value == "10" ? "10" : "qqqx";
        EXPECT_EQ(message, unitText + " unit not found in the unit dictionary");
        EXPECT_FALSE(file.IsOpen()) << "a file that failed to read stays closed";
    }
}

TEST(HeaderReader, IgnoresValuesBeforeTheFirstSectionAndEmptyLines)
{
    TempFolder folder;
    const auto file =
        OpenHeader(folder, "Orphan=1\r\n\r\n\n\r\r\n[Data Version]\r\n\r\nVersion=2\r\n");
    std::vector<std::string> topLevel;
    file->EnumData(topLevel);
    // The image loader looks for its parameters and leaves the section behind, empty.
    EXPECT_EQ(topLevel, (std::vector<std::string>{"[Data Version]", "[Data Parameters]",
                                                  "PelrixFileOverviewInfo"}));
    std::vector<std::string> keys;
    Section(*file, "[Data Version]")->EnumData(keys);
    EXPECT_EQ(keys, std::vector<std::string>{"Version"});
}

// A "[" anywhere makes a section line, so "Title=[x]" opens a section of that name.
TEST(HeaderReader, ABracketAnywhereOpensASection)
{
    TempFolder folder;
    const auto file =
        OpenHeader(folder, Lines({"[Data Version]", "Title=[x]", "Version=3", " [Data]", "A=1"}));
    EXPECT_EQ(Describe(*file, "Title=[x]", "Version"), "text \"3\"");
    EXPECT_EQ(Describe(*file, "[Data Version]", "Version"), "absent");
    // Only the exact line "[Data]" ends the header; with a blank before it it is a section.
    EXPECT_EQ(Describe(*file, " [Data]", "A"), "text \"1\"");
}

TEST(HeaderReader, KeepsTheLastCommaLineAsTheCurveLabels)
{
    TempFolder folder;
    const auto file = OpenForReading(folder.Write("labels.flt", ForceFile("1", "0", "")));
    ASSERT_TRUE(file->IsOpen());
    EXPECT_EQ(ValueIn<std::string>(*file, "PelrixFileOverviewInfo", "ForceCurveDataLabels"),
              "Z,Force,Z,Force");

    const auto second =
        OpenHeader(folder, Lines({"[Point Spectroscopy Data]", "first,line", "Key=a,b",
                                  "[Series layout]", "Series Number=1", "last, line=with equals"}));
    EXPECT_EQ(ValueIn<std::string>(*second, "PelrixFileOverviewInfo", "ForceCurveDataLabels"),
              "last, line=with equals");
    EXPECT_EQ(Describe(*second, "[Point Spectroscopy Data]", "Key"), "absent");
}

TEST(HeaderReader, ADuplicateSectionIsReportedOnceAndAddsToTheFirst)
{
    KivTest::ScopedAlertCollector alerts;
    TempFolder folder;
    const auto file = OpenHeader(
        folder, Lines({"[Data Parameters]", "Color Table Index=1", "Kept=yes", "[Data Version]",
                       "[Data Parameters]", "Color Table Index=2", "Added=yes"}));
    ASSERT_EQ(alerts->Count("assert"), 1u);
    const auto record = alerts->Records().front();
    EXPECT_EQ(record.message,
              "KivString(\"Shouldn't have a duplicate section name in header.\") == \"\"");
    EXPECT_EQ(record.context.GetShortFunctionName(),
              "Pelrix::PelrixDataFile::SetupNewHeaderSection");
    EXPECT_EQ(Describe(*file, "[Data Parameters]", "Kept"), "text \"yes\"");
    EXPECT_EQ(Describe(*file, "[Data Parameters]", "Added"), "text \"yes\"");
    EXPECT_EQ(Describe(*file, "[Data Parameters]", "Color Table Index"), "long 2");
}

TEST(HeaderReader, AHeaderWithoutADataLineIsAnErrorNamingTheFile)
{
    for (const std::string ending : {"", "[Data] \r\n", "[Data\r\n", "[data]\r\n"})
    {
        TempFolder folder;
        const std::string path =
            folder.Write("no-data.flt", Lines({"[Data Version]", "Version=1"}) + ending);
        PelrixDataFile file;
        const std::string message = MessageOf<Kiv::DataCore::DataFileError>(
            [&] { file.Open(path, DataFile::ACCESS_READ, DataFile::OPEN_EXISTING); });
        EXPECT_EQ(message, path + ": the header ends without a \"[Data]\" line")
            << "header ending \"" << ending << "\"";
        EXPECT_FALSE(file.IsOpen());
    }
}

// The last header line may end the file without a line feed.
TEST(HeaderReader, ADataLineAtTheEndOfTheFileEndsTheHeader)
{
    TempFolder folder;
    const auto file =
        OpenForReading(folder.Write("last.flt", Lines({"[Data Version]", "Version=1"}) + "[Data]"));
    ASSERT_TRUE(file->IsOpen());
    EXPECT_EQ(Describe(*file, "[Data Version]", "Version"), "text \"1\"");
}

} // namespace
