#include <gtest/gtest.h>

#include <cstring>
#include <sstream>

#include "CollectingAlertHandler.h"
#include "Kiv/Core/XMLWriter.h"
#include "Kiv/DataCore/ContainerXML.h"
#include "Kiv/DataCore/DataContainer.h"
#include "Kiv/DataCore/MemoryStreams.h"
#include "Kiv/DataCore/UnboundData.h"

using namespace Kiv::DataCore;

namespace
{
const std::string TRICKY_TEXT = "a<b & 'c' \"d\" > \xB5m";

FloatMatrix MakeMatrix(std::size_t rows, std::size_t columns, float offset)
{
    FloatMatrix matrix(rows, columns);
    for (std::size_t i = 0; i < rows * columns; ++i)
    {
        matrix.data()[i] = offset + 0.1f * static_cast<float>(i);
    }
    return matrix;
}

// One level of the test tree: every value type, a wrapper sharing the caller's value, a
// lockable value, and a sub-container between values so that its place in the order counts.
void FillLevel(DataContainer& container, int level, int deepest)
{
    container.Put<int>("int", -10 * level);
    container.Put<HostLong>("long", 100000 * level);
    container.Put<float>("float", 0.1f * static_cast<float>(level));
    container.Put<double>("double", 1.0 / 3.0 + level, true);
    container.Put<std::string>("text", TRICKY_TEXT + std::to_string(level));
    container.Put<std::string>("empty text", "");
    container.Put<UnitizedDouble>("with unit", UnitizedDouble(1.5 * level, "\xB5m/s"));
    container.Put<UnitizedDouble>("unitless", UnitizedDouble(-2.0 * level));
    container.Put<StringList>("list", {"x", "", TRICKY_TEXT});
    container.Put<FloatMatrixList>("curves", {MakeMatrix(3, 1, 0.0f)});
    if (level < deepest)
    {
        FillLevel(*container.GetSubData({"[Level " + std::to_string(level + 1) + "]"}, true),
                  level + 1, deepest);
    }
    container.Put<FloatMatrix>("matrix", MakeMatrix(static_cast<std::size_t>(level) + 1, 3, 1.0f));
    container.Put<FloatMatrix>("empty matrix", FloatMatrix(0, 0));
    container.PutReference<double>("shared", boost::make_shared<double>(2.5 * level), false);
}

bool SameMatrix(const FloatMatrix& a, const FloatMatrix& b)
{
    return a.size1() == b.size1() && a.size2() == b.size2() &&
           std::equal(a.data().begin(), a.data().end(), b.data().begin());
}

template <class T>
void ExpectSameValue(const DataContainer& expected, const DataContainer& actual,
                     const std::string& key)
{
    const auto want = expected.GetShared<T>(key);
    const auto got = actual.GetShared<T>(key);
    ASSERT_TRUE(want && got) << key;
    if constexpr (std::is_same_v<T, FloatMatrix>)
    {
        EXPECT_TRUE(SameMatrix(*want, *got)) << key;
    }
    else if constexpr (std::is_same_v<T, UnitizedDouble>)
    {
        EXPECT_EQ(got->GetValue(), want->GetValue()) << key;
        EXPECT_EQ(got->GetUnit()->GetAbbreviation(), want->GetUnit()->GetAbbreviation()) << key;
    }
    else
    {
        EXPECT_EQ(*got, *want) << key;
    }
}

// The tree read back holds every entry but the list of matrices, in the same order, with the
// same types, values and locking.
void ExpectSameTree(const DataContainer& expected, const DataContainer& actual,
                    const std::string& path = "")
{
    std::vector<std::string> expectedKeys;
    for (const auto& [key, object] : expected.GetEntries())
    {
        if (object->GetTypeName() != ValueTraits<FloatMatrixList>::TypeName())
        {
            expectedKeys.push_back(key);
        }
    }
    std::vector<std::string> actualKeys;
    actual.EnumData(actualKeys);
    ASSERT_EQ(actualKeys, expectedKeys) << path;

    for (const auto& [key, object] : actual.GetEntries())
    {
        const auto original = const_cast<DataContainer&>(expected).Get(key);
        EXPECT_EQ(object->GetTypeName(), original->GetTypeName()) << path << key;
        const auto* sub = dynamic_cast<const DataContainer*>(object.get());
        if (sub != nullptr)
        {
            ExpectSameTree(*dynamic_cast<const DataContainer*>(original.get()), *sub,
                           path + "/" + key);
            continue;
        }
        EXPECT_EQ(object->IsLockable(), original->IsLockable()) << path << key;
        const std::string type = object->GetTypeName();
        if (type == "int")
            ExpectSameValue<int>(expected, actual, key);
        else if (type == "long")
            ExpectSameValue<HostLong>(expected, actual, key);
        else if (type == "float")
            ExpectSameValue<float>(expected, actual, key);
        else if (type == "double")
            ExpectSameValue<double>(expected, actual, key);
        else if (type == "AsciiString")
            ExpectSameValue<std::string>(expected, actual, key);
        else if (type == "TUnitized")
            ExpectSameValue<UnitizedDouble>(expected, actual, key);
        else if (type == "vector<string>")
            ExpectSameValue<StringList>(expected, actual, key);
        else if (type == "Matrix<float>")
            ExpectSameValue<FloatMatrix>(expected, actual, key);
        else
            ADD_FAILURE() << "unexpected type " << type << " at " << path << key;
    }
}

boost::shared_ptr<DataContainer> MakeTree()
{
    auto tree = boost::make_shared<DataContainer>();
    FillLevel(*tree, 1, 3);
    return tree;
}

std::vector<char> ToBinary(const DataContainer& container)
{
    MemoryOutputStream out;
    const std::uint64_t written = container.OutputData(out);
    EXPECT_EQ(written, out.GetBytes().size());
    return out.TakeBytes();
}

std::string ToXML(const DataContainer& container)
{
    std::ostringstream text;
    Kiv::Core::XMLWriter writer(text);
    container.OutputData(text, writer);
    return text.str();
}

void FromXML(const std::string& text, DataContainer& target)
{
    std::istringstream in(text);
    ReadContainerXML(in, target);
}

// Builds streams of the binary container format by hand, for corrupt and foreign contents.
class StreamBuilder
{
public:
    StreamBuilder& Header(std::uint32_t version = 1)
    {
        bytes.insert(bytes.end(), {'K', 'V', 'D', 'C'});
        return U32(version);
    }
    StreamBuilder& U32(std::uint32_t value)
    {
        for (int shift = 0; shift < 32; shift += 8)
        {
            bytes.push_back(static_cast<char>(value >> shift));
        }
        return *this;
    }
    StreamBuilder& U64(std::uint64_t value)
    {
        return U32(static_cast<std::uint32_t>(value)).U32(static_cast<std::uint32_t>(value >> 32));
    }
    StreamBuilder& Text(const std::string& text)
    {
        U32(static_cast<std::uint32_t>(text.size()));
        bytes.insert(bytes.end(), text.begin(), text.end());
        return *this;
    }
    StreamBuilder& Raw(const std::vector<char>& raw)
    {
        bytes.insert(bytes.end(), raw.begin(), raw.end());
        return *this;
    }
    // An entry holding a value: key, type, flags, size and bytes.
    StreamBuilder& Value(const std::string& key, const std::string& type,
                         const std::vector<char>& raw, std::uint32_t flags = 0)
    {
        return Text(key).Text(type).U32(flags).U64(raw.size()).Raw(raw);
    }

    std::vector<char> bytes;
};

class XMLSettingsGuard
{
public:
    ~XMLSettingsGuard() { XML::SetPlainTextForFloatCollectionsEnabled(m_PlainText); }

private:
    bool m_PlainText = XML::PlainTextForFloatCollectionsIsEnabled();
};
} // namespace

TEST(ContainerBinaryFormat, TreeOfEveryTypeRoundTrips)
{
    const auto tree = MakeTree();
    const std::vector<char> bytes = ToBinary(*tree);

    DataContainer read;
    MemoryInputStream in(bytes);
    EXPECT_EQ(read.InputData(in), bytes.size());
    ExpectSameTree(*tree, read);

    EXPECT_FALSE(tree->Get("int")->GetSerializer()) << "writing leaves the caller's objects alone";
    EXPECT_EQ(ToBinary(read), bytes) << "reading and writing again changes nothing";
}

TEST(ContainerBinaryFormat, EveryTruncationIsAnIOErrorAndStoresNothing)
{
    const std::vector<char> bytes = ToBinary(*MakeTree());
    for (std::size_t length = 0; length < bytes.size(); ++length)
    {
        DataContainer read;
        MemoryInputStream in(bytes.data(), length);
        EXPECT_THROW(read.InputData(in), IOError) << "cut at " << length;
        EXPECT_EQ(read.NumDataObjects(), 0u) << "cut at " << length;
    }
}

TEST(ContainerBinaryFormat, CorruptStreamsAreDataFileErrors)
{
    auto nested = [](int depth)
    {
        StreamBuilder stream;
        stream.Header();
        for (int i = 0; i < depth; ++i)
        {
            stream.U32(1).Text("c").Text("DataContainer").U32(0);
        }
        return stream.U32(0).bytes;
    };
    struct Case
    {
        const char* name;
        std::vector<char> bytes;
    };
    const std::vector<Case> cases = {
        {"wrong magic", StreamBuilder().Raw({'K', 'V', 'D', 'X'}).U32(1).U32(0).bytes},
        {"unknown version", StreamBuilder().Header(2).U32(0).bytes},
        {"value size far beyond the stream", StreamBuilder()
                                                 .Header()
                                                 .U32(1)
                                                 .Text("k")
                                                 .Text("AsciiString")
                                                 .U32(0)
                                                 .U64(1ull << 62)
                                                 .bytes},
        {"int of 8 bytes",
         StreamBuilder().Header().U32(1).Value("k", "int", {1, 0, 0, 0, 0, 0, 0, 0}).bytes},
        {"more entries announced than present",
         StreamBuilder().Header().U32(0xFFFFFFFFu).Value("k", "int", {1, 0, 0, 0}).bytes},
        {"key length far beyond the stream",
         StreamBuilder().Header().U32(1).U32(0xFFFFFFF0u).bytes},
        {"unknown flags", StreamBuilder().Header().U32(1).Value("k", "int", {1, 0, 0, 0}, 4).bytes},
        {"matrix sizes that do not fit its bytes",
         StreamBuilder()
             .Header()
             .U32(1)
             .Value("m", "Matrix<float>", {2, 0, 0, 0, 2, 0, 0, 0})
             .bytes},
        {"unit text that is no unit",
         StreamBuilder()
             .Header()
             .U32(1)
             .Value("u", "TUnitized", {0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, '!'})
             .bytes},
        {"containers nested too deep", nested(65)},
    };
    for (const auto& c : cases)
    {
        DataContainer read;
        MemoryInputStream in(c.bytes);
        EXPECT_THROW(read.InputData(in), DataFileError) << c.name;
        EXPECT_EQ(read.NumDataObjects(), 0u) << c.name;
    }

    DataContainer deepEnough;
    const std::vector<char> bytes = nested(63);
    MemoryInputStream in(bytes);
    EXPECT_EQ(deepEnough.InputData(in), bytes.size());
}

TEST(ContainerBinaryFormat, UnknownTypesStayUnboundAndGoBackOutUnchanged)
{
    const std::vector<char> bytes = StreamBuilder()
                                        .Header()
                                        .U32(2)
                                        .Value("special", "HostSpecialType", {1, 2, 3}, 1)
                                        .Value("count", "int", {7, 0, 0, 0})
                                        .bytes;
    DataContainer read;
    MemoryInputStream in(bytes);
    read.InputData(in);

    const auto unbound = boost::dynamic_pointer_cast<UnboundData>(read.Get("special"));
    ASSERT_TRUE(unbound);
    EXPECT_EQ(unbound->GetContents(), (std::vector<char>{1, 2, 3}));
    EXPECT_TRUE(unbound->IsLockable());
    int count = 0;
    EXPECT_TRUE(read.Get("count", count));
    EXPECT_EQ(count, 7);
    EXPECT_EQ(ToBinary(read), bytes);

    DataContainer fromXML;
    FromXML(ToXML(read), fromXML);
    const auto again = boost::dynamic_pointer_cast<UnboundData>(fromXML.Get("special"));
    ASSERT_TRUE(again);
    EXPECT_EQ(again->GetStoredTypeName(), "HostSpecialType");
    EXPECT_EQ(again->GetContents(), unbound->GetContents());
}

TEST(ContainerXMLFormat, TreeOfEveryTypeRoundTripsInBothMatrixForms)
{
    XMLSettingsGuard settings;
    const auto tree = MakeTree();
    for (const bool plainText : {true, false})
    {
        XML::SetPlainTextForFloatCollectionsEnabled(plainText);
        const std::string text = ToXML(*tree);
        EXPECT_EQ(text.find("<Contents>") != std::string::npos, plainText);
        EXPECT_NE(text.find("a&lt;b &amp; &apos;c&apos; &quot;d&quot; &gt; \xB5m"),
                  std::string::npos);

        DataContainer read;
        FromXML(text, read);
        ExpectSameTree(*tree, read);
        EXPECT_EQ(ToXML(read), text) << "reading and writing again changes nothing";
    }
    EXPECT_FALSE(tree->Get("int")->GetSerializer());
}

TEST(ContainerXMLFormat, WhiteSpaceAndControlBytesInTextsAndKeysRoundTrip)
{
    const std::string everyControlByte = []
    {
        std::string text;
        for (char c = 0; c < 0x20; ++c)
        {
            text += c;
        }
        return text;
    }();
    DataContainer tree;
    tree.Put<std::string>("crlf", "a\r\nb\r");
    tree.Put<std::string>("control", everyControlByte);
    tree.Put<StringList>("list", {"plain", "v\x0Bt"});
    tree.Put<UnitizedDouble>("units", UnitizedDouble(1.5, "\tm\x0B"));
    tree.Put<std::string>("k\tk\r\nk", "key with white space");
    tree.GetSubData({" \n "}, true)->Put<std::string>("in sub", "x\x01y");

    const std::string text = ToXML(tree);
    EXPECT_NE(text.find(">a&#13;\nb&#13;<"), std::string::npos) << "readable where XML allows";
    DataContainer read;
    FromXML(text, read);
    ExpectSameTree(tree, read);

    DataContainer badKey;
    badKey.GetSubData({"sub"}, true)->Put<int>("k\x01", 1);
    try
    {
        ToXML(badKey);
        ADD_FAILURE() << "written";
    }
    catch (const DataFileError& error)
    {
        EXPECT_NE(error.GetMessage().find("key /\"sub\"/\"k\\x01\" cannot be written to XML"),
                  std::string::npos)
            << error.GetMessage();
    }
}

TEST(ContainerXMLFormat, ReadingAddsToTheTargetOnlyWhenTheWholeDocumentIsRead)
{
    DataContainer target;
    target.Put<int>("kept", 1);
    target.Put<int>("replaced", 2);
    FromXML("<KivDataContainer version=\"1\"><Data key=\"replaced\" type=\"AsciiString\">new"
            "</Data></KivDataContainer>",
            target);
    std::string replaced;
    EXPECT_TRUE(target.Get("replaced", replaced));
    EXPECT_EQ(replaced, "new");
    EXPECT_TRUE(target.Exists("kept"));

    EXPECT_THROW(FromXML("<KivDataContainer version=\"1\"><Data key=\"added\" type=\"int\">3"
                         "</Data><Data key=\"bad\" type=\"int\">x</Data></KivDataContainer>",
                         target),
                 DataFileError);
    EXPECT_FALSE(target.Exists("added"));
}

TEST(ContainerXMLFormat, BadDocumentsAreDataFileErrorsNamingTheLine)
{
    const std::string head = "<?xml version=\"1.0\"?>\n<KivDataContainer version=\"1\">\n";
    const std::string tail = "\n</KivDataContainer>\n";
    struct Case
    {
        const char* name;
        std::string text;
        const char* expected; // a part of the message
    };
    const std::vector<Case> cases = {
        {"empty", "", "line 1"},
        {"truncated", head + "<Data key=\"a\" type=\"int\">1</Da", "line 3"},
        {"number that does not parse", head + "<Data key=\"a\" type=\"int\">1x</Data>" + tail,
         "line 3: /\"a\" of type \"int\""},
        {"type without a readable form", head + "<Data key=\"a\" type=\"Mystery\">1</Data>" + tail,
         "Mystery"},
        {"unknown encoding",
         head + "<Data key=\"a\" type=\"Matrix&lt;float&gt;\" encoding=\"hex\">00</Data>" + tail,
         "hex"},
        {"bad base64",
         head + "<Data key=\"a\" type=\"Matrix&lt;float&gt;\" encoding=\"base64\">@@@@</Data>" +
             tail,
         "base64"},
        {"missing key", head + "<Data type=\"int\">1</Data>" + tail, "\"key\""},
        {"foreign element", head + "<Value key=\"a\" type=\"int\">1</Value>" + tail, "<Value>"},
        {"text between entries", head + "stray" + tail, "stray"},
        {"wrong root", "<Other/>", "<Other>"},
        {"unknown version", "<KivDataContainer version=\"9\"/>", "\"9\""},
        {"character beyond Latin-1", head + "<Data key=\"&#x4E00;\" type=\"int\">1</Data>" + tail,
         "ISO 8859-1"},
        {"document type declaration",
         "<!DOCTYPE KivDataContainer [<!ENTITY e \"x\">]>\n<KivDataContainer version=\"1\"/>",
         "document type"},
        {"matrix with too few numbers",
         head +
             "<Data key=\"m\" type=\"Matrix&lt;float&gt;\" size1=\"2\" size2=\"2\">"
             "<Contents>1 2 3</Contents></Data>" +
             tail,
         "needs 4 numbers"},
    };
    for (const auto& c : cases)
    {
        DataContainer read;
        try
        {
            FromXML(c.text, read);
            ADD_FAILURE() << c.name << ": no error";
        }
        catch (const DataFileError& error)
        {
            EXPECT_NE(error.GetMessage().find(c.expected), std::string::npos)
                << c.name << ": " << error.GetMessage();
        }
        EXPECT_EQ(read.NumDataObjects(), 0u) << c.name;
    }
}
