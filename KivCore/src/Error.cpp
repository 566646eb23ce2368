#include "Kiv/Core/Error.h"

#include "Kiv/Core/AlertSystem.h"

namespace Kiv::Core
{

const std::string Error::sINHERITANCE = "Inheritance";
const std::string Error::sALERT_ID = "AlertId";
const std::string Error::sSOURCE_FILE = "SourceFile";
const std::string Error::sSOURCE_LINE = "SourceLine";
const std::string Error::sFUNCTION = "Function";

Error::Error(const std::string& message)
{
    SetSeverity(SEVERITY_ERROR);
    SetData(sMESSAGE, message);
    AppendAncestry(typeid(Error));
}

std::string Error::XMLElementName() const
{
    return "Error";
}

boost::shared_ptr<Error> Error::Clone() const
{
    try
    {
        return boost::make_shared<Error>(*this);
    }
    catch (const std::bad_alloc&)
    {
        return nullptr;
    }
}

void Error::Throw() const
{
    throw Error(*this);
}

const char* Error::what() const noexcept
{
    return GetMessage().c_str();
}

void Error::RaiseError(const CodeContext& context, const std::string& alertId, bool rethrown) const
{
    boost::shared_ptr<Error> raised = Clone();
    if (!raised)
    {
        Throw();
    }
    raised->SetData(sALERT_ID, alertId);
    raised->SetData(sSOURCE_FILE, context.GetSourceFile());
    raised->SetData(sSOURCE_LINE, std::to_string(context.GetLine()));
    raised->SetData(sFUNCTION, context.GetShortFunctionName());
    // Copies share their stack; the raised error gets its own, so that raising a caught error
    // again leaves the caught object's stack as it was.
    std::shared_ptr<std::vector<CodeContext>> stack = raised->CreateCallStack();
    if (m_CallStack)
    {
        *stack = *m_CallStack;
    }
    stack->push_back(context);
    raised->m_CallStack = std::move(stack);
    if (rethrown)
    {
        raised->OnRethrow();
    }
    if (const auto handler = GetAlertHandler())
    {
        handler->OnError(*raised, context, alertId);
    }
    raised->Throw();
    // Throw is overridden per class; should an override ever return, still leave as an error.
    throw Error(*raised);
}

const std::vector<CodeContext>& Error::GetCallStack() const
{
    static const std::vector<CodeContext> empty;
    return m_CallStack ? *m_CallStack : empty;
}

std::shared_ptr<std::vector<CodeContext>> Error::CreateCallStack()
{
    return std::make_shared<std::vector<CodeContext>>();
}

LogicError::LogicError(const std::string& message) : Error(message)
{
    AppendAncestry(typeid(LogicError));
}

IOError::IOError(const std::string& message) : Error(message)
{
    AppendAncestry(typeid(IOError));
}

OSError::OSError(const std::string& message) : Error(message)
{
    AppendAncestry(typeid(OSError));
}

AllocationFailed::AllocationFailed(const std::string& what) : OSError(std::string())
{
    SetSeverity(SEVERITY_ERROR);
    SetData(sMESSAGE, FormatAlertMessage("Attempt to allocate %1% failed", what));
    AppendAncestry(typeid(AllocationFailed));
}

} // namespace Kiv::Core
