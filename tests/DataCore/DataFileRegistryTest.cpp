#include <gtest/gtest.h>

#include "CollectingAlertHandler.h"
#include "Kiv/DataCore/DataFile.h"

using namespace Kiv::DataCore;

namespace
{
// A file type that claims names ending in its suffix and opens nothing.
template <int N>
class FakeFile : public DataFile
{
public:
    explicit FakeFile(std::string name) : m_Name(std::move(name)) {}
    bool IsOpen() const override { return true; }
    void Flush() override {}
    void Close() override {}
    std::string GetFileName() const override { return m_Name; }
    std::string GetFileType() const override { return "Fake" + std::to_string(N); }
    std::string DescribeFileType() const override { return "fake"; }

private:
    std::string m_Name;
};

template <int N>
class FakeFactory : public DataFile::Factory
{
public:
    explicit FakeFactory(std::string suffix) : m_Suffix(std::move(suffix)) {}
    boost::shared_ptr<DataFile> Create(const std::string& name, DataFile::EAccess,
                                       DataFile::EOpenBehavior,
                                       boost::shared_ptr<DataContainer>) override
    {
        return boost::make_shared<FakeFile<N>>(name);
    }
    std::string GetFileType() const override { return "Fake" + std::to_string(N); }
    std::string GetFileTypeDescription() const override { return "fake " + m_Suffix; }
    void GetFileExtensions(std::vector<std::string>& extensions) const override
    {
        extensions.push_back(m_Suffix);
    }
    bool IsFactoryFileType(const std::string& name) const override
    {
        return name.size() >= m_Suffix.size() &&
               name.compare(name.size() - m_Suffix.size(), m_Suffix.size(), m_Suffix) == 0;
    }

private:
    std::string m_Suffix;
};

std::size_t CountType(const std::string& type)
{
    std::size_t count = 0;
    for (const auto& info : DataFile::ListFileTypes())
    {
        count += info.fileType == type ? 1 : 0;
    }
    return count;
}
} // namespace

TEST(DataFileRegistry, OpensByRecognitionOrByTypeName)
{
    RegisterDataFileFactory(typeid(FakeFile<1>), boost::make_shared<FakeFactory<1>>(".one"));
    RegisterDataFileFactory(typeid(FakeFile<2>), boost::make_shared<FakeFactory<2>>(".two"));

    const auto recognised =
        DataFile::Open("x.two", DataFile::ACCESS_READ, DataFile::OPEN_EXISTING, "", nullptr);
    ASSERT_TRUE(recognised);
    EXPECT_EQ(recognised->GetFileType(), "Fake2");

    const auto named =
        DataFile::Open("x.two", DataFile::ACCESS_READ, DataFile::OPEN_EXISTING, "Fake1", nullptr);
    ASSERT_TRUE(named);
    EXPECT_EQ(named->GetFileType(), "Fake1") << "a named type wins over recognition";
}

TEST(DataFileRegistry, RegisteringAClassTwiceKeepsOneFactory)
{
    RegisterDataFileFactory(typeid(FakeFile<3>), boost::make_shared<FakeFactory<3>>(".three"));
    RegisterDataFileFactory(typeid(FakeFile<3>), boost::make_shared<FakeFactory<3>>(".three"));
    EXPECT_EQ(CountType("Fake3"), 1u);
}

TEST(DataFileRegistry, UnrecognisedFilesAndUnknownTypesRaiseDataFileError)
{
    KivTest::ScopedAlertCollector alerts;
    try
    {
        DataFile::Open("notes.txt", DataFile::ACCESS_READ, DataFile::OPEN_EXISTING, "", nullptr);
        FAIL() << "no error";
    }
    catch (const DataFileError& error)
    {
        EXPECT_EQ(error.GetMessage(), "notes.txt: no registered file type recognises this file");
    }
    EXPECT_THROW(DataFile::Open("x.one", DataFile::ACCESS_READ, DataFile::OPEN_EXISTING,
                                "No Such Type", nullptr),
                 DataFileError);
}

TEST(DataFileRegistry, MetaDataIsASideContainer)
{
    FakeFile<1> file("m");
    const auto meta = boost::make_shared<DataContainer>();
    EXPECT_FALSE(file.GetMetaData("origin"));
    EXPECT_TRUE(file.SetMetaData("origin", meta));
    EXPECT_EQ(file.GetMetaData("origin"), meta);
    EXPECT_FALSE(file.SetMetaData("", meta));
    EXPECT_EQ(file.NumDataObjects(), 0u) << "not part of the file's tree";
}
