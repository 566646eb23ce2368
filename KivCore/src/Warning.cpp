#include "Kiv/Core/Warning.h"

#include "Kiv/Core/AlertSystem.h"
#include "Kiv/Core/Error.h"

namespace Kiv::Core
{

Warning::Warning()
{
    SetSeverity(SEVERITY_WARNING);
}

std::string Warning::XMLElementName() const
{
    return "Warning";
}

void Warning::RaiseWarning(const CodeContext& context, const std::string& alertId) const
{
    if (const auto handler = GetAlertHandler())
    {
        handler->OnWarning(*this, context, alertId);
    }
}

bool AssertFailed(const std::string& expressionText, const CodeContext& context)
{
    if (const auto handler = GetAlertHandler())
    {
        handler->OnAssertFailed(expressionText, context);
    }
    return true;
}

} // namespace Kiv::Core
