// The factory the host asks about Pelrix files, and the built module as the host loads it.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include "Kiv/DataCore/ModuleLoader.h"
#include "Pelrix/PelrixDataFileFactory.h"
#include "ReadTestFiles.h"

using namespace ReadTest;

namespace
{

const std::string MODULE_PATH = KIV_PELRIX_MODULE;

std::string SmallImage()
{
    return ImageFile(ImageHeader(3, 2, 128), 128, FloatBytes({1, 2, 3, 4, 5, 6}));
}

std::vector<DataFile::FileTypeInfo> PelrixTypes()
{
    std::vector<DataFile::FileTypeInfo> found;
    for (const auto& info : DataFile::ListFileTypes())
    {
        if (info.fileType == "Pelrix Data File")
        {
            found.push_back(info);
        }
    }
    return found;
}

TEST(Factory, AnnouncesThePelrixFileType)
{
    Pelrix::PelrixDataFileFactory factory;
    EXPECT_EQ(factory.GetFileType(), "Pelrix Data File");
    EXPECT_EQ(factory.GetFileTypeDescription(), "Pelrix SPM Image File Format");
    std::vector<std::string> extensions{"TXT"};
    factory.GetFileExtensions(extensions);
    EXPECT_EQ(extensions, (std::vector<std::string>{"TXT", "FLT"}));
}

TEST(Factory, AMissingFileIsNotItsTypeAndCreatesAClosedFile)
{
    TempFolder folder;
    Pelrix::PelrixDataFileFactory factory;
    const std::string missing = folder.PathOf("missing.flt");
    EXPECT_FALSE(factory.IsFactoryFileType(missing));
    const auto file =
        factory.Create(missing, DataFile::ACCESS_READ, DataFile::OPEN_EXISTING, nullptr);
    ASSERT_TRUE(file);
    EXPECT_FALSE(file->IsOpen());
}

TEST(Factory, CreatesAnOpenFileForAPelrixFile)
{
    TempFolder folder;
    Pelrix::PelrixDataFileFactory factory;
    const std::string path = folder.Write("image.flt", SmallImage());
    ASSERT_TRUE(factory.IsFactoryFileType(path));
    const auto file = factory.Create(path, DataFile::ACCESS_READ, DataFile::OPEN_EXISTING, nullptr);
    ASSERT_TRUE(file && file->IsOpen());
    EXPECT_EQ(ValueIn<FloatMatrix>(*file, "[Data]", "RawData")(1, 2), 6.0f);
}

class LoadedModule : public ::testing::Test
{
protected:
    void SetUp() override { Kiv::DataCore::LoadModule(MODULE_PATH); }
};

TEST_F(LoadedModule, RegistersOneFactory)
{
    const auto types = PelrixTypes();
    ASSERT_EQ(types.size(), 1u);
    EXPECT_EQ(types[0].description, "Pelrix SPM Image File Format");
    EXPECT_EQ(types[0].extensions, std::vector<std::string>{"FLT"});
}

TEST_F(LoadedModule, RegisteringAgainChangesNothing)
{
    void* const handle = dlopen(MODULE_PATH.c_str(), RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(handle, nullptr) << "the module is not loaded";
    const auto registerTypes = reinterpret_cast<void (*)()>(dlsym(handle, "RegisterDataFileTypes"));
    ASSERT_NE(registerTypes, nullptr);
    registerTypes();
    registerTypes();
    Kiv::DataCore::LoadModule(MODULE_PATH);
    dlclose(handle); // only drops the reference this test took
    EXPECT_EQ(PelrixTypes().size(), 1u);
}

TEST_F(LoadedModule, OpensAPelrixFileWithoutBeingNamed)
{
    TempFolder folder;
    const std::string path = folder.Write("image.any", SmallImage());
    const auto file =
        DataFile::Open(path, DataFile::ACCESS_READ, DataFile::OPEN_EXISTING, "", nullptr);
    ASSERT_TRUE(file && file->IsOpen());
    EXPECT_EQ(file->GetFileType(), "Pelrix Data File");
    EXPECT_EQ(file->GetFileName(), path);
    const FloatMatrix image = ValueIn<FloatMatrix>(*file, "[Data]", "RawData");
    ASSERT_EQ(image.size1(), 2u);
    EXPECT_EQ(image(1, 0), 4.0f);
}

TEST_F(LoadedModule, ItsOwnTestSuitePasses)
{
    const auto suite = Kiv::DataCore::GetModuleTestSuite(MODULE_PATH);
    ASSERT_TRUE(suite);
    const auto results = suite->Run();
    EXPECT_FALSE(results.empty());
    for (const auto& result : results)
    {
        EXPECT_TRUE(result.passed) << result.check << ": " << result.message;
    }
}

} // namespace
