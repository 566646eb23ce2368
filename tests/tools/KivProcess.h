#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <sys/types.h>

namespace KivToolTest
{

// What one run of the built kiv binary did.
struct RunResult
{
    int exitStatus = -1;    // -1 when it did not exit normally
    int killedBySignal = 0; // the signal that ended it, if one did
    std::string out;
    std::string err;

    // The lines of stderr, without their line feeds.
    std::vector<std::string> ErrorLines() const;
};

// Runs kiv with the arguments, in the given folder (the test's own when empty), capturing
// stdout and stderr.
RunResult RunKiv(const std::vector<std::string>& arguments,
                 const std::string& workingFolder = std::string());

// As RunKiv, with the child's largest file size (RLIMIT_FSIZE) set to maxFileBytes.
RunResult RunKivWithFileSizeLimit(std::uint64_t maxFileBytes,
                                  const std::vector<std::string>& arguments,
                                  const std::string& workingFolder = std::string());

// A fresh folder under the system's temporary folder, removed with its contents at the end.
class TemporaryFolder
{
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::string& Path() const { return m_Path; }
    std::string File(const std::string& name) const { return m_Path + "/" + name; }
    // Copies a file of the samples folder in; returns its path here.
    std::string CopySample(const std::string& name) const;
    // The names of the files in the folder, hidden ones included, sorted.
    std::vector<std::string> List() const;

private:
    std::string m_Path;
};

// A kiv process that runs while the test does something else; RunKiv is start and Wait.
class RunningKiv
{
public:
    // maxFileBytes: the child's RLIMIT_FSIZE; 0 for none.
    RunningKiv(const std::vector<std::string>& arguments, const std::string& workingFolder,
               std::uint64_t maxFileBytes = 0);
    ~RunningKiv(); // waits for the process if Wait was not called
    RunningKiv(const RunningKiv&) = delete;
    RunningKiv& operator=(const RunningKiv&) = delete;

    pid_t Pid() const { return m_Pid; }
    RunResult Wait();

private:
    TemporaryFolder m_Capture;
    pid_t m_Pid = -1;
};

std::string SamplesFolder();
// The bytes of a checked-in sample file, by its name.
std::string SampleBytes(const std::string& name);
std::string ReadBytes(const std::string& path);
void WriteBytes(const std::string& path, const std::string& bytes);

} // namespace KivToolTest
