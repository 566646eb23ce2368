// Opening Pelrix files through the host, each measured side by side with plain read() of the
// same file.
#include <map>

#include <benchmark/benchmark.h>

#include "BaselineIO.h"
#include "BenchFiles.h"
#include "PairedTiming.h"
#include "PelrixChecks.h"

namespace KivBench
{
namespace
{

// One round: the host opens (recognition included) and reads the file; the baseline reads the
// same bytes into a fresh buffer. Freeing either result is not timed.
void OpenAndReadRound(PairedTiming& timing, const PreparedFile& file)
{
    boost::shared_ptr<Kiv::DataCore::DataFile> opened;
    MallocBuffer bytes;
    const auto plugin = [&] { opened = OpenForReading(file.path); };
    const auto baseline = [&] { bytes = ReadWholeFile(file.path, file.size); };
    if (timing.NextRoundRunsBaselineFirst())
    {
        timing.Baseline(baseline);
        timing.Plugin(plugin);
    }
    else
    {
        timing.Plugin(plugin);
        timing.Baseline(baseline);
    }
    benchmark::DoNotOptimize(bytes.get());
    timing.Untimed(
        [&]
        {
            opened.reset();
            bytes.reset();
        });
}

void RunImageOpenBenchmark(benchmark::State& state, const ImageFileLayout& layout,
                           const std::string& name)
{
    static std::map<std::string, PreparedFile> files;
    if (files.count(name) == 0)
    {
        files[name] = PrepareImageFile(layout, name);
    }
    const PreparedFile& file = files[name];
    // One open outside the loop checks what is read and pays the one-time costs of a process
    // (the unit database is loaded on the first unit met).
    const std::string fault = CheckImage(*OpenForReading(file.path), layout);
    if (!fault.empty())
    {
        state.SkipWithError(fault.c_str());
        return;
    }
    PairedTiming timing(state);
    for (auto _ : state)
    {
        OpenAndReadRound(timing, file);
    }
    timing.ReportCounters();
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * file.size));
}

void BM_OpenImage4096(benchmark::State& state)
{
    RunImageOpenBenchmark(state, LARGE_IMAGE, "image-4096.flt");
}

void BM_OpenImage512RealisticHeader(benchmark::State& state)
{
    RunImageOpenBenchmark(state, SMALL_IMAGE, "image-512.flt");
}

void BM_ReadForceFile(benchmark::State& state)
{
    static const PreparedFile file = PrepareForceFile(FORCE_LINES, FORCE_SERIES, "force-read.flt");
    const std::string fault =
        CheckForceCurves(*OpenForReading(file.path), FORCE_LINES, FORCE_SERIES);
    if (!fault.empty())
    {
        state.SkipWithError(fault.c_str());
        return;
    }
    PairedTiming timing(state);
    for (auto _ : state)
    {
        OpenAndReadRound(timing, file);
    }
    timing.ReportCounters();
    timing.ReportMegabytesPerSecond(static_cast<double>(file.dataTextBytes));
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * file.dataTextBytes));
}

} // namespace

BENCHMARK(BM_OpenImage4096)->Unit(benchmark::kMillisecond)->Iterations(12)->UseRealTime();
BENCHMARK(BM_OpenImage512RealisticHeader)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(400)
    ->UseRealTime();
BENCHMARK(BM_ReadForceFile)->Unit(benchmark::kMillisecond)->Iterations(40)->UseRealTime();

} // namespace KivBench
