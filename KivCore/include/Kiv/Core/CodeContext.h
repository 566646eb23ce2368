#pragma once

#include <string>

namespace Kiv::Core
{

// Where an alert was raised: enough to find the line in the source and the build it came from.
class CodeContext
{
public:
    CodeContext() = default;
    CodeContext(const std::string& sourceFile, int line, const std::string& timeStamp,
                const std::string& shortFunctionName, const std::string& functionSignature);

    const std::string& GetSourceFile() const { return m_SourceFile; }
    int GetLine() const { return m_Line; }
    const std::string& GetTimeStamp() const { return m_TimeStamp; }
    const std::string& GetShortFunctionName() const { return m_ShortFunctionName; }
    const std::string& GetFunctionSignature() const { return m_FunctionSignature; }

    // "file:line (function)", the form the default alert handler prints.
    std::string Describe() const;

private:
    std::string m_SourceFile;
    int m_Line = 0;
    std::string m_TimeStamp;
    std::string m_ShortFunctionName;
    std::string m_FunctionSignature;
};

// The qualified function name inside a compiler signature such as
// "bool Ns::Class<T, U>::Open(const string&) [with T = int]" -> "Ns::Class<T, U>::Open".
std::string ShortFunctionName(const char* prettyFunction);

} // namespace Kiv::Core

// The time stamp of the sources: their files' own, unless the build names one for all of them,
// as a build that must come out byte for byte the same every time does.
#ifdef KIV_SOURCE_TIMESTAMP
#define KIV_SOURCE_TIME_STAMP KIV_SOURCE_TIMESTAMP
#else
#define KIV_SOURCE_TIME_STAMP __TIMESTAMP__
#endif

// The code context of the line it stands on.
#define KIV_CODE_CONTEXT                                                                           \
    ::Kiv::Core::CodeContext(__FILE__, __LINE__, KIV_SOURCE_TIME_STAMP,                            \
                             ::Kiv::Core::ShortFunctionName(__PRETTY_FUNCTION__),                  \
                             __PRETTY_FUNCTION__)
