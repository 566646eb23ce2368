// The XML form of a container tree, written by DataContainer::OutputData(ostream&, XMLWriter&)
// and read by ReadContainerXML:
//
//   <?xml version="1.0" encoding="ISO-8859-1"?>
//   <KivDataContainer version="1">
//     <Data key="ScanRate" type="double">1.5</Data>
//     <Data key="[Data]" type="DataContainer">
//       <Data key="RawData" type="Matrix&lt;float&gt;" size1="1" size2="2"><Contents>1
//       2</Contents></Data>
//     </Data>
//   </KivDataContainer>
//
// Every entry is a "Data" element with its key and type name; a sub-container's entries are
// nested inside its element. "lockable" (for a value) and "lockEntries" (for a sub-container)
// are "1" when set.
// A value's attributes beyond these and its content are its serializer's; "encoding" names a
// form other than the serializer's readable one (the encoded bytes of its binary form).
// Texts are 8-bit (ISO 8859-1), like every text of the host.

#include <cstring>
#include <exception>
#include <functional>
#include <memory>

#include <boost/make_shared.hpp>
#include <expat.h>

#include "Kiv/Core/CodeContext.h"
#include "Kiv/Core/XMLWriter.h"
#include "Kiv/DataCore/Alerts.h"
#include "Kiv/DataCore/BuiltInSerializers.h"
#include "Kiv/DataCore/ContainerXML.h"
#include "Kiv/DataCore/DataContainer.h"
#include "Kiv/DataCore/UnboundData.h"

namespace Kiv::DataCore
{

const char* const CONTAINER_TYPE_NAME = "DataContainer";

namespace XML
{
const char* const CONTAINER_ELEMENT = "KivDataContainer";
const char* const ENTRY_ELEMENT = "Data";
const char* const KEY_ATTRIBUTE = "key";
const char* const TYPE_ATTRIBUTE = "type";
const char* const ENCODING_ATTRIBUTE = "encoding";
const char* const LOCKABLE_ATTRIBUTE = "lockable";
const char* const LOCK_ENTRIES_ATTRIBUTE = "lockEntries";
} // namespace XML

namespace
{
const char* const ALERT_ID = "Kiv.DataCore.DataContainer.XMLFormat";
const char* const VERSION_ATTRIBUTE = "version";
const char* const VERSION = "1";
const char* const DOCUMENT_ENCODING = "ISO-8859-1";

// Only a cycle of containers (or a hostile document) reaches this.
constexpr std::size_t MAX_DEPTH = 64;
constexpr std::size_t READ_CHUNK_BYTES = 64 * 1024;

std::string JoinPath(const std::string& parent, const std::string& key)
{
    return parent + "/\"" + key + "\"";
}

// text with its control bytes shown as \xNN, for messages.
std::string ShowControlBytes(const std::string& text)
{
    static const char HEX_DIGITS[] = "0123456789ABCDEF";
    std::string shown;
    for (const char c : text)
    {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7F)
        {
            shown += "\\x";
            shown += HEX_DIGITS[byte >> 4];
            shown += HEX_DIGITS[byte & 0xF];
        }
        else
        {
            shown += c;
        }
    }
    return shown;
}

std::string Indent(std::size_t depth)
{
    return std::string(2 * depth, ' ');
}

class ContainerXMLWriter
{
public:
    ContainerXMLWriter(std::ostream& out, Kiv::Core::XMLWriter& writer)
        : m_Out(out), m_Writer(writer)
    {
    }

    void WriteDocument(const DataContainer& container)
    {
        const bool standalone = m_Writer.GetDepth() == 0;
        if (standalone)
        {
            m_Writer.XMLDeclaration(DOCUMENT_ENCODING);
        }
        m_Writer.StartElement(XML::CONTAINER_ELEMENT);
        m_Writer.Attribute(VERSION_ATTRIBUTE, VERSION);
        WriteEntries(container, "", 1);
        m_Writer.EndElement();
        if (standalone)
        {
            m_Out << '\n';
        }
    }

private:
    void WriteEntries(const DataContainer& container, const std::string& path, std::size_t depth)
    {
        if (depth > MAX_DEPTH)
        {
            DataFileError(Kiv::Core::FormatAlertMessage(
                              "%1% lies more than %2% containers deep (is a container stored "
                              "inside itself?)",
                              path, MAX_DEPTH))
                .RaiseError(KIV_CODE_CONTEXT, ALERT_ID, false);
        }
        m_Writer.Text("\n");
        for (const auto& [key, object] : container.GetEntries())
        {
            if (object)
            {
                WriteEntry(key, *object, JoinPath(path, key), depth);
            }
        }
        m_Writer.Text(Indent(depth - 1));
    }

    void StartEntry(const std::string& key, const std::string& typeName, bool lockable,
                    std::size_t depth)
    {
        m_Writer.Text(Indent(depth));
        m_Writer.StartElement(XML::ENTRY_ELEMENT);
        m_Writer.Attribute(XML::KEY_ATTRIBUTE, key);
        m_Writer.Attribute(XML::TYPE_ATTRIBUTE, typeName);
        if (lockable)
        {
            m_Writer.Attribute(XML::LOCKABLE_ATTRIBUTE, "1");
        }
    }

    void EndEntry()
    {
        m_Writer.EndElement();
        m_Writer.Text("\n");
    }

    void WriteEntry(const std::string& key, const DataObject& object, const std::string& path,
                    std::size_t depth)
    {
        if (!Kiv::Core::XMLWriter::IsRepresentable(key))
        {
            // A value can fall back to its encoded form; a key is an attribute and cannot.
            DataFileError(Kiv::Core::FormatAlertMessage(
                              "key %1% cannot be written to XML: it holds a control byte",
                              ShowControlBytes(path)))
                .RaiseError(KIV_CODE_CONTEXT, ALERT_ID, false);
        }
        if (const auto* container = dynamic_cast<const DataContainer*>(&object))
        {
            // A container always has its own mutex: only what it gives its entries is told.
            StartEntry(key, CONTAINER_TYPE_NAME, false, depth);
            if (container->LocksEntries())
            {
                m_Writer.Attribute(XML::LOCK_ENTRIES_ATTRIBUTE, "1");
            }
            WriteEntries(*container, path, depth + 1);
            EndEntry();
            return;
        }
        if (const auto* unbound = dynamic_cast<const UnboundData*>(&object))
        {
            // Bytes of a type this build does not know go back out as they came in.
            const auto lock = object.GetDataLock();
            StartEntry(key, unbound->GetStoredTypeName(), object.IsLockable(), depth);
            m_Writer.Attribute(XML::ENCODING_ATTRIBUTE, Serializer::ENCODING_BASE64);
            m_Writer.Text(XML::EncodeBase64(unbound->GetContents()));
            EndEntry();
            return;
        }
        const boost::shared_ptr<Serializer> serializer = FindSerializerFor(object);
        if (!serializer)
        {
            return; // a type that cannot be serialized, such as a list of matrices
        }
        // Held from the choice of form to the last character, so both agree.
        const auto lock = object.GetDataLock();
        StartEntry(key, object.GetTypeName(), object.IsLockable(), depth);
        const std::string encoding = serializer->GetXMLEncoding();
        if (!Serializer::IsDefaultEncoding(encoding))
        {
            m_Writer.Attribute(XML::ENCODING_ATTRIBUTE, encoding);
        }
        serializer->DataToXML(m_Out, m_Writer);
        EndEntry();
    }

    std::ostream& m_Out;
    Kiv::Core::XMLWriter& m_Writer;
};

// A container whose entries the reader may store directly. Only used while a document is
// read; what it holds is handed to plain containers with Append.
class ContainerBuilder : public DataContainer
{
public:
    ContainerBuilder() : DataContainer(false) {}

    void Store(const std::string& key, boost::shared_ptr<DataObject> object)
    {
        PutDataObject(key, std::move(object));
    }
};

using Attributes = std::vector<std::pair<std::string, std::string>>;

class ContainerXMLReader
{
public:
    void Read(std::istream& in, DataContainer& target)
    {
        std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser(
            XML_ParserCreate(nullptr), &XML_ParserFree);
        if (!parser)
        {
            Kiv::Core::AllocationFailed("XML parser").RaiseError(KIV_CODE_CONTEXT, ALERT_ID, false);
        }
        m_Parser = parser.get();
        XML_SetUserData(m_Parser, this);
        XML_SetElementHandler(m_Parser, &ContainerXMLReader::OnStartElement,
                              &ContainerXMLReader::OnEndElement);
        XML_SetCharacterDataHandler(m_Parser, &ContainerXMLReader::OnCharacterData);
        XML_SetCommentHandler(m_Parser, &ContainerXMLReader::OnCommentText);
        XML_SetStartDoctypeDeclHandler(m_Parser, &ContainerXMLReader::OnDoctype);

        std::vector<char> buffer(READ_CHUNK_BYTES);
        for (bool last = false; !last;)
        {
            in.read(buffer.data(), static_cast<std::streamsize>(buffer.size()));
            const std::streamsize count = in.gcount();
            if (in.bad())
            {
                Fail("the XML text could not be read from its stream");
            }
            last = !in;
            if (XML_Parse(m_Parser, buffer.data(), static_cast<int>(count), last) ==
                XML_STATUS_ERROR)
            {
                if (m_Failure)
                {
                    std::rethrow_exception(m_Failure);
                }
                Fail(std::string("malformed XML: ") + XML_ErrorString(XML_GetErrorCode(m_Parser)));
            }
        }
        if (m_Failure)
        {
            std::rethrow_exception(m_Failure);
        }
        if (!m_Root)
        {
            Fail("the document holds no container");
        }
        target.Append(*m_Root);
    }

private:
    struct ContainerLevel
    {
        boost::shared_ptr<ContainerBuilder> builder;
        std::string key;
        std::string path;
        bool locksEntries = false;
    };

    // The value element being read and where the reader stands inside it.
    struct ValueState
    {
        bool active = false;
        std::string key;
        std::string typeName;
        std::string path;
        bool lockable = false;
        boost::shared_ptr<DataObject> object;
        boost::shared_ptr<XMLContentHandler> handler; // empty for an unbound value
        std::string encodedText;                      // an unbound value's base64 text
        std::size_t depth = 0;                        // open elements inside the value element
        std::size_t skipFrom = 0;                     // depth of the element being skipped, or 0
        std::vector<bool> hasContent;                 // per open element inside the value
    };

    // --- expat's callbacks: each runs its step and turns any exception into a stopped parser,
    // since exceptions must not cross the C library's frames.

    static void XMLCALL OnStartElement(void* self, const XML_Char* name, const XML_Char** atts)
    {
        static_cast<ContainerXMLReader*>(self)->Guard(
            [&](ContainerXMLReader& reader)
            {
                Attributes attributes;
                for (std::size_t i = 0; atts[i] != nullptr; i += 2)
                {
                    attributes.emplace_back(reader.ToLatin1(atts[i]), reader.ToLatin1(atts[i + 1]));
                }
                reader.StartElement(reader.ToLatin1(name), attributes);
            });
    }

    static void XMLCALL OnEndElement(void* self, const XML_Char* name)
    {
        static_cast<ContainerXMLReader*>(self)->Guard(
            [&](ContainerXMLReader& reader) { reader.EndElement(reader.ToLatin1(name)); });
    }

    static void XMLCALL OnCharacterData(void* self, const XML_Char* text, int length)
    {
        static_cast<ContainerXMLReader*>(self)->Guard(
            [&](ContainerXMLReader& reader)
            { reader.m_Text.append(text, static_cast<std::size_t>(length)); });
    }

    static void XMLCALL OnCommentText(void* self, const XML_Char* text)
    {
        static_cast<ContainerXMLReader*>(self)->Guard(
            [&](ContainerXMLReader& reader)
            {
                if (reader.m_Value.active && reader.m_Value.handler && reader.m_Value.skipFrom == 0)
                {
                    const std::string comment = reader.ToLatin1(text);
                    reader.CallHandler([&] { reader.m_Value.handler->OnComment(comment); });
                }
            });
    }

    // A document type declaration could declare entities; a container document has none.
    static void XMLCALL OnDoctype(void* self, const XML_Char*, const XML_Char*, const XML_Char*,
                                  int)
    {
        static_cast<ContainerXMLReader*>(self)->Guard(
            [](ContainerXMLReader& reader)
            { reader.Fail("a container document may not have a document type declaration"); });
    }

    template <class Step>
    void Guard(Step&& step)
    {
        if (m_Failure)
        {
            return;
        }
        try
        {
            step(*this);
        }
        catch (...)
        {
            m_Failure = std::current_exception();
            XML_StopParser(m_Parser, XML_FALSE);
        }
    }

    // --- the document's structure ---

    void StartElement(const std::string& name, const Attributes& attributes)
    {
        if (m_Value.active)
        {
            StartElementInValue(name, attributes);
            return;
        }
        FlushContainerText();
        if (m_Root == nullptr && m_Containers.empty())
        {
            StartDocument(name, attributes);
            return;
        }
        const std::string& where = m_Containers.back().path;
        if (name != XML::ENTRY_ELEMENT)
        {
            Fail("unexpected element <" + name + "> in " + Describe(where));
        }
        const std::string key = RequireAttribute(attributes, XML::KEY_ATTRIBUTE, name);
        const std::string typeName = RequireAttribute(attributes, XML::TYPE_ATTRIBUTE, name);
        const std::string path = JoinPath(where, key);
        const bool lockable = FlagAttribute(attributes, XML::LOCKABLE_ATTRIBUTE, path);
        if (typeName == CONTAINER_TYPE_NAME)
        {
            if (m_Containers.size() >= MAX_DEPTH)
            {
                Fail(Kiv::Core::FormatAlertMessage("%1% lies more than %2% containers deep", path,
                                                   MAX_DEPTH));
            }
            m_Containers.push_back({boost::make_shared<ContainerBuilder>(), key, path,
                                    FlagAttribute(attributes, XML::LOCK_ENTRIES_ATTRIBUTE, path)});
            return;
        }
        StartValue(key, typeName, path, lockable, attributes);
    }

    void StartDocument(const std::string& name, const Attributes& attributes)
    {
        if (name != XML::CONTAINER_ELEMENT)
        {
            Fail("the document's root is <" + name + ">, not <" + XML::CONTAINER_ELEMENT + ">");
        }
        const std::string version = RequireAttribute(attributes, VERSION_ATTRIBUTE, name);
        if (version != VERSION)
        {
            Fail("unsupported container document version \"" + version +
                 "\" (this build reads version " + VERSION + ")");
        }
        m_Containers.push_back({boost::make_shared<ContainerBuilder>(), "", "", false});
    }

    void StartValue(const std::string& key, const std::string& typeName, const std::string& path,
                    bool lockable, const Attributes& attributes)
    {
        m_Value = ValueState();
        m_Value.active = true;
        m_Value.key = key;
        m_Value.typeName = typeName;
        m_Value.path = path;
        m_Value.lockable = lockable;
        m_Value.object = MakeSerializableValue(typeName);
        if (!m_Value.object)
        {
            // Another type's value can only be kept as the bytes of its encoded form.
            const std::string encoding = FindAttribute(attributes, XML::ENCODING_ATTRIBUTE);
            if (encoding != Serializer::ENCODING_BASE64)
            {
                Fail(path + " has the type \"" + typeName +
                     "\", which this build can only read in the encoding \"" +
                     Serializer::ENCODING_BASE64 + "\"");
            }
            return;
        }
        if (lockable)
        {
            m_Value.object->EnableDataLocking();
        }
        const XMLAttributes lookup(attributes.begin(), attributes.end());
        CallHandler(
            [&]
            {
                m_Value.handler = m_Value.object->GetSerializer()->GetXMLContentHandler(lookup);
                for (const auto& [attribute, value] : attributes)
                {
                    m_Value.handler->OnAttribute(attribute, value);
                }
                m_Value.handler->OnStartTagContent();
            });
    }

    void StartElementInValue(const std::string& name, const Attributes& attributes)
    {
        FlushValueText();
        if (!m_Value.hasContent.empty())
        {
            m_Value.hasContent.back() = true;
        }
        ++m_Value.depth;
        m_Value.hasContent.push_back(false);
        if (m_Value.skipFrom != 0)
        {
            return;
        }
        if (!m_Value.handler)
        {
            m_Value.skipFrom = m_Value.depth;
            return;
        }
        CallHandler(
            [&]
            {
                if (!m_Value.handler->OnStartTag(name))
                {
                    m_Value.skipFrom = m_Value.depth;
                    return;
                }
                for (const auto& [attribute, value] : attributes)
                {
                    m_Value.handler->OnAttribute(attribute, value);
                }
                m_Value.handler->OnStartTagContent();
            });
    }

    void EndElement(const std::string& name)
    {
        if (m_Value.active)
        {
            FlushValueText();
            if (m_Value.depth == 0)
            {
                FinishValue();
                return;
            }
            const bool empty = !m_Value.hasContent.back();
            m_Value.hasContent.pop_back();
            if (m_Value.skipFrom == 0)
            {
                CallHandler([&] { m_Value.handler->OnEndTag(name, empty); });
            }
            else if (m_Value.skipFrom == m_Value.depth)
            {
                m_Value.skipFrom = 0;
            }
            --m_Value.depth;
            return;
        }
        FlushContainerText();
        ContainerLevel level = std::move(m_Containers.back());
        m_Containers.pop_back();
        if (m_Containers.empty())
        {
            m_Root = level.builder;
            return;
        }
        const auto container = boost::make_shared<DataContainer>(level.locksEntries);
        container->Append(*level.builder);
        m_Containers.back().builder->Store(level.key, container);
    }

    void FinishValue()
    {
        boost::shared_ptr<DataObject> object = m_Value.object;
        if (m_Value.handler)
        {
            CallHandler([&] { m_Value.handler->OnEndContent(); });
        }
        else
        {
            std::vector<char> bytes;
            CallHandler([&] { bytes = XML::DecodeBase64(m_Value.encodedText); });
            object = boost::make_shared<UnboundData>(m_Value.typeName, std::move(bytes),
                                                     m_Value.lockable);
        }
        m_Containers.back().builder->Store(m_Value.key, object);
        m_Value = ValueState();
    }

    // --- text ---

    void FlushValueText()
    {
        if (m_Text.empty())
        {
            return;
        }
        const std::string text = ToLatin1(m_Text);
        m_Text.clear();
        if (m_Value.skipFrom != 0)
        {
            return;
        }
        if (!m_Value.hasContent.empty())
        {
            m_Value.hasContent.back() = true;
        }
        if (!m_Value.handler)
        {
            m_Value.encodedText += text;
            return;
        }
        CallHandler([&] { m_Value.handler->OnTextContent(text); });
    }

    // Between entries only layout white space is expected.
    void FlushContainerText()
    {
        const std::string text = std::move(m_Text);
        m_Text.clear();
        if (text.find_first_not_of(" \t\r\n") != std::string::npos)
        {
            const std::string where = m_Containers.empty() ? "" : m_Containers.back().path;
            Fail("unexpected text \"" + ToLatin1(text) + "\" in " + Describe(where));
        }
    }

    // expat hands over UTF-8; the host's texts are ISO 8859-1.
    std::string ToLatin1(const std::string& utf8)
    {
        std::string latin1;
        latin1.reserve(utf8.size());
        for (std::size_t i = 0; i < utf8.size(); ++i)
        {
            const auto byte = static_cast<unsigned char>(utf8[i]);
            if (byte < 0x80)
            {
                latin1 += static_cast<char>(byte);
            }
            else if ((byte == 0xC2 || byte == 0xC3) && i + 1 < utf8.size())
            {
                const auto next = static_cast<unsigned char>(utf8[++i]);
                latin1 += static_cast<char>(((byte & 0x1F) << 6) | (next & 0x3F));
            }
            else
            {
                Fail("a character of the text \"" + utf8 +
                     "\" lies beyond ISO 8859-1, the character set of the host's texts");
            }
        }
        return latin1;
    }

    // --- helpers ---

    // Runs a serializer's handler; its failures (such as a number that does not parse) are
    // reported with the line and the value they concern.
    template <class Call>
    void CallHandler(Call&& call)
    {
        try
        {
            call();
        }
        catch (const std::exception& error)
        {
            Fail(m_Value.path + " of type \"" + m_Value.typeName + "\": " + error.what());
        }
    }

    static std::string Describe(const std::string& path)
    {
        return path.empty() ? std::string("the top container") : path;
    }

    static std::string FindAttribute(const Attributes& attributes, const std::string& name)
    {
        for (const auto& [attribute, value] : attributes)
        {
            if (attribute == name)
            {
                return value;
            }
        }
        return std::string();
    }

    std::string RequireAttribute(const Attributes& attributes, const std::string& name,
                                 const std::string& element)
    {
        for (const auto& [attribute, value] : attributes)
        {
            if (attribute == name)
            {
                return value;
            }
        }
        Fail("<" + element + "> lacks the attribute \"" + name + "\"");
    }

    bool FlagAttribute(const Attributes& attributes, const std::string& name,
                       const std::string& path)
    {
        const std::string value = FindAttribute(attributes, name);
        if (value.empty() || value == "0")
        {
            return false;
        }
        if (value != "1")
        {
            Fail(path + ": attribute " + name + "=\"" + value + "\" is neither \"0\" nor \"1\"");
        }
        return true;
    }

    [[noreturn]] void Fail(const std::string& message)
    {
        const auto line = m_Parser != nullptr ? XML_GetCurrentLineNumber(m_Parser) : 0;
        DataFileError(
            Kiv::Core::FormatAlertMessage("XML container document, line %1%: %2%", line, message))
            .RaiseError(KIV_CODE_CONTEXT, ALERT_ID, false);
    }

    XML_Parser m_Parser = nullptr;
    std::exception_ptr m_Failure;
    std::vector<ContainerLevel> m_Containers;
    boost::shared_ptr<ContainerBuilder> m_Root;
    ValueState m_Value;
    std::string m_Text; // character data not yet handed on, still UTF-8
};
} // namespace

void DataContainer::OutputData(std::ostream& out, Kiv::Core::XMLWriter& writer) const
{
    ContainerXMLWriter(out, writer).WriteDocument(*this);
}

void ReadContainerXML(std::istream& in, DataContainer& target)
{
    ContainerXMLReader().Read(in, target);
}

} // namespace Kiv::DataCore
