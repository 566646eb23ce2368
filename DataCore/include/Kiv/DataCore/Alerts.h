#pragma once

#include <cstdint>
#include <string>

#include "Kiv/Core/Error.h"
#include "Kiv/Core/Warning.h"

namespace Kiv::DataCore
{

// The data library's input/output failure; the base of every data-file error.
class IOError : public Kiv::Core::IOError
{
    KIV_ERROR_CLASS(IOError)
public:
    IOError();
};

class DataFileError : public IOError
{
    KIV_ERROR_CLASS(DataFileError)
public:
    explicit DataFileError(const std::string& message);
};

// An operation that needs an open file was called on a closed one.
class ClosedDataFileError : public DataFileError
{
    KIV_ERROR_CLASS(ClosedDataFileError)
public:
    explicit ClosedDataFileError(const std::string& message);
};

class PutNullDataPtr : public Kiv::Core::Warning
{
public:
    explicit PutNullDataPtr(const std::string& key);
};

class UnboundTypeMismatch : public Kiv::Core::Warning
{
public:
    UnboundTypeMismatch(const std::string& storedTypeName, const std::string& requestedTypeName);
};

class NullSerializerForDataBind : public Kiv::Core::Warning
{
public:
    NullSerializerForDataBind(const std::string& objectTypeName,
                              const std::string& requestedTypeName);
};

class UnboundSizeMismatch : public Kiv::Core::Warning
{
public:
    UnboundSizeMismatch(std::uint32_t storedSize, std::uint32_t expectedSize);
};

} // namespace Kiv::DataCore
