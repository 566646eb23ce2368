#include "Kiv/Core/XMLWriter.h"

#include <algorithm>

#include "Kiv/Core/CodeContext.h"
#include "Kiv/Core/Error.h"

namespace Kiv::Core
{

namespace
{
const char* const ALERT_ID = "Kiv.Core.XMLWriter";

bool IsNameStart(unsigned char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || c == ':' || c > 127;
}

bool IsNameChar(unsigned char c)
{
    return IsNameStart(c) || (c >= '0' && c <= '9') || c == '-' || c == '.';
}

// Names come from code, not from users, but a bad one would make the whole document
// unreadable, so it is stopped here rather than found by the reader.
void RequireValidName(const std::string& name, const char* what)
{
    bool valid = !name.empty() && IsNameStart(static_cast<unsigned char>(name[0]));
    for (std::size_t i = 1; valid && i < name.size(); ++i)
    {
        valid = IsNameChar(static_cast<unsigned char>(name[i]));
    }
    if (!valid)
    {
        LogicError(FormatAlertMessage("invalid XML %1% name \"%2%\"", what, name))
            .RaiseError(KIV_CODE_CONTEXT, ALERT_ID, false);
    }
}
} // namespace

void XMLWriter::XMLDeclaration(const std::string& encoding)
{
    m_Out << "<?xml version=\"1.0\"";
    if (!encoding.empty())
    {
        m_Out << " encoding=\"" << EscapeAttribute(encoding) << '"';
    }
    m_Out << "?>\n";
}

void XMLWriter::StartElement(const std::string& name)
{
    RequireValidName(name, "element");
    CloseStartTag();
    m_Out << '<' << name;
    m_OpenElements.push_back(name);
    m_StartTagOpen = true;
}

void XMLWriter::Attribute(const std::string& name, const std::string& value)
{
    if (!m_StartTagOpen)
    {
        LogicError(FormatAlertMessage("XML attribute \"%1%\" given outside a start tag", name))
            .RaiseError(KIV_CODE_CONTEXT, ALERT_ID, false);
    }
    RequireValidName(name, "attribute");
    m_Out << ' ' << name << "=\"" << EscapeAttribute(value) << '"';
}

void XMLWriter::Text(const std::string& text)
{
    CloseStartTag();
    m_Out << Escape(text);
}

void XMLWriter::EndElement()
{
    if (m_OpenElements.empty())
    {
        LogicError("XML element ended without one being open")
            .RaiseError(KIV_CODE_CONTEXT, ALERT_ID, false);
    }
    if (m_StartTagOpen)
    {
        m_Out << "/>";
        m_StartTagOpen = false;
    }
    else
    {
        m_Out << "</" << m_OpenElements.back() << '>';
    }
    m_OpenElements.pop_back();
}

void XMLWriter::Tag(const std::string& name, const std::string& text)
{
    StartElement(name);
    Text(text);
    EndElement();
}

std::string XMLWriter::Escape(const std::string& text)
{
    return EscapeMarkup(text, false);
}

std::string XMLWriter::EscapeAttribute(const std::string& value)
{
    return EscapeMarkup(value, true);
}

bool XMLWriter::IsRepresentable(const std::string& text)
{
    return std::none_of(text.begin(), text.end(),
                        [](char c)
                        {
                            const auto byte = static_cast<unsigned char>(c);
                            return byte < 0x20 && byte != '\t' && byte != '\n' && byte != '\r';
                        });
}

std::string XMLWriter::EscapeMarkup(const std::string& text, bool inAttribute)
{
    std::string escaped;
    escaped.reserve(text.size());
    for (const char c : text)
    {
        switch (c)
        {
        case '<':
            escaped += "&lt;";
            break;
        case '>':
            escaped += "&gt;";
            break;
        case '&':
            escaped += "&amp;";
            break;
        case '\'':
            escaped += "&apos;";
            break;
        case '"':
            escaped += "&quot;";
            break;
        // A reader turns a written CR LF or lone CR into LF, and an attribute's tab and LF
        // into blanks; written as references they come back as they were.
        case '\r':
            escaped += "&#13;";
            break;
        case '\t':
            escaped += inAttribute ? "&#9;" : "\t";
            break;
        case '\n':
            escaped += inAttribute ? "&#10;" : "\n";
            break;
        default:
            escaped += c;
            break;
        }
    }
    return escaped;
}

void XMLWriter::CloseStartTag()
{
    if (m_StartTagOpen)
    {
        m_Out << '>';
        m_StartTagOpen = false;
    }
}

} // namespace Kiv::Core
