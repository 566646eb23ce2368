#include "Kiv/Export/BatchExport.h"

#include <map>
#include <sys/stat.h>

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

// The outputs of every input, checked against each other before any is written.
class BatchPlan
{
public:
    explicit BatchPlan(const BatchRequest& request) : m_Request(request)
    {
        for (const auto& input : request.inputs)
        {
            m_Outputs.push_back(OutputPathFor(input, request.format, request.target));
        }
        m_Collisions = FindCollisions(request.inputs, m_Outputs);
    }

    void ExportOne(std::size_t index) const
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

    const std::string& Output(std::size_t index) const { return m_Outputs[index]; }

private:
    const BatchRequest& m_Request;
    std::vector<std::string> m_Outputs;
    std::map<std::size_t, std::string> m_Collisions;
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
    const BatchPlan plan(request);
    BatchSummary summary;
    summary.total = request.inputs.size();
    FileBatch batch;
    batch.inputs = request.inputs;
    batch.jobs = request.jobs;
    batch.work = [&plan](std::size_t index) { plan.ExportOne(index); };
    batch.describeFailure = [&](std::size_t index)
    { return FailureLine(request.inputs[index], plan.Output(index)); };
    batch.finished = [&](std::size_t, const std::string& failure, const BatchProgress& progress)
    {
        ++(failure.empty() ? summary.exported : summary.failed);
        if (!failure.empty() && observer.failure)
        {
            observer.failure(failure);
        }
        if (observer.progress)
        {
            observer.progress(progress);
        }
    };
    RunFileBatch(batch);
    return summary;
}

} // namespace Kiv::Export
