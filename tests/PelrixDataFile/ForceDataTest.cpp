// Force-curve files: how the text block after "[Data]" becomes one column matrix a line, and
// the tolerance rules for short, empty and odd lines.

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Kiv/Core/Error.h"
#include "Kiv/DataCore/Alerts.h"
#include "ReadTestFiles.h"

using namespace ReadTest;

namespace
{

FloatMatrixList Curves(DataContainer& file)
{
    return ValueIn<FloatMatrixList>(file, "[Data]", "RawData");
}

std::vector<float> Column(const FloatMatrix& matrix)
{
    std::vector<float> values;
    for (std::size_t row = 0; row < matrix.size1(); ++row)
    {
        values.push_back(matrix(row, 0));
    }
    return values;
}

std::vector<std::vector<float>> Columns(const FloatMatrixList& curves)
{
    std::vector<std::vector<float>> columns;
    for (const auto& curve : curves)
    {
        EXPECT_EQ(curve.size2(), 1u);
        columns.push_back(Column(curve));
    }
    return columns;
}

boost::shared_ptr<PelrixDataFile> OpenForce(const TempFolder& folder, const std::string& series,
                                            const std::string& points, const std::string& data)
{
    const auto file = OpenForReading(folder.Write("force.flt", ForceFile(series, points, data)));
    if (!file->IsOpen())
    {
        throw std::runtime_error("the force file did not open");
    }
    return file;
}

using Rows = std::vector<std::vector<float>>;

TEST(ForceData, ReadsOneColumnMatrixALine)
{
    TempFolder folder;
    const auto file = OpenForce(folder, "1", "3",
                                "0.000000\t-0.012500\t1.500000\t2.000000\n"
                                "1\t2\t3\t4\n"
                                "-5.25\t6e2\t7.\t.5\n");
    EXPECT_EQ(Columns(Curves(*file)), (Rows{{0.0f, -0.0125f, 1.5f, 2.0f},
                                            {1.0f, 2.0f, 3.0f, 4.0f},
                                            {-5.25f, 600.0f, 7.0f, 0.5f}}));
    EXPECT_EQ(ValueIn<HostLong>(*file, "PelrixFileOverviewInfo", "NumberOfDataPlists"), 2);
    EXPECT_FALSE(file->IsContentModified());
}

TEST(ForceData, EachSeriesAddsFourColumns)
{
    TempFolder folder;
    const auto file = OpenForce(folder, "3", "1", "1\t2\t3\t4\t5\t6\t7\t8\t9\t10\t11\t12\t13\n");
    EXPECT_EQ(Columns(Curves(*file)), (Rows{{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}}))
        << "the thirteenth value is beyond the columns and ignored";
    EXPECT_EQ(ValueIn<HostLong>(*file, "PelrixFileOverviewInfo", "NumberOfDataPlists"), 6);
}

struct LinesCase
{
    const char* why;
    std::string points;
    std::string data;
    Rows expected;
};

void PrintTo(const LinesCase& c, std::ostream* out)
{
    *out << PrintableName(c.why);
}

class ForceLinesTest : public ::testing::TestWithParam<LinesCase>
{
};

TEST_P(ForceLinesTest, FollowsTheToleranceRules)
{
    TempFolder folder;
    const auto file = OpenForce(folder, "1", GetParam().points, GetParam().data);
    EXPECT_EQ(Columns(Curves(*file)), GetParam().expected) << GetParam().why;
}

INSTANTIATE_TEST_SUITE_P(
    Tolerance, ForceLinesTest,
    ::testing::Values(
        LinesCase{"a short line repeats its last value", "2", "1\t2\n7\n",
                  Rows{{1, 2, 2, 2}, {7, 7, 7, 7}}},
        LinesCase{"a blank line ends the block", "5", "1\t2\t3\t4\n5\t6\t7\t8\n\n9\t9\t9\t9\n",
                  Rows{{1, 2, 3, 4}, {5, 6, 7, 8}}},
        LinesCase{"a CR-only line is blank too", "5", "1\t2\t3\t4\r\n\r\n5\t6\t7\t8\n",
                  Rows{{1, 2, 3, 4}}},
        LinesCase{"two tabs in a row end the block and drop the line", "3",
                  "1\t2\t3\t4\n5\t\t7\t8\n9\t9\t9\t9\n", Rows{{1, 2, 3, 4}}},
        LinesCase{"a tab before the columns are filled drops the line", "3", "1\t2\t3\t4\n5\t6\t\n",
                  Rows{{1, 2, 3, 4}}},
        LinesCase{"a tab after the last column is harmless", "2", "1\t2\t3\t4\t\n5\t6\t7\t8\n",
                  Rows{{1, 2, 3, 4}, {5, 6, 7, 8}}},
        LinesCase{"a leading tab is an empty first value", "2", "\t1\t2\t3\t4\n", Rows{}},
        LinesCase{"carriage returns anywhere are dropped", "2", "1\r\t2\t3\r\t4\r\n5\t6\t7\t8",
                  Rows{{1, 2, 3, 4}, {5, 6, 7, 8}}},
        LinesCase{"fewer lines than announced", "100", "1\t2\t3\t4\n", Rows{{1, 2, 3, 4}}},
        LinesCase{"more lines than announced", "1", "1\t2\t3\t4\n5\t6\t7\t8\n", Rows{{1, 2, 3, 4}}},
        LinesCase{"a missing count reads what is there", "", "1\t2\t3\t4\n5\t6\t7\t8\n",
                  Rows{{1, 2, 3, 4}, {5, 6, 7, 8}}},
        LinesCase{"a negative count reads nothing", "-3", "1\t2\t3\t4\n", Rows{}},
        LinesCase{"no data at all", "4", "", Rows{}}));

// Each value reads as C's atof reads it: leading numeric text counts, the rest gives 0.
TEST(ForceData, ValuesReadAsAtofReadsThem)
{
    TempFolder folder;
    const auto file = OpenForce(folder, "2", "1", "abc\t1x\t0x10\t-\t 5\t+2.5\t1e400\t3e-2z\n");
    const auto values = Column(Curves(*file).at(0));
    ASSERT_EQ(values.size(), 8u);
    EXPECT_EQ(values[0], 0.0f);
    EXPECT_EQ(values[1], 1.0f);
    EXPECT_EQ(values[2], 16.0f) << "atof reads hexadecimal";
    EXPECT_EQ(values[3], 0.0f);
    EXPECT_EQ(values[4], 5.0f) << "atof skips leading blanks";
    EXPECT_EQ(values[5], 2.5f);
    EXPECT_TRUE(std::isinf(values[6]) && values[6] > 0);
    EXPECT_EQ(values[7], 0.03f);
}

// Plain decimals take a fast path of their own: thousands of them, of every length up to past
// what it takes, must read bit for bit as atof reads them.
TEST(ForceData, PlainDecimalsReadAsAtofReadsThem)
{
    std::mt19937 random(11);
    std::vector<std::string> tokens{"-0",
                                    "-0.000000",
                                    "0.",
                                    ".5",
                                    "9007199254740993",
                                    "900719925474099.3",
                                    "1.00000000000000000001"};
    // Texts a hair either side of the midpoint between two floats, where the float depends on
    // the last bit of the double in between.
    for (int i = 0; i < 1000; ++i)
    {
        const float low = std::uniform_real_distribution<float>(1e-3f, 1e6f)(random);
        const double middle =
            (static_cast<double>(low) + std::nextafter(low, std::numeric_limits<float>::max())) / 2;
        char text[40];
        std::snprintf(text, sizeof text, i % 2 ? "%.16g" : "%.15g", middle);
        tokens.emplace_back(text);
    }
    while (tokens.size() < 4000) // whole lines of four
    {
        std::string token = random() % 2 ? "-" : "";
        const int whole = static_cast<int>(random() % 12);
        const int fraction = static_cast<int>(random() % 14);
        for (int d = 0; d < whole; ++d)
        {
            token += static_cast<char>('0' + random() % 10);
        }
        token += fraction > 0 || whole == 0 ? "." : "";
        for (int d = 0; d < std::max(fraction, whole == 0 ? 1 : 0); ++d)
        {
            token += static_cast<char>('0' + random() % 10);
        }
        tokens.push_back(token);
    }
    std::string data;
    for (std::size_t i = 0; i < tokens.size(); ++i)
    {
        data += tokens[i] + (i % 4 == 3 ? "\n" : "\t");
    }
    TempFolder folder;
    const auto file = OpenForce(folder, "1", std::to_string(tokens.size() / 4), data);
    const auto curves = Curves(*file);
    ASSERT_EQ(curves.size(), tokens.size() / 4);
    for (std::size_t i = 0; i < tokens.size(); ++i)
    {
        const float expected = static_cast<float>(std::atof(tokens[i].c_str()));
        const float read = curves[i / 4](i % 4, 0);
        EXPECT_EQ(std::memcmp(&read, &expected, sizeof read), 0)
            << tokens[i] << " read as " << read << ", atof gives " << expected;
    }
}

TEST(ForceData, WithoutAPointCountReadsAtMost16384Lines)
{
    std::string data;
    for (int i = 0; i < 20000; ++i)
    {
        data += std::to_string(i) + "\t1\t2\t3\n";
    }
    TempFolder folder;
    const FloatMatrixList curves = Curves(*OpenForce(folder, "1", "0", data));
    ASSERT_EQ(curves.size(), 16384u);
    EXPECT_EQ(curves.back()(0, 0), 16383.0f);
}

class MissingSeriesTest : public ::testing::TestWithParam<std::string>
{
};

TEST_P(MissingSeriesTest, FailsTheOpen)
{
    TempFolder folder;
    const std::string path = folder.Write(
        "series.flt",
        GetParam() == "missing"
            ? Lines({"[Point Spectroscopy Data]", "[Series layout]", "Points Number=1", "[Data]"})
            : ForceFile(GetParam(), "1", "1\t2\t3\t4\n"));
    PelrixDataFile file;
    try
    {
        file.Open(path, DataFile::ACCESS_READ, DataFile::OPEN_EXISTING);
        ADD_FAILURE() << "no error for Series Number " << GetParam();
    }
    catch (const Kiv::DataCore::DataFileError& error)
    {
        EXPECT_EQ(error.GetMessage(), "ERROR: Missing Series Number. ");
        EXPECT_EQ(error.GetAlertId(), "PelrixDataFile");
    }
    EXPECT_FALSE(file.IsOpen());
}

INSTANTIATE_TEST_SUITE_P(SeriesNumbers, MissingSeriesTest,
                         ::testing::Values("0", "-1", "none", "", "missing"));

// The block begins at the logical position after the "[Data]" line, not where the header
// reader's 16 KiB read-ahead stopped.
TEST(ForceData, TheBlockStartsRightAfterTheDataLineOfALongHeader)
{
    std::string header = Lines({"[Point Spectroscopy Data]", "[Series layout]", "Series Number=1",
                                "Points Number=2", "[System Info]"});
    for (int i = 0; header.size() < 40000; ++i)
    {
        header += "Entry" + std::to_string(i) + "=padding the header past the read-ahead\r\n";
    }
    TempFolder folder;
    const auto file =
        OpenForReading(folder.Write("long.flt", header + "[Data]\n1\t2\t3\t4\n5\t6\t7\t8\n"));
    EXPECT_EQ(Columns(Curves(*file)), (Rows{{1, 2, 3, 4}, {5, 6, 7, 8}}));
}

TEST(ForceData, AHugePointCountReadsOnlyTheLinesThere)
{
    const ScopedAllocationLimit limit(1 << 20);
    TempFolder folder;
    const auto file = OpenForce(folder, "1", "2147483647", "1\t2\t3\t4\n5\t6\t7\t8\n");
    EXPECT_EQ(Curves(*file).size(), 2u);
}

// A line as short as "1" fills every column, so a huge series count with a few bytes of data
// could ask for any amount of memory: the open fails before it is allocated.
TEST(ForceData, AHugeSeriesNumberFailsWithoutAllocating)
{
    const ScopedAllocationLimit limit(1 << 20);
    struct
    {
        const char* series;
        std::string data;
        const char* what;
    } const cases[] = {{"2147483647", "1\n", "force curves of 8589934588 values a line"},
                       {"100000", std::string(2000, '\n').replace(0, 8, "1\n2\n3\n4\n"),
                        "force curves of 400000 values a line"}};
    for (const auto& c : cases)
    {
        TempFolder folder;
        const std::string path = folder.Write("huge.flt", ForceFile(c.series, "0", c.data));
        PelrixDataFile file;
        const std::string message = MessageOf<Kiv::Core::AllocationFailed>(
            [&] { file.Open(path, DataFile::ACCESS_READ, DataFile::OPEN_EXISTING); });
        // The byte count includes the matrices' own bookkeeping, which is the library's.
        const std::string prefix = "Attempt to allocate " + std::string(c.what) + " for " + path;
        const std::string suffix = " bytes, limit 1048576) failed";
        EXPECT_EQ(message.rfind(prefix + " (", 0), 0u) << message;
        EXPECT_EQ(message.substr(message.size() - std::min(message.size(), suffix.size())), suffix);
        EXPECT_FALSE(file.IsOpen());
    }
}

// "[Point Spectroscopy Data]" makes a force file only among the first ten lines.
TEST(ForceData, TheForceSectionIsLookedForInTheFirstTenLines)
{
    for (const int fillerLines : {0, 9, 10})
    {
        std::string text;
        for (int i = 0; i < fillerLines; ++i)
        {
            text += i % 2 ? "\r\n" : "Note=filler\r\n";
        }
        text += ForceFile("1", "1", "1\t2\t3\t4\n");
        TempFolder folder;
        const auto file = OpenForReading(folder.Write("peek.flt", text));
        ASSERT_TRUE(file->IsOpen());
        const bool force = fillerLines < 10;
        EXPECT_EQ(ValueIn<std::string>(*file, "PelrixFileOverviewInfo", "FileSubType"),
                  force ? "FORCE" : "IMAGE")
            << "force section on line " << fillerLines + 1;
        EXPECT_EQ(HasKey(*file, "[Data]", "RawData"), force);
    }
}

} // namespace
