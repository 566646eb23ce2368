#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

#include "CollectingAlertHandler.h"
#include "WriteTestFiles.h"

using namespace WriteTest;

// Sections come out in the image's fixed order whatever the file's order, unlisted sections
// and comma lines are dropped, keys keep their read order, values take their written form,
// "DataOffset" is right-aligned in six characters, and zeros pad the header up to it.
TEST(HeaderWriter, ImageFileIsWrittenInItsFixedLayout)
{
    ScratchFolder folder;
    const std::string path = folder.Write("image.flt", ImageInputFile());
    const std::string written = SaveUnchanged(path);
    EXPECT_TRUE(SameBytes(written, ImageWrittenFile()));
}

TEST(HeaderWriter, ForceFileGetsLabelsLineAndNoPadding)
{
    ScratchFolder folder;
    const std::string path = folder.Write("force.flt", ForceInputFile());
    const std::string written = SaveUnchanged(path);
    // The original is shorter than what is written, so nothing of it is left behind.
    ASSERT_GT(ForceWrittenFile().size(), ForceInputFile().size());
    EXPECT_TRUE(SameBytes(written, ForceWrittenFile()));
}

TEST(HeaderWriter, EmptyKeyIsWrittenAsAnEmptyLine)
{
    ScratchFolder folder;
    const std::string header = "[Data Parameters]\r\nDataOffset=128\r\n=orphan value\r\n"
                               "ResolutionX=1\r\nResolutionY=1\r\n\r\n[Data]\r\n";
    const std::string sample = FloatBytes({2.5f});
    const std::string path = folder.Write("empty-key.flt", PaddedImage(header, 128, sample));
    const std::string expected =
        PaddedImage("[Data Parameters]\r\nDataOffset=   128\r\n\r\nResolutionX=1\r\n"
                    "ResolutionY=1\r\n\r\n[Data]\r\n",
                    128, sample);
    const std::string written = SaveUnchanged(path);
    EXPECT_TRUE(SameBytes(written, expected));
}

// The fixed width makes the header's length the same for every offset below one million.
// The force file's "[Series layout]" carries the key here, since a force file pads nothing.
TEST(HeaderWriter, DataOffsetIsRightAlignedInSixCharacters)
{
    const struct
    {
        const char* value;
        const char* written;
    } cases[] = {
        {"0", "     0"},        {"7", "     7"},  {"2048", "  2048"},    {"123456", "123456"},
        {"1234567", "1234567"}, {"-5", "    -5"}, {"  0x200", "   512"},
    };
    for (const auto& offsetCase : cases)
    {
        ScratchFolder folder;
        std::string input = ForceInputFile();
        const std::string original = "DataOffset=4096\r\n";
        input.replace(input.find(original), original.size(),
                      std::string("DataOffset=") + offsetCase.value + "\r\n");
        std::string expected = ForceWrittenFile();
        const std::string writtenLine = "DataOffset=  4096\r\n";
        expected.replace(expected.find(writtenLine), writtenLine.size(),
                         std::string("DataOffset=") + offsetCase.written + "\r\n");

        const std::string written = SaveUnchanged(folder.Write("offset.flt", input));
        EXPECT_TRUE(SameBytes(written, expected)) << "DataOffset=" << offsetCase.value;
    }
}

// The padding reaches exactly to "DataOffset". When the header has outgrown it, nothing is
// padded and nothing is corrected: the samples follow the "[Data]" line directly.
TEST(HeaderWriter, PaddingEndsAtDataOffsetOrIsLeftOut)
{
    // The sample header without carriage returns and without its dropped section, so that it
    // fits before offsets a little below the written header's length.
    std::string compactHeader = ImageInputHeader();
    compactHeader.erase(compactHeader.find("[Notes]"), 25);
    compactHeader.erase(std::remove(compactHeader.begin(), compactHeader.end(), '\r'),
                        compactHeader.end());
    const std::size_t headerLength = ImageWrittenHeader().size();
    ASSERT_LT(compactHeader.size(), headerLength - 1);

    const std::string samples = FloatBytes(IMAGE_SAMPLES);
    const struct
    {
        const char* name;
        std::size_t dataOffset;
        std::size_t paddingBytes;
    } cases[] = {
        {"room for ten zeros", headerLength + 10, 10},
        {"header fills the room exactly", headerLength, 0},
        {"header one byte too long", headerLength - 1, 0},
        {"padding longer than the output buffer", 40000, 40000 - headerLength},
    };
    for (const auto& paddingCase : cases)
    {
        ScratchFolder folder;
        std::string header = compactHeader;
        header.replace(header.find("DataOffset=1024"), 15,
                       "DataOffset=" + std::to_string(paddingCase.dataOffset));
        const std::string path =
            folder.Write("padding.flt", PaddedImage(header, paddingCase.dataOffset, samples));

        char field[16];
        std::snprintf(field, sizeof field, "%6zu", paddingCase.dataOffset);
        const std::string expected =
            ImageWrittenHeader(field) + std::string(paddingCase.paddingBytes, '\0') + samples;
        const std::string written = SaveUnchanged(path);
        EXPECT_TRUE(SameBytes(written, expected)) << paddingCase.name;
    }
}

// An edit that makes the header longer than "DataOffset" moves the samples to right behind the
// "[Data]" line, and "DataOffset" keeps its old value.
TEST(HeaderWriter, HeaderGrownPastDataOffsetGetsNoPadding)
{
    ScratchFolder folder;
    const std::string path = folder.Write("image.flt", ImageWrittenFile());
    const std::string note(700, 'n');
    {
        const auto file = OpenFile(path);
        file->AddParm("[PreProcessing]", "Note", note);
        file->Close();
    }
    std::string header = ImageWrittenHeader();
    const std::string leveling = "Leveling=None\r\n";
    header.insert(header.find(leveling) + leveling.size(), "Note=" + note + "\r\n");
    ASSERT_GT(header.size(), IMAGE_DATA_OFFSET);
    const std::string expected = header + FloatBytes(IMAGE_SAMPLES);
    const std::string written = ReadBytes(path);
    EXPECT_TRUE(SameBytes(written, expected));
}

// A value the formatter has no text for stops the save with the header half written; the
// file stays marked as modified.
TEST(HeaderWriter, ValueWithoutTextFormStopsTheSave)
{
    KivTest::ScopedAlertCollector alerts;
    ScratchFolder folder;
    const auto file = OpenFile(folder.Write("image.flt", ImageInputFile()));
    file->GetSubData({"[PreProcessing]"}, false)->Put("Mask", FloatMatrix(2, 2));
    try
    {
        file->Flush();
        ADD_FAILURE() << "no error raised";
    }
    catch (const Kiv::DataCore::DataFileError& error)
    {
        EXPECT_EQ(error.GetMessage(),
                  "ERROR: Unknown value type in HalvimoorDataFile::GetFormatedValueString. "
                  "Key: Mask");
    }
    EXPECT_TRUE(file->IsContentModified());
}
