#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace Kiv::Core
{

// Writes an XML document to a stream element by element, escaping texts and attribute values.
// Misuse (an attribute after content, an end without a start, a name that XML does not allow)
// raises LogicError. Bytes above 127 pass through unchanged: the encoding named in the
// declaration is the caller's to choose.
class XMLWriter
{
public:
    explicit XMLWriter(std::ostream& out) : m_Out(out) {}
    XMLWriter(const XMLWriter&) = delete;
    XMLWriter& operator=(const XMLWriter&) = delete;

    // <?xml version="1.0"?>, with encoding="..." when one is given.
    void XMLDeclaration(const std::string& encoding = std::string());
    void StartElement(const std::string& name);
    // Only between StartElement and the element's first content.
    void Attribute(const std::string& name, const std::string& value);
    void Text(const std::string& text);
    // Ends the innermost open element; one without content is written as <name/>.
    void EndElement();
    // An element holding only text.
    void Tag(const std::string& name, const std::string& text);

    // The number of elements started and not yet ended.
    std::size_t GetDepth() const { return m_OpenElements.size(); }

    // Text content: replaces each of < > & ' " by its entity and CR by "&#13;"; every other
    // byte is kept. Other control bytes than tab, LF and CR cannot stand in an XML document at
    // all: a caller with such text must encode it.
    static std::string Escape(const std::string& text);
    // An attribute value: as Escape, and tab and LF as "&#9;" and "&#10;" as well.
    static std::string EscapeAttribute(const std::string& value);
    // Whether text can stand in a document at all: XML has no way, not even a reference, to
    // carry the control bytes 0x00-0x08, 0x0B, 0x0C and 0x0E-0x1F.
    static bool IsRepresentable(const std::string& text);

private:
    static std::string EscapeMarkup(const std::string& text, bool inAttribute);
    // Ends a start tag that may still take attributes, before content follows.
    void CloseStartTag();

    std::ostream& m_Out;
    std::vector<std::string> m_OpenElements;
    bool m_StartTagOpen = false;
};

} // namespace Kiv::Core
