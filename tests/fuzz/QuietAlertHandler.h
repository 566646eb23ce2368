#pragma once

#include <string>

#include "Kiv/Core/AlertSystem.h"

namespace KivFuzz
{

// Reports nothing: a fuzzer meets duplicate sections by the thousand.
class QuietAlertHandler : public Kiv::Core::AlertHandler
{
public:
    void OnError(const Kiv::Core::Error&, const Kiv::Core::CodeContext&,
                 const std::string&) override
    {
    }
    void OnWarning(const Kiv::Core::Warning&, const Kiv::Core::CodeContext&,
                   const std::string&) override
    {
    }
    void OnAssertFailed(const std::string&, const Kiv::Core::CodeContext&) override {}
};

} // namespace KivFuzz
