// Fuzz target for reading Pelrix files: the input bytes become an in-memory file, which is
// recognised and opened for reading, and everything it produced is walked. Only the host's own
// errors (Kiv::Core::Error) and std::bad_alloc are expected; any other exception, a crash or a
// sanitizer report is a finding.
//
// scripts/fuzz.sh builds and runs this target and the save target (see the README). By hand,
// with clang's libFuzzer (the libraries need the sanitizers and coverage too), from the
// repository root:
//
//   CC=clang CXX=clang++ cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo
//       -DKIV_BUILD_FUZZER=ON -DKIV_SANITIZE=ON -DCMAKE_CXX_FLAGS=-fsanitize=fuzzer-no-link
//       -DKIV_BUILD_TESTS=OFF -DKIV_BUILD_BENCHMARKS=OFF        (one command)
//   cmake --build build-fuzz -j2 --target pelrix_fuzzer
//   mkdir -p build-fuzz/findings
//   build-fuzz/bin/pelrix_fuzzer -max_len=65536 build-fuzz/findings tests/PelrixDataFile/corpus
//
// New inputs go to the first folder; the checked-in corpus is only read. The ordinary test run
// replays the corpus and mutations of it through this same function (FuzzReplayTest.cpp).

#include <cstddef>
#include <cstdint>
#include <new>
#include <set>
#include <stdexcept>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

#include "Kiv/Core/AlertSystem.h"
#include "Kiv/Core/AllocationLimit.h"
#include "Kiv/Core/Error.h"
#include "Pelrix/PelrixDataFile.h"
#include "QuietAlertHandler.h"

namespace PelrixFuzz
{

// Far below the machine's memory, so that any header able to ask for more fails cleanly.
constexpr std::uint64_t ALLOCATION_LIMIT = 64ull * 1024 * 1024;

// An anonymous file in memory, opened by its /proc path as any file would be.
class MemoryFile
{
public:
    MemoryFile(const std::uint8_t* data, std::size_t size)
        : m_Descriptor(::memfd_create("pelrix-fuzz", MFD_CLOEXEC))
    {
        if (m_Descriptor < 0)
        {
            throw std::runtime_error("memfd_create failed");
        }
        std::size_t written = 0;
        while (written < size)
        {
            const ssize_t count = ::write(m_Descriptor, data + written, size - written);
            if (count <= 0)
            {
                ::close(m_Descriptor);
                throw std::runtime_error("cannot write the fuzz input");
            }
            written += static_cast<std::size_t>(count);
        }
    }
    ~MemoryFile() { ::close(m_Descriptor); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    std::string Path() const { return "/proc/self/fd/" + std::to_string(m_Descriptor); }

private:
    int m_Descriptor;
};

// Reads every value the open left behind, so that a matrix or text the reader got wrong is
// touched where the sanitizers can see it.
float WalkTree(Kiv::DataCore::DataContainer& container)
{
    using namespace Kiv::DataCore;
    float sum = 0.0f;
    for (const auto& [key, object] : container.GetEntries())
    {
        if (const auto child = container.GetSubData({key}, false))
        {
            sum += WalkTree(*child);
        }
        else if (const auto matrix = container.GetShared<FloatMatrix>(key))
        {
            for (const float value : matrix->data())
            {
                sum += value;
            }
        }
        else if (const auto curves = container.GetShared<FloatMatrixList>(key))
        {
            for (const auto& curve : *curves)
            {
                for (const float value : curve.data())
                {
                    sum += value;
                }
            }
        }
        else if (const auto text = container.GetShared<std::string>(key))
        {
            sum += static_cast<float>(text->size());
        }
    }
    return sum;
}

void ReadBytes(const std::uint8_t* data, std::size_t size)
{
    const MemoryFile file(data, size);
    Pelrix::PelrixDataFile::IsPelrixFile(file.Path());
    try
    {
        Pelrix::PelrixDataFile pelrix;
        if (pelrix.Open(file.Path(), Kiv::DataCore::DataFile::ACCESS_READ,
                        Kiv::DataCore::DataFile::OPEN_EXISTING))
        {
            pelrix.GetPlistNames();
            volatile float sink = WalkTree(pelrix);
            (void)sink;
        }
    }
    catch (const Kiv::Core::Error&)
    {
        // A file the reader refuses, with the host's error: the expected outcome.
    }
    catch (const std::bad_alloc&)
    {
    }
}

} // namespace PelrixFuzz

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    Kiv::Core::SetAlertHandler(std::make_shared<KivFuzz::QuietAlertHandler>());
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const bool limited = []
    {
        Kiv::Core::SetMaxAllocationBytes(PelrixFuzz::ALLOCATION_LIMIT);
        return true;
    }();
    (void)limited;
    PelrixFuzz::ReadBytes(data, size);
    return 0;
}
