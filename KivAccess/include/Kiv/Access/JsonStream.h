#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>

namespace Kiv::Access
{

// JSON text sent to a stream as it is produced, in blocks, so that a dump of any size costs
// one block of memory. Numbers and strings read exactly as the JSON library the other kiv
// outputs use writes them (shortest round-trip doubles, "1.0" for whole numbers, invalid UTF-8
// replaced), so both kinds of output agree byte for byte.
class JsonStream
{
public:
    // The text reaches out in blocks of about blockBytes; the default means few writes of a
    // block that still stays in the cache.
    explicit JsonStream(std::ostream& out, std::size_t blockBytes = std::size_t{1} << 20);
    ~JsonStream();
    JsonStream(const JsonStream&) = delete;
    JsonStream& operator=(const JsonStream&) = delete;

    JsonStream& Raw(const char* text);
    JsonStream& Raw(char c);
    JsonStream& Indent(int depth);
    JsonStream& String(const std::string& utf8);
    // NaN and the infinities, which JSON lacks, become the strings "nan", "inf" and "-inf".
    JsonStream& Number(double value);
    JsonStream& Integer(std::int64_t value);
    JsonStream& Unsigned(std::uint64_t value);
    // Sends what is pending; the destructor does the same.
    void Flush();

private:
    template <class Whole>
    JsonStream& AppendWhole(Whole value);
    void FlushWhenFull();

    std::ostream& m_Out;
    std::size_t m_BlockBytes;
    std::string m_Pending;
};

} // namespace Kiv::Access
