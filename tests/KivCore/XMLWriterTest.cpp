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

TEST(XMLWriterTest, EscapesExactlyTheFiveMarkupCharacters)
{
    const std::pair<std::string, std::string> cases[] = {
        {"<", "&lt;"},
        {">", "&gt;"},
        {"&", "&amp;"},
        {"'", "&apos;"},
        {"\"", "&quot;"},
        {"a<b>&'c\"", "a&lt;b&gt;&amp;&apos;c&quot;"},
        {"&amp;", "&amp;amp;"},
        {"0.3488 \xB5m/V\t\n", "0.3488 \xB5m/V\t\n"},
        {"", ""},
    };
    for (const auto& [text, escaped] : cases)
    {
        EXPECT_EQ(XMLWriter::Escape(text), escaped) << text;
    }
}

TEST(XMLWriterTest, WritesNestedElementsWithEscapedAttributesAndText)
{
    std::ostringstream out;
    XMLWriter writer(out);
    writer.XMLDeclaration("ISO-8859-1");
    writer.StartElement("Matrix");
    writer.Attribute("size1", "2");
    writer.Attribute("note", "a\"b");
    writer.Tag("Contents", "1 < 2");
    writer.StartElement("Empty");
    writer.EndElement();
    writer.Text("&");
    EXPECT_EQ(writer.GetDepth(), 1u);
    writer.EndElement();

    EXPECT_EQ(out.str(), "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n"
                         "<Matrix size1=\"2\" note=\"a&quot;b\"><Contents>1 &lt; 2</Contents>"
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
