#pragma once

#include "Pelrix/PelrixDataFile.h"

namespace Pelrix
{

// Recognises Pelrix files and makes PelrixDataFile objects for the host.
class PelrixDataFileFactory : public Kiv::DataCore::DataFile::Factory
{
public:
    // Makes and opens a file; one that fails to open is still returned, not open.
    boost::shared_ptr<Kiv::DataCore::DataFile>
    Create(const std::string& fileName, Kiv::DataCore::DataFile::EAccess access,
           Kiv::DataCore::DataFile::EOpenBehavior behavior,
           boost::shared_ptr<Kiv::DataCore::DataContainer> options) override;
    std::string GetFileType() const override;
    std::string GetFileTypeDescription() const override;
    void GetFileExtensions(std::vector<std::string>& extensions) const override;
    bool IsFactoryFileType(const std::string& fileName) const override;
};

} // namespace Pelrix
