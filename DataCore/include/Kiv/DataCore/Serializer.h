#pragma once

#include <cstdint>
#include <istream>
#include <ostream>
#include <string>
#include <unordered_map>

#include <boost/shared_ptr.hpp>

namespace Kiv::Core
{
class BinaryInputStream;
class BinaryOutputStream;
class XMLWriter;
} // namespace Kiv::Core

namespace Kiv::DataCore
{

class DataObject;

// Receives the events of an XML element while a document is read back. The defaults accept
// everything and do nothing.
class XMLContentHandler
{
public:
    virtual ~XMLContentHandler() = default;
    // False means: skip this child element and everything inside it.
    virtual bool OnStartTag(const std::string& name);
    virtual void OnStartTagContent();
    virtual void OnEndTag(const std::string& name, bool empty);
    virtual void OnAttribute(const std::string& name, const std::string& value);
    virtual void OnTextContent(const std::string& text);
    virtual void OnComment(const std::string& text);
    virtual void OnEntityReference(const std::string& name);
    virtual void OnCDataSection(std::istream& data);
    virtual void OnEndContent();
};

using XMLAttributes = std::unordered_map<std::string, std::string>;

// Writes a value to, and reads it from, binary streams and XML documents.
class Serializer
{
public:
    virtual ~Serializer() = default;
    virtual DataObject& GetDataObject() = 0;
    virtual std::uint32_t GetVersion() const = 0;
    virtual std::string GetModule() const = 0;
    virtual std::uint64_t GetDataSize_bytes() const = 0;
    virtual bool DataSizeIsConstant() const = 0;
    // The "encoding" attribute of the value's XML element; empty is the default (plain text).
    virtual std::string GetXMLEncoding();
    virtual std::uint64_t FromBinary(std::uint64_t numBytes, Kiv::Core::BinaryInputStream& in) = 0;
    virtual std::uint64_t ToBinary(Kiv::Core::BinaryOutputStream& out) = 0;
    virtual boost::shared_ptr<XMLContentHandler>
    GetXMLContentHandler(const XMLAttributes& attributes);
    virtual void DataToXML(std::ostream& out, Kiv::Core::XMLWriter& writer);

    static bool IsDefaultEncoding(const std::string& encoding);
    // The host's encoded form: the value's binary bytes in base64.
    static const std::string ENCODING_BASE64;
};

// Version and module shared by the serializers compiled into the data library.
class BuiltInSerializerBase : public Serializer
{
public:
    std::uint32_t GetVersion() const override;
    std::string GetModule() const override;
};

namespace XML
{
// Whether small float collections are written as readable numbers rather than encoded.
bool PlainTextForFloatCollectionsIsEnabled();
void SetPlainTextForFloatCollectionsEnabled(bool enabled);
// The largest element count written as plain text.
std::uint64_t GetMaxScalarElementsForPlainText();
void SetMaxScalarElementsForPlainText(std::uint64_t count);
} // namespace XML

} // namespace Kiv::DataCore
