// Saving Pelrix files: a file opened read-write, changed through a value, then closed, which
// writes it back in place; each measured side by side with plain write() of the same bytes.
#include <benchmark/benchmark.h>

#include "BaselineIO.h"
#include "BenchFiles.h"
#include "PairedTiming.h"
#include "PelrixChecks.h"

namespace KivBench
{
namespace
{

using Kiv::DataCore::DataFile;

// A change the way a user makes one: a value stored again in one of the file's sections,
// which the section reports up to the file. The value is the one the file holds, so the saved
// file must come out byte for byte as it was.
void ChangeImageValue(DataFile& file, std::int32_t colorTableIndex)
{
    file.GetSubData({"[Data Parameters]"}, false)
        ->Put<Kiv::DataCore::HostLong>("Color Table Index", colorTableIndex);
}

void ChangeForceValue(DataFile& file)
{
    file.GetSubData({"[Point Spectroscopy Data]"}, false)->Put<std::string>("Leveling", "None");
}

// One round: the plug-in's Close writes the changed file back; the baseline writes the same
// number of bytes from memory over a file of the same size in the same folder and closes it.
// Opening either file is not timed.
template <class Change>
void SaveRound(PairedTiming& timing, const PreparedFile& file, const std::string& baselinePath,
               const char* baselineBytes, Change&& change)
{
    boost::shared_ptr<DataFile> opened;
    std::unique_ptr<RawOutputFile> raw;
    timing.Untimed(
        [&]
        {
            opened = OpenForReadWrite(file.path);
            change(*opened);
            raw = std::make_unique<RawOutputFile>(baselinePath);
        });
    const auto plugin = [&] { opened->Close(); };
    const auto baseline = [&] { raw->WriteAllAndClose(baselineBytes, file.size); };
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
    timing.Untimed(
        [&]
        {
            opened.reset();
            raw.reset();
        });
}

// Proves that the saves measured really wrote: a different value must reach the file, and the
// original value written back must restore the original bytes.
std::string CheckImageSaves(const PreparedFile& file)
{
    auto opened = OpenForReadWrite(file.path);
    ChangeImageValue(*opened, 5);
    opened->Close();
    Kiv::DataCore::HostLong stored = 0;
    OpenForReading(file.path)
        ->GetSubData({"[Data Parameters]"}, false)
        ->Get("Color Table Index", stored);
    if (stored != 5)
    {
        return "a changed value did not reach the saved file";
    }
    opened = OpenForReadWrite(file.path);
    ChangeImageValue(*opened, 2);
    opened->Close();
    return ImageFileMatches(file.path, LARGE_IMAGE) ? ""
                                                    : "the saved image file differs from the "
                                                      "file that was read";
}

void BM_SaveImage4096(benchmark::State& state)
{
    static const PreparedFile file = PrepareImageFile(LARGE_IMAGE, "image-4096-save.flt");
    static const std::string baselinePath = RunFolder().FilePath("image-4096-baseline.bin");
    const MallocBuffer bytes = ReadWholeFile(file.path, file.size);
    // The baseline's file is made exactly as the plug-in's was: how a file was first written
    // decides the size of its pages in the page cache, which changes the cost of rewriting it
    // in place by a factor of two.
    WriteImageFile(baselinePath, LARGE_IMAGE);
    PairedTiming timing(state);
    for (auto _ : state)
    {
        SaveRound(timing, file, baselinePath, bytes.get(),
                  [](DataFile& opened) { ChangeImageValue(opened, 2); });
    }
    timing.ReportCounters();
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * file.size));
    const std::string fault = CheckImageSaves(file);
    if (!fault.empty())
    {
        state.SkipWithError(fault.c_str());
    }
}

void BM_WriteForceFile(benchmark::State& state)
{
    static const PreparedFile file = PrepareForceFile(FORCE_LINES, FORCE_SERIES, "force-save.flt");
    static const std::string baselinePath = RunFolder().FilePath("force-baseline.txt");
    const std::string fault =
        CheckForceCurves(*OpenForReading(file.path), FORCE_LINES, FORCE_SERIES);
    if (!fault.empty())
    {
        state.SkipWithError(fault.c_str());
        return;
    }
    WriteWholeFile(baselinePath, file.expectedBytes);
    PairedTiming timing(state);
    for (auto _ : state)
    {
        SaveRound(timing, file, baselinePath, file.expectedBytes.data(), ChangeForceValue);
    }
    timing.ReportCounters();
    timing.ReportMegabytesPerSecond(static_cast<double>(file.dataTextBytes));
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * file.dataTextBytes));
    if (ReadFileBytes(file.path) != file.expectedBytes)
    {
        state.SkipWithError("the saved force file differs from the file that was read");
    }
}

} // namespace

BENCHMARK(BM_SaveImage4096)->Unit(benchmark::kMillisecond)->Iterations(10)->UseRealTime();
BENCHMARK(BM_WriteForceFile)->Unit(benchmark::kMillisecond)->Iterations(40)->UseRealTime();

} // namespace KivBench
