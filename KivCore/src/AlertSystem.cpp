#include "Kiv/Core/AlertSystem.h"

#include <iostream>
#include <mutex>
#include <sstream>

#include "Kiv/Core/Error.h"
#include "Kiv/Core/Warning.h"

namespace Kiv::Core
{

namespace
{
std::mutex& HandlerMutex()
{
    static std::mutex mutex;
    return mutex;
}

std::shared_ptr<AlertHandler>& CurrentHandler()
{
    static std::shared_ptr<AlertHandler> handler = std::make_shared<StderrAlertHandler>();
    return handler;
}

// One whole line per alert, written in one piece so that lines from two threads do not mix.
void WriteAlertLine(const char* severity, const std::string& message, const std::string& alertId,
                    const CodeContext& context)
{
    std::ostringstream line;
    line << severity << ": " << message << " [" << alertId << "] at " << context.Describe() << '\n';
    std::cerr << line.str() << std::flush;
}
} // namespace

void StderrAlertHandler::OnError(const Error&, const CodeContext&, const std::string&)
{
    // Errors are thrown; whoever catches one decides whether and how to show it.
}

void StderrAlertHandler::OnWarning(const Warning& warning, const CodeContext& context,
                                   const std::string& alertId)
{
    WriteAlertLine("warning", warning.GetMessage(), alertId, context);
}

void StderrAlertHandler::OnAssertFailed(const std::string& expressionText,
                                        const CodeContext& context)
{
    WriteAlertLine("assertion failed", expressionText, "assert", context);
}

std::shared_ptr<AlertHandler> SetAlertHandler(std::shared_ptr<AlertHandler> handler)
{
    if (!handler)
    {
        handler = std::make_shared<StderrAlertHandler>();
    }
    std::lock_guard<std::mutex> guard(HandlerMutex());
    std::swap(CurrentHandler(), handler);
    return handler;
}

std::shared_ptr<AlertHandler> GetAlertHandler()
{
    std::lock_guard<std::mutex> guard(HandlerMutex());
    return CurrentHandler();
}

} // namespace Kiv::Core
