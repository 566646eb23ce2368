// Every file of the corpus opened for reading, with the outcome its README line states: the
// exact error, or a tree that matches the file's checked-in dump byte for byte. Regenerate the
// dumps after an intended change with
//   KIV_UPDATE_GOLDEN=1 build-rt/bin/PelrixDataFileTests --gtest_filter='Corpus/*'
// and review the diff.

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include <gtest/gtest.h>

#include "CollectingAlertHandler.h"
#include "Kiv/Core/Error.h"
#include "Kiv/DataCore/Alerts.h"
#include "ReadTestFiles.h"

using namespace ReadTest;
namespace fs = std::filesystem;

namespace
{

const fs::path CORPUS = fs::path(KIV_TEST_SOURCE_DIR) / "PelrixDataFile" / "corpus";
constexpr std::uint64_t CORPUS_ALLOCATION_LIMIT = 64ull * 1024 * 1024;

struct CorpusEntry
{
    std::string name;
    std::string why;
    std::string outcome;
};

// "name | why | outcome" lines; "#" starts a comment line. The outcome is "opens" or
// ErrorClass: "message".
std::vector<CorpusEntry> ReadCorpusList()
{
    std::vector<CorpusEntry> entries;
    std::ifstream in(CORPUS / "README.txt");
    std::string line;
    while (std::getline(in, line))
    {
        if (line.empty() || line[0] == '#')
        {
            continue;
        }
        const auto first = line.find(" | ");
        const auto second = line.find(" | ", first + 3);
        if (first == std::string::npos || second == std::string::npos)
        {
            entries.push_back({line, "", "malformed README line"});
            continue;
        }
        entries.push_back({line.substr(0, first), line.substr(first + 3, second - first - 3),
                           line.substr(second + 3)});
    }
    return entries;
}

// Bytes outside printable ASCII as \xHH, so that a dump is plain text and shows every byte.
std::string Escaped(const std::string& text)
{
    std::string out;
    for (const unsigned char c : text)
    {
        if (c >= 32 && c < 127 && c != '\\')
        {
            out += static_cast<char>(c);
        }
        else
        {
            char hex[5];
            std::snprintf(hex, sizeof hex, "\\x%02X", c);
            out += hex;
        }
    }
    return out;
}

std::string Number(double value)
{
    char text[40];
    std::snprintf(text, sizeof text, "%.9g", value);
    return text;
}

std::string Row(const FloatMatrix& matrix, std::size_t row)
{
    std::string out;
    for (std::size_t column = 0; column < matrix.size2(); ++column)
    {
        out += (column ? " " : "") + Number(matrix(row, column));
    }
    return out;
}

void DumpValue(DataContainer& container, const std::string& key, const std::string& indent,
               std::ostream& out)
{
    HostLong number;
    std::string text;
    StringList list;
    FloatMatrix matrix;
    FloatMatrixList curves;
    UnitizedDouble unitized(0.0);
    out << indent << Escaped(key) << ": ";
    if (container.Get(key, number))
    {
        out << "long " << number << "\n";
    }
    else if (container.Get(key, text))
    {
        out << "text \"" << Escaped(text) << "\"\n";
    }
    else if (container.Get(key, unitized))
    {
        char value[40];
        std::snprintf(value, sizeof value, "%.15g", unitized.GetValue());
        out << "unitized " << value << " \"" << Escaped(unitized.GetUnit()->GetAbbreviation())
            << "\"\n";
    }
    else if (container.Get(key, list))
    {
        out << "list";
        for (const auto& item : list)
        {
            out << " \"" << Escaped(item) << "\"";
        }
        out << "\n";
    }
    else if (container.Get(key, matrix))
    {
        out << "matrix " << matrix.size1() << " x " << matrix.size2() << "\n";
        for (std::size_t row = 0; row < matrix.size1(); ++row)
        {
            out << indent << "  " << Row(matrix, row) << "\n";
        }
    }
    else if (container.Get(key, curves))
    {
        out << curves.size() << " curves\n";
        for (const auto& curve : curves)
        {
            out << indent << "  " << curve.size1() << " x " << curve.size2() << ":";
            for (std::size_t row = 0; row < curve.size1(); ++row)
            {
                out << " " << Number(curve(row, 0));
            }
            out << "\n";
        }
    }
    else
    {
        out << "unexpected type\n";
    }
}

void DumpContainer(DataContainer& container, const std::string& indent, std::ostream& out)
{
    std::vector<std::string> keys;
    container.EnumData(keys);
    for (const auto& key : keys)
    {
        if (const auto child = container.GetSubData({key}, false))
        {
            out << indent << "section \"" << Escaped(key) << "\"\n";
            DumpContainer(*child, indent + "  ", out);
        }
        else
        {
            DumpValue(container, key, indent, out);
        }
    }
}

std::string FileText(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The error class named in an outcome, tested on what was caught.
bool IsNamedClass(const Kiv::Core::Error& error, const std::string& className)
{
    using XUnitNotFound = Kiv::Core::UnitizedValue<double>::XUnitNotFound;
    if (className == "DataFileError")
    {
        return dynamic_cast<const Kiv::DataCore::DataFileError*>(&error) != nullptr;
    }
    if (className == "AllocationFailed")
    {
        return dynamic_cast<const Kiv::Core::AllocationFailed*>(&error) != nullptr;
    }
    if (className == "XUnitNotFound")
    {
        return dynamic_cast<const XUnitNotFound*>(&error) != nullptr;
    }
    return false;
}

std::string WithPath(std::string text, const std::string& path)
{
    const std::string marker = "{file}";
    for (auto at = text.find(marker); at != std::string::npos; at = text.find(marker, at))
    {
        text.replace(at, marker.size(), path);
        at += path.size();
    }
    return text;
}

void PrintTo(const CorpusEntry& entry, std::ostream* out)
{
    *out << PrintableName(entry.name);
}

class Corpus : public ::testing::TestWithParam<CorpusEntry>
{
protected:
    ScopedAllocationLimit m_Limit{CORPUS_ALLOCATION_LIMIT};
    KivTest::ScopedAlertCollector m_Alerts;
};

TEST_P(Corpus, OpensWithTheListedOutcome)
{
    const CorpusEntry& entry = GetParam();
    const std::string path = (CORPUS / entry.name).string();
    ASSERT_TRUE(fs::is_regular_file(path)) << path;
    SCOPED_TRACE(entry.name + ": " + entry.why);

    PelrixDataFile file;
    std::string failure;
    try
    {
        ASSERT_TRUE(file.Open(path, DataFile::ACCESS_READ, DataFile::OPEN_EXISTING));
    }
    catch (const Kiv::Core::Error& error)
    {
        // ErrorClass: "message", the message running to the last double quote.
        const auto colon = entry.outcome.find(": \"");
        ASSERT_TRUE(colon != std::string::npos && entry.outcome.back() == '"')
            << "opening failed: " << error.GetMessage();
        EXPECT_TRUE(IsNamedClass(error, entry.outcome.substr(0, colon)))
            << "caught " << typeid(error).name() << ": " << error.GetMessage();
        const std::string message =
            entry.outcome.substr(colon + 3, entry.outcome.size() - colon - 4);
        EXPECT_EQ(error.GetMessage(), WithPath(message, path));
        EXPECT_FALSE(file.IsOpen()) << "a file that failed to read stays closed";
        return;
    }
    ASSERT_EQ(entry.outcome, "opens");
    EXPECT_FALSE(file.IsContentModified());

    std::ostringstream dump;
    dump << "file " << entry.name << "\n";
    DumpContainer(file, "", dump);
    for (const auto& alert : m_Alerts->Records())
    {
        dump << alert.kind << ": " << Escaped(alert.message) << "\n";
    }
    const fs::path golden = CORPUS / (entry.name + ".dump");
    if (std::getenv("KIV_UPDATE_GOLDEN") != nullptr)
    {
        std::ofstream(golden, std::ios::binary) << dump.str();
    }
    EXPECT_EQ(dump.str(), FileText(golden)) << "the dump differs from " << golden;
}

std::string TestName(const ::testing::TestParamInfo<CorpusEntry>& info)
{
    std::string name;
    for (const char c : info.param.name)
    {
        name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
    }
    return name;
}

INSTANTIATE_TEST_SUITE_P(Corpus, Corpus, ::testing::ValuesIn(ReadCorpusList()), TestName);

// README.txt and the folder agree: every file is listed once, and every listed file is there.
TEST(CorpusList, NamesEveryFileOnce)
{
    std::set<std::string> listed;
    for (const auto& entry : ReadCorpusList())
    {
        EXPECT_TRUE(listed.insert(entry.name).second) << entry.name << " is listed twice";
        EXPECT_FALSE(entry.why.empty()) << entry.name << " has no reason";
    }
    std::set<std::string> present;
    for (const auto& item : fs::directory_iterator(CORPUS))
    {
        if (item.path().extension() == ".flt")
        {
            present.insert(item.path().filename().string());
        }
    }
    EXPECT_EQ(listed, present);
    EXPECT_GE(listed.size(), 20u);
}

} // namespace
