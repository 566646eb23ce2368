#include "Kiv/DataCore/Serializer.h"

#include <atomic>

#include <boost/make_shared.hpp>

#include "Kiv/Core/CodeContext.h"
#include "Kiv/Core/XMLWriter.h"
#include "Kiv/DataCore/Alerts.h"
#include "Kiv/DataCore/ContainerXML.h"
#include "Kiv/DataCore/DataObject.h"
#include "Kiv/DataCore/MemoryStreams.h"

namespace Kiv::DataCore
{

namespace
{
const char* const ALERT_ID = "Kiv.DataCore.Serializer";

const char BASE64_ALPHABET[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// The 6-bit value of a base64 character, or -1.
int Base64Value(unsigned char c)
{
    if (c >= 'A' && c <= 'Z')
    {
        return c - 'A';
    }
    if (c >= 'a' && c <= 'z')
    {
        return c - 'a' + 26;
    }
    if (c >= '0' && c <= '9')
    {
        return c - '0' + 52;
    }
    return c == '+' ? 62 : c == '/' ? 63 : -1;
}

bool IsXMLWhiteSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

[[noreturn]] void RaiseBadBase64(const std::string& why)
{
    DataFileError("invalid base64 text: " + why).RaiseError(KIV_CODE_CONTEXT, ALERT_ID, false);
}

// Gathers the text of an element in the encoded form and, at its end, reads the decoded bytes
// into the value through the serializer's binary form.
class Base64ContentHandler : public XMLContentHandler
{
public:
    explicit Base64ContentHandler(Serializer& serializer) : m_Serializer(serializer) {}

    bool OnStartTag(const std::string&) override { return false; }
    void OnTextContent(const std::string& text) override { m_Text += text; }
    void OnEndContent() override
    {
        const std::vector<char> bytes = XML::DecodeBase64(m_Text);
        MemoryInputStream in(bytes);
        m_Serializer.FromBinary(bytes.size(), in);
    }

private:
    Serializer& m_Serializer;
    std::string m_Text;
};

std::atomic<bool> g_PlainTextForFloatCollections{true};
std::atomic<std::uint64_t> g_MaxScalarElementsForPlainText{1024};
} // namespace

// --- content handler: accept everything, do nothing ---

bool XMLContentHandler::OnStartTag(const std::string&)
{
    return true;
}

void XMLContentHandler::OnStartTagContent() {}

void XMLContentHandler::OnEndTag(const std::string&, bool) {}

void XMLContentHandler::OnAttribute(const std::string&, const std::string&) {}

void XMLContentHandler::OnTextContent(const std::string&) {}

void XMLContentHandler::OnComment(const std::string&) {}

void XMLContentHandler::OnEntityReference(const std::string&) {}

void XMLContentHandler::OnCDataSection(std::istream&) {}

void XMLContentHandler::OnEndContent() {}

// --- serializer: the encoded form unless a serializer has a readable one ---

const std::string Serializer::ENCODING_BASE64 = "base64";

std::string Serializer::GetXMLEncoding()
{
    return ENCODING_BASE64;
}

boost::shared_ptr<XMLContentHandler>
Serializer::GetXMLContentHandler(const XMLAttributes& attributes)
{
    const auto found = attributes.find(XML::ENCODING_ATTRIBUTE);
    const std::string encoding = found != attributes.end() ? found->second : std::string();
    // A missing encoding is taken as the encoded form: it is the only form this base knows.
    if (!IsDefaultEncoding(encoding) && encoding != ENCODING_BASE64)
    {
        DataFileError("unsupported XML encoding \"" + encoding + "\" for a value of type " +
                      GetDataObject().GetTypeName())
            .RaiseError(KIV_CODE_CONTEXT, ALERT_ID, false);
    }
    return boost::make_shared<Base64ContentHandler>(*this);
}

void Serializer::DataToXML(std::ostream&, Kiv::Core::XMLWriter& writer)
{
    MemoryOutputStream bytes;
    ToBinary(bytes);
    writer.Text(XML::EncodeBase64(bytes.GetBytes()));
}

bool Serializer::IsDefaultEncoding(const std::string& encoding)
{
    return encoding.empty();
}

std::uint32_t BuiltInSerializerBase::GetVersion() const
{
    return 1;
}

std::string BuiltInSerializerBase::GetModule() const
{
    return "Kiv.DataCore";
}

// --- XML settings ---

namespace XML
{

bool PlainTextForFloatCollectionsIsEnabled()
{
    return g_PlainTextForFloatCollections.load();
}

void SetPlainTextForFloatCollectionsEnabled(bool enabled)
{
    g_PlainTextForFloatCollections.store(enabled);
}

std::uint64_t GetMaxScalarElementsForPlainText()
{
    return g_MaxScalarElementsForPlainText.load();
}

void SetMaxScalarElementsForPlainText(std::uint64_t count)
{
    g_MaxScalarElementsForPlainText.store(count);
}

std::string EncodeBase64(const std::vector<char>& bytes)
{
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    std::size_t i = 0;
    for (; i + 3 <= bytes.size(); i += 3)
    {
        const std::uint32_t group = static_cast<unsigned char>(bytes[i]) << 16 |
                                    static_cast<unsigned char>(bytes[i + 1]) << 8 |
                                    static_cast<unsigned char>(bytes[i + 2]);
        text += BASE64_ALPHABET[group >> 18 & 63];
        text += BASE64_ALPHABET[group >> 12 & 63];
        text += BASE64_ALPHABET[group >> 6 & 63];
        text += BASE64_ALPHABET[group & 63];
    }
    const std::size_t rest = bytes.size() - i;
    if (rest > 0)
    {
        std::uint32_t group = static_cast<unsigned char>(bytes[i]) << 16;
        if (rest == 2)
        {
            group |= static_cast<unsigned char>(bytes[i + 1]) << 8;
        }
        text += BASE64_ALPHABET[group >> 18 & 63];
        text += BASE64_ALPHABET[group >> 12 & 63];
        text += rest == 2 ? BASE64_ALPHABET[group >> 6 & 63] : '=';
        text += '=';
    }
    return text;
}

std::vector<char> DecodeBase64(const std::string& text)
{
    std::vector<char> bytes;
    bytes.reserve(text.size() / 4 * 3);
    std::uint32_t group = 0;
    int digits = 0;
    int padding = 0;
    bool finished = false; // a padded group ends the text
    for (const char c : text)
    {
        if (IsXMLWhiteSpace(c))
        {
            continue;
        }
        if (c == '=')
        {
            // Padding may only complete a group of which at least two digits are there.
            if (finished || digits < 2)
            {
                RaiseBadBase64("misplaced '='");
            }
            if (digits + ++padding == 4)
            {
                group <<= 6 * padding;
                bytes.push_back(static_cast<char>(group >> 16 & 0xFF));
                if (digits == 3)
                {
                    bytes.push_back(static_cast<char>(group >> 8 & 0xFF));
                }
                digits = 0;
                finished = true;
            }
            continue;
        }
        const int value = Base64Value(static_cast<unsigned char>(c));
        if (value < 0)
        {
            RaiseBadBase64(Kiv::Core::FormatAlertMessage("unexpected character '%1%'", c));
        }
        if (padding > 0)
        {
            RaiseBadBase64("data after '='");
        }
        group = group << 6 | static_cast<std::uint32_t>(value);
        if (++digits == 4)
        {
            bytes.push_back(static_cast<char>(group >> 16 & 0xFF));
            bytes.push_back(static_cast<char>(group >> 8 & 0xFF));
            bytes.push_back(static_cast<char>(group & 0xFF));
            group = 0;
            digits = 0;
        }
    }
    if (digits != 0)
    {
        RaiseBadBase64("the text ends inside a group");
    }
    return bytes;
}

} // namespace XML

} // namespace Kiv::DataCore
