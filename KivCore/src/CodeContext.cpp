#include "Kiv/Core/CodeContext.h"

#include <cstring>

namespace Kiv::Core
{

CodeContext::CodeContext(const std::string& sourceFile, int line, const std::string& timeStamp,
                         const std::string& shortFunctionName, const std::string& functionSignature)
    : m_SourceFile(sourceFile), m_Line(line), m_TimeStamp(timeStamp),
      m_ShortFunctionName(shortFunctionName), m_FunctionSignature(functionSignature)
{
}

std::string CodeContext::Describe() const
{
    std::string text = m_SourceFile + ":" + std::to_string(m_Line);
    if (!m_ShortFunctionName.empty())
    {
        text += " (" + m_ShortFunctionName + ")";
    }
    return text;
}

std::string ShortFunctionName(const char* prettyFunction)
{
    const std::string signature(prettyFunction ? prettyFunction : "");
    // The name ends at the first '(' outside template brackets; it starts after the last
    // blank before that point outside template brackets (the return type's end).
    int depth = 0;
    std::size_t nameStart = 0;
    std::size_t nameEnd = signature.size();
    for (std::size_t i = 0; i < signature.size(); ++i)
    {
        const char c = signature[i];
        if (c == '<')
        {
            ++depth;
        }
        else if (c == '>' && depth > 0)
        {
            --depth;
        }
        else if (depth == 0 && c == ' ')
        {
            nameStart = i + 1;
        }
        else if (depth == 0 && c == '(')
        {
            // "operator()" keeps its own parentheses.
            if (signature.compare(i, 2, "()") == 0 && i >= 8 &&
                signature.compare(i - 8, 8, "operator") == 0)
            {
                ++i;
                continue;
            }
            nameEnd = i;
            break;
        }
    }
    if (nameStart > nameEnd)
    {
        nameStart = 0;
    }
    return signature.substr(nameStart, nameEnd - nameStart);
}

} // namespace Kiv::Core
