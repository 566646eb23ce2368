// kiv stats and kiv profile as a user runs them: what goes to stdout, what to stderr, and the
// exit status. The figures themselves are checked against numpy in tests/export.
#include <algorithm>
#include <sstream>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "KivProcess.h"
#include "SampleBytes.h"

namespace KivToolTest
{
namespace
{

using Json = nlohmann::json;

const char* const IMAGE = "topography_128.flt";
const char* const FORCE = "force_2x300.flt";

std::vector<std::string> Lines(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
    {
        lines.push_back(line);
    }
    return lines;
}

TEST(KivStats, JsonLinesKeepTheOrderOfTheFilesAndReportEachFailureOnce)
{
    TemporaryFolder folder;
    std::vector<std::string> arguments = {"stats", "--json", "-j", "2"};
    std::vector<std::string> good;
    for (int i = 0; i < 7; ++i)
    {
        const std::string name = "scan_" + std::to_string(i) + ".flt";
        WriteBytes(folder.File(name), SampleBytes(IMAGE));
        arguments.push_back(name);
        good.push_back(name);
        if (i == 2)
        {
            folder.CopySample(FORCE);
            arguments.push_back(FORCE);
            arguments.push_back("missing.flt");
        }
    }
    const RunResult result = RunKiv(arguments, folder.Path());
    EXPECT_EQ(result.exitStatus, 1);
    auto failures = result.ErrorLines();
    std::sort(failures.begin(), failures.end());
    ASSERT_EQ(failures.size(), 2u) << result.err;
    EXPECT_EQ(failures[0].rfind(std::string("kiv: ") + FORCE + ": ", 0), 0u) << failures[0];
    EXPECT_EQ(failures[1].rfind("kiv: missing.flt: ", 0), 0u) << failures[1];

    const std::vector<std::string> keys = {"file",   "level", "count", "excluded", "mean",
                                           "median", "min",   "max",   "Sa",       "Sq",
                                           "Ssk",    "Sku",   "Sp",    "Sv",       "Sz",
                                           "Sdq",    "Sdr",   "area",  "z_unit",   "pixel_size"};
    const auto lines = Lines(result.out);
    ASSERT_EQ(lines.size(), good.size()) << result.out;
    for (std::size_t i = 0; i < lines.size(); ++i)
    {
        const Json line = Json::parse(lines[i]);
        std::vector<std::string> found;
        for (const auto& item : line.items())
        {
            found.push_back(item.key());
        }
        std::sort(found.begin(), found.end());
        auto expected = keys;
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(found, expected);
        EXPECT_EQ(line["file"], good[i]);
        EXPECT_EQ(line["level"], "plane");
        EXPECT_EQ(line["count"], 128 * 128);
        // The sample states no height unit: the hybrid figures cannot be known.
        for (const char* unknown : {"Sdq", "Sdr", "area", "z_unit"})
        {
            EXPECT_TRUE(line[unknown].is_null()) << unknown;
        }
        EXPECT_NEAR(line["pixel_size"][0].get<double>(), 10e-6 / 128, 1e-18);
    }
}

TEST(KivStats, UnknownFiguresAndUnitsAreNamed)
{
    TemporaryFolder folder;
    folder.CopySample(IMAGE);
    struct Case
    {
        std::vector<std::string> extra;
        bool hybridKnown;
        int exitStatus;
    };
    const Case cases[] = {
        {{"--z-unit", "nm"}, true, 0},
        {{"--z-unit", "um", "--level", "none"}, true, 0},
        {{"--z-unit", "V"}, false, 1},     // not a length
        {{"--z-unit", "xyzzy"}, false, 1}, // not a unit at all
    };
    for (const Case& test : cases)
    {
        std::vector<std::string> arguments = {"stats", "--json", IMAGE};
        arguments.insert(arguments.end(), test.extra.begin(), test.extra.end());
        const RunResult result = RunKiv(arguments, folder.Path());
        SCOPED_TRACE(testing::PrintToString(arguments));
        EXPECT_EQ(result.exitStatus, test.exitStatus) << result.err;
        if (test.exitStatus != 0)
        {
            ASSERT_EQ(result.ErrorLines().size(), 1u) << result.err;
            EXPECT_EQ(result.err.rfind(std::string("kiv: ") + IMAGE + ": ", 0), 0u);
            EXPECT_NE(result.err.find(test.extra[1]), std::string::npos) << result.err;
            continue;
        }
        const Json line = Json::parse(result.out);
        EXPECT_EQ(line["z_unit"], test.extra[1]);
        EXPECT_TRUE(line["Sdq"].is_number() && line["Sdr"].is_number());
        // The developed area of a rough surface exceeds the 10 um x 10 um it covers.
        EXPECT_GT(line["area"].get<double>(), 1e-10);
    }
}

TEST(KivSurfaceCommands, UsageErrorsAreOneLineWithStatusTwo)
{
    TemporaryFolder folder;
    folder.CopySample(IMAGE);
    const std::vector<std::vector<std::string>> cases = {
        {"stats", "--level", "bogus", IMAGE},
        {"stats", "--level", "poly:9", IMAGE},
        {"stats", "--exclude-above", "high", IMAGE},
        {"stats", "--exclude-above-percentile", "101", IMAGE},
        {"profile", IMAGE},                               // no selection
        {"profile", IMAGE, "--row", "1", "--col", "2"},   // two selections
        {"profile", IMAGE, "--from", "1,2"},              // a line without its end
        {"profile", IMAGE, "--from", "1", "--to", "3,4"}, // a point without its row
        {"profile", IMAGE, "--row", "1", "--to", "csv", "--to", "json"},
        {"export", IMAGE, "--to", "npy", "--level", "rows:wobble"},
    };
    for (const auto& arguments : cases)
    {
        const RunResult result = RunKiv(arguments, folder.Path());
        SCOPED_TRACE(testing::PrintToString(arguments));
        EXPECT_EQ(result.exitStatus, 2);
        EXPECT_EQ(result.ErrorLines().size(), 1u) << result.err;
        EXPECT_EQ(result.out, "");
    }
    EXPECT_TRUE(folder.List() == std::vector<std::string>{IMAGE}) << "nothing exported";
}

TEST(KivProfile, SelectionsOutsideTheImageFailNamingTheFile)
{
    TemporaryFolder folder;
    folder.CopySample(IMAGE);
    folder.CopySample(FORCE);
    const std::vector<std::vector<std::string>> cases = {
        {"profile", IMAGE, "--row", "128"},
        {"profile", IMAGE, "--col", "4000"},
        {"profile", IMAGE, "--from", "0,0", "--to", "127.5,3"},
        {"profile", IMAGE, "--from", "-1e-6,0", "--to", "1e-6,1e-6", "--metres"},
        {"profile", FORCE, "--row", "0"},
    };
    for (const auto& arguments : cases)
    {
        const RunResult result = RunKiv(arguments, folder.Path());
        SCOPED_TRACE(testing::PrintToString(arguments));
        EXPECT_EQ(result.exitStatus, 1);
        ASSERT_EQ(result.ErrorLines().size(), 1u) << result.err;
        EXPECT_EQ(result.err.rfind("kiv: " + arguments[1] + ": ", 0), 0u) << result.err;
        EXPECT_EQ(result.out, "");
    }
}

TEST(KivStats, HelpStatesTheDefaultLevellingAndTheKurtosisConvention)
{
    const RunResult result = RunKiv({"stats", "--help"});
    ASSERT_EQ(result.exitStatus, 0);
    std::string help = result.out;
    std::replace(help.begin(), help.end(), '\n', ' ');
    help.erase(
        std::unique(help.begin(), help.end(), [](char a, char b) { return a == ' ' && b == ' '; }),
        help.end());
    for (const char* phrase : {"default: plane", "3 for a Gaussian surface", "Sku - 3"})
    {
        EXPECT_NE(help.find(phrase), std::string::npos) << phrase << "\n" << result.out;
    }
}

} // namespace
} // namespace KivToolTest
