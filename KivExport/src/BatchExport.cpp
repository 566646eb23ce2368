#include "Kiv/Export/BatchExport.h"

#include <atomic>
#include <chrono>
#include <map>
#include <mutex>
#include <sys/stat.h>
#include <thread>

#include "Kiv/Access/Failure.h"
#include "Kiv/Access/FileAccess.h"
#include "PictureWriters.h"

namespace Kiv::Export
{

namespace
{
std::string Stem(const std::string& path)
{
    const std::size_t slash = path.find_last_of('/');
    std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    const std::size_t dot = name.find_last_of('.');
    return dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
}

std::string Folder(const std::string& path)
{
    const std::size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

bool IsSameFile(const std::string& first, const std::string& second)
{
    struct stat a
    {
    };
    struct stat b
    {
    };
    return ::stat(first.c_str(), &a) == 0 && ::stat(second.c_str(), &b) == 0 &&
           a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

bool IsFolder(const std::string& path)
{
    struct stat status
    {
    };
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// Inputs whose outputs would collide: every input after the first to claim an output path.
std::map<std::size_t, std::string> FindCollisions(const std::vector<std::string>& inputs,
                                                  const std::vector<std::string>& outputs)
{
    std::map<std::string, std::size_t> firstClaim;
    std::map<std::size_t, std::string> collisions;
    for (std::size_t i = 0; i < outputs.size(); ++i)
    {
        const auto [claim, fresh] = firstClaim.emplace(outputs[i], i);
        if (!fresh)
        {
            collisions[i] = inputs[i] + ": " + inputs[claim->second] + " is also exported to " +
                            outputs[i] + "; export them to different folders";
        }
    }
    return collisions;
}

// The failure as one line that names the input, unless it already names the input or the
// output.
std::string FailureLine(const std::string& input, const std::string& output)
{
    const std::string message = Kiv::Access::DescribeCurrentException();
    if (message.rfind(input + ":", 0) == 0 || message.rfind(output + ":", 0) == 0)
    {
        return message;
    }
    return input + ": " + message;
}

class BatchRunner
{
public:
    BatchRunner(const BatchRequest& request, const BatchObserver& observer)
        : m_Request(request), m_Observer(observer), m_Start(std::chrono::steady_clock::now())
    {
        for (const auto& input : request.inputs)
        {
            m_Outputs.push_back(OutputPathFor(input, request.format, request.target));
        }
        m_Collisions = FindCollisions(request.inputs, m_Outputs);
        m_Summary.total = request.inputs.size();
    }

    BatchSummary Run()
    {
        const unsigned processors = std::max(1u, std::thread::hardware_concurrency());
        const std::size_t workers = std::min<std::size_t>(
            m_Request.jobs == 0 ? processors : m_Request.jobs, m_Request.inputs.size());
        std::vector<std::thread> threads;
        for (std::size_t i = 1; i < workers; ++i)
        {
            threads.emplace_back([this] { Work(); });
        }
        Work();
        for (auto& thread : threads)
        {
            thread.join();
        }
        return m_Summary;
    }

private:
    void Work()
    {
        for (std::size_t index = m_Next++; index < m_Request.inputs.size(); index = m_Next++)
        {
            std::string failure;
            try
            {
                ExportOne(index);
            }
            catch (...)
            {
                failure = FailureLine(m_Request.inputs[index], m_Outputs[index]);
            }
            Report(failure);
        }
    }

    void ExportOne(std::size_t index)
    {
        if (const auto collision = m_Collisions.find(index); collision != m_Collisions.end())
        {
            Kiv::Access::Fail(collision->second);
        }
        const std::string& input = m_Request.inputs[index];
        if (IsSameFile(input, m_Outputs[index]))
        {
            Kiv::Access::Fail(input + ": the output would replace the input");
        }
        const auto file = Kiv::Access::OpenForReading(input);
        ExportFile(*file, input, m_Outputs[index], m_Request.format, m_Request.options,
                   m_Request.overwrite);
    }

    void Report(const std::string& failure)
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        ++(failure.empty() ? m_Summary.exported : m_Summary.failed);
        if (!failure.empty() && m_Observer.failure)
        {
            m_Observer.failure(failure);
        }
        if (m_Observer.progress)
        {
            const std::chrono::duration<double> elapsed =
                std::chrono::steady_clock::now() - m_Start;
            m_Observer.progress(
                {m_Summary.exported + m_Summary.failed, m_Summary.total, elapsed.count()});
        }
    }

    const BatchRequest& m_Request;
    const BatchObserver& m_Observer;
    const std::chrono::steady_clock::time_point m_Start;
    std::vector<std::string> m_Outputs;
    std::map<std::size_t, std::string> m_Collisions;
    std::atomic<std::size_t> m_Next{0};
    std::mutex m_Mutex;
    BatchSummary m_Summary;
};
} // namespace

std::string OutputPathFor(const std::string& input, Format format, const BatchTarget& target)
{
    if (target.outputFile)
    {
        return *target.outputFile;
    }
    std::string folder = target.outputFolder ? *target.outputFolder : Folder(input);
    if (!folder.empty() && folder.back() != '/')
    {
        folder += '/';
    }
    return folder + Stem(input) + FormatExtension(format);
}

BatchSummary RunBatchExport(const BatchRequest& request, const BatchObserver& observer)
{
    if (request.target.outputFile && request.inputs.size() != 1)
    {
        Kiv::Access::Fail("an output file takes exactly one input; give a folder for " +
                          std::to_string(request.inputs.size()) + " inputs");
    }
    if (request.target.outputFolder && !IsFolder(*request.target.outputFolder))
    {
        Kiv::Access::Fail(*request.target.outputFolder + ": not a folder");
    }
    if (request.inputs.empty())
    {
        return {};
    }
    // The file-type modules first: both loads take the dynamic linker's lock, and the first
    // input cannot be opened without them.
    Kiv::Access::LoadFileTypeModules();
    const PictureWritersPreload preload(request.format);
    return BatchRunner(request, observer).Run();
}

} // namespace Kiv::Export
