#include <sstream>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "Kiv/Core/Error.h"
#include "Kiv/Core/XMLWriter.h"

using Kiv::Core::LogicError;
using Kiv::Core::XMLWriter;

namespace
{

TEST(XMLWriterTest, EscapesMarkupAndWhatAReaderWouldNormalise)
{
    const struct
    {
        std::string raw;
        std::string asText;
        std::string asAttribute;
    } cases[] = {
        {"<", "&lt;", "&lt;"},
        {">", "&gt;", "&gt;"},
        {"&", "&amp;", "&amp;"},
        {"'", "&apos;", "&apos;"},
        {"\"", "&quot;", "&quot;"},
        {"a<b>&'c\"", "a&lt;b&gt;&amp;&apos;c&quot;", "a&lt;b&gt;&amp;&apos;c&quot;"},
        {"&amp;", "&amp;amp;", "&amp;amp;"},
        {"0.3488 \xB5m/V", "0.3488 \xB5m/V", "0.3488 \xB5m/V"},
        {"a\r\nb\rc", "a&#13;\nb&#13;c", "a&#13;&#10;b&#13;c"},
        {"k\tk\n", "k\tk\n", "k&#9;k&#10;"},
        {"", "", ""},
    };
    for (const auto& c : cases)
    {
        EXPECT_EQ(XMLWriter::Escape(c.raw), c.asText) << c.raw;
        EXPECT_EQ(XMLWriter::EscapeAttribute(c.raw), c.asAttribute) << c.raw;
    }
}

TEST(XMLWriterTest, OnlyControlBytesOtherThanTabLineFeedAndReturnCannotBeWritten)
{
    for (int byte = 0; byte < 0x20; ++byte)
    {
        const bool representable = byte == '\t' || byte == '\n' || byte == '\r';
        EXPECT_EQ(XMLWriter::IsRepresentable(std::string("a") + static_cast<char>(byte)),
                  representable)
            << byte;
    }
    EXPECT_TRUE(XMLWriter::IsRepresentable(" ~\x7F\x80\xB5\xFF"));
}

TEST(XMLWriterTest, WritesNestedElementsWithEscapedAttributesAndText)
{
    std::ostringstream out;
    XMLWriter writer(out);
    writer.XMLDeclaration("ISO-8859-1");
    writer.StartElement("Matrix");
    writer.Attribute("size1", "2");
    writer.Attribute("note", "a\"b\tc");
    writer.Tag("Contents", "1 < 2");
    writer.StartElement("Empty");
    writer.EndElement();
    writer.Text("&");
    EXPECT_EQ(writer.GetDepth(), 1u);
    writer.EndElement();

    EXPECT_EQ(out.str(), "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n"
                         "<Matrix size1=\"2\" note=\"a&quot;b&#9;c\"><Contents>1 &lt; 2</Contents>"
                         "<Empty/>&amp;</Matrix>");
}

TEST(XMLWriterTest, RefusesMisuseThatWouldBreakTheDocument)
{
    std::ostringstream out;
    XMLWriter writer(out);
    EXPECT_THROW(writer.EndElement(), LogicError);
    EXPECT_THROW(writer.Attribute("a", "1"), LogicError);
    EXPECT_THROW(writer.StartElement(""), LogicError);
    EXPECT_THROW(writer.StartElement("1st"), LogicError);
    EXPECT_THROW(writer.StartElement("a b"), LogicError);

    writer.StartElement("Str");
    writer.Text("x");
    EXPECT_THROW(writer.Attribute("late", "1"), LogicError);
    writer.EndElement();
    EXPECT_EQ(out.str(), "<Str>x</Str>");
}

} // namespace
