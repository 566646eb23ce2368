#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Kiv/Core/AlertSystem.h"
#include "Kiv/Core/Error.h"
#include "Kiv/Core/Warning.h"

namespace KivTest
{

// Records every alert instead of printing it, and puts the previous handler back when the
// test ends.
class CollectingAlertHandler : public Kiv::Core::AlertHandler
{
public:
    struct Record
    {
        std::string kind; // "error", "warning" or "assert"
        std::string message;
        std::string alertId;
        Kiv::Core::CodeContext context;
    };

    void OnError(const Kiv::Core::Error& error, const Kiv::Core::CodeContext& context,
                 const std::string& alertId) override
    {
        Add({"error", error.GetMessage(), alertId, context});
    }
    void OnWarning(const Kiv::Core::Warning& warning, const Kiv::Core::CodeContext& context,
                   const std::string& alertId) override
    {
        Add({"warning", warning.GetMessage(), alertId, context});
    }
    void OnAssertFailed(const std::string& expressionText,
                        const Kiv::Core::CodeContext& context) override
    {
        Add({"assert", expressionText, "", context});
    }

    std::vector<Record> Records() const
    {
        std::lock_guard<std::mutex> guard(m_Mutex);
        return m_Records;
    }
    std::size_t Count(const std::string& kind) const
    {
        std::size_t count = 0;
        for (const auto& record : Records())
        {
            count += record.kind == kind ? 1 : 0;
        }
        return count;
    }

private:
    void Add(Record record)
    {
        std::lock_guard<std::mutex> guard(m_Mutex);
        m_Records.push_back(std::move(record));
    }

    mutable std::mutex m_Mutex;
    std::vector<Record> m_Records;
};

// Installs a collecting handler for the lifetime of the object.
class ScopedAlertCollector
{
public:
    ScopedAlertCollector()
        : m_Handler(std::make_shared<CollectingAlertHandler>()),
          m_Previous(Kiv::Core::SetAlertHandler(m_Handler))
    {
    }
    ~ScopedAlertCollector() { Kiv::Core::SetAlertHandler(m_Previous); }

    CollectingAlertHandler& operator*() { return *m_Handler; }
    CollectingAlertHandler* operator->() { return m_Handler.get(); }

private:
    std::shared_ptr<CollectingAlertHandler> m_Handler;
    std::shared_ptr<Kiv::Core::AlertHandler> m_Previous;
};

} // namespace KivTest
