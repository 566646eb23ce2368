// The save policy through the built kiv: loss refused or allowed, strict verification either
// way, the moved "DataOffset", dry runs and units, checked against the files' own bytes.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "KivProcess.h"
#include "SampleBytes.h"

namespace KivToolTest
{
namespace
{

const char* const IMAGE = "topography_128.flt";
const char* const FORCE = "force_2x300.flt";

// The image with a note the writer cannot keep, taken out of the padding so that the samples
// stay at "DataOffset".
std::string ImageWithCommaNote()
{
    const std::string operatorLine = "Operator=synthetic\r\n";
    const std::string note = "Notes=a, b\r\n";
    std::string bytes = SampleBytes(IMAGE);
    bytes.insert(bytes.find(operatorLine) + operatorLine.size(), note);
    bytes.erase(4096, note.size());
    return bytes;
}

// The force sample with its third data line's seventh value replaced by one that six
// decimals cannot hold.
std::string ForceWithTinyValue()
{
    std::string bytes = SampleBytes(FORCE);
    std::size_t at = bytes.find("[Data]\r\n") + 8;
    at = bytes.find('\n', bytes.find('\n', at) + 1) + 1;
    for (int tab = 0; tab < 6; ++tab)
    {
        at = bytes.find('\t', at) + 1;
    }
    bytes.replace(at, bytes.find('\t', at) - at, "1e-07");
    return bytes;
}

struct Saved
{
    RunResult result;
    std::string bytes;
};

Saved SaveIn(const std::string& name, const std::string& bytes, std::vector<std::string> arguments)
{
    TemporaryFolder folder;
    WriteBytes(folder.File(name), bytes);
    Saved saved{RunKiv(arguments, folder.Path()), ReadBytes(folder.File(name))};
    EXPECT_EQ(folder.List(), std::vector<std::string>{name});
    return saved;
}

TEST(KivSavePolicy, LossIsRefusedByDefaultAndSavedWithAllowLoss)
{
    struct Case
    {
        const char* what;
        const char* name;
        std::string bytes;
        std::vector<std::string> arguments;
        std::string item;
    };
    const Case cases[] = {
        {"note with a comma, resave",
         IMAGE,
         ImageWithCommaNote(),
         {"resave", IMAGE},
         "line 46: \"Notes=a, b\" holds a comma and is not kept"},
        {"note with a comma, set",
         IMAGE,
         ImageWithCommaNote(),
         {"set", IMAGE, "[System Info]", "Operator", "x"},
         "line 46: \"Notes=a, b\" holds a comma and is not kept"},
        {"force value six decimals cannot hold",
         FORCE,
         ForceWithTinyValue(),
         {"resave", FORCE},
         "line 3, value 7: 1e-07 is written as 0.000000"},
    };
    for (const Case& test : cases)
    {
        SCOPED_TRACE(test.what);
        const Saved refused = SaveIn(test.name, test.bytes, test.arguments);
        EXPECT_EQ(refused.result.exitStatus, 1);
        EXPECT_EQ(refused.result.err, std::string("kiv: ") + test.name +
                                          ": not saved: the writer would drop content it "
                                          "cannot keep: " +
                                          test.item + " (--allow-loss saves anyway)\n");
        EXPECT_EQ(refused.bytes, test.bytes);

        std::vector<std::string> allowing = test.arguments;
        allowing.push_back("--allow-loss");
        const Saved saved = SaveIn(test.name, test.bytes, allowing);
        EXPECT_EQ(saved.result.exitStatus, 0);
        EXPECT_EQ(saved.result.err,
                  std::string("kiv: ") + test.name + ": dropped: " + test.item + "\n");
        EXPECT_NE(saved.bytes, test.bytes);
    }
}

TEST(KivSavePolicy, AllowedLossSavesWhatTheWriterWrote)
{
    const Saved note = SaveIn(IMAGE, ImageWithCommaNote(), {"resave", IMAGE, "--allow-loss"});
    EXPECT_EQ(note.bytes.find("Notes="), std::string::npos);
    EXPECT_EQ(ImageSamples(note.bytes), ImageSamples(SampleBytes(IMAGE)));

    const Saved force = SaveIn(FORCE, ForceWithTinyValue(), {"resave", FORCE, "--allow-loss"});
    const auto rows = ForceRows(force.bytes);
    ASSERT_GE(rows.size(), 3u);
    EXPECT_EQ(rows[2][6], 0.0f);
    EXPECT_EQ(rows[2][5], ForceRows(SampleBytes(FORCE))[2][5]);
}

TEST(KivSavePolicy, AResultThatDoesNotReadBackIsRefusedEvenWithAllowLoss)
{
    const std::string bytes = ImageWithEmptyScanRange();
    const Saved refused = SaveIn(IMAGE, bytes, {"resave", IMAGE, "--allow-loss"});
    EXPECT_EQ(refused.result.exitStatus, 1);
    EXPECT_NE(refused.result.err.find("not saved: 0.0000 unit not found"), std::string::npos)
        << refused.result.err;
    EXPECT_EQ(refused.bytes, bytes);
}

TEST(KivSavePolicy, AGrownHeaderMovesDataOffsetAndTheSamplesFollow)
{
    const std::string original = SampleBytes(IMAGE);
    const Saved saved =
        SaveIn(IMAGE, original, {"set", IMAGE, "[System Info]", "Notes", std::string(3500, 'n')});
    EXPECT_EQ(saved.result.exitStatus, 0) << saved.result.err;
    EXPECT_EQ(saved.result.out, std::string(IMAGE) +
                                    ": saved, [System Info] Notes set; DataOffset moved from "
                                    "4096 to 5120 to make room\n");
    EXPECT_EQ(HeaderValue(saved.bytes, "DataOffset"), "  5120");
    EXPECT_EQ(saved.bytes.size(), 5120u + 128 * 128 * 4);
    EXPECT_EQ(ImageSamples(saved.bytes), ImageSamples(original));
}

TEST(KivSavePolicy, ADryRunShowsTheChangeAndWritesNothing)
{
    const std::string original = SampleBytes(IMAGE);
    const Saved fine = SaveIn(
        IMAGE, original, {"set", IMAGE, "[System Info]", "Operator", "Zo\xC3\xAB", "--dry-run"});
    EXPECT_EQ(fine.result.exitStatus, 0);
    EXPECT_EQ(fine.result.out, "--- header before\n"
                               "+++ header after\n"
                               "@@ -42,6 +42,6 @@\n"
                               " Controller=PX-C4\n"
                               " Firmware=4.1.7\n"
                               " Serial Number=PX3K-00421\n"
                               "-Operator=synthetic\n"
                               "+Operator=Zo\xC3\xAB\n"
                               " \n"
                               " [Data]\n" +
                                   std::string(IMAGE) + ": would be saved\n");
    EXPECT_EQ(fine.bytes, original);

    const std::string lossy = ImageWithCommaNote();
    const Saved refused = SaveIn(IMAGE, lossy, {"resave", IMAGE, "--dry-run"});
    EXPECT_EQ(refused.result.exitStatus, 1);
    EXPECT_NE(refused.result.out.find("-Notes=a, b\n"), std::string::npos) << refused.result.out;
    EXPECT_NE(refused.result.out.find(std::string(IMAGE) + ": would drop: line 46: "),
              std::string::npos);
    EXPECT_EQ(refused.result.ErrorLines().size(), 1u);
    EXPECT_EQ(refused.bytes, lossy);
}

TEST(KivSavePolicy, MicroIsTypedAsUAndStoredAsTheFilesOwnSign)
{
    const Saved saved = SaveIn(IMAGE, SampleBytes(IMAGE),
                               {"set", IMAGE, "[Data Parameters]", "ScanRangeX", "20 um"});
    EXPECT_EQ(saved.result.exitStatus, 0) << saved.result.err;
    EXPECT_EQ(HeaderValue(saved.bytes, "ScanRangeX"), "20 \xB5m");
}

} // namespace
} // namespace KivToolTest

namespace KivToolTest
{
namespace
{

TEST(KivShortFile, InfoAndDumpWarnOnceAndSucceed)
{
    TemporaryFolder folder;
    // 16384 bytes of the 65536 the header promises are cut off: 4096 samples.
    const std::string image = SampleBytes(IMAGE);
    WriteBytes(folder.File(IMAGE), image.substr(0, image.size() - 16384));
    for (const std::string command : {"info", "dump"})
    {
        SCOPED_TRACE(command);
        const RunResult result = RunKiv({command, IMAGE}, folder.Path());
        EXPECT_EQ(result.exitStatus, 0);
        EXPECT_EQ(result.err, std::string("warning: ") + IMAGE +
                                  ": the image ends 16384 bytes early; 4096 samples were "
                                  "missing and read as 0\n");
    }
    EXPECT_EQ(RunKiv({"info", IMAGE}, SamplesFolder()).err, "");
}

} // namespace
} // namespace KivToolTest
