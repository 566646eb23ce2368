#include "Kiv/Core/AlertInfo.h"

#include "Kiv/Core/Error.h"

namespace Kiv::Core
{

const std::string AlertInfo::sMESSAGE = "Message";

namespace Detail
{
const char* const ALERT_FORMAT_FALLBACK = "Failed to construct alert message due to exception.";

void ReportAlertFormatFailure()
{
    try
    {
        std::cerr << "Failed to construct alert due to exception!" << std::endl;
    }
    catch (...)
    {
        // Nothing more can be said without risking another failure.
    }
}
} // namespace Detail

const std::string& AlertInfo::GetData(const std::string& key) const
{
    static const std::string empty;
    const auto found = m_Data.find(key);
    return found == m_Data.end() ? empty : found->second;
}

bool AlertInfo::SetData(const std::string& key, const std::string& value)
{
    m_Data[key] = value;
    return true;
}

void AlertInfo::AppendAncestry(const std::type_info& type)
{
    SetData(Error::sINHERITANCE, GetData(Error::sINHERITANCE) + "=>" + type.name());
}

} // namespace Kiv::Core
