// The safe-save library through its API: what SaveEdits writes, refuses and reports, checked
// against the bytes of the files rather than through the library's own reader.
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "EditTestSupport.h"
#include "Kiv/Access/FileAccess.h"

namespace
{

using namespace KivEditTest;
using Kiv::Edit::HeaderEdit;
using Kiv::Edit::SaveEdits;
using Kiv::Edit::SaveOptions;
using Kiv::Edit::SaveRefused;

const HeaderEdit::Action SET = HeaderEdit::Action::Set;
const HeaderEdit::Action UNSET = HeaderEdit::Action::Unset;

// The text after "KEY=" on the header line of that key; "<none>" without one.
std::string HeaderValue(const std::string& bytes, const std::string& key)
{
    const std::size_t header = bytes.find("\r\n[Data]\r\n");
    const std::size_t at = bytes.find("\n" + key + "=");
    if (at == std::string::npos || at > header)
    {
        return "<none>";
    }
    const std::size_t start = at + key.size() + 2;
    return bytes.substr(start, bytes.find('\r', start) - start);
}

std::vector<float> FloatsAt(const std::string& bytes, std::size_t offset, std::size_t count)
{
    std::vector<float> values(count);
    std::memcpy(values.data(), bytes.data() + offset, count * sizeof(float));
    return values;
}

class SafeSave : public ::testing::Test
{
protected:
    void SetUp() override { RegisterPelrix(); }
    Folder folder;
};

TEST_F(SafeSave, AppliesEveryEditInOrderInOneSave)
{
    const auto path = folder / "image.flt";
    const std::string original = Sample("topography_128.flt");
    WriteAll(path, original);

    const auto report = SaveEdits(path.string(), {{SET, "[System Info]", "Operator", "first"},
                                                  {SET, "[System Info]", "Operator", "second"},
                                                  {SET, "[System Info]", "Site", "lab 2"},
                                                  {UNSET, "[System Info]", "Firmware", ""},
                                                  {SET, "[System Info]", "Gone", "soon"},
                                                  {UNSET, "[System Info]", "Gone", ""}});

    const std::string saved = ReadAll(path);
    EXPECT_TRUE(report.saved);
    EXPECT_TRUE(report.droppedItems.empty());
    EXPECT_FALSE(report.offsetMove);
    EXPECT_EQ(HeaderValue(saved, "Operator"), "second");
    EXPECT_EQ(HeaderValue(saved, "Site"), "lab 2");
    EXPECT_EQ(HeaderValue(saved, "Firmware"), "<none>");
    EXPECT_EQ(HeaderValue(saved, "Gone"), "<none>");
    EXPECT_EQ(saved.substr(4096), original.substr(4096));
    EXPECT_EQ(folder.Count(), 1u);
}

TEST_F(SafeSave, ADryRunWritesNothingAndShowsTheHeaderDiff)
{
    const auto path = folder / "image.flt";
    const std::string original = Sample("topography_128.flt");
    WriteAll(path, original);

    SaveOptions dryRun;
    dryRun.dryRun = true;
    const auto report =
        SaveEdits(path.string(), {{SET, "[System Info]", "Operator", "Zo\xEB"}}, dryRun);

    EXPECT_EQ(ReadAll(path), original);
    EXPECT_EQ(folder.Count(), 1u);
    EXPECT_FALSE(report.saved);
    EXPECT_TRUE(report.wouldSave);
    // The sample's [System Info] holds five keys after line 39; written out by hand.
    EXPECT_EQ(report.HeaderDiff(), "--- header before\n"
                                   "+++ header after\n"
                                   "@@ -42,6 +42,6 @@\n"
                                   " Controller=PX-C4\n"
                                   " Firmware=4.1.7\n"
                                   " Serial Number=PX3K-00421\n"
                                   "-Operator=synthetic\n"
                                   "+Operator=Zo\xC3\xAB\n"
                                   " \n"
                                   " [Data]\n");
}

TEST_F(SafeSave, LossIsRefusedUnlessAllowedAndThenListed)
{
    struct Case
    {
        const char* file;
        const char* item;
    };
    const Case cases[] = {
        {"force-note-with-comma.flt", "\"Note=tip 3, sample A\" holds a comma"},
        {"force-rounded-value.flt", "line 2, value 1: 1e-07 is written as 0.000000"},
    };
    for (const Case& test : cases)
    {
        SCOPED_TRACE(test.file);
        const auto path = folder / "force.flt";
        const std::string original = SaveCorpusFile(test.file);
        WriteAll(path, original);

        try
        {
            SaveEdits(path.string(), {});
            ADD_FAILURE() << "saved without --allow-loss";
        }
        catch (const SaveRefused& refused)
        {
            ASSERT_FALSE(refused.Items().empty());
            EXPECT_NE(refused.Items().front().find(test.item), std::string::npos)
                << refused.Items().front();
            EXPECT_NE(std::string(refused.what()).find("--allow-loss"), std::string::npos);
        }
        EXPECT_EQ(ReadAll(path), original);

        SaveOptions allowLoss;
        allowLoss.allowLoss = true;
        const auto report = SaveEdits(path.string(), {}, allowLoss);
        EXPECT_TRUE(report.saved);
        ASSERT_FALSE(report.droppedItems.empty());
        EXPECT_NE(report.droppedItems.front().find(test.item), std::string::npos);
        EXPECT_NE(ReadAll(path), original);
        EXPECT_EQ(folder.Count(), 1u);
    }
}

TEST_F(SafeSave, AHeaderThatOutgrowsDataOffsetMovesItAndTheSamples)
{
    // The header ends exactly at "DataOffset=244"; written back, the offset takes six
    // characters and the header no longer fits.
    const auto path = folder / "image.flt";
    const std::string original = SaveCorpusFile("image-header-fills-offset.flt");
    WriteAll(path, original);

    const auto report = SaveEdits(path.string(), {});

    ASSERT_TRUE(report.offsetMove);
    EXPECT_EQ(report.offsetMove->from, 244);
    EXPECT_EQ(report.offsetMove->to, 1024);
    const std::string saved = ReadAll(path);
    EXPECT_EQ(HeaderValue(saved, "DataOffset"), "  1024");
    ASSERT_EQ(saved.size(), 1024u + 24u);
    EXPECT_EQ(FloatsAt(saved, 1024, 6), FloatsAt(original, 244, 6));
}

TEST_F(SafeSave, UnitsTakeTheFilesMicroSignAndAreRequired)
{
    const auto path = folder / "image.flt";
    WriteAll(path, Sample("topography_128.flt"));

    SaveEdits(path.string(), {{SET, "[Data Parameters]", "ScanRangeX", "20 um"}});
    EXPECT_EQ(HeaderValue(ReadAll(path), "ScanRangeX"), "20 \xB5m");

    try
    {
        SaveEdits(path.string(), {{SET, "[Data Parameters]", "ScanRangeX", "20"}});
        ADD_FAILURE() << "a value without its unit was saved";
    }
    catch (const Kiv::Access::Failure& failure)
    {
        EXPECT_EQ(std::string(failure.what()),
                  path.string() +
                      ": ScanRangeX holds a length with a unit, for example \"20 \xC2\xB5m\"");
    }
}

TEST_F(SafeSave, RemovesTheTemporariesOfKilledSaves)
{
    const auto path = folder / "image.flt";
    WriteAll(path, Sample("topography_128.flt"));
    WriteAll(folder / ".image.flt.kiv-Ab12Cd", "left by a killed save");
    WriteAll(folder / ".image.flt.kiv-notes", "the user's own");

    SaveEdits(path.string(), {});

    EXPECT_FALSE(fs::exists(folder / ".image.flt.kiv-Ab12Cd"));
    EXPECT_TRUE(fs::exists(folder / ".image.flt.kiv-notes"));
}

} // namespace
