#include "Kiv/DataCore/BuiltInSerializers.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <locale>
#include <sstream>
#include <type_traits>

#include <boost/lexical_cast.hpp>
#include <boost/make_shared.hpp>

#include "Kiv/Core/CodeContext.h"
#include "Kiv/Core/DataInputStream.h"
#include "Kiv/Core/DataOutputStream.h"
#include "Kiv/Core/Warning.h"
#include "Kiv/Core/XMLWriter.h"
#include "Kiv/DataCore/Alerts.h"
#include "Kiv/DataCore/ContainerXML.h"
#include "Kiv/DataCore/UnboundData.h"

namespace Kiv::DataCore
{

namespace
{
const char* const ALERT_ID = "Kiv.DataCore.Serializer";

// Texts shorter than this are read through a buffer on the stack.
constexpr std::uint64_t SHORT_TEXT_BYTES = 256;
// Byte counts come from streams and may be garbage: longer payloads are read in pieces of this
// size, so memory grows only with bytes that really arrive.
constexpr std::uint64_t READ_CHUNK_BYTES = 1024 * 1024;

// Whether a value element's attributes name a form other than the serializer's readable one.
bool NamesAnEncodedForm(const XMLAttributes& attributes)
{
    const auto encoding = attributes.find(XML::ENCODING_ATTRIBUTE);
    return encoding != attributes.end() && !Serializer::IsDefaultEncoding(encoding->second);
}

[[noreturn]] void RaiseFormatError(const std::string& message)
{
    DataFileError(message).RaiseError(KIV_CODE_CONTEXT, ALERT_ID, false);
}

std::string ReadText(Kiv::Core::DataInputStream& in, std::uint64_t count)
{
    if (count < SHORT_TEXT_BYTES)
    {
        char buffer[SHORT_TEXT_BYTES];
        in.ReadFully(buffer, count);
        return std::string(buffer, static_cast<std::size_t>(count));
    }
    std::string text;
    while (text.size() < count)
    {
        const std::size_t done = text.size();
        const auto piece = static_cast<std::size_t>(std::min(count - done, READ_CHUNK_BYTES));
        text.resize(done + piece);
        in.ReadFully(&text[done], piece);
    }
    return text;
}

// Numbers in XML must read back to the same bits, whatever the program's global locale.
template <class T>
std::string FormatExactly(T value)
{
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text.precision(std::numeric_limits<T>::max_digits10);
    text << value;
    return text.str();
}

bool IsSeparator(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

// Reads an XML size attribute: a whole number that fits the 32 bits of the binary form.
std::uint64_t ParseMatrixSize(const std::string& name, const std::string& text)
{
    const auto size = boost::lexical_cast<std::int64_t>(text);
    if (size < 0 || size > std::numeric_limits<std::uint32_t>::max())
    {
        RaiseFormatError("matrix " + name + " \"" + text + "\" is out of range");
    }
    return static_cast<std::uint64_t>(size);
}

UnitizedDouble MakeUnitized(double value, const std::string& unitText)
{
    return unitText.empty() ? UnitizedDouble(value) : UnitizedDouble(value, unitText);
}

const std::string& AbbreviationOf(const UnitizedDouble& value)
{
    static const std::string none;
    return value.GetUnit() ? value.GetUnit()->GetAbbreviation() : none;
}
} // namespace

// --- int, long, float, double ---

template <class DataType>
std::uint64_t BasicBuiltInSerializer<DataType>::GetDataSize_bytes() const
{
    return sizeof(data_type);
}

template <class DataType>
bool BasicBuiltInSerializer<DataType>::DataSizeIsConstant() const
{
    return true;
}

template <class DataType>
std::string BasicBuiltInSerializer<DataType>::GetXMLEncoding()
{
    return std::string();
}

template <class DataType>
std::uint64_t BasicBuiltInSerializer<DataType>::FromBinary(std::uint64_t p_ui64NumBytes,
                                                           Kiv::Core::BinaryInputStream& in)
{
    const auto lock = this->m_Owner->GetDataLock();
    if (sizeof(data_type) != p_ui64NumBytes)
    {
        // The file and line are the ones this assertion has always been reported with.
        Kiv::Core::AssertFailed(
            "sizeof(data_type) == p_ui64NumBytes",
            Kiv::Core::CodeContext("DataCore/BuiltInDataObjects", 204, KIV_SOURCE_TIME_STAMP,
                                   Kiv::Core::ShortFunctionName(__PRETTY_FUNCTION__),
                                   __PRETTY_FUNCTION__));
    }
    data_type value{};
    Kiv::Core::DataInputStream(in).ReadFully(&value, sizeof(value));
    this->m_Owner->Value() = value;
    return GetDataSize_bytes();
}

template <class DataType>
std::uint64_t BasicBuiltInSerializer<DataType>::ToBinary(Kiv::Core::BinaryOutputStream& out)
{
    const auto lock = this->m_Owner->GetDataLock();
    Kiv::Core::DataOutputStream(out) << this->m_Owner->Value();
    return GetDataSize_bytes();
}

template <class DataType>
boost::shared_ptr<XMLContentHandler>
BasicBuiltInSerializer<DataType>::GetXMLContentHandler(const XMLAttributes&)
{
    return this->SelfAsHandler();
}

template <class DataType>
void BasicBuiltInSerializer<DataType>::DataToXML(std::ostream&, Kiv::Core::XMLWriter& writer)
{
    const auto lock = this->m_Owner->GetDataLock();
    writer.Text(boost::lexical_cast<std::string>(this->m_Owner->Value()));
}

template <class DataType>
void BasicBuiltInSerializer<DataType>::OnTextContent(const std::string& text)
{
    if (text.empty())
    {
        return;
    }
    const auto value = boost::lexical_cast<data_type>(text);
    const auto lock = this->m_Owner->GetDataLock();
    this->m_Owner->Value() = value;
}

// --- text ---

template <class DataType>
std::uint64_t StringSerializer<DataType>::GetDataSize_bytes() const
{
    const auto lock = m_Owner->GetDataLock();
    return m_Owner->Value().size();
}

template <class DataType>
bool StringSerializer<DataType>::DataSizeIsConstant() const
{
    return false;
}

template <class DataType>
std::string StringSerializer<DataType>::GetXMLEncoding()
{
    const auto lock = m_Owner->GetDataLock();
    return Kiv::Core::XMLWriter::IsRepresentable(m_Owner->Value()) ? std::string()
                                                                   : Serializer::ENCODING_BASE64;
}

template <class DataType>
std::uint64_t StringSerializer<DataType>::FromBinary(std::uint64_t numBytes,
                                                     Kiv::Core::BinaryInputStream& in)
{
    const auto lock = m_Owner->GetDataLock();
    Kiv::Core::DataInputStream data(in);
    m_Owner->Value() = ReadText(data, numBytes);
    return numBytes;
}

template <class DataType>
std::uint64_t StringSerializer<DataType>::ToBinary(Kiv::Core::BinaryOutputStream& out)
{
    const auto lock = m_Owner->GetDataLock();
    const std::string& text = m_Owner->Value();
    out.Write(text.data(), text.size());
    return text.size();
}

template <class DataType>
boost::shared_ptr<XMLContentHandler>
StringSerializer<DataType>::GetXMLContentHandler(const XMLAttributes& attributes)
{
    if (NamesAnEncodedForm(attributes))
    {
        return Serializer::GetXMLContentHandler(attributes);
    }
    return SelfAsHandler();
}

template <class DataType>
void StringSerializer<DataType>::DataToXML(std::ostream& out, Kiv::Core::XMLWriter& writer)
{
    const auto lock = m_Owner->GetDataLock();
    if (!Kiv::Core::XMLWriter::IsRepresentable(m_Owner->Value()))
    {
        Serializer::DataToXML(out, writer);
        return;
    }
    writer.Text(m_Owner->Value());
}

template <class DataType>
void StringSerializer<DataType>::OnTextContent(const std::string& text)
{
    if (text.empty())
    {
        return;
    }
    const auto lock = m_Owner->GetDataLock();
    m_Owner->Value() = text;
}

// --- list of texts ---

template <class Container>
std::uint64_t StringContainerSerializer<Container>::GetDataSize_bytes() const
{
    const auto lock = this->m_Owner->GetDataLock();
    std::uint64_t size = 0;
    for (const auto& text : this->m_Owner->Value())
    {
        size += text.size() + 4;
    }
    return size;
}

template <class Container>
bool StringContainerSerializer<Container>::DataSizeIsConstant() const
{
    return false;
}

template <class Container>
bool StringContainerSerializer<Container>::IsRepresentableInXML() const
{
    const auto lock = this->m_Owner->GetDataLock();
    const Container& texts = this->m_Owner->Value();
    return std::all_of(texts.begin(), texts.end(), &Kiv::Core::XMLWriter::IsRepresentable);
}

template <class Container>
std::string StringContainerSerializer<Container>::GetXMLEncoding()
{
    return IsRepresentableInXML() ? std::string() : Serializer::ENCODING_BASE64;
}

template <class Container>
std::uint64_t StringContainerSerializer<Container>::FromBinary(std::uint64_t numBytes,
                                                               Kiv::Core::BinaryInputStream& in)
{
    const auto lock = this->m_Owner->GetDataLock();
    Kiv::Core::DataInputStream data(in);
    Container texts;
    std::uint64_t consumed = 0;
    while (consumed < numBytes)
    {
        std::string text;
        data >> text;
        consumed += text.size() + 4;
        texts.push_back(std::move(text));
    }
    this->m_Owner->Value() = std::move(texts);
    return consumed;
}

template <class Container>
std::uint64_t StringContainerSerializer<Container>::ToBinary(Kiv::Core::BinaryOutputStream& out)
{
    const auto lock = this->m_Owner->GetDataLock();
    Kiv::Core::DataOutputStream data(out);
    std::uint64_t written = 0;
    for (const auto& text : this->m_Owner->Value())
    {
        data << text;
        written += text.size() + 4;
    }
    return written;
}

template <class Container>
boost::shared_ptr<XMLContentHandler>
StringContainerSerializer<Container>::GetXMLContentHandler(const XMLAttributes& attributes)
{
    if (NamesAnEncodedForm(attributes))
    {
        return Serializer::GetXMLContentHandler(attributes);
    }
    const auto lock = this->m_Owner->GetDataLock();
    this->m_Owner->Value().clear();
    m_InString = false;
    return this->SelfAsHandler();
}

template <class Container>
void StringContainerSerializer<Container>::DataToXML(std::ostream& out,
                                                     Kiv::Core::XMLWriter& writer)
{
    const auto lock = this->m_Owner->GetDataLock();
    if (!IsRepresentableInXML())
    {
        Serializer::DataToXML(out, writer);
        return;
    }
    for (const auto& text : this->m_Owner->Value())
    {
        writer.Tag("Str", text);
    }
}

template <class Container>
bool StringContainerSerializer<Container>::OnStartTag(const std::string& name)
{
    if (name != "Str" || m_InString)
    {
        return false;
    }
    // An empty element brings no text but is still a string of the list.
    const auto lock = this->m_Owner->GetDataLock();
    this->m_Owner->Value().emplace_back();
    m_InString = true;
    return true;
}

template <class Container>
void StringContainerSerializer<Container>::OnEndTag(const std::string& name, bool)
{
    if (name == "Str")
    {
        m_InString = false;
    }
}

template <class Container>
void StringContainerSerializer<Container>::OnTextContent(const std::string& text)
{
    if (!m_InString)
    {
        return;
    }
    const auto lock = this->m_Owner->GetDataLock();
    this->m_Owner->Value().back() += text;
}

// --- float matrix ---

template <class Matrix>
std::uint64_t BuiltInMatrixSerializer<Matrix>::GetDataSize_bytes() const
{
    const auto lock = this->m_Owner->GetDataLock();
    const Matrix& matrix = this->m_Owner->Value();
    return 8 + 4 * static_cast<std::uint64_t>(matrix.size1()) * matrix.size2();
}

template <class Matrix>
bool BuiltInMatrixSerializer<Matrix>::DataSizeIsConstant() const
{
    return false;
}

template <class Matrix>
bool BuiltInMatrixSerializer<Matrix>::WritesPlainText() const
{
    const auto lock = this->m_Owner->GetDataLock();
    const Matrix& matrix = this->m_Owner->Value();
    return XML::PlainTextForFloatCollectionsIsEnabled() &&
           static_cast<std::uint64_t>(matrix.size1()) * matrix.size2() <=
               XML::GetMaxScalarElementsForPlainText();
}

template <class Matrix>
std::string BuiltInMatrixSerializer<Matrix>::GetXMLEncoding()
{
    return WritesPlainText() ? std::string() : Serializer::GetXMLEncoding();
}

template <class Matrix>
std::uint64_t BuiltInMatrixSerializer<Matrix>::FromBinary(std::uint64_t numBytes,
                                                          Kiv::Core::BinaryInputStream& in)
{
    using Element = typename Matrix::value_type;
    static_assert(sizeof(Element) == 4, "the binary form holds 4-byte elements");
    const auto lock = this->m_Owner->GetDataLock();
    if (numBytes < 8)
    {
        RaiseFormatError(Kiv::Core::FormatAlertMessage(
            "a matrix needs at least 8 bytes for its sizes, the value holds %1%", numBytes));
    }
    Kiv::Core::DataInputStream data(in);
    std::uint32_t size1 = 0;
    std::uint32_t size2 = 0;
    data.ReadFully(&size1, sizeof(size1));
    data.ReadFully(&size2, sizeof(size2));
    // Sizes come from the stream: they must account for the byte count exactly, and nothing
    // is allocated before they do.
    const std::uint64_t count = static_cast<std::uint64_t>(size1) * size2;
    if (count != (numBytes - 8) / 4 || (numBytes - 8) % 4 != 0)
    {
        RaiseFormatError(Kiv::Core::FormatAlertMessage(
            "a matrix of %1% x %2% floats does not fit the %3% bytes of its value", size1, size2,
            numBytes));
    }
    // Read in pieces: a byte count that the stream cannot back fails before it is allocated.
    std::vector<Element> elements;
    while (elements.size() < count)
    {
        const std::size_t done = elements.size();
        const auto piece = static_cast<std::size_t>(
            std::min<std::uint64_t>(count - done, READ_CHUNK_BYTES / sizeof(Element)));
        elements.resize(done + piece);
        data.ReadFully(elements.data() + done, piece * sizeof(Element));
    }
    Matrix& matrix = this->m_Owner->Value();
    if (matrix.size1() != size1 || matrix.size2() != size2)
    {
        matrix.resize(size1, size2, false);
    }
    std::copy(elements.begin(), elements.end(), matrix.data().begin());
    return numBytes;
}

template <class Matrix>
std::uint64_t BuiltInMatrixSerializer<Matrix>::ToBinary(Kiv::Core::BinaryOutputStream& out)
{
    const auto lock = this->m_Owner->GetDataLock();
    const Matrix& matrix = this->m_Owner->Value();
    const std::uint64_t limit = std::numeric_limits<int>::max();
    if (matrix.size1() > limit || matrix.size2() > limit)
    {
        RaiseFormatError(Kiv::Core::FormatAlertMessage(
            "a matrix of %1% x %2% floats is too large for its binary form", matrix.size1(),
            matrix.size2()));
    }
    Kiv::Core::DataOutputStream data(out);
    data << static_cast<int>(matrix.size1()) << static_cast<int>(matrix.size2());
    const std::uint64_t count = static_cast<std::uint64_t>(matrix.size1()) * matrix.size2();
    if (count > 0)
    {
        data.Write(&matrix.data()[0], count * sizeof(typename Matrix::value_type));
    }
    return 8 + 4 * count;
}

template <class Matrix>
boost::shared_ptr<XMLContentHandler>
BuiltInMatrixSerializer<Matrix>::GetXMLContentHandler(const XMLAttributes& attributes)
{
    if (NamesAnEncodedForm(attributes))
    {
        return Serializer::GetXMLContentHandler(attributes);
    }
    m_PendingSize1 = 0;
    m_PendingSize2 = 0;
    m_InContents = false;
    m_PendingElements.clear();
    return this->SelfAsHandler();
}

template <class Matrix>
void BuiltInMatrixSerializer<Matrix>::DataToXML(std::ostream& out, Kiv::Core::XMLWriter& writer)
{
    const auto lock = this->m_Owner->GetDataLock();
    if (!WritesPlainText())
    {
        Serializer::DataToXML(out, writer);
        return;
    }
    const Matrix& matrix = this->m_Owner->Value();
    writer.Attribute("size1", std::to_string(matrix.size1()));
    writer.Attribute("size2", std::to_string(matrix.size2()));
    std::string numbers;
    for (std::size_t row = 0; row < matrix.size1(); ++row)
    {
        for (std::size_t column = 0; column < matrix.size2(); ++column)
        {
            if (!numbers.empty())
            {
                numbers += ' ';
            }
            numbers += FormatExactly(matrix(row, column));
        }
    }
    writer.Tag("Contents", numbers);
}

template <class Matrix>
void BuiltInMatrixSerializer<Matrix>::OnAttribute(const std::string& name, const std::string& value)
{
    if (name == "size1")
    {
        m_PendingSize1 = ParseMatrixSize(name, value);
    }
    else if (name == "size2")
    {
        m_PendingSize2 = ParseMatrixSize(name, value);
    }
}

template <class Matrix>
bool BuiltInMatrixSerializer<Matrix>::OnStartTag(const std::string& name)
{
    if (name != "Contents" || m_InContents)
    {
        return false;
    }
    m_InContents = true;
    return true;
}

template <class Matrix>
void BuiltInMatrixSerializer<Matrix>::OnEndTag(const std::string& name, bool)
{
    if (name == "Contents")
    {
        m_InContents = false;
    }
}

template <class Matrix>
void BuiltInMatrixSerializer<Matrix>::OnTextContent(const std::string& text)
{
    if (!m_InContents)
    {
        return;
    }
    const std::uint64_t count = m_PendingSize1 * m_PendingSize2;
    std::size_t pos = 0;
    while (pos < text.size())
    {
        if (IsSeparator(text[pos]))
        {
            ++pos;
            continue;
        }
        std::size_t end = pos;
        while (end < text.size() && !IsSeparator(text[end]))
        {
            ++end;
        }
        // Checked before storing, so a text longer than the sizes cannot grow memory.
        if (m_PendingElements.size() >= count)
        {
            RaiseFormatError(Kiv::Core::FormatAlertMessage(
                "a matrix of %1% x %2% floats holds more than %3% numbers", m_PendingSize1,
                m_PendingSize2, count));
        }
        m_PendingElements.push_back(
            boost::lexical_cast<typename Matrix::value_type>(text.substr(pos, end - pos)));
        pos = end;
    }
}

template <class Matrix>
void BuiltInMatrixSerializer<Matrix>::OnEndContent()
{
    const std::uint64_t count = m_PendingSize1 * m_PendingSize2;
    if (m_PendingElements.size() != count)
    {
        RaiseFormatError(Kiv::Core::FormatAlertMessage(
            "a matrix of %1% x %2% floats needs %3% numbers, its text holds %4%", m_PendingSize1,
            m_PendingSize2, count, m_PendingElements.size()));
    }
    const auto lock = this->m_Owner->GetDataLock();
    Matrix& matrix = this->m_Owner->Value();
    if (matrix.size1() != m_PendingSize1 || matrix.size2() != m_PendingSize2)
    {
        matrix.resize(static_cast<std::size_t>(m_PendingSize1),
                      static_cast<std::size_t>(m_PendingSize2), false);
    }
    std::copy(m_PendingElements.begin(), m_PendingElements.end(), matrix.data().begin());
    m_PendingElements.clear();
}

// --- number with unit ---

std::uint64_t TUnitizedSerializer::GetDataSize_bytes() const
{
    const auto lock = m_Owner->GetDataLock();
    return 8 + 4 + AbbreviationOf(m_Owner->Value()).size();
}

bool TUnitizedSerializer::DataSizeIsConstant() const
{
    return false;
}

std::string TUnitizedSerializer::GetXMLEncoding()
{
    // Blanks around a unit do not hide it, and a vertical tab or form feed counts as one.
    const auto lock = m_Owner->GetDataLock();
    return Kiv::Core::XMLWriter::IsRepresentable(AbbreviationOf(m_Owner->Value()))
               ? std::string()
               : Serializer::ENCODING_BASE64;
}

std::uint64_t TUnitizedSerializer::FromBinary(std::uint64_t numBytes,
                                              Kiv::Core::BinaryInputStream& in)
{
    const auto lock = m_Owner->GetDataLock();
    if (numBytes < 12)
    {
        RaiseFormatError(Kiv::Core::FormatAlertMessage(
            "a value with unit needs at least 12 bytes, it holds %1%", numBytes));
    }
    Kiv::Core::DataInputStream data(in);
    double number = 0.0;
    std::uint32_t unitLength = 0;
    data >> number;
    data.ReadFully(&unitLength, sizeof(unitLength));
    if (numBytes - 12 != unitLength)
    {
        RaiseFormatError(Kiv::Core::FormatAlertMessage(
            "a value with unit of %1% bytes cannot hold a unit text of %2% bytes", numBytes,
            unitLength));
    }
    m_Owner->Value() = MakeUnitized(number, ReadText(data, unitLength));
    return numBytes;
}

std::uint64_t TUnitizedSerializer::ToBinary(Kiv::Core::BinaryOutputStream& out)
{
    const auto lock = m_Owner->GetDataLock();
    const UnitizedDouble& value = m_Owner->Value();
    const std::string& unit = AbbreviationOf(value);
    Kiv::Core::DataOutputStream(out) << value.GetValue() << unit;
    return 8 + 4 + unit.size();
}

boost::shared_ptr<XMLContentHandler>
TUnitizedSerializer::GetXMLContentHandler(const XMLAttributes& attributes)
{
    if (NamesAnEncodedForm(attributes))
    {
        return Serializer::GetXMLContentHandler(attributes);
    }
    m_PendingUnit.clear();
    m_PendingValue = 0.0;
    m_HasPendingValue = false;
    return SelfAsHandler();
}

void TUnitizedSerializer::DataToXML(std::ostream& out, Kiv::Core::XMLWriter& writer)
{
    const auto lock = m_Owner->GetDataLock();
    const UnitizedDouble& value = m_Owner->Value();
    const std::string& unit = AbbreviationOf(value);
    if (!Kiv::Core::XMLWriter::IsRepresentable(unit))
    {
        Serializer::DataToXML(out, writer);
        return;
    }
    if (!unit.empty())
    {
        writer.Attribute("unit", unit);
    }
    writer.Text(FormatExactly(value.GetValue()));
}

void TUnitizedSerializer::OnAttribute(const std::string& name, const std::string& value)
{
    if (name == "unit")
    {
        m_PendingUnit = value;
    }
}

void TUnitizedSerializer::OnTextContent(const std::string& text)
{
    if (!text.empty())
    {
        m_PendingValue = boost::lexical_cast<double>(text);
        m_HasPendingValue = true;
    }
}

void TUnitizedSerializer::OnEndContent()
{
    const auto lock = m_Owner->GetDataLock();
    UnitizedDouble& value = m_Owner->Value();
    value = MakeUnitized(m_HasPendingValue ? m_PendingValue : value.GetValue(), m_PendingUnit);
}

template class BasicBuiltInSerializer<Data<int>>;
template class BasicBuiltInSerializer<Data<HostLong>>;
template class BasicBuiltInSerializer<Data<float>>;
template class BasicBuiltInSerializer<Data<double>>;
template class StringSerializer<Data<std::string>>;
template class StringContainerSerializer<StringList>;
template class BuiltInMatrixSerializer<FloatMatrix>;

// --- the built-in types as a whole ---

namespace
{
template <class... Types>
struct TypeList
{
};

// Every built-in type with a serializer; the list of matrices has none.
using SerializableTypes =
    TypeList<int, HostLong, float, double, std::string, UnitizedDouble, StringList, FloatMatrix>;

// Calls visit with a null T* for each type in turn until one call returns true.
template <class Visitor, class... Types>
bool VisitUntil(TypeList<Types...>, Visitor&& visit)
{
    return (visit(static_cast<Types*>(nullptr)) || ...);
}

template <class Tag>
using TypeOf = std::remove_pointer_t<Tag>;
} // namespace

bool IsSerializableBuiltInType(const std::string& typeName)
{
    return VisitUntil(SerializableTypes(), [&](auto* tag)
                      { return ValueTraits<TypeOf<decltype(tag)>>::TypeName() == typeName; });
}

boost::shared_ptr<DataObject> MakeSerializableValue(const std::string& typeName)
{
    boost::shared_ptr<DataObject> made;
    VisitUntil(SerializableTypes(),
               [&](auto* tag)
               {
                   using T = TypeOf<decltype(tag)>;
                   if (ValueTraits<T>::TypeName() != typeName)
                   {
                       return false;
                   }
                   const auto value = boost::make_shared<Data<T>>();
                   value->CreateSerializer();
                   made = value;
                   return true;
               });
    return made;
}

boost::shared_ptr<DataObject> BindSerializableType(UnboundData& unbound)
{
    boost::shared_ptr<DataObject> bound;
    VisitUntil(SerializableTypes(),
               [&](auto* tag)
               {
                   using T = TypeOf<decltype(tag)>;
                   if (ValueTraits<T>::TypeName() != unbound.GetStoredTypeName())
                   {
                       return false;
                   }
                   bound = unbound.template BindType<T>();
                   return true;
               });
    return bound;
}

boost::shared_ptr<Serializer> FindSerializerFor(const DataObject& object)
{
    boost::shared_ptr<Serializer> serializer = object.GetSerializer();
    if (serializer)
    {
        return serializer;
    }
    VisitUntil(SerializableTypes(),
               [&](auto* tag)
               {
                   using T = TypeOf<decltype(tag)>;
                   const auto* wrapper = dynamic_cast<const GenericWrapper<T>*>(&object);
                   if (wrapper == nullptr)
                   {
                       return false;
                   }
                   const boost::shared_ptr<T> value = wrapper->GetDataReference();
                   if (value)
                   {
                       const auto borrower = boost::make_shared<Data<T>>();
                       borrower->SetDataReference(value);
                       borrower->CreateSerializer();
                       // Aliasing: the serializer keeps its borrowing value alive, which owns it.
                       serializer =
                           boost::shared_ptr<Serializer>(borrower, borrower->GetSerializer().get());
                   }
                   return true;
               });
    return serializer;
}

} // namespace Kiv::DataCore
