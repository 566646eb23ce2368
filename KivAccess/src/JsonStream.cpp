#include "Kiv/Access/JsonStream.h"

#include <charconv>
#include <cmath>

#include <nlohmann/json.hpp>

#include "Kiv/Access/ValueView.h"

namespace Kiv::Access
{

namespace
{
// The longest double text is 24 characters; room for a whole short item keeps the check rare.
constexpr std::size_t ITEM_ROOM = 64;
} // namespace

JsonStream::JsonStream(std::ostream& out, std::size_t blockBytes)
    : m_Out(out), m_BlockBytes(blockBytes)
{
    m_Pending.reserve(m_BlockBytes + ITEM_ROOM);
}

JsonStream::~JsonStream()
{
    Flush();
}

JsonStream& JsonStream::Raw(const char* text)
{
    m_Pending += text;
    FlushWhenFull();
    return *this;
}

JsonStream& JsonStream::Raw(char c)
{
    m_Pending += c;
    FlushWhenFull();
    return *this;
}

JsonStream& JsonStream::Indent(int depth)
{
    m_Pending.append(static_cast<std::size_t>(depth) * 2, ' ');
    FlushWhenFull();
    return *this;
}

JsonStream& JsonStream::String(const std::string& utf8)
{
    // Paths and messages of unknown encoding must not stop the output.
    m_Pending +=
        nlohmann::json(utf8).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    FlushWhenFull();
    return *this;
}

JsonStream& JsonStream::Number(double value)
{
    if (!std::isfinite(value))
    {
        return String(FormatNumber(value));
    }
    char text[ITEM_ROOM];
    // The library's own formatter, so that every double reads as in its documents.
    char* const end = nlohmann::detail::to_chars(text, text + sizeof(text), value);
    m_Pending.append(text, static_cast<std::size_t>(end - text));
    FlushWhenFull();
    return *this;
}

template <class Whole>
JsonStream& JsonStream::AppendWhole(Whole value)
{
    char text[ITEM_ROOM];
    const auto result = std::to_chars(text, text + sizeof(text), value);
    m_Pending.append(text, result.ptr);
    FlushWhenFull();
    return *this;
}

JsonStream& JsonStream::Integer(std::int64_t value)
{
    return AppendWhole(value);
}

JsonStream& JsonStream::Unsigned(std::uint64_t value)
{
    return AppendWhole(value);
}

void JsonStream::FlushWhenFull()
{
    if (m_Pending.size() >= m_BlockBytes)
    {
        Flush();
    }
}

void JsonStream::Flush()
{
    if (!m_Pending.empty())
    {
        m_Out.write(m_Pending.data(), static_cast<std::streamsize>(m_Pending.size()));
        m_Pending.clear();
    }
}

} // namespace Kiv::Access
