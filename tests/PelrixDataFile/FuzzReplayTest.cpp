// The fuzz target run over the corpus and over deterministic mutations of every corpus file,
// so that each ordinary (and sanitizer) test run repeats what the fuzzer checks. The target is
// compiled into this test from its own file.

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>

#include <gtest/gtest.h>

#include "../fuzz/PelrixFuzzTarget.cpp"
#include "CollectingAlertHandler.h"
#include "ReadTestFiles.h"

namespace fs = std::filesystem;

namespace
{

const fs::path CORPUS = fs::path(KIV_TEST_SOURCE_DIR) / "PelrixDataFile" / "corpus";
constexpr int MUTATIONS_PER_FILE = 300;

struct Sample
{
    std::string name;
    std::string bytes;
};

std::vector<Sample> CorpusFiles()
{
    std::vector<Sample> samples;
    for (const auto& item : fs::directory_iterator(CORPUS))
    {
        if (item.path().extension() == ".flt")
        {
            std::ifstream in(item.path(), std::ios::binary);
            samples.push_back(
                {item.path().filename().string(), std::string(std::istreambuf_iterator<char>(in),
                                                              std::istreambuf_iterator<char>())});
        }
    }
    std::sort(samples.begin(), samples.end(),
              [](const Sample& a, const Sample& b) { return a.name < b.name; });
    return samples;
}

// Mutations from a fixed seed, drawn with plain modulo so that every platform makes the same
// ones: bit flips, truncations, inserted bytes, bytes the format gives meaning to, and numbers
// replaced by hostile ones.
class Mutator
{
public:
    explicit Mutator(std::uint32_t seed) : m_Random(seed) {}

    std::string Mutate(std::string bytes)
    {
        const int steps = 1 + static_cast<int>(Below(3));
        for (int i = 0; i < steps; ++i)
        {
            MutateOnce(bytes);
        }
        return bytes;
    }

private:
    std::uint64_t Below(std::uint64_t bound) { return bound == 0 ? 0 : m_Random() % bound; }

    void MutateOnce(std::string& bytes)
    {
        static const char meaningful[] = {'\n', '\r', '\t', '[', ']', '=',
                                          ',',  ' ',  '0',  'x', '-', '\0'};
        static const char* const numbers[] = {"0",           "-1",         "2147483647",
                                              "-2147483648", "4294967296", "99999999999999999999",
                                              "0x99999999",  "1e400"};
        const std::size_t at = static_cast<std::size_t>(Below(bytes.size() + 1));
        switch (Below(6))
        {
        case 0:
            if (!bytes.empty())
            {
                bytes[at % bytes.size()] ^= static_cast<char>(1u << Below(8));
            }
            break;
        case 1:
            bytes.resize(at);
            break;
        case 2:
            bytes.insert(at, 1 + Below(4), static_cast<char>(Below(256)));
            break;
        case 3:
            if (!bytes.empty())
            {
                bytes[at % bytes.size()] = meaningful[Below(sizeof meaningful)];
            }
            break;
        case 4:
            ReplaceNumber(bytes, at, numbers[Below(sizeof numbers / sizeof numbers[0])]);
            break;
        default:
            // A copy of a stretch of the file elsewhere, such as a repeated header line.
            if (!bytes.empty())
            {
                const std::size_t from = static_cast<std::size_t>(Below(bytes.size()));
                const std::string piece = bytes.substr(from, 1 + Below(64));
                bytes.insert(at, piece);
            }
            break;
        }
    }

    // Replaces the first run of digits at or after at.
    static void ReplaceNumber(std::string& bytes, std::size_t at, const char* number)
    {
        const std::size_t start = bytes.find_first_of("0123456789", at);
        if (start == std::string::npos)
        {
            return;
        }
        const std::size_t end = bytes.find_first_not_of("0123456789", start);
        bytes.replace(start, (end == std::string::npos ? bytes.size() : end) - start, number);
    }

    std::mt19937 m_Random;
};

class FuzzReplay : public ::testing::Test
{
protected:
    // Reads one input as the fuzzer would; an exception other than the host's escaping the
    // target is a finding.
    static void Replay(const std::string& bytes, const std::string& what)
    {
        try
        {
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()),
                                   bytes.size());
        }
        catch (const std::exception& error)
        {
            ADD_FAILURE() << what << ": " << error.what();
        }
    }

    ReadTest::ScopedAllocationLimit m_Limit{PelrixFuzz::ALLOCATION_LIMIT};
    KivTest::ScopedAlertCollector m_Quiet;
};

TEST_F(FuzzReplay, ReadsEveryCorpusFile)
{
    const auto samples = CorpusFiles();
    ASSERT_FALSE(samples.empty());
    for (const auto& sample : samples)
    {
        Replay(sample.bytes, sample.name);
    }
}

TEST_F(FuzzReplay, ReadsMutationsOfEveryCorpusFile)
{
    std::uint32_t seed = 1;
    for (const auto& sample : CorpusFiles())
    {
        Mutator mutator(seed++);
        for (int i = 0; i < MUTATIONS_PER_FILE; ++i)
        {
            Replay(mutator.Mutate(sample.bytes), sample.name + " mutation " + std::to_string(i));
        }
    }
}

} // namespace
