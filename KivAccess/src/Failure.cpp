#include "Kiv/Access/Failure.h"

#include <cstring>
#include <exception>

#include "Kiv/Access/Latin1.h"
#include "Kiv/Core/Error.h"

namespace Kiv::Access
{

void Fail(const std::string& message)
{
    throw Failure(message);
}

void FailWithSystemError(const std::string& message, int error)
{
    throw SystemFailure(message + ": " + std::strerror(error), error);
}

void FailWithFormatError(const std::string& message)
{
    throw FormatFailure(message);
}

namespace
{
std::string OneLine(std::string text)
{
    for (char& c : text)
    {
        if (c == '\n' || c == '\r')
        {
            c = ' ';
        }
    }
    while (!text.empty() && text.back() == ' ')
    {
        text.pop_back();
    }
    return text;
}
} // namespace

std::string DescribeCurrentException()
{
    try
    {
        throw;
    }
    catch (const Kiv::Core::Error& error)
    {
        const std::string& message = error.GetMessage();
        return OneLine(ToDisplayText(message.empty() ? std::string(error.what()) : message));
    }
    catch (const Failure& failure)
    {
        return OneLine(ToDisplayText(failure.what()));
    }
    catch (const std::bad_alloc&)
    {
        return "out of memory";
    }
    catch (const std::exception& error)
    {
        return OneLine(ToDisplayText(error.what()));
    }
    catch (...)
    {
        return "unknown error";
    }
}

std::string WithoutFilePrefix(const std::string& message, const std::string& fileName)
{
    const std::string prefix = fileName + ": ";
    return message.compare(0, prefix.size(), prefix) == 0 ? message.substr(prefix.size()) : message;
}

} // namespace Kiv::Access
