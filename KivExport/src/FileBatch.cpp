#include "Kiv/Export/FileBatch.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>

#include "Kiv/Access/Failure.h"

namespace Kiv::Export
{

namespace
{
bool StartsWithName(const std::string& message, const std::string& name)
{
    return !name.empty() && message.rfind(name + ":", 0) == 0;
}

class FileBatchRunner
{
public:
    explicit FileBatchRunner(const FileBatch& batch)
        : m_Batch(batch), m_Start(std::chrono::steady_clock::now())
    {
    }

    std::size_t Run()
    {
        const unsigned processors = std::max(1u, std::thread::hardware_concurrency());
        const std::size_t workers = std::min<std::size_t>(
            m_Batch.jobs == 0 ? processors : m_Batch.jobs, m_Batch.inputs.size());
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
        return m_Failed;
    }

private:
    void Work()
    {
        for (std::size_t index = m_Next++; index < m_Batch.inputs.size(); index = m_Next++)
        {
            std::string failure;
            try
            {
                m_Batch.work(index);
            }
            catch (...)
            {
                failure = m_Batch.describeFailure ? m_Batch.describeFailure(index)
                                                  : FailureLine(m_Batch.inputs[index]);
            }
            Report(index, failure);
        }
    }

    void Report(std::size_t index, const std::string& failure)
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        ++m_Done;
        m_Failed += failure.empty() ? 0 : 1;
        if (m_Batch.finished)
        {
            const std::chrono::duration<double> elapsed =
                std::chrono::steady_clock::now() - m_Start;
            m_Batch.finished(index, failure, {m_Done, m_Batch.inputs.size(), elapsed.count()});
        }
    }

    const FileBatch& m_Batch;
    const std::chrono::steady_clock::time_point m_Start;
    std::atomic<std::size_t> m_Next{0};
    std::mutex m_Mutex;
    std::size_t m_Done = 0;
    std::size_t m_Failed = 0;
};
} // namespace

std::size_t RunFileBatch(const FileBatch& batch)
{
    return batch.inputs.empty() ? 0 : FileBatchRunner(batch).Run();
}

std::string FailureLine(const std::string& input, const std::string& alsoNamed)
{
    const std::string message = Kiv::Access::DescribeCurrentException();
    if (StartsWithName(message, input) || StartsWithName(message, alsoNamed))
    {
        return message;
    }
    return input + ": " + message;
}

} // namespace Kiv::Export
