#pragma once

#include <string>

namespace Kiv::Access
{

// Ends the running command. The message is the one line the user sees: it names the file
// (or module) and says what went wrong.
[[noreturn]] void Fail(const std::string& message);

// The text of whatever an operation threw, for a message of our own: an error message of the
// host or a module, one line, as UTF-8.
std::string DescribeCurrentException();

// Drops a leading "name: " from a message that already names the file, so that a caller can
// put its own prefix in front without naming the file twice.
std::string WithoutFilePrefix(const std::string& message, const std::string& fileName);

} // namespace Kiv::Access
