#include "Pelrix/PelrixDataFileFactory.h"

namespace Pelrix
{

boost::shared_ptr<Kiv::DataCore::DataFile>
PelrixDataFileFactory::Create(const std::string& fileName, Kiv::DataCore::DataFile::EAccess access,
                              Kiv::DataCore::DataFile::EOpenBehavior behavior,
                              boost::shared_ptr<Kiv::DataCore::DataContainer>)
{
    boost::shared_ptr<PelrixDataFile> file(new PelrixDataFile());
    file->Open(fileName, access, behavior);
    return file;
}

std::string PelrixDataFileFactory::GetFileType() const
{
    return PelrixDataFile::FILE_TYPE;
}

std::string PelrixDataFileFactory::GetFileTypeDescription() const
{
    return PelrixDataFile::FILE_DESCRIPTION;
}

void PelrixDataFileFactory::GetFileExtensions(std::vector<std::string>& extensions) const
{
    extensions.push_back("FLT");
}

bool PelrixDataFileFactory::IsFactoryFileType(const std::string& fileName) const
{
    return PelrixDataFile::IsPelrixFile(fileName);
}

} // namespace Pelrix
