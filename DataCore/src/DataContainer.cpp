#include "Kiv/DataCore/DataContainer.h"

#include <algorithm>
#include <unordered_set>

#include <boost/make_shared.hpp>

#include "Kiv/Core/CodeContext.h"

namespace Kiv::DataCore
{

using Kiv::Core::Elapse;
using Kiv::Core::Lock;

namespace
{
boost::shared_ptr<DataContainer> AsContainer(const boost::shared_ptr<DataObject>& object)
{
    return boost::dynamic_pointer_cast<DataContainer>(object);
}
} // namespace

DataContainer::DataContainer(bool lockEntries) : m_LockEntries(lockEntries) {}

DataContainer::~DataContainer()
{
    // Sub-containers that outlive this one must not report to it any more.
    for (const auto& entry : m_Entries)
    {
        Unlink(entry.first, entry.second);
    }
}

std::uint32_t DataContainer::GetDataFlags() const
{
    return DATA_FLAG_CLONEABLE | DATA_FLAG_TYPED | DATA_FLAG_LOCKABLE;
}

void DataContainer::DescribeType(unsigned& kind, std::string& name) const
{
    kind = KindContainer;
    name = GetTypeName();
}

std::string DataContainer::GetTypeName() const
{
    return "DataContainer";
}

bool DataContainer::IsType(const std::type_info& type) const
{
    return type == typeid(DataContainer);
}

bool DataContainer::IsSameType(const DataObject& other) const
{
    return other.IsType(typeid(DataContainer));
}

bool DataContainer::IsLockable() const
{
    return true;
}

bool DataContainer::EnableDataLocking()
{
    return false; // a container always has its mutex
}

boost::shared_ptr<DataObject> DataContainer::Clone() const
{
    try
    {
        auto copy = boost::make_shared<DataContainer>(m_LockEntries);
        copy->CloneContents(*this);
        return copy;
    }
    catch (const std::bad_alloc&)
    {
        return nullptr;
    }
}

boost::shared_ptr<Lock> DataContainer::GetDataLock() const
{
    return boost::make_shared<Lock>(m_Mutex, Elapse::Unlimited());
}

boost::shared_ptr<DataObject> DataContainer::Get(const std::string& key)
{
    return Find(key);
}

bool DataContainer::Exists(std::string key) const
{
    Lock lock(m_Mutex, Elapse::Unlimited());
    return m_Index.count(key) != 0;
}

void DataContainer::EnumData(std::set<std::string>& keys) const
{
    Lock lock(m_Mutex, Elapse::Unlimited());
    for (const auto& entry : m_Entries)
    {
        keys.insert(entry.first);
    }
}

void DataContainer::EnumData(std::vector<std::string>& keys) const
{
    Lock lock(m_Mutex, Elapse::Unlimited());
    keys.reserve(keys.size() + m_Entries.size());
    for (const auto& entry : m_Entries)
    {
        keys.push_back(entry.first);
    }
}

std::uint64_t DataContainer::NumDataObjects() const
{
    Lock lock(m_Mutex, Elapse::Unlimited());
    return m_Entries.size();
}

void DataContainer::AcquireLocks(LockList& locks) const
{
    locks.push_back(GetDataLock());
    for (const auto& entry : GetEntries())
    {
        entry.second->AcquireLocks(locks);
    }
}

boost::shared_ptr<DataContainer> DataContainer::GetSubData(const std::vector<std::string>& path,
                                                           bool create)
{
    DataContainer* level = this;
    boost::shared_ptr<DataContainer> found;
    for (const auto& key : path)
    {
        boost::shared_ptr<DataContainer> next;
        bool created = false;
        {
            Lock lock(level->m_Mutex, Elapse::Unlimited());
            const auto existing = level->Find(key);
            next = AsContainer(existing);
            if (!next && existing)
            {
                return nullptr; // the key holds a value, not a container
            }
            if (!next)
            {
                if (!create)
                {
                    return nullptr;
                }
                next = boost::make_shared<DataContainer>(false);
                level->StoreEntry(key, next, false, EChange::Value);
                created = true;
            }
        }
        if (created)
        {
            level->Notify(key, next, EChange::Value);
        }
        found = next;
        level = next.get();
    }
    return found;
}

void DataContainer::Clear()
{
    for (const auto& entry : TakeAllEntries())
    {
        Notify(entry.first, entry.second, EChange::Value);
    }
}

std::vector<DataContainer::Entry> DataContainer::TakeAllEntries()
{
    std::vector<Entry> removed;
    {
        Lock lock(m_Mutex, Elapse::Unlimited());
        removed.swap(m_Entries);
        m_Index.clear();
        m_LockableEntries.clear();
    }
    for (const auto& entry : removed)
    {
        Unlink(entry.first, entry.second);
    }
    return removed;
}

boost::shared_ptr<DataObject> DataContainer::Remove(const std::string& key)
{
    boost::shared_ptr<DataObject> removed;
    {
        Lock lock(m_Mutex, Elapse::Unlimited());
        const auto found = m_Index.find(key);
        if (found == m_Index.end())
        {
            return nullptr;
        }
        const std::size_t position = found->second;
        removed = m_Entries[position].second;
        m_Entries.erase(m_Entries.begin() + static_cast<std::ptrdiff_t>(position));
        m_Index.erase(found);
        for (auto& index : m_Index)
        {
            if (index.second > position)
            {
                --index.second;
            }
        }
        m_LockableEntries.erase(key);
    }
    Unlink(key, removed);
    Notify(key, removed, EChange::Value);
    return removed;
}

void DataContainer::Append(const DataContainer& other)
{
    if (&other == this)
    {
        return;
    }
    for (const auto& entry : other.GetEntries())
    {
        PutDataObject(entry.first, entry.second);
    }
}

void DataContainer::Assign(const DataContainer& other)
{
    if (&other == this)
    {
        return;
    }
    ReplaceAll(other.GetEntries());
}

void DataContainer::CloneContents(const DataContainer& other)
{
    if (&other == this)
    {
        return;
    }
    std::vector<Entry> copies = other.GetEntries();
    for (auto& entry : copies)
    {
        entry.second = entry.second->Clone();
    }
    copies.erase(std::remove_if(copies.begin(), copies.end(),
                                [](const Entry& entry) { return !entry.second; }),
                 copies.end());
    ReplaceAll(copies);
}

std::vector<DataContainer::Entry> DataContainer::GetEntries() const
{
    Lock lock(m_Mutex, Elapse::Unlimited());
    return m_Entries;
}

void DataContainer::ReportChange(const std::string& key)
{
    Notify(key, Find(key), EChange::Value);
}

void DataContainer::PutDataObject(const std::string& key, boost::shared_ptr<DataObject> object)
{
    StoreEntry(key, object, boost::indeterminate, EChange::Value);
}

void DataContainer::OnDataValueChanged(const std::string&, boost::shared_ptr<DataObject>) {}

void DataContainer::OnDataReferenceChanged(const std::string&, boost::shared_ptr<DataObject>) {}

void DataContainer::OnDataObjectChanged(const std::string& key,
                                        boost::shared_ptr<DataObject> object)
{
    OnDataValueChanged(key, std::move(object));
}

Kiv::Core::Mutex& DataContainer::BeginDataAccess() const
{
    return m_Mutex;
}

void DataContainer::StoreEntry(const std::string& key, const boost::shared_ptr<DataObject>& object,
                               boost::tribool notify, EChange change)
{
    if (!object)
    {
        return;
    }
    RequireNoCycle(key, object);
    boost::shared_ptr<DataObject> replaced;
    {
        Lock lock(m_Mutex, Elapse::Unlimited());
        const auto found = m_Index.find(key);
        if (found == m_Index.end())
        {
            m_Index.emplace(key, m_Entries.size());
            m_Entries.emplace_back(key, object);
        }
        else
        {
            // A replaced value keeps its key's place, so a file written back keeps its order.
            replaced = m_Entries[found->second].second;
            m_Entries[found->second].second = object;
        }
        if (object->IsLockable())
        {
            m_LockableEntries.insert(key);
        }
        else
        {
            m_LockableEntries.erase(key);
        }
    }
    if (replaced && replaced != object)
    {
        Unlink(key, replaced);
    }
    Link(key, object);
    if (notify || boost::indeterminate(notify))
    {
        Notify(key, object, change);
    }
}

void DataContainer::Notify(const std::string& key, const boost::shared_ptr<DataObject>& object,
                           EChange change)
{
    // Reported without holding this container's mutex, so that a container above may take
    // its own lock without risking a lock-order inversion with another thread.
    if (change == EChange::Reference)
    {
        OnDataReferenceChanged(key, object);
    }
    else
    {
        OnDataObjectChanged(key, object);
    }
    for (const auto& link : Parents())
    {
        boost::shared_ptr<DataContainer> keeper;
        DataContainer* const parent = link.Reach(keeper);
        if (parent != nullptr)
        {
            parent->Notify(link.key, parent->Find(link.key), change);
        }
    }
}

void DataContainer::RecordLockableEntry(const std::string& key)
{
    Lock lock(m_Mutex, Elapse::Unlimited());
    m_LockableEntries.insert(key);
}

boost::shared_ptr<DataObject> DataContainer::Find(const std::string& key) const
{
    Lock lock(m_Mutex, Elapse::Unlimited());
    const auto found = m_Index.find(key);
    return found == m_Index.end() ? nullptr : m_Entries[found->second].second;
}

void DataContainer::ReplaceAll(const std::vector<Entry>& entries)
{
    // Checked before anything is taken out, so a refused entry leaves the container as it was.
    for (const auto& entry : entries)
    {
        RequireNoCycle(entry.first, entry.second);
    }
    const std::vector<Entry> removed = TakeAllEntries();
    for (const auto& entry : entries)
    {
        StoreEntry(entry.first, entry.second, false, EChange::Value);
    }
    // One report per key that changed: the new entries and those that went away.
    for (const auto& entry : entries)
    {
        Notify(entry.first, entry.second, EChange::Value);
    }
    for (const auto& entry : removed)
    {
        if (!Exists(entry.first))
        {
            Notify(entry.first, entry.second, EChange::Value);
        }
    }
}

void DataContainer::Link(const std::string& key, const boost::shared_ptr<DataObject>& object)
{
    const auto child = AsContainer(object);
    if (!child)
    {
        return;
    }
    boost::weak_ptr<DataContainer> owner = weak_from_this();
    const bool ownedBySharedPointers = !owner.expired();
    Lock lock(child->m_Mutex, Elapse::Unlimited());
    for (const auto& link : child->m_Parents)
    {
        if (link.parent == this && link.key == key)
        {
            return;
        }
    }
    child->m_Parents.push_back({this, key, std::move(owner), ownedBySharedPointers});
}

void DataContainer::Unlink(const std::string& key, const boost::shared_ptr<DataObject>& object)
{
    const auto child = AsContainer(object);
    if (!child)
    {
        return;
    }
    Lock lock(child->m_Mutex, Elapse::Unlimited());
    auto& parents = child->m_Parents;
    parents.erase(std::remove_if(parents.begin(), parents.end(),
                                 [this, &key](const ParentLink& link)
                                 { return link.parent == this && link.key == key; }),
                  parents.end());
}

std::vector<DataContainer::ParentLink> DataContainer::Parents() const
{
    Lock lock(m_Mutex, Elapse::Unlimited());
    return m_Parents;
}

DataContainer* DataContainer::ParentLink::Reach(boost::shared_ptr<DataContainer>& keeper) const
{
    if (!ownedBySharedPointers)
    {
        return parent;
    }
    keeper = owner.lock();
    return keeper.get();
}

void DataContainer::RequireNoCycle(const std::string& key,
                                   const boost::shared_ptr<DataObject>& object) const
{
    const auto* const container = dynamic_cast<const DataContainer*>(object.get());
    if (container == nullptr)
    {
        return;
    }
    if (container != this)
    {
        // An empty container holds nothing, so it cannot be above this one. Asking first also
        // keeps GetSubData, which stores new containers under its lock, from locking the
        // containers above it in the opposite order.
        Lock lock(container->m_Mutex, Elapse::Unlimited());
        if (container->m_Entries.empty())
        {
            return;
        }
    }
    if (IsThisOrAbove(*container))
    {
        // Every walk over the tree (change reports, copies, lock gathering) would never end.
        Kiv::Core::LogicError(Kiv::Core::FormatAlertMessage(
                                  "a container cannot be stored inside itself (key \"%1%\")", key))
            .RaiseError(KIV_CODE_CONTEXT, "Kiv.DataCore.DataContainer.Put", false);
    }
}

bool DataContainer::IsThisOrAbove(const DataContainer& candidate) const
{
    std::vector<const DataContainer*> pending{this};
    std::unordered_set<const DataContainer*> visited;
    // Holds every shared ancestor reached, so none goes away while the walk still uses it.
    std::vector<boost::shared_ptr<DataContainer>> keepers;
    while (!pending.empty())
    {
        const DataContainer* const level = pending.back();
        pending.pop_back();
        if (level == &candidate)
        {
            return true;
        }
        if (!visited.insert(level).second)
        {
            continue;
        }
        for (const auto& link : level->Parents())
        {
            boost::shared_ptr<DataContainer> keeper;
            if (const DataContainer* const parent = link.Reach(keeper))
            {
                pending.push_back(parent);
                if (keeper)
                {
                    keepers.push_back(std::move(keeper));
                }
            }
        }
    }
    return false;
}

} // namespace Kiv::DataCore
