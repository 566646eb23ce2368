#include "Kiv/DataCore/DataFile.h"

#include <mutex>
#include <typeindex>

#include "Kiv/Core/CodeContext.h"

namespace Kiv::DataCore
{

namespace
{

struct Registration
{
    std::type_index fileClass;
    boost::shared_ptr<DataFile::Factory> factory;
};

// The factories of every file type in the process, in registration order. Shared by the
// program and every module it loads, since all of them link this one library.
class FactoryRegistry
{
public:
    static FactoryRegistry& Instance()
    {
        static FactoryRegistry registry;
        return registry;
    }

    void Set(const std::type_info& fileClass, boost::shared_ptr<DataFile::Factory> factory)
    {
        std::lock_guard<std::mutex> guard(m_Mutex);
        for (auto& registration : m_Registrations)
        {
            if (registration.fileClass == std::type_index(fileClass))
            {
                registration.factory = std::move(factory);
                return;
            }
        }
        m_Registrations.push_back({std::type_index(fileClass), std::move(factory)});
    }

    std::vector<boost::shared_ptr<DataFile::Factory>> Factories() const
    {
        std::lock_guard<std::mutex> guard(m_Mutex);
        std::vector<boost::shared_ptr<DataFile::Factory>> factories;
        for (const auto& registration : m_Registrations)
        {
            factories.push_back(registration.factory);
        }
        return factories;
    }

private:
    mutable std::mutex m_Mutex;
    std::vector<Registration> m_Registrations;
};

[[noreturn]] void RaiseOpenError(const std::string& message, const Kiv::Core::CodeContext& context)
{
    DataFileError(message).RaiseError(context, "Kiv.DataCore.DataFile", false);
}

} // namespace

DataFile::DataFile() : DataContainer(false) {}

DataFile::~DataFile() = default;

bool DataFile::SetMetaData(const std::string& key, boost::shared_ptr<DataContainer> metaData)
{
    if (key.empty() || !metaData)
    {
        return false;
    }
    // The side containers are not part of the file's tree: storing one reports no change.
    Kiv::Core::Lock lock(BeginDataAccess(), Kiv::Core::Elapse::Unlimited());
    m_MetaData[key] = std::move(metaData);
    return true;
}

boost::shared_ptr<DataContainer> DataFile::GetMetaData(const std::string& key)
{
    Kiv::Core::Lock lock(BeginDataAccess(), Kiv::Core::Elapse::Unlimited());
    const auto found = m_MetaData.find(key);
    return found == m_MetaData.end() ? nullptr : found->second;
}

boost::shared_ptr<DataFile> DataFile::Open(const std::string& fileName, EAccess access,
                                           EOpenBehavior behavior, const std::string& fileType,
                                           boost::shared_ptr<DataContainer> options)
{
    const auto factories = FactoryRegistry::Instance().Factories();
    if (!fileType.empty())
    {
        for (const auto& factory : factories)
        {
            if (factory->GetFileType() == fileType)
            {
                return factory->Create(fileName, access, behavior, options);
            }
        }
        RaiseOpenError(fileName + ": no registered file type is named \"" + fileType + "\"",
                       KIV_CODE_CONTEXT);
    }
    for (const auto& factory : factories)
    {
        if (factory->IsFactoryFileType(fileName))
        {
            return factory->Create(fileName, access, behavior, options);
        }
    }
    RaiseOpenError(fileName + ": no registered file type recognises this file", KIV_CODE_CONTEXT);
}

std::vector<DataFile::FileTypeInfo> DataFile::ListFileTypes()
{
    std::vector<FileTypeInfo> types;
    for (const auto& factory : FactoryRegistry::Instance().Factories())
    {
        FileTypeInfo info;
        info.fileType = factory->GetFileType();
        info.description = factory->GetFileTypeDescription();
        factory->GetFileExtensions(info.extensions);
        types.push_back(std::move(info));
    }
    return types;
}

void DataFile::SetFactory(const std::type_info* fileClass, boost::shared_ptr<Factory> factory)
{
    if (fileClass == nullptr || !factory)
    {
        return;
    }
    FactoryRegistry::Instance().Set(*fileClass, std::move(factory));
}

void RegisterDataFileFactory(const std::type_info& fileClass,
                             boost::shared_ptr<DataFile::Factory> factory)
{
    DataFile::SetFactory(&fileClass, std::move(factory));
}

} // namespace Kiv::DataCore
