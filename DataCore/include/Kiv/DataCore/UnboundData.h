#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <boost/shared_ptr.hpp>

#include "Kiv/Core/Lock.h"
#include "Kiv/DataCore/Alerts.h"
#include "Kiv/DataCore/Data.h"
#include "Kiv/DataCore/Serializer.h"

namespace Kiv::DataCore
{

// A value read from a stream whose type the reader did not know. It keeps the type name
// written with it, its raw bytes and whether the bound value shall be lockable; BindType<T>
// turns it into a typed value once the caller knows the type.
class UnboundData : public DataObject
{
public:
    UnboundData(const std::string& typeName, std::vector<char> contents, bool lockable);

    std::uint32_t GetDataFlags() const override;
    void DescribeType(unsigned& kind, std::string& name) const override;
    std::string GetTypeName() const override;
    bool IsType(const std::type_info& type) const override;
    bool IsSameType(const DataObject& other) const override;
    bool IsLockable() const override;
    bool EnableDataLocking() override;
    void AcquireLocks(LockList& locks) const override;
    boost::shared_ptr<DataObject> Clone() const override;
    boost::shared_ptr<Kiv::Core::Lock> GetDataLock() const override;

    const std::string& GetStoredTypeName() const { return m_TypeName; }
    std::uint64_t GetStoredSize() const { return m_Contents.size(); }
    const std::vector<char>& GetContents() const { return m_Contents; }

    template <class T>
    boost::shared_ptr<DataObject> BindType();

protected:
    // Reads the stored bytes into a value through its serializer.
    void BindData(Serializer& serializer) const;

private:
    std::string m_TypeName;
    std::vector<char> m_Contents;
    bool m_Lockable;
    mutable Kiv::Core::Mutex m_Mutex;
};

template <class T>
boost::shared_ptr<DataObject> UnboundData::BindType()
{
    Kiv::Core::Lock lock(m_Mutex, Kiv::Core::Elapse::Unlimited());
    boost::shared_ptr<DataObject> result;
    const std::string requested = ValueTraits<T>::TypeName();
    // The file and lines are the ones these warnings have always been reported with. The
    // signature is taken here: inside the lambda it would be the lambda's.
    const char* const signature = __PRETTY_FUNCTION__;
    auto context = [signature](int line)
    {
        return Kiv::Core::CodeContext("DataCore/UnboundDataObject", line, KIV_SOURCE_TIME_STAMP,
                                      "Kiv::DataCore::UnboundData::BindType", signature);
    };
    if (m_TypeName != requested)
    {
        UnboundTypeMismatch(m_TypeName, requested)
            .RaiseWarning(context(266), "Kiv.DataCore.UnboundData.BindType");
        return result;
    }
    boost::shared_ptr<Data<T>> bound(new Data<T>());
    result = bound;
    if (m_Lockable)
    {
        bound->EnableDataLocking();
    }
    bound->CreateSerializer();
    const boost::shared_ptr<Serializer> serializer = bound->GetSerializer();
    if (!serializer)
    {
        // The new, unfilled value is returned on purpose: the caller still learns the type.
        NullSerializerForDataBind(bound->GetTypeName(), requested)
            .RaiseWarning(context(253), "Kiv.DataCore.UnboundData.BindType");
        return result;
    }
    if (serializer->DataSizeIsConstant() && serializer->GetDataSize_bytes() != m_Contents.size())
    {
        result.reset();
        UnboundSizeMismatch(static_cast<std::uint32_t>(m_Contents.size()),
                            static_cast<std::uint32_t>(sizeof(T)))
            .RaiseWarning(context(259), "Kiv.DataCore.UnboundData.BindType");
        return result;
    }
    BindData(*serializer);
    return result;
}

} // namespace Kiv::DataCore
