#include "Kiv/DataCore/UnboundData.h"

#include <boost/make_shared.hpp>

#include "Kiv/Core/CodeContext.h"
#include "Kiv/DataCore/MemoryStreams.h"

namespace Kiv::DataCore
{

UnboundData::UnboundData(const std::string& typeName, std::vector<char> contents, bool lockable)
    : m_TypeName(typeName), m_Contents(std::move(contents)), m_Lockable(lockable)
{
}

std::uint32_t UnboundData::GetDataFlags() const
{
    const std::uint32_t flags = DATA_FLAG_CLONEABLE;
    return IsLockable() ? (flags | DATA_FLAG_LOCKABLE) : flags;
}

void UnboundData::DescribeType(unsigned& kind, std::string& name) const
{
    kind = KindUnbound;
    name = GetTypeName();
}

std::string UnboundData::GetTypeName() const
{
    return m_TypeName;
}

bool UnboundData::IsType(const std::type_info& type) const
{
    return type == typeid(UnboundData);
}

// Two unbound values are of the same type when they were written with the same type name.
bool UnboundData::IsSameType(const DataObject& other) const
{
    const auto* unbound = dynamic_cast<const UnboundData*>(&other);
    return unbound != nullptr && unbound->m_TypeName == m_TypeName;
}

// Lockable here means: the value bound from these bytes gets its own data lock. The unbound
// object itself is always guarded by its own mutex.
bool UnboundData::IsLockable() const
{
    Kiv::Core::Lock lock(m_Mutex, Kiv::Core::Elapse::Unlimited());
    return m_Lockable;
}

bool UnboundData::EnableDataLocking()
{
    Kiv::Core::Lock lock(m_Mutex, Kiv::Core::Elapse::Unlimited());
    const bool changed = !m_Lockable;
    m_Lockable = true;
    return changed;
}

void UnboundData::AcquireLocks(LockList& locks) const
{
    locks.push_back(GetDataLock());
}

boost::shared_ptr<DataObject> UnboundData::Clone() const
{
    Kiv::Core::Lock lock(m_Mutex, Kiv::Core::Elapse::Unlimited());
    try
    {
        return boost::make_shared<UnboundData>(m_TypeName, m_Contents, m_Lockable);
    }
    catch (const std::bad_alloc&)
    {
        return nullptr;
    }
}

boost::shared_ptr<Kiv::Core::Lock> UnboundData::GetDataLock() const
{
    return boost::make_shared<Kiv::Core::Lock>(m_Mutex, Kiv::Core::Elapse::Unlimited());
}

void UnboundData::BindData(Serializer& serializer) const
{
    MemoryInputStream in(m_Contents);
    const std::uint64_t consumed = serializer.FromBinary(m_Contents.size(), in);
    // The stored bytes are exactly one value: a serializer that used a different count read
    // bytes that are not what was written for this type.
    if (consumed != m_Contents.size() || in.GetRemaining() != 0)
    {
        DataFileError(Kiv::Core::FormatAlertMessage(
                          "the %1% stored bytes of a value of type \"%2%\" hold %3% bytes of data",
                          m_Contents.size(), m_TypeName, consumed))
            .RaiseError(KIV_CODE_CONTEXT, "Kiv.DataCore.UnboundData.BindType", false);
    }
}

} // namespace Kiv::DataCore
