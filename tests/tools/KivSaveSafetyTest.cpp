// kiv saves under conditions that used to lose data: content the file type's writer cannot
// keep, several saves of one file at once, and a file-size limit reached mid-save.
#include <chrono>
#include <csignal>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "KivProcess.h"

namespace KivToolTest
{
namespace
{

const char* const IMAGE = "topography_128.flt";
const char* const FORCE = "force_2x300.flt";
const std::size_t IMAGE_DATA_OFFSET = 4096;

// The image with extra lines at the end of "[System Info]", taken out of the padding so that
// the samples stay at "DataOffset".
std::string ImageWithSystemInfoLines(const std::string& lines)
{
    const std::string operatorLine = "Operator=synthetic\r\n";
    std::string bytes = SampleBytes(IMAGE);
    bytes.insert(bytes.find(operatorLine) + operatorLine.size(), lines);
    bytes.erase(IMAGE_DATA_OFFSET, lines.size());
    return bytes;
}

void ExpectFailedAndUntouched(const RunResult& result, const TemporaryFolder& folder,
                              const std::string& name, const std::string& bytes)
{
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(result.ErrorLines().size(), 1u) << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(ReadBytes(folder.File(name)), bytes);
    EXPECT_EQ(folder.List(), std::vector<std::string>{name}); // no temporary file left
}

TEST(KivSave, RefusesAFileHoldingContentTheWriterWouldDrop)
{
    // A header line holding a comma is taken for the force curves' labels, which an image
    // file never writes back.
    const std::string refusal =
        "kiv: topography_128.flt: not saved: the writer would drop content it cannot keep: ";
    struct Case
    {
        const char* what;
        std::vector<std::string> arguments;
        std::string extraLines;
        std::string expectedLine; // the whole line on stderr
    };
    const Case cases[] = {
        {"resave",
         {"resave", IMAGE},
         "Notes=a, b\r\n",
         refusal +
             "line 46: \"Notes=a, b\" holds a comma and is not kept (--allow-loss saves anyway)\n"},
        {"set, item in Latin-1",
         {"set", IMAGE, "[System Info]", "Operator", "x"},
         "Notes=Zo\xEB, b\r\n",
         refusal + "line 46: \"Notes=Zo\xC3\xAB, b\" holds a comma and is not kept (--allow-loss "
                   "saves anyway)\n"},
        {"unset, two items",
         {"unset", IMAGE, "[System Info]", "Operator"},
         "Notes=a, b\r\nMore=c, d\r\n",
         refusal + "line 46: \"Notes=a, b\" holds a comma and is not kept (and 1 more; "
                   "--allow-loss saves anyway)\n"},
    };
    for (const Case& test : cases)
    {
        SCOPED_TRACE(test.what);
        TemporaryFolder folder;
        const std::string bytes = ImageWithSystemInfoLines(test.extraLines);
        WriteBytes(folder.File(IMAGE), bytes);

        const RunResult result = RunKiv(test.arguments, folder.Path());

        EXPECT_EQ(result.err, test.expectedLine);
        ExpectFailedAndUntouched(result, folder, IMAGE, bytes);
    }
}

TEST(KivSave, ParallelSetsOfOneFileKeepEveryKey)
{
    const int saves = 8;
    TemporaryFolder folder;
    WriteBytes(folder.File("c.flt"), SampleBytes(IMAGE));
    std::vector<RunResult> results(saves);
    std::vector<std::thread> threads;
    for (int i = 0; i < saves; ++i)
    {
        threads.emplace_back(
            [&, i]
            {
                const std::string n = std::to_string(i);
                results[i] =
                    RunKiv({"set", "c.flt", "[System Info]", "Key" + n, "v" + n}, folder.Path());
            });
    }
    for (auto& thread : threads)
    {
        thread.join();
    }

    const RunResult dump = RunKiv({"dump", "--json", "c.flt"}, folder.Path());
    ASSERT_EQ(dump.exitStatus, 0) << dump.err;
    const auto section = nlohmann::json::parse(dump.out)["entries"]["[System Info]"]["entries"];
    for (int i = 0; i < saves; ++i)
    {
        const std::string n = std::to_string(i);
        SCOPED_TRACE("Key" + n);
        EXPECT_EQ(results[i].exitStatus, 0) << results[i].err;
        ASSERT_TRUE(section.contains("Key" + n));
        EXPECT_EQ(section["Key" + n]["value"], "v" + n);
    }
    EXPECT_EQ(folder.List(), std::vector<std::string>{"c.flt"});
}

TEST(KivSave, AFileSizeLimitFailsTheSaveAndLeavesNoTemporaryFile)
{
    struct Case
    {
        const char* what;
        std::string name;
        std::vector<std::string> arguments;
        std::uint64_t maxFileBytes;
    };
    const Case cases[] = {
        // The limit is reached while the file is copied.
        {"copying", IMAGE, {"set", IMAGE, "[System Info]", "Operator", "x"}, 20480},
        // The copy fits exactly; the writer's longer header does not.
        {"writing",
         FORCE,
         {"set", FORCE, "[Point Spectroscopy Data]", "Tip", "Si3N4"},
         SampleBytes(FORCE).size()},
    };
    for (const Case& test : cases)
    {
        SCOPED_TRACE(test.what);
        TemporaryFolder folder;
        const std::string bytes = SampleBytes(test.name);
        WriteBytes(folder.File(test.name), bytes);

        const RunResult result =
            RunKivWithFileSizeLimit(test.maxFileBytes, test.arguments, folder.Path());

        EXPECT_EQ(result.err.rfind("kiv: " + test.name + ": not saved: ", 0), 0u) << result.err;
        EXPECT_NE(result.err.find("File too large"), std::string::npos) << result.err;
        ExpectFailedAndUntouched(result, folder, test.name, bytes);
    }
}

// The sample's header over 2048 x 2048 samples: large enough that a save takes a while.
std::string LargeImage()
{
    std::string header = SampleBytes(IMAGE).substr(0, IMAGE_DATA_OFFSET);
    for (const std::string key : {"ResolutionX=", "ResolutionY="})
    {
        header.replace(header.find(key + "128"), key.size() + 3, key + "1024");
    }
    header.resize(IMAGE_DATA_OFFSET); // the two longer lines take two bytes of the padding
    // 4 MiB of samples: a save long enough to be hit at many moments, short enough for many
    // trials.
    return header + std::string(1024 * 1024 * 4, '\0');
}

// Kills saves with SIGKILL at spread-out moments, from the start of kiv to past the end of an
// unhindered save: whatever the moment, the folder holds the old file or the new one. The one
// thing a kill can leave beside it is the complete new copy under its hidden name, when it
// lands in the microseconds between naming the copy and renaming it over the file (Linux has
// no call that does both); the next save of the file removes it.
TEST(KivSave, ASaveKilledAtAnyMomentLeavesTheOldOrTheNewFileAlone)
{
    TemporaryFolder folder;
    const std::string old = LargeImage();
    const std::vector<std::string> save = {"set", "large.flt", "[System Info]", "Operator", "x"};
    WriteBytes(folder.File("large.flt"), old);
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(RunKiv(save, folder.Path()).exitStatus, 0);
    const auto saveTime = std::chrono::steady_clock::now() - start;
    const std::string saved = ReadBytes(folder.File("large.flt"));
    ASSERT_NE(saved, old);

    constexpr int TRIALS = 40;
    int oldKept = 0;
    int newKept = 0;
    int namedButNotRenamed = 0;
    for (int trial = 0; trial < TRIALS; ++trial)
    {
        SCOPED_TRACE("trial " + std::to_string(trial));
        WriteBytes(folder.File("large.flt"), old);
        RunningKiv kiv(save, folder.Path());
        std::this_thread::sleep_for(saveTime * (trial + 1) / (TRIALS - 5));
        kill(kiv.Pid(), SIGKILL);
        kiv.Wait();

        auto names = folder.List();
        if (names.size() == 2 && names[0].rfind(".large.flt.kiv-", 0) == 0)
        {
            ++namedButNotRenamed;
            EXPECT_EQ(ReadBytes(folder.File(names[0])), saved);
            const std::string now = ReadBytes(folder.File("large.flt"));
            ASSERT_EQ(RunKiv(save, folder.Path()).exitStatus, 0);
            names = folder.List();
            WriteBytes(folder.File("large.flt"), now);
        }
        ASSERT_EQ(names, std::vector<std::string>{"large.flt"});
        const std::string now = ReadBytes(folder.File("large.flt"));
        oldKept += now == old;
        newKept += now == saved;
        ASSERT_TRUE(now == old || now == saved);
    }
    std::cout << "kill test: " << TRIALS << " trials, " << oldKept << " left the old file, "
              << newKept << " the new one, " << namedButNotRenamed << " also the named copy\n";
    EXPECT_GT(oldKept, 0);
}

} // namespace
} // namespace KivToolTest
