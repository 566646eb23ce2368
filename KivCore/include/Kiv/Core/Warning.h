#pragma once

#include <string>

#include "Kiv/Core/AlertInfo.h"
#include "Kiv/Core/CodeContext.h"

namespace Kiv::Core
{

// A condition worth reporting that does not end the operation: raising it hands it to the
// alert system and returns.
class Warning : public AlertInfo
{
public:
    Warning();
    ~Warning() override = default;

    virtual std::string XMLElementName() const;

    void RaiseWarning(const CodeContext& context, const std::string& alertId) const;
};

// Reports a failed assertion to the alert system and returns (always true: it was reported).
bool AssertFailed(const std::string& expressionText, const CodeContext& context);

} // namespace Kiv::Core
