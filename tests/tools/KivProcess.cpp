#include "KivProcess.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace KivToolTest
{

namespace fs = std::filesystem;

std::vector<std::string> RunResult::ErrorLines() const
{
    std::vector<std::string> lines;
    std::istringstream in(err);
    for (std::string line; std::getline(in, line);)
    {
        lines.push_back(line);
    }
    return lines;
}

namespace
{
// Opens a file for the child's output in the parent: between fork and exec the child may only
// make async-signal-safe calls, and the tests start children from several threads.
int OpenOutput(const std::string& path)
{
    const int descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (descriptor < 0)
    {
        throw std::runtime_error("cannot create " + path);
    }
    return descriptor;
}
} // namespace

RunningKiv::RunningKiv(const std::vector<std::string>& arguments, const std::string& workingFolder,
                       std::uint64_t maxFileBytes)
{
    std::vector<std::string> words{KIV_BINARY};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (auto& word : words)
    {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);

    // Output goes to files rather than pipes: a large dump can never block the child while
    // the test waits on the other stream.
    const int input = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const int output = OpenOutput(m_Capture.File("stdout"));
    const int errors = OpenOutput(m_Capture.File("stderr"));
    const rlim_t maxBytes = maxFileBytes == 0 ? RLIM_INFINITY : static_cast<rlim_t>(maxFileBytes);
    const rlimit limit{maxBytes, maxBytes};
    m_Pid = fork();
    if (m_Pid == 0)
    {
        if (dup2(input, STDIN_FILENO) < 0 || dup2(output, STDOUT_FILENO) < 0 ||
            dup2(errors, STDERR_FILENO) < 0 ||
            (!workingFolder.empty() && chdir(workingFolder.c_str()) != 0) ||
            (maxFileBytes != 0 && setrlimit(RLIMIT_FSIZE, &limit) != 0))
        {
            _exit(127);
        }
        execv(KIV_BINARY, argv.data());
        _exit(127);
    }
    close(input);
    close(output);
    close(errors);
    if (m_Pid < 0)
    {
        throw std::runtime_error(std::string("cannot start ") + KIV_BINARY);
    }
}

RunningKiv::~RunningKiv()
{
    if (m_Pid > 0)
    {
        Wait();
    }
}

RunResult RunningKiv::Wait()
{
    int status = 0;
    while (waitpid(m_Pid, &status, 0) < 0 && errno == EINTR)
    {
    }
    m_Pid = -1;
    RunResult result;
    result.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.killedBySignal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    result.out = ReadBytes(m_Capture.File("stdout"));
    result.err = ReadBytes(m_Capture.File("stderr"));
    return result;
}

RunResult RunKiv(const std::vector<std::string>& arguments, const std::string& workingFolder)
{
    return RunningKiv(arguments, workingFolder).Wait();
}

RunResult RunKivWithFileSizeLimit(std::uint64_t maxFileBytes,
                                  const std::vector<std::string>& arguments,
                                  const std::string& workingFolder)
{
    return RunningKiv(arguments, workingFolder, maxFileBytes).Wait();
}

TemporaryFolder::TemporaryFolder()
{
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/kiv-tool-test-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr)
    {
        throw std::runtime_error("cannot create a temporary folder");
    }
    m_Path = pattern;
}

TemporaryFolder::~TemporaryFolder()
{
    std::error_code ignored;
    fs::remove_all(m_Path, ignored);
}

std::string TemporaryFolder::CopySample(const std::string& name) const
{
    const std::string target = File(name);
    fs::copy_file(SamplesFolder() + "/" + name, target, fs::copy_options::overwrite_existing);
    return target;
}

std::vector<std::string> TemporaryFolder::List() const
{
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(m_Path))
    {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string SamplesFolder()
{
    return KIV_SAMPLES_DIR;
}

std::string SampleBytes(const std::string& name)
{
    return ReadBytes(SamplesFolder() + "/" + name);
}

std::string ReadBytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
    {
        throw std::runtime_error("cannot read " + path);
    }
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

void WriteBytes(const std::string& path, const std::string& bytes)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << bytes;
    if (!out)
    {
        throw std::runtime_error("cannot write " + path);
    }
}

} // namespace KivToolTest
