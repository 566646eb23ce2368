// Fuzz target for the save path: every input that opens as a file is saved through the
// safe-save library refusing loss and, when that is refused, again allowing it, in a scratch
// folder. A save
// either fails with the library's one-line Failure and leaves the file byte for byte as it
// was, or leaves a file that opens again with every sample as before (unless the save
// reported the rounding of force values as loss). Anything else, a crash or a sanitizer report
// is a finding. Build it as PelrixFuzzTarget.cpp says, with the target save_fuzzer, and run:
//
//   build-fuzz/bin/save_fuzzer -max_len=16384 build-fuzz/save-findings tests/fuzz/save-corpus
//
// The ordinary test run replays the corpus through this same function (SaveFuzzReplayTest).

#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <new>
#include <string>

#include <sys/resource.h>
#include <unistd.h>

#include "Kiv/Access/Failure.h"
#include "Kiv/Access/FileAccess.h"
#include "Kiv/Access/TreeSnapshot.h"
#include "Kiv/Core/AlertSystem.h"
#include "Kiv/Core/AllocationLimit.h"
#include "Kiv/Edit/SafeSave.h"
#include "Pelrix/PelrixDataFile.h"
#include "Pelrix/PelrixDataFileFactory.h"
#include "QuietAlertHandler.h"

namespace SaveFuzz
{

namespace fs = std::filesystem;

// Far below the machine's memory, so that any header able to ask for more fails cleanly.
constexpr std::uint64_t SAVE_ALLOCATION_LIMIT = 64ull * 1024 * 1024;

// A scratch folder of this process, in memory where the system has one: saves flush to disk.
class ScratchFolder
{
public:
    ScratchFolder()
    {
        const fs::path base =
            fs::exists("/dev/shm") ? fs::path("/dev/shm") : fs::temp_directory_path();
        m_Path = base / ("kiv-save-fuzz-" + std::to_string(::getpid()));
        fs::create_directories(m_Path);
    }
    ~ScratchFolder()
    {
        std::error_code ignored;
        fs::remove_all(m_Path, ignored);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const fs::path& Path() const { return m_Path; }

private:
    fs::path m_Path;
};

inline std::string ReadAll(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void WriteAll(const fs::path& path, const std::uint8_t* data, std::size_t size)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
}

[[noreturn]] inline void Finding(const std::string& what)
{
    std::fprintf(stderr, "save fuzz finding: %s\n", what.c_str());
    std::abort();
}

// The samples of the file at path, or nothing when it does not open.
inline std::unique_ptr<Kiv::Access::TreeSnapshot> Snapshot(const std::string& path)
{
    using Kiv::DataCore::DataFile;
    try
    {
        const auto file =
            Kiv::Access::OpenDataFile(path, DataFile::ACCESS_READ, DataFile::OPEN_EXISTING, path);
        auto snapshot = std::make_unique<Kiv::Access::TreeSnapshot>(*file);
        file->Close();
        return snapshot;
    }
    catch (const Kiv::Access::Failure&)
    {
        return nullptr;
    }
}

inline bool SameSamples(const Kiv::Access::TreeSnapshot& a, const Kiv::Access::TreeSnapshot& b)
{
    if (a.SampleSets().size() != b.SampleSets().size())
    {
        return false;
    }
    for (const auto& [path, samples] : a.SampleSets())
    {
        const auto found = b.SampleSets().find(path);
        if (found == b.SampleSets().end() || !samples.SameAs(found->second))
        {
            return false;
        }
    }
    return true;
}

// Saves the input, which file holds and before read as; false when the save refused.
inline bool SaveOnce(const fs::path& file, const std::uint8_t* data, std::size_t size,
                     bool allowLoss, const Kiv::Access::TreeSnapshot& before)
{
    Kiv::Edit::SaveReport report;
    try
    {
        Kiv::Edit::SaveOptions options;
        options.allowLoss = allowLoss;
        report = Kiv::Edit::SaveEdits(file.string(), {}, options);
    }
    catch (const Kiv::Access::Failure& failure)
    {
        const std::string message = failure.what();
        if (message.empty() || message.find('\n') != std::string::npos)
        {
            Finding("a refusal that is not one line: " + message);
        }
        const std::string now = ReadAll(file);
        if (now.size() != size || (size > 0 && std::memcmp(now.data(), data, size) != 0))
        {
            Finding("a refused save changed the file: " + message);
        }
        return false;
    }
    catch (const std::bad_alloc&)
    {
        return false;
    }
    const auto after = Snapshot(file.string());
    if (!after)
    {
        Finding("the saved file does not open again");
    }
    if (report.droppedItems.empty() && !SameSamples(before, *after))
    {
        Finding("the saved file's samples differ and no loss was reported");
    }
    return true;
}

inline void CheckNothingLeftBehind(const fs::path& folder)
{
    std::size_t entries = 0;
    for (const auto& entry : fs::directory_iterator(folder))
    {
        (void)entry;
        ++entries;
    }
    if (entries != 1)
    {
        Finding("the save left " + std::to_string(entries - 1) + " other files behind");
    }
}

// A file that opens as more samples than this is not saved: with inputs of at most 16 KiB such
// files are all a header inflating a few bytes (a force column count padding every row of a
// few values to hundreds of thousands), whose save runs the same code as a small one's, only
// for tens of seconds under the sanitizers. Left in, their offspring slowed the target to a
// tenth of its speed. Reading them is the reader target's work.
constexpr std::size_t SAVED_SAMPLE_LIMIT = 64 * 1024;

inline std::size_t SampleCount(const Kiv::Access::TreeSnapshot& snapshot)
{
    std::size_t count = 0;
    for (const auto& entry : snapshot.SampleSets())
    {
        count += entry.second.count;
    }
    return count;
}

inline void SaveBytes(const std::uint8_t* data, std::size_t size)
{
    static const ScratchFolder folder;
    const fs::path file = folder.Path() / "input.flt";
    WriteAll(file, data, size);
    // The input's own samples, read once for both saves.
    const auto before = Snapshot(file.string());
    if (!before || SampleCount(*before) > SAVED_SAMPLE_LIMIT)
    {
        return;
    }
    for (const bool allowLoss : {false, true})
    {
        if (allowLoss)
        {
            WriteAll(file, data, size);
        }
        const bool saved = SaveOnce(file, data, size, allowLoss, *before);
        CheckNothingLeftBehind(folder.Path());
        // A save that went through dropped nothing, and would do the same again with loss
        // allowed.
        if (saved)
        {
            break;
        }
    }
}

// The file type is built in rather than loaded: a module would need the sanitizers' runtime.
inline void Prepare()
{
    static const bool prepared = []
    {
        Kiv::Core::SetAlertHandler(std::make_shared<KivFuzz::QuietAlertHandler>());
        Kiv::Core::SetMaxAllocationBytes(SAVE_ALLOCATION_LIMIT);
        Kiv::DataCore::RegisterDataFileFactory(typeid(Pelrix::PelrixDataFile),
                                               boost::make_shared<Pelrix::PelrixDataFileFactory>());
        return true;
    }();
    (void)prepared;
}

} // namespace SaveFuzz

#ifndef KIV_SAVE_FUZZ_NO_ENTRY
// The fuzzer's files are limited to 64 MiB, as on a full disk: a header whose "DataOffset" asks
// for 2 GiB of padding then fails its save part way, which must leave the file as it was,
// instead of writing and verifying gigabytes for seconds an input. Set at the first input,
// after libFuzzer has installed its own handler for the signal.
static void LimitFileSizes()
{
    std::signal(SIGXFSZ, SIG_IGN);
    struct rlimit files
    {
    };
    if (::getrlimit(RLIMIT_FSIZE, &files) == 0)
    {
        files.rlim_cur = std::min<rlim_t>(files.rlim_max, SaveFuzz::SAVE_ALLOCATION_LIMIT);
        ::setrlimit(RLIMIT_FSIZE, &files);
    }
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const bool limited = (LimitFileSizes(), true);
    (void)limited;
    SaveFuzz::Prepare();
    SaveFuzz::SaveBytes(data, size);
    return 0;
}
#endif
