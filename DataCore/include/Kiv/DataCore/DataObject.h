#pragma once

#include <cstdint>
#include <string>
#include <typeinfo>
#include <vector>

#include <boost/shared_ptr.hpp>

#include "Kiv/Core/Lock.h"

namespace Kiv::DataCore
{

class Serializer;

// Value kind codes reported by DescribeType; the Pelrix section type maps use the same codes.
enum EValueKind : unsigned
{
    KindNone = 0,
    KindInt = 6,
    KindLong = 8,
    KindFloat = 12,
    KindDouble = 13,
    KindString = 17,
    KindUnitized = 19,
    KindContainer = 32,
    KindStringList = 66,
    KindRawData = 69,
    KindUnbound = 99,
};

// Capability bits of GetDataFlags.
enum EDataFlags : std::uint32_t
{
    DATA_FLAG_CLONEABLE = 2,
    DATA_FLAG_TYPED = 4,
    DATA_FLAG_LOCKABLE = 128,
};

// The base of every value kept in a data container. Always owned through shared pointers.
class DataObject
{
public:
    using LockList = std::vector<boost::shared_ptr<Kiv::Core::Lock>>;

    DataObject() = default;
    DataObject(const DataObject&) = default;
    DataObject& operator=(const DataObject&) = delete;
    virtual ~DataObject() = default;

    virtual std::uint32_t GetDataFlags() const = 0;
    virtual void DescribeType(unsigned& kind, std::string& name) const = 0;
    virtual std::string GetTypeName() const = 0;
    virtual bool IsType(const std::type_info& type) const = 0;
    virtual bool IsSameType(const DataObject& other) const = 0;
    // Gives the value a serializer (true) or drops it (false); returns whether that worked.
    virtual bool EnableSerialization(bool enable);
    virtual boost::shared_ptr<Serializer> GetSerializer() const;
    virtual bool IsLockable() const = 0;
    // Gives the object its own data lock; true when it did so now.
    virtual bool EnableDataLocking() = 0;
    // Appends the locks that guard this object (and, for a container, its entries).
    virtual void AcquireLocks(LockList& locks) const = 0;
    virtual boost::shared_ptr<DataObject> Clone() const = 0;
    // A held lock on the object's data, or an empty pointer when the object is not lockable.
    virtual boost::shared_ptr<Kiv::Core::Lock> GetDataLock() const = 0;
};

// A data object that can be given its own mutex.
class MutexLockableDataObject : public DataObject
{
public:
    MutexLockableDataObject() = default;
    // A copy is lockable when the source is, with a mutex of its own.
    MutexLockableDataObject(const MutexLockableDataObject& other);

    std::uint32_t GetDataFlags() const override;
    bool IsLockable() const override;
    bool EnableDataLocking() override;
    void AcquireLocks(LockList& locks) const override;
    boost::shared_ptr<Kiv::Core::Lock> GetDataLock() const override;

private:
    boost::shared_ptr<Kiv::Core::Mutex> m_DataMutex;
};

} // namespace Kiv::DataCore
