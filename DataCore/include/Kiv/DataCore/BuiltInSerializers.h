#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <boost/core/null_deleter.hpp>
#include <boost/shared_ptr.hpp>

#include "Kiv/DataCore/Data.h"
#include "Kiv/DataCore/Serializer.h"
#include "Kiv/DataCore/ValueTypes.h"

namespace Kiv::DataCore
{

class UnboundData;

// What every built-in serializer shares: the value that owns it (never null; the value owns
// the serializer, so the pointer cannot dangle) and being its own XML content handler.
template <class T>
class OwnedValueSerializer : public BuiltInSerializerBase, public XMLContentHandler
{
public:
    explicit OwnedValueSerializer(Data<T>& owner) : m_Owner(&owner) {}

    DataObject& GetDataObject() override { return *m_Owner; }

protected:
    // The value stays owned by its data object, so the handler must not delete it.
    boost::shared_ptr<XMLContentHandler> SelfAsHandler()
    {
        return boost::shared_ptr<XMLContentHandler>(static_cast<XMLContentHandler*>(this),
                                                    boost::null_deleter());
    }

    Data<T>* m_Owner;
};

// int, long, float and double: the raw bytes in the machine's order, the number as XML text.
template <class DataType>
class BasicBuiltInSerializer : public OwnedValueSerializer<typename DataType::ValueType>
{
public:
    using data_type = typename DataType::ValueType;

    explicit BasicBuiltInSerializer(DataType& owner) : OwnedValueSerializer<data_type>(owner) {}

    std::uint64_t GetDataSize_bytes() const override;
    bool DataSizeIsConstant() const override;
    std::string GetXMLEncoding() override;
    // A byte count other than the value's size is reported as a failed assertion; the read
    // takes the value's size all the same.
    std::uint64_t FromBinary(std::uint64_t p_ui64NumBytes,
                             Kiv::Core::BinaryInputStream& in) override;
    std::uint64_t ToBinary(Kiv::Core::BinaryOutputStream& out) override;
    boost::shared_ptr<XMLContentHandler>
    GetXMLContentHandler(const XMLAttributes& attributes) override;
    void DataToXML(std::ostream& out, Kiv::Core::XMLWriter& writer) override;
    // Throws boost::bad_lexical_cast for a text that is not a number of the type.
    void OnTextContent(const std::string& text) override;
};

// A text: its bytes alone, without length or terminator (the byte count says how many). In XML
// the text itself, or its encoded form when it holds a byte that XML cannot carry.
template <class DataType>
class StringSerializer : public OwnedValueSerializer<std::string>
{
public:
    explicit StringSerializer(DataType& owner) : OwnedValueSerializer<std::string>(owner) {}

    std::uint64_t GetDataSize_bytes() const override;
    bool DataSizeIsConstant() const override;
    std::string GetXMLEncoding() override;
    std::uint64_t FromBinary(std::uint64_t numBytes, Kiv::Core::BinaryInputStream& in) override;
    std::uint64_t ToBinary(Kiv::Core::BinaryOutputStream& out) override;
    boost::shared_ptr<XMLContentHandler>
    GetXMLContentHandler(const XMLAttributes& attributes) override;
    void DataToXML(std::ostream& out, Kiv::Core::XMLWriter& writer) override;
    void OnTextContent(const std::string& text) override;
};

// A list of texts: each as a 4-byte length and its bytes; in XML one "Str" element each, or
// the whole list encoded when one of them holds a byte that XML cannot carry.
template <class Container>
class StringContainerSerializer : public OwnedValueSerializer<Container>
{
public:
    explicit StringContainerSerializer(Data<Container>& owner)
        : OwnedValueSerializer<Container>(owner)
    {
    }

    std::uint64_t GetDataSize_bytes() const override;
    bool DataSizeIsConstant() const override;
    std::string GetXMLEncoding() override;
    std::uint64_t FromBinary(std::uint64_t numBytes, Kiv::Core::BinaryInputStream& in) override;
    std::uint64_t ToBinary(Kiv::Core::BinaryOutputStream& out) override;
    // Starts reading a new list: the value is emptied.
    boost::shared_ptr<XMLContentHandler>
    GetXMLContentHandler(const XMLAttributes& attributes) override;
    void DataToXML(std::ostream& out, Kiv::Core::XMLWriter& writer) override;

    bool OnStartTag(const std::string& name) override;
    void OnEndTag(const std::string& name, bool empty) override;
    void OnTextContent(const std::string& text) override;

private:
    bool IsRepresentableInXML() const;

    bool m_InString = false;
};

// A row-major float matrix: two 32-bit sizes and the elements as raw floats. In XML small
// matrices are readable numbers (when the XML settings allow it), larger ones encoded.
template <class Matrix>
class BuiltInMatrixSerializer : public OwnedValueSerializer<Matrix>
{
public:
    explicit BuiltInMatrixSerializer(Data<Matrix>& owner) : OwnedValueSerializer<Matrix>(owner) {}

    std::uint64_t GetDataSize_bytes() const override;
    bool DataSizeIsConstant() const override;
    std::string GetXMLEncoding() override;
    // The stored sizes must account for numBytes exactly: anything else raises DataFileError
    // before memory for the elements is taken.
    std::uint64_t FromBinary(std::uint64_t numBytes, Kiv::Core::BinaryInputStream& in) override;
    std::uint64_t ToBinary(Kiv::Core::BinaryOutputStream& out) override;
    boost::shared_ptr<XMLContentHandler>
    GetXMLContentHandler(const XMLAttributes& attributes) override;
    void DataToXML(std::ostream& out, Kiv::Core::XMLWriter& writer) override;

    void OnAttribute(const std::string& name, const std::string& value) override;
    bool OnStartTag(const std::string& name) override;
    void OnEndTag(const std::string& name, bool empty) override;
    void OnTextContent(const std::string& text) override;
    // Stores the numbers read; raises DataFileError when their count does not fit the sizes.
    void OnEndContent() override;

private:
    bool WritesPlainText() const;

    std::uint64_t m_PendingSize1 = 0;
    std::uint64_t m_PendingSize2 = 0;
    bool m_InContents = false;
    std::vector<float> m_PendingElements;
};

// A number with a unit: the double's 8 bytes, then the unit's abbreviation as a 4-byte length
// and its bytes. In XML the abbreviation is the attribute "unit" and the number the text, or the
// whole value encoded when the unit text holds a byte that XML cannot carry.
// Reading builds the value from the unit text, so an unknown unit raises XUnitNotFound.
class TUnitizedSerializer : public OwnedValueSerializer<UnitizedDouble>
{
public:
    explicit TUnitizedSerializer(Data<UnitizedDouble>& owner)
        : OwnedValueSerializer<UnitizedDouble>(owner)
    {
    }

    std::uint64_t GetDataSize_bytes() const override;
    bool DataSizeIsConstant() const override;
    std::string GetXMLEncoding() override;
    std::uint64_t FromBinary(std::uint64_t numBytes, Kiv::Core::BinaryInputStream& in) override;
    std::uint64_t ToBinary(Kiv::Core::BinaryOutputStream& out) override;
    boost::shared_ptr<XMLContentHandler>
    GetXMLContentHandler(const XMLAttributes& attributes) override;
    void DataToXML(std::ostream& out, Kiv::Core::XMLWriter& writer) override;

    void OnAttribute(const std::string& name, const std::string& value) override;
    void OnTextContent(const std::string& text) override;
    void OnEndContent() override;

private:
    std::string m_PendingUnit;
    double m_PendingValue = 0.0;
    bool m_HasPendingValue = false;
};

extern template class BasicBuiltInSerializer<Data<int>>;
extern template class BasicBuiltInSerializer<Data<HostLong>>;
extern template class BasicBuiltInSerializer<Data<float>>;
extern template class BasicBuiltInSerializer<Data<double>>;
extern template class StringSerializer<Data<std::string>>;
extern template class StringContainerSerializer<StringList>;
extern template class BuiltInMatrixSerializer<FloatMatrix>;

// --- the built-in types as a whole, for the container formats ---

// Whether typeName names a built-in type whose values can be serialized (every built-in type
// but the list of matrices).
bool IsSerializableBuiltInType(const std::string& typeName);

// A new default value of that type with its serializer; empty for any other name.
boost::shared_ptr<DataObject> MakeSerializableValue(const std::string& typeName);

// BindType<T>() for the type that the stored type name names; empty when it names no
// serializable built-in type, or when binding warned.
boost::shared_ptr<DataObject> BindSerializableType(UnboundData& unbound);

// The serializer that writes object: its own when it has one; for a value of a serializable
// built-in type without one (a wrapper, or a value whose serialization was never enabled), a
// serializer over a temporary value that shares the object's value, so the object itself is
// left as it is. Empty when neither exists. The caller holds object's data lock while it uses
// a borrowed serializer.
boost::shared_ptr<Serializer> FindSerializerFor(const DataObject& object);

} // namespace Kiv::DataCore
