#include "Pelrix/PelrixDataFile.h"

#include "PelrixIdentity.h"

namespace Pelrix
{

using namespace Kiv::DataCore;
using Kiv::Core::Elapse;
using Kiv::Core::Lock;

// The top level of a Pelrix file is the fixed set of sections built by opening it, so the
// operations that would remove or merge top-level entries are accepted but change nothing.

void PelrixDataFile::Clear()
{
    Lock lock(BeginDataAccess(), Elapse(Elapse::INFINITE, Elapse::SECONDS));
    if (!IsOpen())
    {
        ClosedDataFileError("Clear() called on an unopened Pelrix Data file")
            .RaiseError(PELRIX_CODE_CONTEXT, "Tarvo.PelrixFile", false);
    }
}

boost::shared_ptr<DataObject> PelrixDataFile::Remove(const std::string&)
{
    if (!IsOpen())
    {
        ClosedDataFileError("Remove() called on an unopened PelrixDataFile file")
            .RaiseError(PELRIX_CODE_CONTEXT, Names::ALERT_ID, false);
    }
    Lock lock(BeginDataAccess(), Elapse(Elapse::INFINITE, Elapse::SECONDS));
    return nullptr;
}

void PelrixDataFile::Append(const DataContainer& other)
{
    if (&other == this)
    {
        return;
    }
    Lock lock(BeginDataAccess(), Elapse(Elapse::INFINITE, Elapse::SECONDS));
}

void PelrixDataFile::Append(const std::string&, boost::shared_ptr<DataObject>) {}

void PelrixDataFile::Assign(const DataContainer& other)
{
    if (&other == this)
    {
        return;
    }
    Lock lock(BeginDataAccess(), Elapse(Elapse::INFINITE, Elapse::SECONDS));
    Clear();
    DataFile::Assign(other);
}

void PelrixDataFile::CloneContents(const DataContainer& other)
{
    if (&other == this)
    {
        return;
    }
    Lock lock(BeginDataAccess(), Elapse(Elapse::INFINITE, Elapse::SECONDS));
    DataFile::CloneContents(other);
}

std::uint64_t PelrixDataFile::InputData(Kiv::Core::BinaryInputStream& in)
{
    // The stream is consumed; what it held is offered to Append, which adds nothing.
    DataContainer incoming(false);
    const std::uint64_t consumed = incoming.InputData(in);
    Append(incoming);
    return consumed;
}

void PelrixDataFile::OnDataValueChanged(const std::string&, boost::shared_ptr<DataObject>)
{
    Lock lock(BeginDataAccess(), Elapse(Elapse::INFINITE, Elapse::SECONDS));
    m_ContentModified = true;
}

void PelrixDataFile::OnDataReferenceChanged(const std::string& key,
                                            boost::shared_ptr<DataObject> object)
{
    OnDataValueChanged(key, std::move(object));
}

void PelrixDataFile::UpdateContents(const std::string&, boost::shared_ptr<DataObject>&, bool)
{
    m_ContentModified = true;
}

void PelrixDataFile::SetContentModified(bool modified)
{
    m_ContentModified = modified;
}

bool PelrixDataFile::IsContentModified() const
{
    Lock lock(BeginDataAccess(), Elapse(Elapse::INFINITE, Elapse::SECONDS));
    return m_ContentModified;
}

bool PelrixDataFile::IsFileWritable() const
{
    return static_cast<unsigned>(m_Access) - 2u <= 1u;
}

void PelrixDataFile::AddParm(std::string section, std::string key, std::string value)
{
    if (const auto container = GetSubData({section}, false))
    {
        container->Put<std::string>(key, value);
    }
}

void PelrixDataFile::DeleteParm(std::string section, std::string key)
{
    if (const auto container = GetSubData({section}, false))
    {
        container->Remove(key);
    }
}

void PelrixDataFile::AddDataCallback(const Entry& entry)
{
    if (entry.second->GetSerializer())
    {
        PutDataObject(entry.first, entry.second);
    }
}

void PelrixDataFile::CloneDataCallback(const Entry& entry)
{
    if (entry.second->GetSerializer())
    {
        PutDataObject(entry.first, entry.second->Clone());
    }
}

} // namespace Pelrix
