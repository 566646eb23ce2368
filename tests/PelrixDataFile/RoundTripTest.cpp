#include <gtest/gtest.h>

#include <cstring>

#include "WriteTestFiles.h"

using namespace WriteTest;

namespace
{

// Whether two stored values are equal as the header knows them: same type and value, and
// for a unitized value the same unit text.
::testing::AssertionResult SameValue(DataContainer& expected, DataContainer& actual,
                                     const std::string& key)
{
    const auto object = expected.Get(key);
    if (!actual.Get(key) || !object->IsSameType(*actual.Get(key)))
    {
        return ::testing::AssertionFailure() << "missing or of another type";
    }
    const auto compare = [&](auto value) -> ::testing::AssertionResult
    {
        auto other = value;
        expected.Get(key, value);
        actual.Get(key, other);
        if (value == other)
        {
            return ::testing::AssertionSuccess();
        }
        return ::testing::AssertionFailure() << value << " became " << other;
    };
    if (object->IsType(typeid(std::string)))
    {
        return compare(std::string());
    }
    if (object->IsType(typeid(HostLong)))
    {
        return compare(0L);
    }
    if (object->IsType(typeid(UnitizedDouble)))
    {
        UnitizedDouble before(0.0);
        UnitizedDouble after(0.0);
        expected.Get(key, before);
        actual.Get(key, after);
        if (before.GetValue() == after.GetValue() &&
            before.GetUnit()->GetAbbreviation() == after.GetUnit()->GetAbbreviation())
        {
            return ::testing::AssertionSuccess();
        }
        return ::testing::AssertionFailure() << before << " became " << after;
    }
    return ::testing::AssertionFailure() << "a header holds no " << object->GetTypeName();
}

// Every section the file kind writes holds the same keys with the same values in both files.
void ExpectSameHeader(PelrixDataFile& expected, PelrixDataFile& actual)
{
    for (const auto& name : expected.GetPlistNames())
    {
        const auto before = expected.GetSubData({name}, false);
        const auto after = actual.GetSubData({name}, false);
        ASSERT_EQ(static_cast<bool>(before), static_cast<bool>(after)) << name;
        if (!before)
        {
            continue;
        }
        ASSERT_EQ(KeysOf(*before), KeysOf(*after)) << name;
        for (const auto& key : KeysOf(*before))
        {
            EXPECT_TRUE(SameValue(*before, *after, key)) << name << " / " << key;
        }
    }
}

bool SameFloats(const FloatMatrix& a, const FloatMatrix& b)
{
    return a.size1() == b.size1() && a.size2() == b.size2() &&
           (a.data().size() == 0 ||
            std::memcmp(&a.data()[0], &b.data()[0], a.data().size() * sizeof(float)) == 0);
}

} // namespace

// A file written by the plug-in, read back and written again, comes out byte for byte the
// same, and what is read back from it is what was read from the original.
TEST(RoundTrip, ImageFileWrittenAgainIsByteIdentical)
{
    ScratchFolder folder;
    const std::string firstPath = folder.Write("first.flt", ImageInputFile());
    const std::string first = SaveUnchanged(firstPath);
    const std::string second = SaveUnchanged(folder.Write("second.flt", first));
    EXPECT_TRUE(SameBytes(second, first));

    const auto original =
        OpenFile(folder.Write("original.flt", ImageInputFile()), DataFile::ACCESS_READ);
    const auto reread = OpenFile(firstPath, DataFile::ACCESS_READ);
    ExpectSameHeader(*original, *reread);
    EXPECT_FALSE(reread->Exists("[Notes]")) << "an image does not write that section";
    const FloatMatrix samples = ValueIn<FloatMatrix>(*reread, "[Data]", "RawData");
    EXPECT_TRUE(SameFloats(samples, ValueIn<FloatMatrix>(*original, "[Data]", "RawData")));
    EXPECT_EQ(samples.size1(), 2u);
    EXPECT_EQ(samples(1, 2), IMAGE_SAMPLES[5]);
}

TEST(RoundTrip, ForceFileWrittenAgainIsByteIdentical)
{
    ScratchFolder folder;
    const std::string firstPath = folder.Write("first.flt", ForceInputFile());
    const std::string first = SaveUnchanged(firstPath);
    const std::string second = SaveUnchanged(folder.Write("second.flt", first));
    EXPECT_TRUE(SameBytes(second, first));

    const auto original =
        OpenFile(folder.Write("original.flt", ForceInputFile()), DataFile::ACCESS_READ);
    const auto reread = OpenFile(firstPath, DataFile::ACCESS_READ);
    ExpectSameHeader(*original, *reread);
    EXPECT_EQ(ValueIn<std::string>(*reread, "PelrixFileOverviewInfo", "ForceCurveDataLabels"),
              "Z,Force,Z,Force");
    const auto curves = ValueIn<FloatMatrixList>(*reread, "[Data]", "RawData");
    const auto originalCurves = ValueIn<FloatMatrixList>(*original, "[Data]", "RawData");
    ASSERT_EQ(curves.size(), 3u);
    ASSERT_EQ(originalCurves.size(), curves.size());
    for (std::size_t i = 0; i < curves.size(); ++i)
    {
        EXPECT_TRUE(SameFloats(curves[i], originalCurves[i])) << "curve " << i;
    }
}

// A file made from nothing: a write-only open of a new file, a tree built through the
// container, and a close. The reader finds every value in it.
TEST(RoundTrip, NewFileBuiltThroughTheContainerReadsBack)
{
    ScratchFolder folder;
    const std::string path = folder.PathOf("new.flt");
    FloatMatrix samples(2, 2);
    samples(0, 0) = 1.0f;
    samples(0, 1) = 2.0f;
    samples(1, 0) = -3.0f;
    samples(1, 1) = 0.125f;
    {
        const auto file = OpenFile(path, DataFile::ACCESS_WRITE, DataFile::OPEN_ALWAYS);
        const auto version = file->GetSubData({"[Data Version]"}, true);
        version->Put<std::string>("Version", "3");
        const auto parameters = file->GetSubData({"[Data Parameters]"}, true);
        parameters->Put<HostLong>("DataOffset", 256);
        parameters->Put("ScanRangeX", UnitizedDouble(2.5, "\xB5m"));
        parameters->Put<HostLong>("ResolutionX", 2);
        parameters->Put<HostLong>("ResolutionY", 2);
        file->GetSubData({"[Data]"}, true)->Put("RawData", samples);
        file->Close();
    }
    const std::string header = "[Data Version]\r\n"
                               "Version=3\r\n"
                               "\r\n"
                               "[Data Parameters]\r\n"
                               "DataOffset=   256\r\n"
                               "ScanRangeX=2.5000 \xB5m\r\n"
                               "ResolutionX=2\r\n"
                               "ResolutionY=2\r\n"
                               "\r\n"
                               "[Data]\r\n";
    EXPECT_TRUE(SameBytes(ReadBytes(path),
                          PaddedImage(header, 256, FloatBytes({1.0f, 2.0f, -3.0f, 0.125f}))));

    const auto reread = OpenFile(path, DataFile::ACCESS_READ);
    EXPECT_EQ(ValueIn<HostLong>(*reread, "[Data Parameters]", "DataOffset"), 256);
    const UnitizedDouble range = UnitizedIn(*reread, "[Data Parameters]", "ScanRangeX");
    EXPECT_EQ(range.GetValue(), 2.5);
    EXPECT_EQ(range.GetUnit()->GetAbbreviation(), "\xB5m");
    EXPECT_TRUE(SameFloats(ValueIn<FloatMatrix>(*reread, "[Data]", "RawData"), samples));
}
