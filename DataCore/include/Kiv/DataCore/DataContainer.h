#pragma once

#include <cstdint>
#include <ostream>
#include <set>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

#include <boost/enable_shared_from_this.hpp>
#include <boost/logic/tribool.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>

#include "Kiv/Core/Lock.h"
#include "Kiv/DataCore/Alerts.h"
#include "Kiv/DataCore/Data.h"

namespace Kiv::Core
{
class BinaryInputStream;
class BinaryOutputStream;
class XMLWriter;
} // namespace Kiv::Core

namespace Kiv::DataCore
{

// A keyed tree of shared data objects. Entries keep the order in which their keys were first
// stored; every change is reported to the container and to every container above it, so that
// a data file learns of an edit made anywhere in its tree. All operations lock the container's
// re-entrant mutex. A container may sit under several keys and in several containers, but never
// inside itself or one of its own descendants.
class DataContainer : public DataObject, public boost::enable_shared_from_this<DataContainer>
{
public:
    using Entry = std::pair<std::string, boost::shared_ptr<DataObject>>;

    // lockEntries: values stored in this container get their own data lock unless a put says
    // otherwise.
    explicit DataContainer(bool lockEntries = false);
    DataContainer(const DataContainer&) = delete;
    DataContainer& operator=(const DataContainer&) = delete;
    ~DataContainer() override;

    // --- data object ---
    std::uint32_t GetDataFlags() const override;
    void DescribeType(unsigned& kind, std::string& name) const override;
    std::string GetTypeName() const override;
    bool IsType(const std::type_info& type) const override;
    bool IsSameType(const DataObject& other) const override;
    bool IsLockable() const override;
    bool EnableDataLocking() override;
    boost::shared_ptr<DataObject> Clone() const override;
    boost::shared_ptr<Kiv::Core::Lock> GetDataLock() const override;

    // --- container ---
    virtual boost::shared_ptr<DataObject> Get(const std::string& key);
    virtual bool Exists(std::string key) const;
    virtual void EnumData(std::set<std::string>& keys) const;
    virtual void EnumData(std::vector<std::string>& keys) const;
    virtual std::uint64_t NumDataObjects() const;
    void AcquireLocks(LockList& locks) const override;
    virtual boost::shared_ptr<DataContainer> GetSubData(const std::vector<std::string>& path,
                                                        bool create);
    virtual void Clear();
    virtual boost::shared_ptr<DataObject> Remove(const std::string& key);
    // Adds the other container's entries (sharing the objects), replacing equal keys.
    virtual void Append(const DataContainer& other);
    // Makes this container hold exactly the other's entries, sharing the objects.
    virtual void Assign(const DataContainer& other);
    // Makes this container hold copies of the other's entries.
    virtual void CloneContents(const DataContainer& other);
    // Reads a whole tree in the host's binary container format; returns the bytes consumed.
    virtual std::uint64_t InputData(Kiv::Core::BinaryInputStream& in);
    // Writes the tree as an XML document.
    virtual void OutputData(std::ostream& out, Kiv::Core::XMLWriter& writer) const;
    // Writes the tree in the host's binary container format; returns the bytes written.
    virtual std::uint64_t OutputData(Kiv::Core::BinaryOutputStream& out) const;

    // Reports a change of the entry under key as if it had been stored again, so that a
    // caller can ask a data file to write itself back without changing a value.
    void ReportChange(const std::string& key);

    // The entries in container order (a snapshot taken under the lock).
    std::vector<Entry> GetEntries() const;
    bool LocksEntries() const { return m_LockEntries; }

    // Stores a copy of value under key, replacing any earlier entry in its place.
    // lockable: give the stored value its own data lock. notify: report the change (true),
    // keep it quiet (false), or the container's default, which is to report it.
    template <class T>
    void Put(const std::string& key, const T& value, bool lockable = false,
             boost::tribool notify = boost::indeterminate)
    {
        boost::shared_ptr<DataObject> object(new Data<T>(value));
        if (lockable || m_LockEntries)
        {
            object->EnableDataLocking();
        }
        StoreEntry(key, object, notify, EChange::Value);
    }
    // The same for a value handed over with std::move: a large value is moved in, never copied.
    template <class T, class = std::enable_if_t<!std::is_lvalue_reference<T>::value &&
                                                !std::is_const<T>::value>>
    void Put(const std::string& key, T&& value, bool lockable = false,
             boost::tribool notify = boost::indeterminate)
    {
        boost::shared_ptr<DataObject> object(new Data<T>(std::move(value)));
        if (lockable || m_LockEntries)
        {
            object->EnableDataLocking();
        }
        StoreEntry(key, object, notify, EChange::Value);
    }
    void Put(const std::string& key, const char* text, bool lockable = false,
             boost::tribool notify = boost::indeterminate)
    {
        Put<std::string>(key, std::string(text ? text : ""), lockable, notify);
    }

    // Copies the value stored under key into value. False, leaving value untouched, when the
    // key is missing or holds another type.
    template <class T>
    bool Get(const std::string& key, T& value) const
    {
        const auto wrapper = boost::dynamic_pointer_cast<GenericWrapper<T>>(Find(key));
        if (!wrapper)
        {
            return false;
        }
        const auto lock = wrapper->GetDataLock();
        const auto shared = wrapper->GetDataReference();
        if (!shared)
        {
            return false;
        }
        value = *shared;
        return true;
    }

    // The value stored under key without copying it, or an empty pointer.
    template <class T>
    boost::shared_ptr<T> GetShared(const std::string& key) const
    {
        const auto wrapper = boost::dynamic_pointer_cast<GenericWrapper<T>>(Find(key));
        return wrapper ? wrapper->GetDataReference() : nullptr;
    }

    // Stores a value the caller keeps a reference to, so that later changes of the caller's T
    // are seen through the container. An existing wrapper of the same type is re-pointed; a new
    // one goes in through PutDataObject unless notify says explicitly whether to report it.
    template <class T>
    void PutReference(const std::string& key, const boost::shared_ptr<T>& value, bool lockable,
                      boost::tribool notify = boost::indeterminate);

protected:
    enum class EChange
    {
        Value,
        Reference,
    };

    virtual void PutDataObject(const std::string& key, boost::shared_ptr<DataObject> object);
    virtual void OnDataValueChanged(const std::string& key, boost::shared_ptr<DataObject> object);
    virtual void OnDataReferenceChanged(const std::string& key,
                                        boost::shared_ptr<DataObject> object);
    virtual void OnDataObjectChanged(const std::string& key, boost::shared_ptr<DataObject> object);
    virtual Kiv::Core::Mutex& BeginDataAccess() const;

    // Stores object under key and reports the change unless notify is false. Raises LogicError
    // when object is this container or one that holds it.
    void StoreEntry(const std::string& key, const boost::shared_ptr<DataObject>& object,
                    boost::tribool notify, EChange change);
    // Reports a change to this container and to every container above it.
    void Notify(const std::string& key, const boost::shared_ptr<DataObject>& object,
                EChange change);
    void RecordLockableEntry(const std::string& key);

private:
    // A container this one is stored in, under key. A parent owned by shared pointers is
    // reached only through its weak pointer, so that a thread reporting a change never calls
    // into a parent that another thread is destroying; one that is not (a container on the
    // stack) is reached directly, and its destructor unlinks it before it goes.
    struct ParentLink
    {
        DataContainer* parent;
        std::string key;
        boost::weak_ptr<DataContainer> owner;
        bool ownedBySharedPointers;

        // The parent, kept alive by keeper when it is shared; null when it is already gone.
        DataContainer* Reach(boost::shared_ptr<DataContainer>& keeper) const;
    };

    boost::shared_ptr<DataObject> Find(const std::string& key) const;
    void ReplaceAll(const std::vector<Entry>& entries);
    // Empties the container without reporting it; returns what it held.
    std::vector<Entry> TakeAllEntries();
    void Link(const std::string& key, const boost::shared_ptr<DataObject>& object);
    // Forgets only the link of object under this key: it may still sit here under another.
    void Unlink(const std::string& key, const boost::shared_ptr<DataObject>& object);
    std::vector<ParentLink> Parents() const;
    // Raises LogicError when storing object here would put a container inside itself.
    void RequireNoCycle(const std::string& key, const boost::shared_ptr<DataObject>& object) const;
    bool IsThisOrAbove(const DataContainer& candidate) const;

    const bool m_LockEntries;
    mutable Kiv::Core::Mutex m_Mutex;
    std::vector<Entry> m_Entries;
    std::unordered_map<std::string, std::size_t> m_Index;
    std::set<std::string> m_LockableEntries;
    std::vector<ParentLink> m_Parents; // guarded by m_Mutex
};

template <class T>
void DataContainer::PutReference(const std::string& key, const boost::shared_ptr<T>& value,
                                 bool lockable, boost::tribool notify)
{
    if (!value)
    {
        // The file and line are the ones this warning has always been reported with.
        PutNullDataPtr(key).RaiseWarning(
            Kiv::Core::CodeContext("DataCore/DataContainer", 987, KIV_SOURCE_TIME_STAMP,
                                   "Kiv::DataCore::DataContainer::PutReference",
                                   __PRETTY_FUNCTION__),
            "Kiv.DataCore.DataContainer.Put");
        return;
    }
    boost::shared_ptr<GenericWrapper<T>> existing;
    {
        Kiv::Core::Lock lock(m_Mutex, Kiv::Core::Elapse::Unlimited());
        existing = boost::dynamic_pointer_cast<GenericWrapper<T>>(Find(key));
        if (existing)
        {
            existing->SetDataReference(value);
            if (lockable && !existing->IsLockable() && existing->EnableDataLocking())
            {
                RecordLockableEntry(key);
            }
        }
    }
    if (existing)
    {
        if (notify || boost::indeterminate(notify))
        {
            Notify(key, existing, EChange::Reference);
        }
        return;
    }
    boost::shared_ptr<GenericWrapper<T>> wrapper(new GenericWrapper<T>(value));
    if (lockable)
    {
        wrapper->EnableDataLocking();
    }
    if (boost::indeterminate(notify))
    {
        // The ordinary way in, so that a derived container sees the new entry.
        PutDataObject(key, wrapper);
    }
    else
    {
        StoreEntry(key, wrapper, notify, EChange::Value);
    }
}

} // namespace Kiv::DataCore
