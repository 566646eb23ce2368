// Files and in-process timings for the comparisons scripts/bench.sh makes against anchors
// outside this program (numpy, whole processes):
//   kiv_bench_anchor image PATH WIDTH HEIGHT [HOLE_BYTES]  an image file, optionally followed
//                                                          by HOLE_BYTES zero bytes (a hole)
//   kiv_bench_anchor keys PATH COUNT                       a small image whose header holds
//                                                          one section of COUNT keys
//   kiv_bench_anchor open PATH ROUNDS                      median ms of opening the file through
//                                                          the host and of the physical floor
#include <chrono>
#include <cstdio>
#include <exception>
#include <fstream>
#include <malloc.h>
#include <stdexcept>
#include <string>
#include <unistd.h>

#include <boost/shared_ptr.hpp>

#include "BaselineIO.h"
#include "BenchFiles.h"
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
        else
        {
            std::fprintf(stderr, "usage: kiv_bench_anchor image PATH WIDTH HEIGHT [HOLE_BYTES] | "
                                 "keys PATH COUNT | open PATH ROUNDS\n");
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
