#pragma once

#include <istream>
#include <string>
#include <vector>

namespace Kiv::DataCore
{

class DataContainer;

// The type name under which sub-containers are written, in the binary and the XML form.
extern const char* const CONTAINER_TYPE_NAME;

// Reads a document written by DataContainer::OutputData(std::ostream&, XMLWriter&) and adds its
// entries to target (Append), replacing equal keys. Values of the built-in types are read
// through their serializers' content handlers; values of other types that were written in the
// encoded form come back as UnboundData for a later BindType. Nothing is added unless the whole
// document was read. Malformed XML, an unknown plain-text type or a value that does not parse
// raises DataFileError naming the line.
void ReadContainerXML(std::istream& in, DataContainer& target);

namespace XML
{
// The names of the container document's elements and attributes.
extern const char* const CONTAINER_ELEMENT; // the document's root
extern const char* const ENTRY_ELEMENT;     // one per value or sub-container
extern const char* const KEY_ATTRIBUTE;
extern const char* const TYPE_ATTRIBUTE;
extern const char* const ENCODING_ATTRIBUTE;
extern const char* const LOCKABLE_ATTRIBUTE;
extern const char* const LOCK_ENTRIES_ATTRIBUTE;

// The encoded form of binary values ("base64"). Decoding ignores XML white space and raises
// DataFileError for any other character outside the alphabet or for bad padding.
std::string EncodeBase64(const std::vector<char>& bytes);
std::vector<char> DecodeBase64(const std::string& text);
} // namespace XML

} // namespace Kiv::DataCore
