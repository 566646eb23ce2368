#include <gtest/gtest.h>

#include "CollectingAlertHandler.h"
#include "WriteTestFiles.h"

using namespace WriteTest;

namespace
{
// Adds a value the original lacks, so that a save shows in the bytes. Write-only access
// reads nothing, so the sections are created where they are missing.
void AddNote(PelrixDataFile& file)
{
    file.GetSubData({"[Data Parameters]"}, true)->Put<std::string>("Note", "added");
    file.GetSubData({"[Data]"}, true);
}
} // namespace

// Only write (2) and read-write (3) access save, and only a modified file. Access 0 opens
// its stream for reading and writing and still never saves.
TEST(Save, AccessAndModifiedFlagDecideWhetherFlushWrites)
{
    const struct
    {
        DataFile::EAccess access;
        bool writes;
    } accesses[] = {
        {DataFile::ACCESS_NONE, false},        {DataFile::ACCESS_READ, false},
        {DataFile::ACCESS_WRITE, true},        {DataFile::ACCESS_READ_WRITE, true},
        {DataFile::ACCESS_READ_SHARED, false}, {DataFile::ACCESS_OTHER, false},
    };
    for (const auto& row : accesses)
    {
        for (const bool modified : {false, true})
        {
            ScratchFolder folder;
            const std::string original = ImageInputFile();
            const std::string path = folder.Write("image.flt", original);
            const std::string context =
                "access " + std::to_string(row.access) + (modified ? ", modified" : ", unmodified");
            const auto file = OpenFile(path, row.access);
            if (modified)
            {
                AddNote(*file);
            }
            EXPECT_EQ(file->IsContentModified(), modified) << context;

            file->Flush();
            const bool saved = modified && row.writes;
            EXPECT_EQ(file->IsContentModified(), modified && !saved)
                << context << ": only a save clears the flag";
            file->Close();
            const std::string bytes = ReadBytes(path);
            EXPECT_EQ(bytes.find("Note=added\r\n") != std::string::npos, saved) << context;
            if (!saved)
            {
                EXPECT_TRUE(SameBytes(bytes, original)) << context;
            }
        }
    }
}

// A write-only open reads nothing: what the caller puts into the tree is the whole file.
TEST(Save, WriteOnlyAccessWritesOnlyWhatTheTreeHolds)
{
    ScratchFolder folder;
    const std::string path = folder.Write("image.flt", ImageInputFile());
    const auto file = OpenFile(path, DataFile::ACCESS_WRITE);
    AddNote(*file);
    file->Close();
    // The new content is shorter than the old file, whose bytes remain behind it.
    const std::string content = "[Data Parameters]\r\nNote=added\r\n\r\n[Data]\r\n";
    const std::string expected = content + ImageInputFile().substr(content.size());
    EXPECT_TRUE(SameBytes(ReadBytes(path), expected));
}

// The byte count behind the padding is never reset while the file is open, so a second
// save of the same open file pads nothing and its samples land right behind "[Data]".
TEST(Save, SecondSaveWhileOpenWritesNoPadding)
{
    ScratchFolder folder;
    const std::string path = folder.Write("image.flt", ImageInputFile());
    const auto file = OpenFile(path);
    file->SetContentModified(true);
    file->Flush();
    file->SetContentModified(true);
    file->Flush();
    EXPECT_FALSE(file->IsContentModified());
    file->Close();

    const std::string header = ImageWrittenHeader();
    const std::string samples = FloatBytes(IMAGE_SAMPLES);
    const std::string firstSave = ImageWrittenFile();
    const std::string expected =
        header + samples + firstSave.substr(header.size() + samples.size());
    const std::string written = ReadBytes(path);
    EXPECT_TRUE(SameBytes(written, expected));
}

// The plug-in never truncates: content shorter than the old file leaves its tail behind.
TEST(Save, ShorterContentLeavesTheOldTail)
{
    ScratchFolder folder;
    const std::string tail = "TRAILING BYTES";
    const std::string path = folder.Write("image.flt", ImageInputFile() + tail);
    const auto file = OpenFile(path, DataFile::ACCESS_READ_WRITE, DataFile::OPEN_EXISTING);
    file->SetContentModified(true);
    file->Close();
    const std::string expected = ImageWrittenFile() + tail;
    const std::string written = ReadBytes(path);
    EXPECT_TRUE(SameBytes(written, expected));
}

TEST(Save, ImageWithoutDataSectionFailsAfterWritingTheHeader)
{
    KivTest::ScopedAlertCollector alerts;
    ScratchFolder folder;
    // No resolution: no samples are read, so the file has no "[Data]" container.
    const std::string header = "[Data Parameters]\r\nDataOffset=64\r\n\r\n[Data]\r\n";
    const std::string path = folder.Write("no-data.flt", PaddedImage(header, 64, ""));
    const auto file = OpenFile(path);
    ASSERT_FALSE(file->GetSubData({"[Data]"}, false));
    file->SetContentModified(true);
    try
    {
        file->Flush();
        ADD_FAILURE() << "no error raised";
    }
    catch (const Kiv::DataCore::DataFileError& error)
    {
        EXPECT_EQ(error.GetMessage(), "WriteDataToDisk cannot find data section name");
        EXPECT_EQ(error.GetAlertId(), "Pelrix.DataFile");
    }
    EXPECT_TRUE(file->IsContentModified()) << "a failed save leaves the file modified";
    // The header and its padding went out before the error; giving up on the save lets the
    // file close.
    file->SetContentModified(false);
    file->Close();
    const std::string expected =
        PaddedImage("[Data Parameters]\r\nDataOffset=    64\r\n\r\n[Data]\r\n", 64, "");
    EXPECT_EQ(Escaped(ReadBytes(path)), Escaped(expected));
}

// Opening and saving without changes writes back exactly the bytes that were read, also for
// an image far larger than the output stream's buffer.
TEST(Save, LargeImageSavedUnchangedKeepsEveryByte)
{
    std::vector<float> samples(300 * 200);
    for (std::size_t i = 0; i < samples.size(); ++i)
    {
        samples[i] = static_cast<float>(i) * 0.25f - 7000.0f;
    }
    const std::string header = "[Data Parameters]\r\nDataOffset=  4096\r\nResolutionX=300\r\n"
                               "ResolutionY=200\r\n\r\n[Data]\r\n";
    const std::string original = PaddedImage(header, 4096, FloatBytes(samples));
    ScratchFolder folder;
    const std::string written = SaveUnchanged(folder.Write("large.flt", original));
    EXPECT_TRUE(SameBytes(written, original));
}

// A closed object keeps its tree but has nowhere to save it: a flush of a modified file that
// was never opened, or was closed, writes nothing and keeps the changes marked.
TEST(Save, FlushWithoutAnOpenFileWritesNothing)
{
    ScratchFolder folder;
    const std::string path = folder.Write("image.flt", ImageInputFile());
    PelrixDataFile neverOpened;
    neverOpened.Put<std::string>("Note", "added");
    PelrixDataFile closed;
    closed.Open(path, DataFile::ACCESS_READ_WRITE, DataFile::OPEN_EXISTING);
    closed.Close();
    closed.AddParm("[Data Parameters]", "Note", "added");

    for (PelrixDataFile* file : {&neverOpened, &closed})
    {
        ASSERT_TRUE(file->IsContentModified());
        file->Flush();
        file->Close();
        EXPECT_TRUE(file->IsContentModified());
    }
    EXPECT_TRUE(SameBytes(ReadBytes(path), ImageInputFile()));
}

// A file whose save failed must still let its owner go: the destructor cannot report the
// error, but it must neither throw nor crash.
TEST(Save, DestructorSurvivesAFailingSave)
{
    KivTest::ScopedAlertCollector alerts;
    ScratchFolder folder;
    const std::string path = folder.Write(
        "no-data.flt", PaddedImage("[Data Parameters]\r\nDataOffset=64\r\n\r\n[Data]\r\n", 64, ""));
    {
        const auto file = OpenFile(path);
        file->SetContentModified(true);
    }
    EXPECT_GE(alerts->Count("error"), 1u);
}
