#pragma once

#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <typeinfo>

#include <boost/format.hpp>

namespace Kiv::Core
{

enum ESeverity
{
    SEVERITY_INFO = 0,
    SEVERITY_WARNING = 1,
    SEVERITY_ERROR = 2,
};

// The common part of errors and warnings: a severity and a map of named texts
// (the message, the ancestry record and whatever the raiser records).
class AlertInfo
{
public:
    static const std::string sMESSAGE;

    AlertInfo() = default;
    AlertInfo(const AlertInfo&) = default;
    AlertInfo& operator=(const AlertInfo&) = default;
    virtual ~AlertInfo() = default;

    // The text stored under key, or an empty text when there is none.
    const std::string& GetData(const std::string& key) const;
    bool SetData(const std::string& key, const std::string& value);
    bool HasData(const std::string& key) const { return m_Data.count(key) != 0; }

    ESeverity GetSeverity() const { return m_Severity; }
    const std::string& GetMessage() const { return GetData(sMESSAGE); }

protected:
    void SetSeverity(ESeverity severity) { m_Severity = severity; }

    // Records the class under construction at the end of the ancestry record.
    void AppendAncestry(const std::type_info& type);

private:
    std::map<std::string, std::string> m_Data;
    ESeverity m_Severity = SEVERITY_INFO;
};

namespace Detail
{
void ReportAlertFormatFailure();
extern const char* const ALERT_FORMAT_FALLBACK;

inline void FeedFormat(boost::format&) {}

template <class First, class... Rest>
void FeedFormat(boost::format& format, const First& first, const Rest&... rest)
{
    format % first;
    FeedFormat(format, rest...);
}
} // namespace Detail

// Builds an alert's message from its fixed text and arguments. Alert construction must never
// throw, so a text the format library rejects yields the fallback message and a line on stderr.
template <class... Args>
std::string FormatAlertMessage(const char* text, const Args&... args) noexcept
{
    try
    {
        boost::format format(text);
        Detail::FeedFormat(format, args...);
        return format.str();
    }
    catch (...)
    {
        Detail::ReportAlertFormatFailure();
        return Detail::ALERT_FORMAT_FALLBACK;
    }
}

} // namespace Kiv::Core
