#pragma once

#include <stdexcept>
#include <string>

namespace Kiv::Access
{

// A failure a user can cause. The message is the one line the user sees: it names the file (or
// module) and says what went wrong. Front ends map the classes to their own: kiv prints the
// line; the Python module raises kiv.Error, kiv.FormatError or OSError.
class Failure : public std::runtime_error
{
public:
    explicit Failure(const std::string& message) : std::runtime_error(message) {}
};

// The system refused: a missing file, a permission, a full disk. Keeps errno, so that a front
// end can tell "no such file" from "permission denied".
class SystemFailure : public Failure
{
public:
    SystemFailure(const std::string& message, int error) : Failure(message), m_Error(error) {}
    int Error() const { return m_Error; }

private:
    int m_Error;
};

// The file is there and readable, but no file type takes it, or its type's module rejects it.
class FormatFailure : public Failure
{
public:
    using Failure::Failure;
};

// Ends the running operation with a Failure.
[[noreturn]] void Fail(const std::string& message);
// Ends it with a SystemFailure whose message ends in ": " and the text of error.
[[noreturn]] void FailWithSystemError(const std::string& message, int error);
[[noreturn]] void FailWithFormatError(const std::string& message);

// The text of whatever an operation threw, for a message of our own: an error message of the
// host or a module, one line, as UTF-8.
std::string DescribeCurrentException();

// Drops a leading "name: " from a message that already names the file, so that a caller can
// put its own prefix in front without naming the file twice.
std::string WithoutFilePrefix(const std::string& message, const std::string& fileName);

} // namespace Kiv::Access
