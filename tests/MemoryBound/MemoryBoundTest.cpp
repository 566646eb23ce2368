// Opening a file takes at most the memory of the samples it declares and a fixed allowance,
// whatever its bytes are. Each open runs in a child process, whose peak resident memory the
// system accounts; a child that opens nothing gives the floor to measure from.

#include <cstdio>
#include <functional>

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Kiv/Core/Error.h"
#include "ReadTestFiles.h"

using namespace ReadTest;

#if defined(__SANITIZE_ADDRESS__)
// AddressSanitizer keeps freed blocks mapped (its quarantine) to catch late uses, so a peak
// would count every buffer a reader ever grew through. Returned at once, what is left is the
// memory in use and the sanitizer's shadow of it, within the same allowance.
extern "C" const char* __asan_default_options()
{
    return "quarantine_size_mb=0";
}
#endif

namespace
{

constexpr std::uint64_t MIB = std::uint64_t{1} << 20;
constexpr std::uint64_t ALLOWANCE = 32 * MIB;
constexpr std::uint64_t SAMPLE_BYTES = 64 * MIB;

enum Outcome
{
    OPENS = 0,
    FAILS_CLEANLY = 1,
    FAILS_OTHERWISE = 2,
};

struct ChildRun
{
    std::uint64_t peakBytes = 0;
    int exitCode = -1;
};

// What the child returns is its exit code; the parent gets it with the child's peak.
ChildRun RunInChild(const std::function<int()>& work)
{
    std::fflush(nullptr);
    const pid_t child = ::fork();
    if (child == 0)
    {
        ::_exit(work());
    }
    ChildRun run;
    int status = 0;
    struct rusage usage
    {
    };
    if (child > 0 && ::wait4(child, &status, 0, &usage) == child)
    {
        run.peakBytes = static_cast<std::uint64_t>(usage.ru_maxrss) * 1024;
        run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    return run;
}

int OpenAndClose(const std::string& path, std::uint64_t allocationLimit)
{
    try
    {
        if (allocationLimit != 0)
        {
            Kiv::Core::SetMaxAllocationBytes(allocationLimit);
        }
        PelrixDataFile file;
        return file.Open(path, DataFile::ACCESS_READ, DataFile::OPEN_EXISTING) ? OPENS
                                                                               : FAILS_OTHERWISE;
    }
    catch (const Kiv::Core::Error&)
    {
        return FAILS_CLEANLY;
    }
    catch (...)
    {
        return FAILS_OTHERWISE;
    }
}

// Appends count bytes repeating pattern to the file at path, without holding them all in
// memory: the parent's own memory is part of every child's.
std::string Append(const std::string& path, const std::string& pattern, std::uint64_t count)
{
    std::FILE* out = std::fopen(path.c_str(), "ab");
    std::string block;
    while (block.size() < MIB)
    {
        block += pattern;
    }
    for (std::uint64_t left = count; out != nullptr && left > 0;)
    {
        const std::size_t part = static_cast<std::size_t>(std::min<std::uint64_t>(left, MIB));
        left -= std::fwrite(block.data(), 1, part, out);
    }
    if (out == nullptr || std::fclose(out) != 0)
    {
        ADD_FAILURE() << "cannot write " << path;
    }
    return path;
}

// A header of seven lines, so that the file kind is looked for in the samples too.
std::string ShortImageHeader(long resolution)
{
    std::string header = Lines({"[Data Version]", "[Data Parameters]", "DataOffset=4096",
                                "ResolutionX=" + std::to_string(resolution),
                                "ResolutionY=" + std::to_string(resolution), "", "[Data]"});
    header.resize(4096, '\0');
    return header;
}

std::string Samples(std::uint64_t count)
{
    std::vector<float> samples(static_cast<std::size_t>(count));
    for (std::size_t i = 0; i < samples.size(); ++i)
    {
        samples[i] = static_cast<float>(i % 1000) * 0.25f;
    }
    return FloatBytes(samples);
}

struct Shape
{
    const char* name;
    std::function<std::string(const TempFolder&)> write;
    std::uint64_t declaredBytes;
    std::uint64_t allocationLimit; // 0: the default
    Outcome outcome;
};

} // namespace

TEST(MemoryBound, OpeningTakesTheDeclaredSamplesAndAFixedAllowanceAtMost)
{
    const std::string zero(1, '\0');
    const Shape shapes[] = {
        {"an all-zero image behind a short header",
         [&](const TempFolder& f)
         { return Append(f.Write("zeros.flt", ShortImageHeader(4096)), zero, SAMPLE_BYTES); },
         SAMPLE_BYTES, 0, OPENS},
        {"an all-zero image followed by more zeros",
         [&](const TempFolder& f) {
             return Append(f.Write("more.flt", ShortImageHeader(4096)), zero,
                           SAMPLE_BYTES + 96 * MIB);
         },
         SAMPLE_BYTES, 0, OPENS},
        {"real samples followed by zeros",
         [&](const TempFolder& f)
         {
             const std::string header = ImageFile(ImageHeader(4096, 4096, 4096), 4096, "");
             return Append(Append(f.Write("trailing.flt", header), Samples(65536), SAMPLE_BYTES),
                           zero, 96 * MIB);
         },
         SAMPLE_BYTES, 0, OPENS},
        {"a size beyond any allocation",
         [&](const TempFolder& f) {
             return f.Write("huge.flt",
                            ImageFile(ImageHeader(2147483647, 2147483647, 4096), 4096, "x"));
         },
         0, 0, FAILS_CLEANLY},
        {"a size beyond the allocation limit",
         [&](const TempFolder& f)
         { return f.Write("large.flt", ImageFile(ImageHeader(16384, 16384, 4096), 4096, "x")); },
         0, 256 * MIB, FAILS_CLEANLY},
        {"a header line without end",
         [&](const TempFolder& f)
         { return Append(f.Write("note.flt", "[Data Parameters]\nNote="), "x", 160 * MIB); },
         0, 0, FAILS_CLEANLY},
        {"an endless force line of values",
         [&](const TempFolder& f)
         { return Append(f.Write("values.flt", ForceFile("1", "1", "")), "1.5\t", 160 * MIB); },
         0, 0, OPENS},
        {"an endless force line of zero bytes",
         [&](const TempFolder& f)
         { return Append(f.Write("nothing.flt", ForceFile("1", "1", "")), zero, 160 * MIB); },
         0, 0, OPENS},
    };
    const std::uint64_t floor = RunInChild([] { return 0; }).peakBytes;
    ASSERT_GT(floor, 0u);
    for (const auto& shape : shapes)
    {
        TempFolder folder;
        const std::string path = shape.write(folder);
        const ChildRun run = RunInChild([&] { return OpenAndClose(path, shape.allocationLimit); });
        EXPECT_EQ(run.exitCode, shape.outcome) << shape.name;
        const std::uint64_t used = run.peakBytes > floor ? run.peakBytes - floor : 0;
        EXPECT_LE(used, shape.declaredBytes + ALLOWANCE)
            << shape.name << ": " << used / MIB << " MiB beyond the floor of " << floor / MIB
            << " MiB";
    }
}
