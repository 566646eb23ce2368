// A complete file-type module for the loader's tests. Its file type claims every file whose
// name ends in ".kivtest"; its test suite has one check that passes and one that fails.
#include <memory>

#include <boost/make_shared.hpp>

#include "Kiv/DataCore/DataFile.h"
#include "Kiv/DataCore/ModuleTestSuite.h"

// A named namespace, as a real module's file class has: a second copy of the module then
// registers the same class, and its factory replaces the first instead of adding a type.
namespace KivTestModule
{

const char* const FILE_TYPE = "Kiv Test Module File";
const std::string EXTENSION = ".kivtest";

class TestModuleFile : public Kiv::DataCore::DataFile
{
public:
    explicit TestModuleFile(std::string fileName) : m_FileName(std::move(fileName)) {}
    bool IsOpen() const override { return true; }
    void Flush() override {}
    void Close() override {}
    std::string GetFileName() const override { return m_FileName; }
    std::string GetFileType() const override { return FILE_TYPE; }
    std::string DescribeFileType() const override { return "file type of the loader's tests"; }

private:
    std::string m_FileName;
};

class TestModuleFileFactory : public Kiv::DataCore::DataFile::Factory
{
public:
    boost::shared_ptr<Kiv::DataCore::DataFile>
    Create(const std::string& fileName, Kiv::DataCore::DataFile::EAccess,
           Kiv::DataCore::DataFile::EOpenBehavior,
           boost::shared_ptr<Kiv::DataCore::DataContainer>) override
    {
        return boost::make_shared<TestModuleFile>(fileName);
    }
    std::string GetFileType() const override { return FILE_TYPE; }
    std::string GetFileTypeDescription() const override
    {
        return "file type of the loader's tests";
    }
    void GetFileExtensions(std::vector<std::string>& extensions) const override
    {
        extensions.push_back("KIVTEST");
    }
    bool IsFactoryFileType(const std::string& fileName) const override
    {
        return fileName.size() > EXTENSION.size() &&
               fileName.compare(fileName.size() - EXTENSION.size(), EXTENSION.size(), EXTENSION) ==
                   0;
    }
};

bool g_Registered = false;

} // namespace KivTestModule

using namespace KivTestModule;

// The module's whole public face.
extern "C"
{
    void RegisterDataFileTypes();
    Kiv::DataCore::ModuleTestSuite* GetModuleTestSuite();
}

void RegisterDataFileTypes()
{
    if (g_Registered)
    {
        return;
    }
    Kiv::DataCore::RegisterDataFileFactory(typeid(TestModuleFile),
                                           boost::make_shared<TestModuleFileFactory>());
    g_Registered = true;
}

Kiv::DataCore::ModuleTestSuite* GetModuleTestSuite()
{
    auto suite = std::make_unique<Kiv::DataCore::ModuleTestSuite>("KivTestModuleGood");
    suite->AddCheck(
        "factory is registered",
        [] { Kiv::DataCore::CheckThat(g_Registered, "RegisterDataFileTypes was not called"); });
    suite->AddCheck("fails on purpose",
                    [] { Kiv::DataCore::FailCheck("this check always fails"); });
    return suite.release();
}
