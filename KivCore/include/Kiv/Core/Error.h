#pragma once

#include <exception>
#include <memory>
#include <string>
#include <vector>

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>

#include "Kiv/Core/AlertInfo.h"
#include "Kiv/Core/CodeContext.h"

namespace Kiv::Core
{

// A failure: an alert that is thrown. Copies and throws keep the exact class of the object
// (see KIV_ERROR_CLASS), so a handler for any base catches what was raised.
class Error : public AlertInfo, public std::exception
{
public:
    static const std::string sINHERITANCE;
    // Keys under which RaiseError records where and by whom the error was raised.
    static const std::string sALERT_ID;
    static const std::string sSOURCE_FILE;
    static const std::string sSOURCE_LINE;
    static const std::string sFUNCTION;

    explicit Error(const std::string& message = std::string());
    Error(const Error&) = default;
    Error& operator=(const Error&) = default;
    ~Error() override = default;

    virtual std::string XMLElementName() const;
    // A heap copy of the exact class (empty if the copy cannot be made).
    virtual boost::shared_ptr<Error> Clone() const;
    [[noreturn]] virtual void Throw() const;

    const char* what() const noexcept override;

    // Records the context and identifier, tells the alert system, and throws this error.
    [[noreturn]] void RaiseError(const CodeContext& context, const std::string& alertId,
                                 bool rethrown) const;

    const std::string& GetAlertId() const { return GetData(sALERT_ID); }
    // The contexts recorded by RaiseError, innermost first.
    const std::vector<CodeContext>& GetCallStack() const;

protected:
    virtual void OnRethrow() {}
    virtual std::shared_ptr<std::vector<CodeContext>> CreateCallStack();

private:
    std::shared_ptr<std::vector<CodeContext>> m_CallStack;
};

} // namespace Kiv::Core

// Gives an error class the copy and throw slots of its exact type.
#define KIV_ERROR_CLASS(ClassName)                                                                 \
public:                                                                                            \
    boost::shared_ptr<::Kiv::Core::Error> Clone() const override                                   \
    {                                                                                              \
        try                                                                                        \
        {                                                                                          \
            return boost::make_shared<ClassName>(*this);                                           \
        }                                                                                          \
        catch (const std::bad_alloc&)                                                              \
        {                                                                                          \
            return nullptr;                                                                        \
        }                                                                                          \
    }                                                                                              \
    [[noreturn]] void Throw() const override                                                       \
    {                                                                                              \
        throw ClassName(*this);                                                                    \
    }

namespace Kiv::Core
{

class LogicError : public Error
{
    KIV_ERROR_CLASS(LogicError)
public:
    explicit LogicError(const std::string& message = std::string());
};

class IOError : public Error
{
    KIV_ERROR_CLASS(IOError)
public:
    explicit IOError(const std::string& message = std::string());
};

class OSError : public Error
{
    KIV_ERROR_CLASS(OSError)
public:
    explicit OSError(const std::string& message = std::string());
};

// Memory for something could not be had.
class AllocationFailed : public OSError
{
    KIV_ERROR_CLASS(AllocationFailed)
public:
    explicit AllocationFailed(const std::string& what);
};

} // namespace Kiv::Core
