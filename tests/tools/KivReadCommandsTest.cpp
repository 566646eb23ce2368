// kiv as a user runs it: formats, info, dump, selftest and the command line itself.
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <map>
#include <regex>

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

std::string Figure(double value)
{
    char text[64];
    std::snprintf(text, sizeof text, "%.6g", value);
    return text;
}

// "  Label:   value" lines of info, by label.
std::map<std::string, std::string> InfoFields(const std::string& out)
{
    std::map<std::string, std::string> fields;
    std::istringstream lines(out);
    for (std::string line; std::getline(lines, line);)
    {
        const std::size_t colon = line.find(": ");
        if (colon == std::string::npos || line.find('[') != std::string::npos)
        {
            continue;
        }
        const std::size_t labelStart = line.find_first_not_of(' ');
        const std::size_t valueStart = line.find_first_not_of(' ', colon + 1);
        fields[line.substr(labelStart, colon - labelStart)] = line.substr(valueStart);
    }
    return fields;
}

std::size_t CountEntries(const Json& entries)
{
    std::size_t count = 0;
    for (const auto& [key, value] : entries.items())
    {
        ++count;
        if (value["type"] == "container")
        {
            count += CountEntries(value["entries"]);
        }
    }
    return count;
}

float AsFloat(const Json& number)
{
    const double value = number.get<double>();
    const float narrowed = static_cast<float>(value);
    // The dump widens floats exactly, so narrowing must give the value back unchanged.
    EXPECT_EQ(static_cast<double>(narrowed), value);
    return narrowed;
}

TEST(KivFormats, ListsThePelrixFileType)
{
    const RunResult text = RunKiv({"formats"});
    EXPECT_EQ(text.exitStatus, 0) << text.err;
    EXPECT_EQ(text.out, "Pelrix Data File: Pelrix SPM Image File Format (extensions: FLT)\n");

    const RunResult json = RunKiv({"formats", "--json"});
    ASSERT_EQ(json.exitStatus, 0) << json.err;
    EXPECT_EQ(Json::parse(json.out), Json::parse(R"({"fileTypes": [{"type": "Pelrix Data File",
                                             "description": "Pelrix SPM Image File Format",
                                             "extensions": ["FLT"]}]})"));
}

TEST(KivInfo, SummarisesTheSampleImage)
{
    TemporaryFolder folder;
    folder.CopySample(IMAGE);
    const RunResult result = RunKiv({"info", IMAGE}, folder.Path());
    ASSERT_EQ(result.exitStatus, 0) << result.err;
    EXPECT_EQ(result.err, "");

    // The figures, worked out here from the file's bytes.
    const std::vector<float> samples = ImageSamples(ReadBytes(folder.File(IMAGE)));
    double sum = 0.0;
    double minimum = std::numeric_limits<double>::infinity();
    double maximum = -minimum;
    for (const float sample : samples)
    {
        sum += sample;
        minimum = std::min<double>(minimum, sample);
        maximum = std::max<double>(maximum, sample);
    }
    const double mean = sum / static_cast<double>(samples.size());
    double squares = 0.0;
    for (const float sample : samples)
    {
        squares += (sample - mean) * (sample - mean);
    }

    const auto fields = InfoFields(result.out);
    EXPECT_EQ(fields.at("File"), IMAGE);
    EXPECT_EQ(fields.at("Type"), "Pelrix Data File (Pelrix SPM Image File Format)");
    EXPECT_EQ(fields.at("Sub-type"), "IMAGE");
    EXPECT_EQ(fields.at("Size"), "69632 bytes"); // 4096 header bytes + 128 x 128 x 4
    EXPECT_EQ(fields.at("Resolution"), "128 x 128 samples");
    EXPECT_EQ(fields.at("Scan range"), "10 \xC2\xB5m x 10 \xC2\xB5m");
    EXPECT_EQ(fields.at("Pixel size"), "0.078125 \xC2\xB5m x 0.078125 \xC2\xB5m");
    EXPECT_EQ(fields.at("Minimum"), Figure(minimum));
    EXPECT_EQ(fields.at("Maximum"), Figure(maximum));
    EXPECT_EQ(fields.at("Mean"), Figure(mean));
    EXPECT_EQ(fields.at("RMS roughness"),
              Figure(std::sqrt(squares / static_cast<double>(samples.size()))));
    // Every header section with its key count, as the generator wrote them.
    for (const char* line : {"[Data Version]          3 keys", "[Data Parameters]       14 keys",
                             "[Custom Color Table]    5 keys", "[PreProcessing]         2 keys",
                             "[Piezo Parameters]      5 keys", "[System Info]           5 keys"})
    {
        EXPECT_NE(result.out.find(std::string("  ") + line + "\n"), std::string::npos) << line;
    }
}

TEST(KivInfo, SummarisesTheSampleForceFile)
{
    TemporaryFolder folder;
    folder.CopySample(FORCE);
    const RunResult result = RunKiv({"info", FORCE}, folder.Path());
    ASSERT_EQ(result.exitStatus, 0) << result.err;

    const auto fields = InfoFields(result.out);
    EXPECT_EQ(fields.at("Sub-type"), "FORCE");
    EXPECT_EQ(fields.at("Series"), "2");
    EXPECT_EQ(fields.at("Points"), "300 (300 read)");
    EXPECT_EQ(fields.at("Values a point"), "8"); // four columns a series
    const auto labels = ForceLabels(ReadBytes(folder.File(FORCE)));
    ASSERT_EQ(labels.size(), 8u);
    for (std::size_t i = 0; i < labels.size(); ++i)
    {
        const std::string line =
            "    " + std::to_string(i + 1) + ". " + Latin1ToUtf8(labels[i]) + "\n";
        EXPECT_NE(result.out.find(line), std::string::npos) << line;
    }
    EXPECT_NE(result.out.find("Z Approach 1 (\xC2\xB5m)"), std::string::npos);
}

TEST(KivInfo, CountsSamplesThatAreNotNumbers)
{
    TemporaryFolder folder;
    std::string bytes = SampleBytes(IMAGE);
    const float dropouts[] = {std::numeric_limits<float>::quiet_NaN(),
                              std::numeric_limits<float>::infinity(),
                              -std::numeric_limits<float>::infinity()};
    std::memcpy(&bytes[4096], dropouts, sizeof dropouts); // the first three samples of row 0
    WriteBytes(folder.File("dropouts.flt"), bytes);

    const RunResult info = RunKiv({"info", "dropouts.flt"}, folder.Path());
    ASSERT_EQ(info.exitStatus, 0) << info.err;
    EXPECT_EQ(InfoFields(info.out).at("Not a number"), "3 samples");
    EXPECT_EQ(InfoFields(info.out).at("Minimum").find("nan"), std::string::npos);

    // JSON has no NaN or infinity: they travel as strings, every other sample as a number.
    const RunResult dump = RunKiv({"dump", "--json", "--data", "dropouts.flt"}, folder.Path());
    ASSERT_EQ(dump.exitStatus, 0) << dump.err;
    const Json row = Json::parse(dump.out)["entries"]["[Data]"]["entries"]["RawData"]["data"][0];
    EXPECT_EQ(row[0], "nan");
    EXPECT_EQ(row[1], "inf");
    EXPECT_EQ(row[2], "-inf");
    EXPECT_TRUE(row[3].is_number());
}

TEST(KivDump, JsonOfEachSampleMatchesItsGoldenDump)
{
    for (const std::string name : {IMAGE, FORCE})
    {
        SCOPED_TRACE(name);
        TemporaryFolder folder;
        folder.CopySample(name);
        const RunResult result = RunKiv({"dump", "--json", name}, folder.Path());
        ASSERT_EQ(result.exitStatus, 0) << result.err;
        const std::string golden = name.substr(0, name.size() - 4) + ".json";
        EXPECT_EQ(result.out, SampleBytes(golden))
            << "regenerate with: cmake --build build --target samples";
    }
}

TEST(KivDump, JsonWithDataHoldsTheImageSamplesExactly)
{
    TemporaryFolder folder;
    folder.CopySample(IMAGE);
    const RunResult result = RunKiv({"dump", "--json", "--data", IMAGE}, folder.Path());
    ASSERT_EQ(result.exitStatus, 0) << result.err;
    const Json raw = Json::parse(result.out)["entries"]["[Data]"]["entries"]["RawData"];
    EXPECT_EQ(raw["rows"], 128);
    EXPECT_EQ(raw["cols"], 128);
    EXPECT_FALSE(raw.contains("min")); // the figures stand in for the data only without it

    const std::vector<float> samples = ImageSamples(ReadBytes(folder.File(IMAGE)));
    ASSERT_EQ(raw["data"].size(), 128u);
    std::size_t mismatches = 0;
    for (std::size_t row = 0; row < 128; ++row)
    {
        ASSERT_EQ(raw["data"][row].size(), 128u);
        for (std::size_t column = 0; column < 128; ++column)
        {
            mismatches += AsFloat(raw["data"][row][column]) != samples[row * 128 + column];
        }
    }
    EXPECT_EQ(mismatches, 0u);
}

TEST(KivDump, JsonWithDataHoldsTheForceCurvesExactly)
{
    TemporaryFolder folder;
    folder.CopySample(FORCE);
    const RunResult result = RunKiv({"dump", "--json", "--data", FORCE}, folder.Path());
    ASSERT_EQ(result.exitStatus, 0) << result.err;
    const Json raw = Json::parse(result.out)["entries"]["[Data]"]["entries"]["RawData"];
    const auto rows = ForceRows(ReadBytes(folder.File(FORCE)));
    ASSERT_EQ(rows.size(), 300u);
    EXPECT_EQ(raw["count"], 300);
    ASSERT_EQ(raw["data"].size(), 300u);
    for (std::size_t i = 0; i < rows.size(); ++i)
    {
        ASSERT_EQ(raw["data"][i].size(), 8u);
        for (std::size_t j = 0; j < 8; ++j)
        {
            EXPECT_EQ(AsFloat(raw["data"][i][j]), rows[i][j]) << "point " << i << " value " << j;
        }
    }
}

// The dump is written as the tree is walked; the keys of a large section must still come out
// in the file's order (not sorted, not hashed), each once, with the characters JSON escapes.
TEST(KivDump, JsonKeepsTheOrderOfManyKeys)
{
    constexpr int KEY_COUNT = 5000;
    TemporaryFolder folder;
    const std::string sample = SampleBytes(IMAGE);
    std::vector<std::string> keys;
    std::string notes = "[Notes]\r\n";
    for (int i = 0; i < KEY_COUNT; ++i)
    {
        // A scrambled order that sorting by name or number would change.
        keys.push_back("Note " + std::to_string((i * 7919) % KEY_COUNT));
        notes += keys.back() + "=value " + std::to_string(i) + "\r\n";
    }
    keys.push_back("Quote\" and \\ and \xB5");
    notes += keys.back() + "=last\r\n\r\n";
    // The notes move the samples out to a new "DataOffset"; the header is padded up to it.
    const std::string offsetKey = "DataOffset=" + HeaderValue(sample, "DataOffset");
    const std::size_t dataLine = sample.find("[Data]\r\n");
    const std::string newOffset = std::to_string(1 << 20);
    std::string bytes = sample.substr(0, dataLine) + notes + "[Data]\r\n";
    bytes.replace(bytes.find(offsetKey), offsetKey.size(), "DataOffset=" + newOffset);
    bytes.resize(std::size_t{1} << 20, '\0');
    bytes += sample.substr(std::stoul(HeaderValue(sample, "DataOffset")));
    WriteBytes(folder.File("notes.flt"), bytes);

    const RunResult dump = RunKiv({"dump", "--json", "notes.flt"}, folder.Path());
    ASSERT_EQ(dump.exitStatus, 0) << dump.err;
    const Json entries = Json::parse(dump.out)["entries"]["[Notes]"]["entries"];
    ASSERT_EQ(entries.size(), keys.size());
    std::size_t index = 0;
    for (const auto& [key, value] : entries.items())
    {
        ASSERT_EQ(key, Latin1ToUtf8(keys[index])) << "entry " << index;
        ++index;
    }
    EXPECT_EQ(entries[Latin1ToUtf8(keys.back())]["value"], "last");
    EXPECT_EQ(entries["Note 0"]["value"], "value 0");
}

TEST(KivDump, TextShowsOneEntryALineInUtf8)
{
    TemporaryFolder folder;
    folder.CopySample(IMAGE);
    const RunResult text = RunKiv({"dump", IMAGE}, folder.Path());
    const RunResult json = RunKiv({"dump", "--json", IMAGE}, folder.Path());
    ASSERT_EQ(text.exitStatus, 0) << text.err;
    ASSERT_EQ(json.exitStatus, 0) << json.err;

    std::size_t lines = 0;
    for (const char c : text.out)
    {
        lines += c == '\n';
    }
    EXPECT_EQ(lines, 3 + CountEntries(Json::parse(json.out)["entries"]));
    EXPECT_EQ(text.out.rfind("file: topography_128.flt\nfileType: Pelrix Data File\nentries:\n", 0),
              0u);
    EXPECT_NE(text.out.find("\n  [Data Parameters]: container, 14 entries\n"), std::string::npos);
    EXPECT_NE(text.out.find("\n    ScanRangeX: unitized 10 \xC2\xB5m\n"), std::string::npos);
    EXPECT_NE(text.out.find("\n    ScanningRate: string \"20.0000 \xC2\xB5m/s\"\n"),
              std::string::npos);
    EXPECT_NE(text.out.find("\n    RawData: matrix, 128 x 128, min "), std::string::npos);
    // Every micro sign is the two UTF-8 bytes, never the bare Latin-1 byte.
    for (std::size_t at = text.out.find('\xB5'); at != std::string::npos;
         at = text.out.find('\xB5', at + 1))
    {
        ASSERT_GT(at, 0u);
        EXPECT_EQ(text.out[at - 1], '\xC2');
    }

    const RunResult withData = RunKiv({"dump", "--data", IMAGE}, folder.Path());
    ASSERT_EQ(withData.exitStatus, 0) << withData.err;
    EXPECT_NE(withData.out.find("\n      row 127: "), std::string::npos);
}

TEST(KivSelftest, RunsTheModuleSuites)
{
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"selftest"}, {"selftest", "PelrixDataFile"}})
    {
        const RunResult result = RunKiv(arguments);
        EXPECT_EQ(result.exitStatus, 0) << result.out << result.err;
        std::smatch summary;
        ASSERT_TRUE(std::regex_search(result.out, summary,
                                      std::regex("(^|\n)([0-9]+) passed, 0 failed\n$")))
            << result.out;
        EXPECT_GT(std::stoi(summary[2]), 0);
    }
    const RunResult unknown = RunKiv({"selftest", "NoSuchModule"});
    EXPECT_EQ(unknown.exitStatus, 1);
    ASSERT_EQ(unknown.ErrorLines().size(), 1u) << unknown.err;
    EXPECT_NE(unknown.err.find("NoSuchModule"), std::string::npos);
}

TEST(KivCommandLine, EveryCommandHasHelp)
{
    for (const std::string command :
         {"", "formats", "info", "dump", "set", "unset", "resave", "selftest", "stats", "profile"})
    {
        SCOPED_TRACE(command);
        const RunResult result =
            RunKiv(command.empty() ? std::vector<std::string>{"--help"}
                                   : std::vector<std::string>{command, "--help"});
        EXPECT_EQ(result.exitStatus, 0);
        EXPECT_EQ(result.err, "");
        EXPECT_NE(result.out.find("Usage: kiv" + (command.empty() ? "" : " " + command)),
                  std::string::npos)
            << result.out;
    }
}

TEST(KivCommandLine, UsageErrorsExitWithStatusTwo)
{
    const std::vector<std::vector<std::string>> cases = {
        {},                               // no command
        {"bogus"},                        // no such command
        {"info"},                         // FILE missing
        {"info", "a.flt", "b.flt"},       // one file too many
        {"dump", "--bogus", "a.flt"},     // no such option
        {"set", "a.flt", "[Sec]", "Key"}, // VALUE missing
        {"unset", "a.flt", "[Sec]"},      // KEY missing
    };
    for (const auto& arguments : cases)
    {
        const RunResult result = RunKiv(arguments);
        EXPECT_EQ(result.exitStatus, 2) << testing::PrintToString(arguments);
        EXPECT_EQ(result.ErrorLines().size(), 1u) << result.err;
        EXPECT_EQ(result.out, "");
    }
}

// A Pelrix file with its header cut before the "[Data]" line.
std::string TruncatedHeader()
{
    const std::string bytes = SampleBytes(IMAGE);
    return bytes.substr(0, bytes.find("[Data]\r\n"));
}

// A force file that names no series.
std::string ForceWithoutSeries()
{
    std::string bytes = SampleBytes(FORCE);
    const std::string line = "Series Number=2";
    bytes.replace(bytes.find(line), line.size(), "Series Number=0");
    return bytes;
}

TEST(KivReadCommands, FailuresNameTheFileOnOneLine)
{
    struct Case
    {
        const char* name;
        std::string bytes; // no file is written when empty
        const char* reason;
    };
    const Case cases[] = {
        {"missing.flt", "", "No such file or directory"},
        {"notes.txt", "just some text\n", "no registered file type recognises this file"},
        {"truncated.flt", TruncatedHeader(), "[Data]"},
        {"no-series.flt", ForceWithoutSeries(), "Missing Series Number"},
    };
    for (const Case& test : cases)
    {
        TemporaryFolder folder;
        if (!test.bytes.empty())
        {
            WriteBytes(folder.File(test.name), test.bytes);
        }
        for (const std::vector<std::string>& arguments :
             {std::vector<std::string>{"info", test.name},
              {"dump", test.name},
              {"dump", "--json", test.name}})
        {
            const RunResult result = RunKiv(arguments, folder.Path());
            SCOPED_TRACE(testing::PrintToString(arguments));
            EXPECT_EQ(result.exitStatus, 1);
            ASSERT_EQ(result.ErrorLines().size(), 1u) << result.err;
            EXPECT_EQ(result.err.rfind(std::string("kiv: ") + test.name + ": ", 0), 0u)
                << result.err;
            EXPECT_NE(result.err.find(test.reason), std::string::npos) << result.err;
        }
    }
}

} // namespace
} // namespace KivToolTest
