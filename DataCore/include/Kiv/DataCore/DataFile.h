#pragma once

#include <map>
#include <string>
#include <typeinfo>
#include <vector>

#include <boost/shared_ptr.hpp>

#include "Kiv/DataCore/DataContainer.h"

namespace Kiv::DataCore
{

// A data container backed by a file. File types register a factory for their class; Open
// finds the factory that recognises a file and lets it make and open the file object.
class DataFile : public DataContainer
{
public:
    // How a file is to be used. A file type decides what it reads and writes for each.
    enum EAccess
    {
        ACCESS_NONE = 0,
        ACCESS_READ = 1,
        ACCESS_WRITE = 2,
        ACCESS_READ_WRITE = 3,
        ACCESS_READ_SHARED = 4, // read, as ACCESS_READ
        ACCESS_OTHER = 5,
    };

    // How the file stream treats the file on disk; the values are the file stream's open
    // behaviours. None of them truncates an existing file when it is opened.
    enum EOpenBehavior
    {
        OPEN_EXISTING = 0,              // the file must exist
        OPEN_ALWAYS = 1,                // open it, creating it when missing
        CREATE_NEW = 2,                 // create it; fail when it exists
        OPEN_EXISTING_TRIM_ON_CLOSE = 3 // as OPEN_EXISTING, and when anything was written,
                                        // closing cuts the file after the furthest byte written
    };

    // Makes and recognises the files of one type.
    class Factory
    {
    public:
        virtual ~Factory() = default;
        virtual boost::shared_ptr<DataFile> Create(const std::string& fileName, EAccess access,
                                                   EOpenBehavior behavior,
                                                   boost::shared_ptr<DataContainer> options) = 0;
        virtual std::string GetFileType() const = 0;
        virtual std::string GetFileTypeDescription() const = 0;
        virtual void GetFileExtensions(std::vector<std::string>& extensions) const = 0;
        virtual bool IsFactoryFileType(const std::string& fileName) const = 0;
    };

    // What the registry can say of one registered type.
    struct FileTypeInfo
    {
        std::string fileType;
        std::string description;
        std::vector<std::string> extensions;
    };

    DataFile();
    ~DataFile() override;

    virtual bool IsOpen() const = 0;
    virtual void Flush() = 0;
    virtual void Close() = 0;
    virtual std::string GetFileName() const = 0;
    virtual std::string GetFileType() const = 0;
    virtual std::string DescribeFileType() const = 0;
    virtual bool SetMetaData(const std::string& key, boost::shared_ptr<DataContainer> metaData);
    virtual boost::shared_ptr<DataContainer> GetMetaData(const std::string& key);

    // Opens fileName with the factory of fileType, or, when fileType is empty, with the first
    // registered factory that recognises the file. Raises DataFileError when none does.
    static boost::shared_ptr<DataFile> Open(const std::string& fileName, EAccess access,
                                            EOpenBehavior behavior, const std::string& fileType,
                                            boost::shared_ptr<DataContainer> options);

    // The registered file types, in registration order.
    static std::vector<FileTypeInfo> ListFileTypes();

private:
    // Registers the factory for a file class; a class registered again keeps one factory.
    static void SetFactory(const std::type_info* fileClass, boost::shared_ptr<Factory> factory);
    friend void RegisterDataFileFactory(const std::type_info&, boost::shared_ptr<Factory>);

    std::map<std::string, boost::shared_ptr<DataContainer>> m_MetaData;
};

// The door through which a module's registration function reaches the private SetFactory.
void RegisterDataFileFactory(const std::type_info& fileClass,
                             boost::shared_ptr<DataFile::Factory> factory);

} // namespace Kiv::DataCore
