#pragma once

#include <string>
#include <vector>

namespace KivToolTest
{

// What one run of the built kiv binary did.
struct RunResult
{
    int exitStatus = -1; // -1 when it did not exit normally
    std::string out;
    std::string err;

    // The lines of stderr, without their line feeds.
    std::vector<std::string> ErrorLines() const;
};

// Runs kiv with the arguments, in the given folder (the test's own when empty), capturing
// stdout and stderr.
RunResult RunKiv(const std::vector<std::string>& arguments,
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

std::string SamplesFolder();
std::string ReadBytes(const std::string& path);
void WriteBytes(const std::string& path, const std::string& bytes);

} // namespace KivToolTest
