// The overview record every open leaves in "PelrixFileOverviewInfo".

#include <set>

#include <gtest/gtest.h>

#include "Kiv/DataCore/Alerts.h"
#include "ReadTestFiles.h"

using namespace ReadTest;

namespace
{

const StringList IMAGE_SECTIONS = {"[Data Version]",  "[Data Parameters]",  "[Custom Color Table]",
                                   "[PreProcessing]", "[Piezo Parameters]", "[System Info]"};
const StringList FORCE_SECTIONS = {"[Point Spectroscopy Data]", "[Series layout]"};
const char* const OVERVIEW = "PelrixFileOverviewInfo";

std::vector<std::string> Keys(DataContainer& file)
{
    std::set<std::string> keys;
    Section(file, OVERVIEW)->EnumData(keys);
    return {keys.begin(), keys.end()};
}

TEST(Overview, DescribesAnImageFile)
{
    TempFolder folder;
    const std::string header = ImageHeader(3, 2, 256);
    const auto file = OpenForReading(
        folder.Write("image.flt", ImageFile(header, 256, FloatBytes({1, 2, 3, 4, 5, 6}))));
    EXPECT_EQ(ValueIn<std::string>(*file, OVERVIEW, "FileSubType"), "IMAGE");
    EXPECT_EQ(ValueIn<HostLong>(*file, OVERVIEW, "NumberOfDataPlists"), 1);
    // Where the header text ended, not the DataOffset of the header.
    EXPECT_EQ(ValueIn<HostLong>(*file, OVERVIEW, "DataOffset"), static_cast<long>(header.size()));
    EXPECT_EQ(ValueIn<StringList>(*file, OVERVIEW, "DataPlistNames"), IMAGE_SECTIONS);
    EXPECT_EQ(Keys(*file), (std::vector<std::string>{"DataOffset", "DataPlistNames", "FileSubType",
                                                     "NumberOfDataPlists"}));
    EXPECT_EQ(file->GetPlistNames(), IMAGE_SECTIONS);
}

TEST(Overview, DescribesAForceFile)
{
    TempFolder folder;
    const std::string text = ForceFile("3", "1", "");
    const auto file =
        OpenForReading(folder.Write("force.flt", text + "1\t2\t3\t4\t5\t6\t7\t8\t9\t10\t11\t12\n"));
    EXPECT_EQ(ValueIn<std::string>(*file, OVERVIEW, "FileSubType"), "FORCE");
    EXPECT_EQ(ValueIn<HostLong>(*file, OVERVIEW, "NumberOfDataPlists"), 6);
    EXPECT_EQ(ValueIn<HostLong>(*file, OVERVIEW, "DataOffset"), static_cast<long>(text.size()));
    EXPECT_EQ(ValueIn<StringList>(*file, OVERVIEW, "DataPlistNames"), FORCE_SECTIONS);
    EXPECT_EQ(ValueIn<std::string>(*file, OVERVIEW, "ForceCurveDataLabels"), "Z,Force,Z,Force");
    EXPECT_EQ(Keys(*file),
              (std::vector<std::string>{"DataOffset", "DataPlistNames", "FileSubType",
                                        "ForceCurveDataLabels", "NumberOfDataPlists"}));
}

TEST(Overview, AForceFileWithoutLabelsHasEmptyLabels)
{
    TempFolder folder;
    const auto file = OpenForReading(folder.Write(
        "nolabels.flt",
        Lines({"[Point Spectroscopy Data]", "[Series layout]", "Series Number=1", "[Data]"})));
    EXPECT_EQ(ValueIn<std::string>(*file, OVERVIEW, "ForceCurveDataLabels"), "");
}

// Nothing is read from an empty file, so its kind stays unknown.
TEST(Overview, DescribesAnEmptyFileAsUnknown)
{
    TempFolder folder;
    const auto file = OpenForReading(folder.Write("empty.flt", ""));
    ASSERT_TRUE(file->IsOpen());
    EXPECT_EQ(ValueIn<std::string>(*file, OVERVIEW, "FileSubType"), "UNKNOWN");
    EXPECT_EQ(ValueIn<std::string>(*file, OVERVIEW, "FileListPlistName"), "UNKNOWN");
    EXPECT_EQ(ValueIn<HostLong>(*file, OVERVIEW, "NumberOfDataPlists"), 0);
    EXPECT_EQ(ValueIn<HostLong>(*file, OVERVIEW, "DataOffset"), 0);
    EXPECT_EQ(ValueIn<StringList>(*file, OVERVIEW, "DataPlistNames"), IMAGE_SECTIONS);
}

// The section names are only ever appended to, and the record shows every open's share.
TEST(Overview, OpeningTheSameObjectAgainListsTheSectionsAgain)
{
    TempFolder folder;
    const std::string path = folder.Write(
        "image.flt", ImageFile(ImageHeader(3, 2, 256), 256, FloatBytes({1, 2, 3, 4, 5, 6})));
    PelrixDataFile file;
    ASSERT_TRUE(file.Open(path, DataFile::ACCESS_READ, DataFile::OPEN_EXISTING));
    ASSERT_TRUE(file.Open(path, DataFile::ACCESS_READ, DataFile::OPEN_EXISTING));
    StringList twice = IMAGE_SECTIONS;
    twice.insert(twice.end(), IMAGE_SECTIONS.begin(), IMAGE_SECTIONS.end());
    EXPECT_EQ(file.GetPlistNames(), twice);
    EXPECT_EQ(ValueIn<StringList>(file, OVERVIEW, "DataPlistNames"), twice);
}

TEST(Overview, IsMissingBeforeAnyOpen)
{
    PelrixDataFile file;
    EXPECT_EQ(MessageOf<Kiv::DataCore::DataFileError>([&] { file.GetPlistNames(); }),
              "GetFileOverviewInfo cannot find PelrixFileOverviewInfo");
}

} // namespace
