#include "KivProcess.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

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

RunResult RunKiv(const std::vector<std::string>& arguments, const std::string& workingFolder)
{
    // Output goes to files rather than pipes: a large dump can never block the child while
    // the test waits on the other stream.
    TemporaryFolder capture;
    const std::string outPath = capture.File("stdout");
    const std::string errPath = capture.File("stderr");

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, outPath.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errPath.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (!workingFolder.empty())
    {
        posix_spawn_file_actions_addchdir_np(&actions, workingFolder.c_str());
    }

    std::vector<std::string> words{KIV_BINARY};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (auto& word : words)
    {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);

    pid_t child = 0;
    const int spawned = posix_spawn(&child, KIV_BINARY, &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0)
    {
        throw std::runtime_error(std::string("cannot start ") + KIV_BINARY);
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0)
    {
    }
    RunResult result;
    result.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.out = ReadBytes(outPath);
    result.err = ReadBytes(errPath);
    return result;
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
