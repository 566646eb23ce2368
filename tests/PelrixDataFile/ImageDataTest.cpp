// The image block: where it starts, how its bytes map onto the matrix, and what short, odd and
// hostile headers lead to.

#include <limits>

#include <gtest/gtest.h>

#include "Kiv/Core/Error.h"
#include "Kiv/DataCore/Alerts.h"
#include "ReadTestFiles.h"

using namespace ReadTest;

namespace
{

std::vector<float> Counting(std::size_t count)
{
    std::vector<float> samples(count);
    for (std::size_t i = 0; i < count; ++i)
    {
        samples[i] = static_cast<float>(i);
    }
    return samples;
}

FloatMatrix RawImage(DataContainer& file)
{
    return ValueIn<FloatMatrix>(file, "[Data]", "RawData");
}

// The matrix's element storage as bytes, to compare with the file byte for byte.
std::string StorageBytes(const FloatMatrix& matrix)
{
    const std::size_t count = matrix.size1() * matrix.size2() * sizeof(float);
    return count == 0 ? std::string()
                      : std::string(reinterpret_cast<const char*>(&matrix.data()[0]), count);
}

TEST(ImageData, RowsFollowEachOtherFromTheDataOffsetOn)
{
    TempFolder folder;
    // Padding that is not zero shows that the block is found by DataOffset, not by the end of
    // the header text.
    std::string file = ImageHeader(512, 512, 2048);
    file.resize(2048, '\xAA');
    file += FloatBytes(Counting(512 * 512));
    const auto opened = OpenForReading(folder.Write("topo_512.flt", file));
    ASSERT_TRUE(opened->IsOpen());

    const FloatMatrix image = RawImage(*opened);
    ASSERT_EQ(image.size1(), 512u);
    ASSERT_EQ(image.size2(), 512u);
    EXPECT_EQ(image(0, 0), 0.0f);
    EXPECT_EQ(image(0, 1), 1.0f) << "4 bytes after (0, 0)";
    EXPECT_EQ(image(1, 0), 512.0f) << "4 x ResolutionX bytes after (0, 0)";
    EXPECT_EQ(image(511, 511), 512.0f * 512.0f - 1.0f);
    EXPECT_FALSE(opened->IsContentModified());
}

TEST(ImageData, ResolutionYCountsRowsAndResolutionXColumns)
{
    TempFolder folder;
    // 3 x 2 takes 24 bytes: the two floats behind them are not part of the image.
    const auto opened = OpenForReading(
        folder.Write("3x2.flt", ImageFile(ImageHeader(3, 2, 256), 256, FloatBytes(Counting(8)))));
    const FloatMatrix image = RawImage(*opened);
    ASSERT_EQ(image.size1(), 2u);
    ASSERT_EQ(image.size2(), 3u);
    EXPECT_EQ(StorageBytes(image), FloatBytes(Counting(6)));
}

// No scaling, byte swapping or normalisation: NaN payloads, signed zeros and subnormals come
// through bit for bit.
TEST(ImageData, SamplesAreCopiedAsTheyStand)
{
    std::string block = FloatBytes({-0.0f, std::numeric_limits<float>::denorm_min(),
                                    std::numeric_limits<float>::infinity(), -1.5e38f});
    block += std::string("\x01\x00\xC0\x7F", 4) + std::string("\xFF\xFF\xFF\xFF", 4); // two NaNs
    TempFolder folder;
    const auto opened =
        OpenForReading(folder.Write("odd.flt", ImageFile(ImageHeader(3, 2, 200), 200, block)));
    EXPECT_EQ(StorageBytes(RawImage(*opened)), block);
}

// A file that ends inside the block opens, and every byte the file lacks reads as zero, down
// to the bytes of a float that is cut in two.
TEST(ImageData, MissingBytesOfAShortFileReadAsZero)
{
    const std::string whole = FloatBytes({1.5f, -2.0f, 3.25f, 4.0f, 5.0f, 6.0f});
    for (const std::size_t kept :
         {std::size_t{0}, std::size_t{1}, std::size_t{17}, std::size_t{23}})
    {
        TempFolder folder;
        const auto opened = OpenForReading(folder.Write(
            "short.flt", ImageFile(ImageHeader(3, 2, 128), 128, whole.substr(0, kept))));
        ASSERT_TRUE(opened->IsOpen()) << kept << " bytes of the block";
        std::string expected = whole.substr(0, kept);
        expected.resize(whole.size(), '\0');
        EXPECT_EQ(StorageBytes(RawImage(*opened)), expected) << kept << " bytes of the block";
    }
}

TEST(ImageData, AnOffsetPastTheEndGivesAZeroImage)
{
    TempFolder folder;
    const std::string header = ImageHeader(3, 2, 100000);
    const auto opened = OpenForReading(folder.Write("far.flt", header));
    ASSERT_TRUE(opened->IsOpen());
    EXPECT_EQ(StorageBytes(RawImage(*opened)), std::string(24, '\0'));
}

// Without DataOffset the samples come from the first byte of the file: the header text.
TEST(ImageData, AMissingDataOffsetReadsFromTheStartOfTheFile)
{
    TempFolder folder;
    const std::string header =
        Lines({"[Data Parameters]", "ResolutionX=2", "ResolutionY=1", "[Data]"});
    const auto opened = OpenForReading(folder.Write("no-offset.flt", header));
    EXPECT_EQ(StorageBytes(RawImage(*opened)), header.substr(0, 8));
}

struct ResolutionCase
{
    std::string resolutionX;
    std::string resolutionY;
};

void PrintTo(const ResolutionCase& c, std::ostream* out)
{
    *out << PrintableName(c.resolutionX) << " x " << PrintableName(c.resolutionY);
}

class UnreadImageTest : public ::testing::TestWithParam<ResolutionCase>
{
};

// A resolution below 1 reads nothing, stores no "RawData", and still counts one data set.
TEST_P(UnreadImageTest, StoresNoSamples)
{
    TempFolder folder;
    const std::string header =
        Lines({"[Data Parameters]", "DataOffset=128", "ResolutionX=" + GetParam().resolutionX,
               "ResolutionY=" + GetParam().resolutionY, "[Data]"});
    const auto opened =
        OpenForReading(folder.Write("empty.flt", ImageFile(header, 128, FloatBytes(Counting(8)))));
    ASSERT_TRUE(opened->IsOpen());
    EXPECT_FALSE(opened->Exists("[Data]"));
    EXPECT_EQ(ValueIn<HostLong>(*opened, "PelrixFileOverviewInfo", "NumberOfDataPlists"), 1);
}

INSTANTIATE_TEST_SUITE_P(Resolutions, UnreadImageTest,
                         ::testing::Values(ResolutionCase{"0", "2"}, ResolutionCase{"3", "0"},
                                           ResolutionCase{"-1", "2"}, ResolutionCase{"3", "-5"},
                                           ResolutionCase{"", "2"}, ResolutionCase{"0xFF", "2"}));

TEST(ImageData, AHeaderWithoutDataParametersOpensWithoutSamples)
{
    TempFolder folder;
    const auto opened =
        OpenForReading(folder.Write("bare.flt", Lines({"[Data Version]", "Version=1", "[Data]"})));
    ASSERT_TRUE(opened->IsOpen());
    EXPECT_FALSE(HasKey(*opened, "[Data]", "RawData"));
    EXPECT_EQ(ValueIn<HostLong>(*opened, "PelrixFileOverviewInfo", "NumberOfDataPlists"), 1);
}

TEST(ImageData, ANegativeDataOffsetIsAnErrorNamingTheFile)
{
    TempFolder folder;
    const std::string path =
        folder.Write("negative-offset.flt", ImageHeader(3, 2, -4) + FloatBytes(Counting(6)));
    PelrixDataFile file;
    EXPECT_EQ(MessageOf<Kiv::DataCore::DataFileError>(
                  [&] { file.Open(path, DataFile::ACCESS_READ, DataFile::OPEN_EXISTING); }),
              path + ": \"DataOffset\" is negative (-4)");
    EXPECT_FALSE(file.IsOpen());
}

// A header that asks for more than the limit fails before anything is allocated: the sizes
// here would make the sanitizer build's allocator abort if they were ever requested.
TEST(ImageData, AHugeResolutionFailsWithoutAllocating)
{
    const ScopedAllocationLimit limit(1 << 20);
    struct
    {
        long x, y;
        const char* bytes;
    } const cases[] = {{100000, 100000, "40000000000"},
                       {2147483647, 2147483647, "18446744056529682436"},
                       {512, 513, "1050624"}};
    for (const auto& c : cases)
    {
        TempFolder folder;
        const std::string path = folder.Write("huge.flt", ImageHeader(c.x, c.y, 200));
        PelrixDataFile file;
        EXPECT_EQ(MessageOf<Kiv::Core::AllocationFailed>(
                      [&] { file.Open(path, DataFile::ACCESS_READ, DataFile::OPEN_EXISTING); }),
                  "Attempt to allocate an image of " + std::to_string(c.x) + " x " +
                      std::to_string(c.y) + " samples for " + path + " (" + c.bytes +
                      " bytes, limit 1048576) failed");
        EXPECT_FALSE(file.IsOpen());
    }
}

TEST(ImageData, AnImageAtTheLimitIsRead)
{
    const ScopedAllocationLimit limit(1 << 20);
    TempFolder folder;
    const auto opened =
        OpenForReading(folder.Write("at-limit.flt", ImageFile(ImageHeader(512, 512, 200), 200,
                                                              FloatBytes(Counting(512 * 512)))));
    ASSERT_TRUE(opened->IsOpen());
    EXPECT_EQ(RawImage(*opened)(511, 511), 512.0f * 512.0f - 1.0f);
}

// A header longer than the reader's 16 KiB read-ahead: the block must still come from
// DataOffset, not from wherever the read-ahead stopped.
TEST(ImageData, ALongHeaderDoesNotShiftTheBlock)
{
    std::string header = Lines({"[Data Parameters]", "DataOffset=40000", "ResolutionX=4",
                                "ResolutionY=4", "[System Info]"});
    for (int i = 0; header.size() < 30000; ++i)
    {
        header += "Entry" + std::to_string(i) + "=some text to make the header long\r\n";
    }
    header += "[Data]\r\n";
    TempFolder folder;
    const auto opened = OpenForReading(
        folder.Write("long-header.flt", ImageFile(header, 40000, FloatBytes(Counting(16)))));
    EXPECT_EQ(StorageBytes(RawImage(*opened)), FloatBytes(Counting(16)));
}

} // namespace
