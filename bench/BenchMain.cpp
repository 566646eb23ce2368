// The Pelrix benchmarks' program: makes the run's temporary folder, registers the plug-in's
// file type, runs the benchmarks and closes with a summary of each target.
#include <cstdio>
#include <exception>
#include <iomanip>
#include <malloc.h>
#include <map>
#include <sstream>
#include <vector>

#include <benchmark/benchmark.h>

#include "BenchFiles.h"

namespace KivBench
{
namespace
{

// A goal for one counter of one benchmark. Missing it is reported, never a failure: times
// depend on the machine and its load.
struct Target
{
    const char* benchmark;
    const char* counter;
    bool atMost; // the counter must stay at or below the limit, else at or above it
    double limit;
    const char* what;
};

const Target TARGETS[] = {
    {"BM_OpenImage4096", "ratio", true, 1.15, "open 4096 x 4096 image vs read()"},
    {"BM_OpenImage512RealisticHeader", "ratio", true, 1.5, "open 512 x 512 image vs read()"},
    {"BM_ReadForceFile", "MB_per_s", false, 500.0, "read force file, MB/s of text"},
    {"BM_SaveImage4096", "ratio", true, 1.15, "save 4096 x 4096 image vs write()"},
    {"BM_WriteForceFile", "MB_per_s", false, 400.0, "write force file, MB/s of text"},
};

// Google Benchmark's usual table, followed by one line per target.
class TargetSummaryReporter : public benchmark::ConsoleReporter
{
public:
    void ReportRuns(const std::vector<Run>& runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs)
        {
            m_Runs[run.run_name.function_name] = run;
        }
    }

    void Finalize() override
    {
        ConsoleReporter::Finalize();
        std::ostream& out = GetOutputStream();
        out << "\nTargets (ratio: median over rounds of plug-in time / baseline time, both "
               "measured in the same round;\n"
               "         MB_per_s: from the median round; best: from the fastest rounds)\n";
        for (const Target& target : TARGETS)
        {
            out << "  " << std::left << std::setw(40) << target.what << std::right
                << SummaryOf(target) << '\n';
        }
    }

    bool AnyRunFailed() const
    {
        for (const auto& run : m_Runs)
        {
            if (run.second.error_occurred)
            {
                return true;
            }
        }
        return false;
    }

private:
    std::string SummaryOf(const Target& target) const
    {
        const auto run = m_Runs.find(target.benchmark);
        if (run == m_Runs.end())
        {
            return "not run";
        }
        if (run->second.error_occurred)
        {
            return "FAILED: " + run->second.error_message;
        }
        const auto& counters = run->second.counters;
        const auto value = counters.find(target.counter);
        if (value == counters.end())
        {
            return "no counter " + std::string(target.counter);
        }
        const double measured = value->second.value;
        const bool met = target.atMost ? measured <= target.limit : measured >= target.limit;
        std::ostringstream text;
        text << std::fixed << std::setprecision(target.atMost ? 3 : 1) << target.counter << ' '
             << std::setw(8) << measured << "  (target " << (target.atMost ? "<= " : ">= ")
             << target.limit << ")  " << (met ? "met" : "MISSED");
        const auto best = counters.find(std::string(target.counter) + "_best");
        if (best != counters.end())
        {
            text << "  best " << best->second.value;
        }
        return text.str();
    }

    std::map<std::string, Run> m_Runs;
};

} // namespace
} // namespace KivBench

int main(int argc, char** argv)
{
    // glibc raises its mmap threshold after the first large block is freed, and then serves
    // the next megabyte-sized blocks from heap pages that may or may not still be mapped: the
    // plug-in's matrix and the baseline's buffer would pay page faults by chance. A fixed
    // threshold (glibc's own default) gives every large block fresh pages, on both sides.
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
    {
        return 1;
    }
    bool failed = false;
    try
    {
        KivBench::TemporaryFolder folder("kiv-bench");
        KivBench::SetRunFolder(&folder);
        KivBench::RegisterPelrixFileType();
        KivBench::TargetSummaryReporter reporter;
        benchmark::RunSpecifiedBenchmarks(&reporter);
        KivBench::SetRunFolder(nullptr);
        failed = reporter.AnyRunFailed();
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "kiv_bench_pelrix: %s\n", error.what());
        return 1;
    }
    benchmark::Shutdown();
    // A benchmark fails when what it measured was wrong (a file read or saved incorrectly),
    // never because it was slow.
    return failed ? 1 : 0;
}
