// Peak memory of opening a 4096 x 4096 Pelrix image: the samples should be read straight into
// the one matrix the file keeps, so the process's peak resident size may grow by the matrix
// and a small constant, never by a second copy. Exits 1 when it grows by more than the matrix
// plus 16 MiB.
#include <cstdint>
#include <cstdio>
#include <exception>
#include <fstream>
#include <string>

#include "BenchFiles.h"
#include "PelrixChecks.h"

namespace
{

constexpr std::uint64_t MiB = 1024 * 1024;
constexpr std::uint64_t ALLOWED_EXTRA = 16 * MiB;

// The process's peak resident size (VmHWM) in bytes, or 0 when the system does not tell.
std::uint64_t PeakResidentBytes()
{
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
    {
        if (line.rfind("VmHWM:", 0) == 0)
        {
            return std::stoull(line.substr(6)) * 1024; // the kernel counts in KiB
        }
    }
    return 0;
}

// Lets the peak start again from the current resident size, so that making the file does not
// hide what opening it costs. Kernels without this keep the old peak; the file is written in
// small pieces so that even then it adds little.
void ResetPeakResident()
{
    std::ofstream("/proc/self/clear_refs") << "5";
}

double InMiB(std::uint64_t bytes)
{
    return static_cast<double>(bytes) / static_cast<double>(MiB);
}

int Run()
{
    KivBench::TemporaryFolder folder("kiv-peak-memory");
    KivBench::SetRunFolder(&folder);
    const KivBench::ImageFileLayout layout = KivBench::LARGE_IMAGE;
    const KivBench::PreparedFile file = KivBench::PrepareImageFile(layout, "image-4096.flt");
    const std::uint64_t matrixBytes = std::uint64_t(layout.width) * layout.height * sizeof(float);

    // A small file first, so that what any first open pays once (the unit database, the
    // factory registry) is not counted against the large one.
    const KivBench::PreparedFile small = KivBench::PrepareImageFile({16, 16, 4096}, "image-16.flt");
    KivBench::OpenForReading(small.path).reset();

    ResetPeakResident();
    const std::uint64_t before = PeakResidentBytes();
    const auto opened = KivBench::OpenForReading(file.path);
    const std::uint64_t after = PeakResidentBytes();
    const std::string fault = KivBench::CheckImage(*opened, layout);
    if (!fault.empty())
    {
        std::fprintf(stderr, "kiv_peak_memory: %s\n", fault.c_str());
        return 1;
    }
    if (before == 0 || after == 0)
    {
        std::fprintf(stderr, "kiv_peak_memory: /proc/self/status gives no VmHWM\n");
        return 1;
    }

    const std::uint64_t growth = after - before;
    const std::uint64_t limit = matrixBytes + ALLOWED_EXTRA;
    const bool met = growth <= limit;
    std::printf("Peak memory of opening a %u x %u image (%.1f MiB file)\n", layout.width,
                layout.height, InMiB(file.size));
    std::printf("  peak resident growth  %8.1f MiB\n", InMiB(growth));
    std::printf("  matrix                %8.1f MiB\n", InMiB(matrixBytes));
    std::printf("  growth / matrix       %8.3f\n",
                static_cast<double>(growth) / static_cast<double>(matrixBytes));
    std::printf("  beyond the matrix     %8.1f MiB  (allowed %.0f MiB)  %s\n",
                growth > matrixBytes ? InMiB(growth - matrixBytes) : 0.0, InMiB(ALLOWED_EXTRA),
                met ? "met" : "EXCEEDED");
    KivBench::SetRunFolder(nullptr);
    return met ? 0 : 1;
}

} // namespace

int main()
{
    try
    {
        return Run();
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "kiv_peak_memory: %s\n", error.what());
        return 1;
    }
}
