#include <gtest/gtest.h>

#include <functional>

#include "CollectingAlertHandler.h"
#include "Kiv/DataCore/MemoryStreams.h"
#include "WriteTestFiles.h"

using namespace WriteTest;

namespace
{
// An open image or force file in its own scratch folder.
struct OpenedFile
{
    explicit OpenedFile(const std::string& contents,
                        DataFile::EAccess access = DataFile::ACCESS_READ_WRITE)
        : path(folder.Write("file.flt", contents)), file(OpenFile(path, access))
    {
    }
    ScratchFolder folder;
    std::string path;
    boost::shared_ptr<PelrixDataFile> file;
};

template <class E, class F>
E ErrorOf(F&& f)
{
    try
    {
        f();
    }
    catch (const E& error)
    {
        return error;
    }
    return E("(no error raised)");
}
} // namespace

// Reading fills the tree through the same puts that mark edits; none of that may count as a
// change, or every file opened for writing would be rewritten on close.
TEST(ChangeTracking, FileIsUnmodifiedRightAfterOpen)
{
    for (const std::string& contents : {ImageInputFile(), ForceInputFile(), std::string()})
    {
        OpenedFile opened(contents);
        EXPECT_FALSE(opened.file->IsContentModified()) << Escaped(contents.substr(0, 30));
        opened.file->Close();
        EXPECT_TRUE(SameBytes(ReadBytes(opened.path), contents))
            << "an unmodified file was rewritten";
    }
}

TEST(ChangeTracking, EditsAnywhereInTheTreeMarkTheFileModified)
{
    using Edit = std::function<void(PelrixDataFile&)>;
    const struct
    {
        const char* name;
        Edit edit;
    } edits[] = {
        {"value replaced in a section", [](PelrixDataFile& f)
         { f.GetSubData({"[Data Parameters]"}, false)->Put<HostLong>("ResolutionX", 4); }},
        {"value added to a section", [](PelrixDataFile& f)
         { f.GetSubData({"[System Info]"}, false)->Put<std::string>("User", "kiv"); }},
        {"value removed from a section",
         [](PelrixDataFile& f) { f.GetSubData({"[PreProcessing]"}, false)->Remove("Leveling"); }},
        {"value in a container nested in a section",
         [](PelrixDataFile& f) {
             f.GetSubData({"[Data Parameters]", "Calibration"}, true)->Put<double>("Gain", 2.0);
         }},
        {"samples replaced by reference",
         [](PelrixDataFile& f)
         {
             f.GetSubData({"[Data]"}, false)
                 ->PutReference("RawData", boost::make_shared<FloatMatrix>(2, 3), false);
         }},
        {"change reported without a new value", [](PelrixDataFile& f)
         { f.GetSubData({"[Data Parameters]"}, false)->ReportChange("ScanRangeX"); }},
        {"AddParm", [](PelrixDataFile& f) { f.AddParm("[Data Version]", "Version", "4"); }},
        {"DeleteParm", [](PelrixDataFile& f) { f.DeleteParm("[Data Version]", "Version"); }},
        {"SetContentModified", [](PelrixDataFile& f) { f.SetContentModified(true); }},
    };
    for (const auto& edit : edits)
    {
        OpenedFile opened(ImageInputFile());
        edit.edit(*opened.file);
        EXPECT_TRUE(opened.file->IsContentModified()) << edit.name;
    }
}

TEST(ChangeTracking, OperationsThatChangeNothingLeaveTheFileUnmodified)
{
    using Operation = std::function<void(PelrixDataFile&)>;
    const struct
    {
        const char* name;
        Operation operation;
    } operations[] = {
        {"typed read",
         [](PelrixDataFile& f) { ValueIn<HostLong>(f, "[Data Parameters]", "ResolutionX"); }},
        {"Remove of a section", [](PelrixDataFile& f) { f.Remove("[Data Parameters]"); }},
        {"Clear", [](PelrixDataFile& f) { f.Clear(); }},
        {"AddParm to a missing section",
         [](PelrixDataFile& f) { f.AddParm("[Nowhere]", "K", "v"); }},
        {"DeleteParm of a missing key",
         [](PelrixDataFile& f) { f.DeleteParm("[Data Parameters]", "NoSuchKey"); }},
        {"DeleteParm in a missing section",
         [](PelrixDataFile& f) { f.DeleteParm("[Nowhere]", "ResolutionX"); }},
        {"flag cleared again",
         [](PelrixDataFile& f)
         {
             f.SetContentModified(true);
             f.SetContentModified(false);
         }},
    };
    for (const auto& operation : operations)
    {
        OpenedFile opened(ImageInputFile());
        operation.operation(*opened.file);
        EXPECT_FALSE(opened.file->IsContentModified()) << operation.name;
    }
}

// The top level of an open file is fixed by its header: Remove and Clear accept the call and
// remove nothing.
TEST(ContainerOperations, RemoveAndClearKeepEverySectionOfAnOpenFile)
{
    OpenedFile opened(ImageInputFile());
    PelrixDataFile& file = *opened.file;
    const std::vector<std::string> keys = KeysOf(file);

    EXPECT_FALSE(file.Remove("[Data Parameters]"));
    EXPECT_FALSE(file.Remove("no such key"));
    file.Clear();

    EXPECT_EQ(KeysOf(file), keys);
    EXPECT_EQ(ValueIn<HostLong>(file, "[Data Parameters]", "ResolutionX"), 3);
    file.Close();
    EXPECT_TRUE(SameBytes(ReadBytes(opened.path), ImageInputFile()));
}

TEST(ContainerOperations, RemoveAndClearRefuseAFileThatIsNotOpen)
{
    KivTest::ScopedAlertCollector alerts;
    ScratchFolder folder;
    PelrixDataFile neverOpened;
    PelrixDataFile closed;
    closed.Open(folder.Write("image.flt", ImageInputFile()), DataFile::ACCESS_READ,
                DataFile::OPEN_EXISTING);
    closed.Close();

    for (PelrixDataFile* file : {&neverOpened, &closed})
    {
        const auto removeError = ErrorOf<Kiv::DataCore::ClosedDataFileError>(
            [file] { file->Remove("[Data Parameters]"); });
        EXPECT_EQ(removeError.GetMessage(), "Remove() called on an unopened PelrixDataFile file");
        EXPECT_EQ(removeError.GetAlertId(), "Pelrix.DataFile");

        const auto clearError =
            ErrorOf<Kiv::DataCore::ClosedDataFileError>([file] { file->Clear(); });
        EXPECT_EQ(clearError.GetMessage(), "Clear() called on an unopened Pelrix Data file");
        EXPECT_EQ(clearError.GetAlertId(), "Tarvo.PelrixFile");
    }
    EXPECT_EQ(alerts->Count("error"), 4u);
    EXPECT_TRUE(closed.Exists("[Data Parameters]")) << "the tree outlives the closed file";
}

// InputData reads a whole serialised container off the stream and adds none of it.
TEST(ContainerOperations, InputDataConsumesTheStreamAndChangesNothing)
{
    DataContainer incoming;
    incoming.Put<std::string>("Operator", "kiv");
    incoming.Put<HostLong>("[Data Parameters]", 7); // a key the file holds, as a plain value
    incoming.GetSubData({"[Extra]"}, true)->Put<double>("Gain", 1.5);
    Kiv::DataCore::MemoryOutputStream out;
    const std::uint64_t written = incoming.OutputData(out);
    std::vector<char> bytes = out.TakeBytes();
    ASSERT_EQ(written, bytes.size());
    const std::string trailer = "next record";
    bytes.insert(bytes.end(), trailer.begin(), trailer.end());

    OpenedFile opened(ImageInputFile());
    PelrixDataFile& file = *opened.file;
    const std::vector<std::string> keys = KeysOf(file);
    Kiv::DataCore::MemoryInputStream in(bytes);

    EXPECT_EQ(file.InputData(in), written);
    EXPECT_EQ(in.GetRemaining(), trailer.size()) << "only the container is consumed";
    EXPECT_EQ(KeysOf(file), keys);
    EXPECT_TRUE(file.GetSubData({"[Data Parameters]"}, false)) << "the section was replaced";
    EXPECT_FALSE(file.IsContentModified());
}

TEST(HeaderEditing, AddParmStoresTextInAnExistingSection)
{
    OpenedFile opened(ImageWrittenFile());
    PelrixDataFile& file = *opened.file;

    file.AddParm("[Data Parameters]", "ScanRangeX", "1.0"); // replaces a unitized value
    file.AddParm("[Data Parameters]", "Operator", "kiv");   // a new key goes last
    file.AddParm("[Series layout]", "Points Number", "3");  // an image has no such section

    EXPECT_EQ(ValueIn<std::string>(file, "[Data Parameters]", "ScanRangeX"), "1.0");
    EXPECT_FALSE(file.Exists("[Series layout]"));
    file.Close();

    std::string header = ImageWrittenHeader();
    const std::string range = "ScanRangeX=75.0000 \xB5m\r\n";
    header.replace(header.find(range), range.size(), "ScanRangeX=1.0\r\n");
    const std::string lastKey = "ZTransferCoefficient=0.3488 \xB5m/V\r\n";
    header.insert(header.find(lastKey) + lastKey.size(), "Operator=kiv\r\n");
    const std::string expected = PaddedImage(header, IMAGE_DATA_OFFSET, FloatBytes(IMAGE_SAMPLES));
    const std::string written = ReadBytes(opened.path);
    EXPECT_TRUE(SameBytes(written, expected));
}

TEST(HeaderEditing, DeleteParmRemovesOnlyAnExistingKey)
{
    OpenedFile opened(ImageWrittenFile());
    PelrixDataFile& file = *opened.file;

    file.DeleteParm("[Data Parameters]", "Color Table Index");
    file.DeleteParm("[Data Parameters]", "No Such Key");
    file.DeleteParm("[No Such Section]", "ResolutionX");

    EXPECT_FALSE(file.GetSubData({"[Data Parameters]"}, false)->Exists("Color Table Index"));
    EXPECT_FALSE(file.Exists("[No Such Section]"));
    file.Close();

    std::string header = ImageWrittenHeader();
    const std::string line = "Color Table Index=16\r\n";
    header.erase(header.find(line), line.size());
    const std::string expected = PaddedImage(header, IMAGE_DATA_OFFSET, FloatBytes(IMAGE_SAMPLES));
    const std::string written = ReadBytes(opened.path);
    EXPECT_TRUE(SameBytes(written, expected));
}
