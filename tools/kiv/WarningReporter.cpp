#include "WarningReporter.h"

#include <iostream>
#include <memory>
#include <mutex>
#include <set>

#include "Kiv/Access/Latin1.h"
#include "Kiv/Core/AlertSystem.h"
#include "Kiv/Core/Warning.h"

namespace Kiv::Tool
{

using namespace Kiv::Access;

namespace
{
class WarningReporter : public Kiv::Core::AlertHandler
{
public:
    void OnError(const Kiv::Core::Error&, const Kiv::Core::CodeContext&,
                 const std::string&) override
    {
        // Errors are thrown; the command reports the one that ends it.
    }
    void OnWarning(const Kiv::Core::Warning& warning, const Kiv::Core::CodeContext& context,
                   const std::string&) override
    {
        Report(warning.GetMessage(), context);
    }
    void OnAssertFailed(const std::string& expressionText,
                        const Kiv::Core::CodeContext& context) override
    {
        Report("assertion failed: " + expressionText, context);
    }

private:
    void Report(const std::string& message, const Kiv::Core::CodeContext& context)
    {
        const std::string line =
            "kiv: warning: " + ToDisplayText(message) + " (" + context.Describe() + ")";
        std::lock_guard<std::mutex> guard(m_Mutex);
        if (m_Reported.insert(line).second)
        {
            std::cerr << line << '\n';
        }
    }

    std::mutex m_Mutex;
    std::set<std::string> m_Reported;
};
} // namespace

void InstallWarningReporter()
{
    Kiv::Core::SetAlertHandler(std::make_shared<WarningReporter>());
}

} // namespace Kiv::Tool
