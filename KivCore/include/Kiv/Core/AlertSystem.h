#pragma once

#include <memory>
#include <string>

#include "Kiv/Core/CodeContext.h"

namespace Kiv::Core
{

class Error;
class Warning;

// Receives every alert the process raises. Handlers may be called from any thread.
class AlertHandler
{
public:
    virtual ~AlertHandler() = default;
    // Called just before an error is thrown.
    virtual void OnError(const Error& error, const CodeContext& context,
                         const std::string& alertId) = 0;
    virtual void OnWarning(const Warning& warning, const CodeContext& context,
                           const std::string& alertId) = 0;
    virtual void OnAssertFailed(const std::string& expressionText, const CodeContext& context) = 0;
};

// Writes warnings and failed assertions to stderr, one line each; errors are left to whoever
// catches them.
class StderrAlertHandler : public AlertHandler
{
public:
    void OnError(const Error& error, const CodeContext& context,
                 const std::string& alertId) override;
    void OnWarning(const Warning& warning, const CodeContext& context,
                   const std::string& alertId) override;
    void OnAssertFailed(const std::string& expressionText, const CodeContext& context) override;
};

// Installs a handler for the whole process and returns the one it replaces.
// An empty pointer restores the default stderr handler.
std::shared_ptr<AlertHandler> SetAlertHandler(std::shared_ptr<AlertHandler> handler);
std::shared_ptr<AlertHandler> GetAlertHandler();

} // namespace Kiv::Core
