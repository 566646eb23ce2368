// Files and in-process timings for the comparisons scripts/bench.sh makes against anchors
// outside this program (numpy, whole processes):
//   kiv_bench_anchor image PATH WIDTH HEIGHT [HOLE_BYTES]  an image file, optionally followed
//                                                          by HOLE_BYTES zero bytes (a hole)
//   kiv_bench_anchor keys PATH COUNT                       a small image whose header holds
//                                                          one section of COUNT keys
//   kiv_bench_anchor open PATH ROUNDS                      median ms of opening the file through
//                                                          the host and of the physical floor
//   kiv_bench_anchor floor PATH ROUNDS                     median ms of the least an image's
//                                                          figures take: one huge-page read()
//                                                          of the file and one pass over its
//                                                          samples (from byte 4096) for them
//   kiv_bench_anchor surface PATH ROWS COLUMNS             raw little-endian float32 samples of
//                                                          a tilted, textured, noisy surface
//   kiv_bench_anchor analysis PATH ROWS COLUMNS ROUNDS     median ms of the surface analysis of
//                                                          those samples against one memcpy
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fstream>
#include <malloc.h>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

#include <boost/shared_ptr.hpp>

#include "BaselineIO.h"
#include "BenchFiles.h"
#include "Kiv/Access/Statistics.h"
#include "Kiv/Analysis/HeightParameters.h"
#include "Kiv/Analysis/Levelling.h"
#include "Kiv/DataCore/DataFile.h"
#include "PairedTiming.h"
#include "PelrixChecks.h"

namespace KivBench
{
namespace
{

std::uint64_t Number(const char* text)
{
    return std::stoull(text);
}

void WriteImage(const std::string& path, std::uint32_t width, std::uint32_t height,
                std::uint64_t holeBytes)
{
    const std::uint64_t size = WriteImageFile(path, {width, height, 4096});
    // Zeros written as a hole, as a file system keeps a file extended past its end.
    if (holeBytes > 0 && ::truncate(path.c_str(), static_cast<off_t>(size + holeBytes)) != 0)
    {
        throw std::runtime_error("cannot extend " + path);
    }
}

// The header of an instrument file with a section of many notes in the middle.
void WriteManyKeys(const std::string& path, std::uint64_t count)
{
    std::string notes = "[Notes]\r\n";
    for (std::uint64_t i = 0; i < count; ++i)
    {
        notes += "Note" + std::to_string(i) + "=value " + std::to_string(i) + "\r\n";
    }
    notes += "\r\n";
    const ImageFileLayout small{4, 4, 4096};
    std::string header = MakeImageHeader(small);
    header.erase(header.find("[Data]\r\n"));
    header += notes + "[Data]\r\n";
    // Room for the offset's own digits, which may be more than the six the field had.
    const std::uint64_t offset = ((header.size() + 16) / 4096 + 1) * 4096;
    const std::string field = "DataOffset=  4096";
    header.replace(header.find(field), field.size(), "DataOffset=" + std::to_string(offset));
    header.resize(offset, '\0');
    std::string samples(small.width * small.height * sizeof(float), '\0');
    WriteWholeFile(path, header + samples);
}

double Milliseconds(std::chrono::steady_clock::duration elapsed)
{
    return std::chrono::duration<double, std::milli>(elapsed).count();
}

// Alternates the two so that both see the same page cache and load, as the benchmarks do.
void TimeOpen(const std::string& path, std::uint64_t rounds)
{
    RegisterPelrixFileType();
    std::ifstream probe(path, std::ios::binary | std::ios::ate);
    const auto size = static_cast<std::uint64_t>(probe.tellg());
    OpenForReading(path).reset(); // one-time costs of a process, as a warm-up
    DurationSamples open;
    DurationSamples floor;
    std::vector<double> ratios;
    for (std::uint64_t round = 0; round < rounds; ++round)
    {
        auto start = std::chrono::steady_clock::now();
        auto file = OpenForReading(path);
        open.Add(Milliseconds(std::chrono::steady_clock::now() - start));
        file.reset();
        start = std::chrono::steady_clock::now();
        auto bytes = ReadIntoHugePages(path, size);
        floor.Add(Milliseconds(std::chrono::steady_clock::now() - start));
        bytes.reset();
        ratios.push_back(open.At(round) / floor.At(round));
    }
    std::printf("%.3f %.3f %.3f\n", open.Median(), floor.Median(),
                DurationSamples::MedianOf(ratios));
}

// What kiv info cannot go below: the samples read once into fresh huge pages and looked at
// once for minimum, maximum, mean and RMS roughness. Prints the medians of the read, the pass
// and the two together.
void TimeFiguresFloor(const std::string& path, std::uint64_t rounds)
{
    constexpr std::uint64_t SAMPLES_AT = 4096;
    std::ifstream probe(path, std::ios::binary | std::ios::ate);
    const auto size = static_cast<std::uint64_t>(probe.tellg());
    if (size < SAMPLES_AT)
    {
        throw std::runtime_error(path + " is shorter than its header");
    }
    ReadIntoHugePages(path, size).reset(); // the page cache, as kiv info sees it
    DurationSamples read;
    DurationSamples pass;
    DurationSamples both;
    volatile double sink = 0.0;
    for (std::uint64_t round = 0; round < rounds; ++round)
    {
        const auto start = std::chrono::steady_clock::now();
        auto bytes = ReadIntoHugePages(path, size);
        const auto readDone = std::chrono::steady_clock::now();
        const auto figures = Kiv::Access::ComputeStatistics(
            reinterpret_cast<const float*>(bytes.get() + SAMPLES_AT), (size - SAMPLES_AT) / 4);
        const auto end = std::chrono::steady_clock::now();
        sink = sink + figures.rmsRoughness;
        read.Add(Milliseconds(readDone - start));
        pass.Add(Milliseconds(end - readDone));
        both.Add(Milliseconds(end - start));
    }
    std::printf("%.3f %.3f %.3f\n", read.Median(), pass.Median(), both.Median());
}

// A surface as an instrument sees it: a tilt that levelling has to remove, a texture and noise.
// The noise comes from a fixed generator, so that every run and numpy see the same samples.
void WriteSurface(const std::string& path, std::uint64_t rows, std::uint64_t columns)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    std::uint64_t state = 0x9E3779B97F4A7C15u;
    const auto uniform = [&state]
    {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        return static_cast<double>(state >> 11) * 0x1.0p-53;
    };
    std::vector<float> line(columns);
    for (std::uint64_t row = 0; row < rows; ++row)
    {
        for (std::uint64_t column = 0; column < columns; ++column)
        {
            const double x = static_cast<double>(column);
            const double y = static_cast<double>(row);
            const double noise = (uniform() + uniform() + uniform() + uniform() - 2.0) * 0.25;
            line[column] =
                static_cast<float>(12.5 + 0.004 * x - 0.0025 * y +
                                   0.3 * std::sin(0.05 * x) * std::cos(0.03 * y) + noise);
        }
        out.write(reinterpret_cast<const char*>(line.data()),
                  static_cast<std::streamsize>(line.size() * sizeof(float)));
    }
    out.close();
    if (!out)
    {
        throw std::runtime_error("cannot write " + path);
    }
}

std::vector<float> ReadSurface(const std::string& path, std::uint64_t count)
{
    std::vector<float> samples(count);
    std::ifstream in(path, std::ios::binary);
    in.read(reinterpret_cast<char*>(samples.data()),
            static_cast<std::streamsize>(count * sizeof(float)));
    if (!in)
    {
        throw std::runtime_error(path + ": fewer samples than the size given");
    }
    return samples;
}

template <class Operation>
double SecondsOf(Operation&& operation)
{
    const auto start = std::chrono::steady_clock::now();
    operation();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// An operation and its baseline timed next to each other in every round, which of the two goes
// first alternating, so that both see the same load and the same cache; the ratio is the median
// of the rounds' own ratios, which a burst of load on a shared machine moves little.
class PairedRounds
{
public:
    template <class Baseline, class Operation>
    void Round(bool baselineFirst, Baseline&& baseline, Operation&& operation)
    {
        double baselineSeconds = 0.0;
        double operationSeconds = 0.0;
        if (baselineFirst)
        {
            baselineSeconds = SecondsOf(baseline);
            operationSeconds = SecondsOf(operation);
        }
        else
        {
            operationSeconds = SecondsOf(operation);
            baselineSeconds = SecondsOf(baseline);
        }
        m_Operation.Add(operationSeconds);
        m_Baseline.Add(baselineSeconds);
        m_Ratios.push_back(operationSeconds / baselineSeconds);
    }

    double Milliseconds() const { return m_Operation.Median() * 1e3; }
    double BaselineMilliseconds() const { return m_Baseline.Median() * 1e3; }
    double Ratio() const { return DurationSamples::MedianOf(m_Ratios); }

private:
    DurationSamples m_Operation;
    DurationSamples m_Baseline;
    std::vector<double> m_Ratios;
};

// Prints two lines. The first: "COPY_MS PLANE_MS PLANE_RATIO LEVEL_FIGURES_MS
// LEVEL_FIGURES_RATIO ROWS_MS ROWS_RATIO", medians of the rounds, each ratio against a memcpy of
// the samples into a buffer already touched (the least a pass over them costs) timed beside it:
// PLANE is AnalyseSurface with "plane", LEVEL_FIGURES is LevelInto "plane" into a buffer followed
// by ComputeHeightParameters of it, ROWS is LevelInto "rows:median". The second: AnalyseSurface's
// figures "mean median minimum maximum Sa Sq Ssk Sku Sp Sv Sz", for numpy_level.py to agree with.
void TimeAnalysis(const std::string& path, std::uint64_t rows, std::uint64_t columns,
                  std::uint64_t rounds)
{
    namespace Analysis = Kiv::Analysis;
    const std::vector<float> samples = ReadSurface(path, rows * columns);
    const Kiv::Analysis::ImageView image{samples.data(), rows, columns};
    const std::size_t bytes = samples.size() * sizeof(float);
    std::vector<float> copy(samples.size());     // zeroed, so its pages are touched
    std::vector<float> levelled(samples.size()); // likewise
    const Analysis::LevelMethod plane = Analysis::LevelMethod::Parse("plane");
    const Analysis::LevelMethod rowsMedian = Analysis::LevelMethod::Parse("rows:median");

    Analysis::HeightParameters figures;
    const auto memcpyBaseline = [&]
    {
        std::memcpy(copy.data(), samples.data(), bytes);
        benchmark::DoNotOptimize(copy.data());
        benchmark::ClobberMemory();
    };
    const auto analyse = [&]
    {
        figures = Analysis::AnalyseSurface(image, plane);
        benchmark::DoNotOptimize(figures);
    };
    const auto levelThenFigures = [&]
    {
        Analysis::LevelInto(image, plane, {}, levelled.data());
        Analysis::HeightParameters levelledFigures =
            Analysis::ComputeHeightParameters({levelled.data(), rows, columns});
        benchmark::DoNotOptimize(levelledFigures);
    };
    const auto levelRows = [&]
    {
        Analysis::LevelInto(image, rowsMedian, {}, levelled.data());
        benchmark::DoNotOptimize(levelled.data());
        benchmark::ClobberMemory();
    };

    // One-time costs of a process (thread start, first use of code pages) as a warm-up.
    memcpyBaseline();
    levelThenFigures();
    levelRows();
    analyse();

    PairedRounds analysed;
    PairedRounds levelledThenFigures;
    PairedRounds rowsLevelled;
    for (std::uint64_t round = 0; round < rounds; ++round)
    {
        const bool baselineFirst = round % 2 == 1;
        analysed.Round(baselineFirst, memcpyBaseline, analyse);
        levelledThenFigures.Round(baselineFirst, memcpyBaseline, levelThenFigures);
        rowsLevelled.Round(baselineFirst, memcpyBaseline, levelRows);
    }
    std::printf("%.3f %.3f %.3f %.3f %.3f %.3f %.3f\n", analysed.BaselineMilliseconds(),
                analysed.Milliseconds(), analysed.Ratio(), levelledThenFigures.Milliseconds(),
                levelledThenFigures.Ratio(), rowsLevelled.Milliseconds(), rowsLevelled.Ratio());
    std::printf("%.17g %.17g %.17g %.17g %.17g %.17g %.17g %.17g %.17g %.17g %.17g\n", figures.mean,
                figures.median, figures.minimum, figures.maximum, figures.Sa, figures.Sq,
                figures.Ssk, figures.Sku, figures.Sp, figures.Sv, figures.Sz);
}

} // namespace
} // namespace KivBench

int main(int argc, char** argv)
{
    // As in the benchmarks: every large block gets fresh pages, on both sides.
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);
    try
    {
        const std::string command = argc > 1 ? argv[1] : "";
        if (command == "image" && (argc == 5 || argc == 6))
        {
            KivBench::WriteImage(argv[2], static_cast<std::uint32_t>(KivBench::Number(argv[3])),
                                 static_cast<std::uint32_t>(KivBench::Number(argv[4])),
                                 argc == 6 ? KivBench::Number(argv[5]) : 0);
        }
        else if (command == "keys" && argc == 4)
        {
            KivBench::WriteManyKeys(argv[2], KivBench::Number(argv[3]));
        }
        else if (command == "open" && argc == 4)
        {
            KivBench::TimeOpen(argv[2], KivBench::Number(argv[3]));
        }
        else if (command == "floor" && argc == 4)
        {
            KivBench::TimeFiguresFloor(argv[2], KivBench::Number(argv[3]));
        }
        else if (command == "surface" && argc == 5)
        {
            KivBench::WriteSurface(argv[2], KivBench::Number(argv[3]), KivBench::Number(argv[4]));
        }
        else if (command == "analysis" && argc == 6)
        {
            KivBench::TimeAnalysis(argv[2], KivBench::Number(argv[3]), KivBench::Number(argv[4]),
                                   KivBench::Number(argv[5]));
        }
        else
        {
            std::fprintf(stderr, "usage: kiv_bench_anchor image PATH WIDTH HEIGHT [HOLE_BYTES] | "
                                 "keys PATH COUNT | open PATH ROUNDS | floor PATH ROUNDS | "
                                 "surface PATH ROWS COLUMNS | "
                                 "analysis PATH ROWS COLUMNS ROUNDS\n");
            return 2;
        }
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "kiv_bench_anchor: %s\n", error.what());
        return 1;
    }
    return 0;
}
