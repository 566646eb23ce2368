#include "Kiv/DataCore/ModuleTestSuite.h"

#include <algorithm>
#include <exception>

#include "Kiv/Core/Error.h"

namespace Kiv::DataCore
{

namespace
{

const char* const ALERT_ID = "Kiv.DataCore.ModuleTestSuite";

ModuleTestSuite::Result RunOne(const std::string& name, const ModuleTestSuite::Check& check)
{
    try
    {
        check();
        return {name, true, std::string()};
    }
    catch (const std::exception& failure)
    {
        return {name, false, failure.what()};
    }
    catch (...)
    {
        return {name, false, "unknown exception"};
    }
}

} // namespace

ModuleTestSuite::ModuleTestSuite(std::string name) : m_Name(std::move(name)) {}

void ModuleTestSuite::AddCheck(std::string name, Check check)
{
    if (!check)
    {
        Kiv::Core::LogicError("check \"" + name + "\" of test suite \"" + m_Name +
                              "\" has nothing to run")
            .RaiseError(KIV_CODE_CONTEXT, ALERT_ID, false);
    }
    const bool taken = std::any_of(m_Checks.begin(), m_Checks.end(),
                                   [&name](const NamedCheck& added) { return added.name == name; });
    if (taken)
    {
        Kiv::Core::LogicError("test suite \"" + m_Name + "\" already has a check named \"" + name +
                              "\"")
            .RaiseError(KIV_CODE_CONTEXT, ALERT_ID, false);
    }
    m_Checks.push_back({std::move(name), std::move(check)});
}

std::vector<std::string> ModuleTestSuite::ListChecks() const
{
    std::vector<std::string> names;
    names.reserve(m_Checks.size());
    for (const auto& added : m_Checks)
    {
        names.push_back(added.name);
    }
    return names;
}

std::vector<ModuleTestSuite::Result> ModuleTestSuite::Run() const
{
    std::vector<Result> results;
    results.reserve(m_Checks.size());
    for (const auto& added : m_Checks)
    {
        results.push_back(RunOne(added.name, added.check));
    }
    return results;
}

void FailCheck(const std::string& message)
{
    throw ModuleCheckFailure(message);
}

void CheckThat(bool condition, const std::string& message)
{
    if (!condition)
    {
        FailCheck(message);
    }
}

} // namespace Kiv::DataCore
