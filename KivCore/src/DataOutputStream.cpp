#include "Kiv/Core/DataOutputStream.h"

#include <limits>

#include "Kiv/Core/CodeContext.h"
#include "Kiv/Core/Error.h"

namespace Kiv::Core
{

namespace
{
const char* const ALERT_ID = "Kiv.Core.DataOutputStream";
}

DataOutputStream& DataOutputStream::operator<<(int value)
{
    m_Stream.Write(&value, sizeof(value));
    return *this;
}

DataOutputStream& DataOutputStream::operator<<(HostLong value)
{
    m_Stream.Write(&value, sizeof(value));
    return *this;
}

DataOutputStream& DataOutputStream::operator<<(float value)
{
    m_Stream.Write(&value, sizeof(value));
    return *this;
}

DataOutputStream& DataOutputStream::operator<<(double value)
{
    m_Stream.Write(&value, sizeof(value));
    return *this;
}

DataOutputStream& DataOutputStream::operator<<(const std::string& value)
{
    if (value.size() > std::numeric_limits<std::uint32_t>::max())
    {
        const std::string name = m_Stream.GetStreamName();
        IOError(FormatAlertMessage("%1%cannot write a text of %2% bytes: its length does not "
                                   "fit in 4 bytes",
                                   name.empty() ? std::string() : name + ": ", value.size()))
            .RaiseError(KIV_CODE_CONTEXT, ALERT_ID, false);
    }
    const auto length = static_cast<std::uint32_t>(value.size());
    m_Stream.Write(&length, sizeof(length));
    m_Stream.Write(value.data(), value.size());
    return *this;
}

} // namespace Kiv::Core
