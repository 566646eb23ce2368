#include <gtest/gtest.h>

#include <cstring>
#include <sstream>

#include <boost/lexical_cast.hpp>

#include "CollectingAlertHandler.h"
#include "Kiv/Core/XMLWriter.h"
#include "Kiv/DataCore/Alerts.h"
#include "Kiv/DataCore/BuiltInSerializers.h"
#include "Kiv/DataCore/ContainerXML.h"
#include "Kiv/DataCore/MemoryStreams.h"

using namespace Kiv::DataCore;

namespace
{
template <class T>
boost::shared_ptr<Data<T>> MakeValue(const T& value)
{
    auto data = boost::make_shared<Data<T>>(value);
    data->CreateSerializer();
    return data;
}

std::vector<char> ToBytes(Serializer& serializer)
{
    MemoryOutputStream out;
    const std::uint64_t written = serializer.ToBinary(out);
    EXPECT_EQ(written, out.GetBytes().size());
    return out.TakeBytes();
}

// The value's XML form inside an element of its own, as a container document holds it.
std::string ToXML(Serializer& serializer)
{
    std::ostringstream text;
    Kiv::Core::XMLWriter writer(text);
    writer.StartElement("v");
    serializer.DataToXML(text, writer);
    writer.EndElement();
    return text.str();
}

FloatMatrix MakeMatrix(std::size_t rows, std::size_t columns)
{
    FloatMatrix matrix(rows, columns);
    for (std::size_t i = 0; i < rows * columns; ++i)
    {
        matrix.data()[i] = 0.5f * static_cast<float>(i) - 1.0f;
    }
    return matrix;
}

// Restores the process-wide XML settings that a test changes.
class XMLSettingsGuard
{
public:
    ~XMLSettingsGuard()
    {
        XML::SetPlainTextForFloatCollectionsEnabled(m_PlainText);
        XML::SetMaxScalarElementsForPlainText(m_Max);
    }

private:
    bool m_PlainText = XML::PlainTextForFloatCollectionsIsEnabled();
    std::uint64_t m_Max = XML::GetMaxScalarElementsForPlainText();
};

template <class T>
void ExpectFixedSizeRoundTrip(T value)
{
    const auto source = MakeValue<T>(value);
    Serializer& serializer = *source->GetSerializer();
    EXPECT_EQ(serializer.GetDataSize_bytes(), sizeof(T));
    EXPECT_TRUE(serializer.DataSizeIsConstant());
    EXPECT_TRUE(serializer.GetXMLEncoding().empty());
    const std::vector<char> bytes = ToBytes(serializer);
    ASSERT_EQ(bytes.size(), sizeof(T));
    EXPECT_EQ(std::memcmp(bytes.data(), &value, sizeof(T)), 0) << "raw machine order";

    const auto target = MakeValue<T>(T());
    MemoryInputStream in(bytes);
    EXPECT_EQ(target->GetSerializer()->FromBinary(bytes.size(), in), sizeof(T));
    EXPECT_EQ(target->Value(), value);

    // The XML text converts back to the same bits.
    const auto fromText = MakeValue<T>(T());
    const std::string xml = ToXML(serializer);
    const std::string text = xml.substr(3, xml.size() - 7);
    fromText->GetSerializer()->GetXMLContentHandler({})->OnTextContent(text);
    EXPECT_EQ(fromText->Value(), value) << text;
}
} // namespace

TEST(BuiltInSerializers, FixedSizeValuesRoundTripAsRawBytes)
{
    ExpectFixedSizeRoundTrip<int>(-123456789);
    ExpectFixedSizeRoundTrip<HostLong>(9876543);
    ExpectFixedSizeRoundTrip<float>(0.1f);
    ExpectFixedSizeRoundTrip<double>(-2.0 / 3.0);
}

// The host's long is 32 bits wide whatever the compiler's long is: four bytes, low byte first
// on this machine, under the type name "long".
TEST(BuiltInSerializers, LongIsFourBytesNamedLong)
{
    const auto value = MakeValue<HostLong>(-2);
    EXPECT_EQ(value->GetTypeName(), "long");
    EXPECT_EQ(value->GetSerializer()->GetDataSize_bytes(), 4u);
    EXPECT_EQ(ToBytes(*value->GetSerializer()),
              (std::vector<char>{'\xFE', '\xFF', '\xFF', '\xFF'}));
}

TEST(BuiltInSerializers, WrongByteCountReportsAssertionOnceAndReadsValueSize)
{
    KivTest::ScopedAlertCollector alerts;
    const auto value = MakeValue<int>(0);
    const int stored[2] = {42, 7};
    MemoryInputStream in(stored, sizeof(stored));

    EXPECT_EQ(value->GetSerializer()->FromBinary(8, in), 4u);

    EXPECT_EQ(in.GetInputPos(), 4);
    EXPECT_EQ(value->Value(), 42);
    const auto records = alerts->Records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].kind, "assert");
    EXPECT_EQ(records[0].message, "sizeof(data_type) == p_ui64NumBytes");
    EXPECT_EQ(records[0].context.GetSourceFile(), "DataCore/BuiltInDataObjects");
    EXPECT_EQ(records[0].context.GetLine(), 204);
    EXPECT_NE(records[0].context.GetShortFunctionName().find("FromBinary"), std::string::npos);
}

TEST(BuiltInSerializers, ShortFixedSizeReadRaisesIOError)
{
    const auto value = MakeValue<double>(1.0);
    const char bytes[3] = {};
    MemoryInputStream in(bytes, sizeof(bytes));
    EXPECT_THROW(value->GetSerializer()->FromBinary(8, in), Kiv::Core::IOError);
    EXPECT_EQ(value->Value(), 1.0) << "a failed read leaves the value";
}

TEST(BuiltInSerializers, TextIsItsBytesAloneAtEveryLength)
{
    // Lengths around the stack buffer of short texts, and one far beyond it.
    for (const std::size_t length : {0, 1, 255, 256, 70000})
    {
        std::string text(length, 'x');
        for (std::size_t i = 0; i < length; ++i)
        {
            text[i] = static_cast<char>('a' + i % 26);
        }
        const auto source = MakeValue<std::string>(text);
        EXPECT_EQ(source->GetSerializer()->GetDataSize_bytes(), length);
        const std::vector<char> bytes = ToBytes(*source->GetSerializer());
        EXPECT_EQ(std::string(bytes.begin(), bytes.end()), text) << "no length, no terminator";

        const auto target = MakeValue<std::string>("previous");
        MemoryInputStream in(bytes);
        EXPECT_EQ(target->GetSerializer()->FromBinary(length, in), length);
        EXPECT_EQ(target->Value(), text) << length;
    }
}

TEST(BuiltInSerializers, StringListIsLengthPrefixedTexts)
{
    const auto source = MakeValue<StringList>({"a", "bcd"});
    Serializer& serializer = *source->GetSerializer();
    EXPECT_EQ(serializer.GetDataSize_bytes(), 12u);
    EXPECT_FALSE(serializer.DataSizeIsConstant());
    const std::vector<char> bytes = ToBytes(serializer);
    ASSERT_EQ(bytes.size(), 12u);
    std::uint32_t firstLength = 0;
    std::memcpy(&firstLength, bytes.data(), 4);
    EXPECT_EQ(firstLength, 1u);
    EXPECT_EQ(std::string(bytes.begin() + 9, bytes.end()), "bcd");

    const auto target = MakeValue<StringList>({"old"});
    MemoryInputStream in(bytes);
    EXPECT_EQ(target->GetSerializer()->FromBinary(12, in), 12u);
    EXPECT_EQ(target->Value(), (StringList{"a", "bcd"}));

    const auto empty = MakeValue<StringList>({"old"});
    MemoryInputStream nothing(nullptr, 0);
    EXPECT_EQ(empty->GetSerializer()->FromBinary(0, nothing), 0u);
    EXPECT_TRUE(empty->Value().empty());
}

TEST(BuiltInSerializers, StringListXMLKeepsEmptyAndEscapedTexts)
{
    const StringList texts{"a<b", "", "x & 'y'"};
    const auto source = MakeValue<StringList>(texts);
    const std::string xml = ToXML(*source->GetSerializer());
    EXPECT_EQ(xml, "<v><Str>a&lt;b</Str><Str></Str><Str>x &amp; &apos;y&apos;</Str></v>");

    const auto target = MakeValue<StringList>({"old"});
    auto handler = target->GetSerializer()->GetXMLContentHandler({});
    for (const auto& text : texts)
    {
        ASSERT_TRUE(handler->OnStartTag("Str"));
        handler->OnTextContent(text);
        handler->OnEndTag("Str", text.empty());
    }
    EXPECT_FALSE(handler->OnStartTag("Other")) << "other elements are skipped";
    handler->OnEndContent();
    EXPECT_EQ(target->Value(), texts);
}

TEST(BuiltInSerializers, MatrixBinaryFormIsSizesThenRowMajorElements)
{
    const FloatMatrix matrix = MakeMatrix(2, 3);
    const auto source = MakeValue<FloatMatrix>(matrix);
    EXPECT_EQ(source->GetSerializer()->GetDataSize_bytes(), 32u);
    const std::vector<char> bytes = ToBytes(*source->GetSerializer());
    ASSERT_EQ(bytes.size(), 32u);
    std::int32_t sizes[2] = {};
    std::memcpy(sizes, bytes.data(), 8);
    EXPECT_EQ(sizes[0], 2);
    EXPECT_EQ(sizes[1], 3);
    float secondRowFirst = 0;
    std::memcpy(&secondRowFirst, bytes.data() + 8 + 3 * 4, 4);
    EXPECT_EQ(secondRowFirst, matrix(1, 0));

    const auto target = MakeValue<FloatMatrix>(MakeMatrix(5, 5));
    MemoryInputStream in(bytes);
    EXPECT_EQ(target->GetSerializer()->FromBinary(32, in), 32u);
    ASSERT_EQ(target->Value().size1(), 2u);
    ASSERT_EQ(target->Value().size2(), 3u);
    for (std::size_t i = 0; i < 6; ++i)
    {
        EXPECT_EQ(target->Value().data()[i], matrix.data()[i]);
    }
}

TEST(BuiltInSerializers, MatrixSizesThatDoNotFitTheByteCountAreRejectedBeforeAllocating)
{
    struct Case
    {
        const char* name;
        std::uint32_t size1;
        std::uint32_t size2;
        std::uint64_t numBytes;
    };
    const Case cases[] = {
        {"fewer bytes than the sizes need", 2, 3, 28},
        {"more bytes than the sizes need", 2, 3, 36},
        {"a product that overflows", 0xFFFFFFFFu, 0xFFFFFFFFu, 40},
        {"no room for the sizes", 0, 0, 4},
    };
    for (const auto& c : cases)
    {
        std::vector<char> bytes(40, 0);
        std::memcpy(bytes.data(), &c.size1, 4);
        std::memcpy(bytes.data() + 4, &c.size2, 4);
        const auto target = MakeValue<FloatMatrix>(FloatMatrix(0, 0));
        MemoryInputStream in(bytes);
        EXPECT_THROW(target->GetSerializer()->FromBinary(c.numBytes, in), DataFileError) << c.name;
    }

    // Sizes consistent with a byte count of 512 GiB that the stream does not hold: the read
    // must fail on the missing bytes, not try to allocate them.
    const std::uint32_t sizes[2] = {1u << 16, 1u << 21};
    MemoryInputStream in(sizes, sizeof(sizes));
    const auto target = MakeValue<FloatMatrix>(FloatMatrix(0, 0));
    EXPECT_THROW(target->GetSerializer()->FromBinary(8 + (std::uint64_t(1) << 39), in),
                 Kiv::Core::IOError);
}

TEST(BuiltInSerializers, SmallMatrixIsPlainTextWithSingleBlanks)
{
    XMLSettingsGuard settings;
    XML::SetPlainTextForFloatCollectionsEnabled(true);
    XML::SetMaxScalarElementsForPlainText(1024);
    const auto source = MakeValue<FloatMatrix>(MakeMatrix(2, 3));
    Serializer& serializer = *source->GetSerializer();
    EXPECT_TRUE(serializer.GetXMLEncoding().empty());
    const std::string xml = ToXML(serializer);
    EXPECT_EQ(xml, "<v size1=\"2\" size2=\"3\"><Contents>-1 -0.5 0 0.5 1 1.5</Contents></v>");

    const auto target = MakeValue<FloatMatrix>(FloatMatrix(0, 0));
    auto handler = target->GetSerializer()->GetXMLContentHandler({});
    handler->OnAttribute("size1", "2");
    handler->OnAttribute("size2", "3");
    ASSERT_TRUE(handler->OnStartTag("Contents"));
    handler->OnTextContent("-1 -0.5\t0\r\n0.5  1 1.5");
    handler->OnEndTag("Contents", false);
    handler->OnEndContent();
    ASSERT_EQ(target->Value().size1(), 2u);
    EXPECT_EQ(target->Value()(1, 2), 1.5f);
}

TEST(BuiltInSerializers, MatrixTextWithTheWrongNumberCountIsRejected)
{
    for (const char* text : {"1 2 3", "1 2 3 4 5", "1 2 x 4"})
    {
        const auto target = MakeValue<FloatMatrix>(FloatMatrix(0, 0));
        auto handler = target->GetSerializer()->GetXMLContentHandler({});
        handler->OnAttribute("size1", "2");
        handler->OnAttribute("size2", "2");
        handler->OnStartTag("Contents");
        EXPECT_ANY_THROW({
            handler->OnTextContent(text);
            handler->OnEndTag("Contents", false);
            handler->OnEndContent();
        }) << text;
    }
    const auto target = MakeValue<FloatMatrix>(FloatMatrix(0, 0));
    EXPECT_THROW(target->GetSerializer()->GetXMLContentHandler({})->OnAttribute("size1", "-1"),
                 DataFileError);
}

TEST(BuiltInSerializers, MatrixFallsBackToTheEncodedForm)
{
    XMLSettingsGuard settings;
    struct Case
    {
        const char* name;
        bool plainText;
        std::uint64_t maxElements;
    };
    for (const Case& c :
         {Case{"plain text disabled", false, 1024}, Case{"more elements than allowed", true, 5}})
    {
        XML::SetPlainTextForFloatCollectionsEnabled(c.plainText);
        XML::SetMaxScalarElementsForPlainText(c.maxElements);
        const auto source = MakeValue<FloatMatrix>(MakeMatrix(2, 3));
        Serializer& serializer = *source->GetSerializer();
        EXPECT_EQ(serializer.GetXMLEncoding(), Serializer::ENCODING_BASE64) << c.name;
        const std::string xml = ToXML(serializer);
        const std::string text = xml.substr(3, xml.size() - 7);
        EXPECT_EQ(XML::DecodeBase64(text), ToBytes(serializer)) << c.name;

        const auto target = MakeValue<FloatMatrix>(FloatMatrix(0, 0));
        auto handler = target->GetSerializer()->GetXMLContentHandler(
            {{"encoding", Serializer::ENCODING_BASE64}});
        handler->OnTextContent(text);
        handler->OnEndContent();
        EXPECT_EQ(target->Value()(1, 2), 1.5f) << c.name;
    }
}

TEST(BuiltInSerializers, UnitizedValueKeepsNumberAndUnit)
{
    struct Case
    {
        double number;
        const char* unit;
    };
    for (const Case& c : {Case{0.1, "\xB5m/s"}, Case{-75.25, "nm/V"}, Case{1e-300, ""}})
    {
        const auto source = MakeValue<UnitizedDouble>(*c.unit ? UnitizedDouble(c.number, c.unit)
                                                              : UnitizedDouble(c.number));
        Serializer& serializer = *source->GetSerializer();
        EXPECT_EQ(serializer.GetDataSize_bytes(), 12 + std::strlen(c.unit));
        const std::vector<char> bytes = ToBytes(serializer);

        const auto fromBinary = MakeValue<UnitizedDouble>(UnitizedDouble(5.0, "nm"));
        MemoryInputStream in(bytes);
        EXPECT_EQ(fromBinary->GetSerializer()->FromBinary(bytes.size(), in), bytes.size());
        EXPECT_EQ(fromBinary->Value().GetValue(), c.number);
        EXPECT_EQ(fromBinary->Value().GetUnit()->GetAbbreviation(), c.unit);
        EXPECT_EQ(fromBinary->Value().GetUnit()->IsUnitless(), *c.unit == '\0');

        const std::string xml = ToXML(serializer);
        const auto fromXML = MakeValue<UnitizedDouble>(UnitizedDouble(5.0, "nm"));
        auto handler = fromXML->GetSerializer()->GetXMLContentHandler({});
        if (*c.unit)
        {
            EXPECT_NE(xml.find(std::string("unit=\"") + c.unit + "\""), std::string::npos) << xml;
            handler->OnAttribute("unit", c.unit);
        }
        handler->OnTextContent(xml.substr(xml.find('>') + 1, xml.rfind('<') - xml.find('>') - 1));
        handler->OnEndContent();
        EXPECT_EQ(fromXML->Value().GetValue(), c.number) << xml;
        EXPECT_EQ(fromXML->Value().GetUnit()->GetAbbreviation(), c.unit);
    }
}

TEST(BuiltInSerializers, UnitizedBytesThatDisagreeOrNameNoUnitAreErrors)
{
    const auto source = MakeValue<UnitizedDouble>(UnitizedDouble(1.0, "nm"));
    std::vector<char> bytes = ToBytes(*source->GetSerializer());
    const auto target = MakeValue<UnitizedDouble>(UnitizedDouble(0.0));
    {
        MemoryInputStream in(bytes);
        EXPECT_THROW(target->GetSerializer()->FromBinary(bytes.size() + 1, in), DataFileError);
    }
    bytes[12] = '!';
    MemoryInputStream in(bytes);
    EXPECT_THROW(target->GetSerializer()->FromBinary(bytes.size(), in),
                 UnitizedDouble::XUnitNotFound);
}

TEST(BuiltInSerializers, TextThatIsNoNumberThrowsLexicalCastError)
{
    EXPECT_THROW(MakeValue<int>(1)->GetSerializer()->GetXMLContentHandler({})->OnTextContent("1x"),
                 boost::bad_lexical_cast);
    EXPECT_THROW(
        MakeValue<double>(1)->GetSerializer()->GetXMLContentHandler({})->OnTextContent("one"),
        boost::bad_lexical_cast);
    const auto value = MakeValue<int>(9);
    value->GetSerializer()->GetXMLContentHandler({})->OnTextContent("");
    EXPECT_EQ(value->Value(), 9) << "an empty text leaves the value";
}

TEST(Base64, KnownVectorsAndMalformedTexts)
{
    const std::pair<const char*, const char*> vectors[] = {
        {"", ""},
        {"f", "Zg=="},
        {"fo", "Zm8="},
        {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="},
        {"fooba", "Zm9vYmE="},
        {"foobar", "Zm9vYmFy"},
    };
    for (const auto& [plain, encoded] : vectors)
    {
        const std::vector<char> bytes(plain, plain + std::strlen(plain));
        EXPECT_EQ(XML::EncodeBase64(bytes), encoded);
        EXPECT_EQ(XML::DecodeBase64(encoded), bytes) << encoded;
    }
    EXPECT_EQ(XML::DecodeBase64(" Zm9v\nYmFy\r\n"),
              (std::vector<char>{'f', 'o', 'o', 'b', 'a', 'r'}));
    for (const char* bad : {"Zg=", "Z", "Zg==Zg==", "Zm9v!", "=Zm9", "Zg===", "Zm=v"})
    {
        EXPECT_THROW(XML::DecodeBase64(bad), DataFileError) << bad;
    }
}

TEST(MemoryStreams, PositionsOutsideTheBytesAreErrors)
{
    const char bytes[4] = {1, 2, 3, 4};
    MemoryInputStream in(bytes, sizeof(bytes));
    in.SetInputPos(-1, Kiv::Core::FROM_END);
    char last = 0;
    EXPECT_EQ(in.Read(&last, 8), 1u);
    EXPECT_EQ(last, 4);
    EXPECT_THROW(in.SetInputPos(5, Kiv::Core::FROM_BEGIN), Kiv::Core::IOError);
    EXPECT_THROW(in.SetInputPos(-5, Kiv::Core::FROM_END), Kiv::Core::IOError);

    MemoryOutputStream out;
    out.SetOutputPos(2, Kiv::Core::FROM_BEGIN);
    out.Write(bytes, 1);
    EXPECT_EQ(out.GetBytes(), (std::vector<char>{0, 0, 1}));
    EXPECT_THROW(out.SetOutputPos(-4, Kiv::Core::FROM_CURRENT), Kiv::Core::IOError);
}
