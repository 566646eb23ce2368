#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace Kiv::DataCore
{

// A module's own checks, which the host can list and run (for example on the sample files
// the module knows). A module hands its suite to the host through the exported entry
//
//     extern "C" Kiv::DataCore::ModuleTestSuite* GetModuleTestSuite();
//
// which returns a suite made with new (or null when it has none). The host owns the result
// and wraps it in a boost::shared_ptr at once; the module keeps no pointer to it. The module
// stays loaded for the life of the process, so the checks may call into it at any time.
class ModuleTestSuite
{
public:
    struct Result
    {
        std::string check;
        bool passed = false;
        std::string message; // why the check failed; empty when it passed
    };

    // A check passes when it returns and fails when it throws.
    using Check = std::function<void()>;

    explicit ModuleTestSuite(std::string name);

    const std::string& GetName() const { return m_Name; }

    // Adds a check to run after those added before. An empty check or a name already in the
    // suite raises Kiv::Core::LogicError: results are told apart by name.
    void AddCheck(std::string name, Check check);

    std::vector<std::string> ListChecks() const;

    // Runs every check in the order added; a failing check does not stop the others.
    std::vector<Result> Run() const;

private:
    struct NamedCheck
    {
        std::string name;
        Check check;
    };

    std::string m_Name;
    std::vector<NamedCheck> m_Checks;
};

// What FailCheck throws: a check's failure, as opposed to an error of the code under test.
class ModuleCheckFailure : public std::runtime_error
{
public:
    explicit ModuleCheckFailure(const std::string& message) : std::runtime_error(message) {}
};

[[noreturn]] void FailCheck(const std::string& message);

// Fails the running check with message unless condition holds.
void CheckThat(bool condition, const std::string& message);

// The signature of a module's exported GetModuleTestSuite.
using ModuleTestSuiteEntry = ModuleTestSuite* (*)();

} // namespace Kiv::DataCore
