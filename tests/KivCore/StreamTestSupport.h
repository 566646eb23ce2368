#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <ftw.h>
#include <unistd.h>

#include "Kiv/Core/BinaryStream.h"

namespace Kiv::Core::Testing
{

using Bytes = std::vector<unsigned char>;

// A folder of its own for each test, removed with everything in it afterwards.
class TempDir
{
public:
    TempDir()
    {
        const char* base = std::getenv("TMPDIR");
        std::string pattern = std::string(base != nullptr ? base : "/tmp") + "/kivstreams.XXXXXX";
        if (::mkdtemp(pattern.data()) == nullptr)
        {
            throw std::runtime_error("cannot make a temporary folder");
        }
        m_Path = pattern;
    }
    ~TempDir()
    {
        ::nftw(
            m_Path.c_str(),
            [](const char* path, const struct stat*, int, struct FTW*) { return ::remove(path); },
            8, FTW_DEPTH | FTW_PHYS);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    std::string File(const std::string& name) const { return m_Path + "/" + name; }
    const std::string& Path() const { return m_Path; }

private:
    std::string m_Path;
};

// Bytes 0, 1, ..., 255, 0, 1, ...: every byte tells its own position modulo 256.
inline Bytes Pattern(std::size_t size)
{
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i)
    {
        bytes[i] = static_cast<unsigned char>(i);
    }
    return bytes;
}

inline void WriteFileBytes(const std::string& path, const Bytes& bytes)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}

inline Bytes ReadFileBytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline Bytes ToBytes(const std::string& text)
{
    return Bytes(text.begin(), text.end());
}

// An input over bytes in memory that records how much each Read asked for.
class MemoryInputStream : public BinaryInputStream
{
public:
    explicit MemoryInputStream(Bytes bytes) : m_Bytes(std::move(bytes)) {}

    std::uint64_t Read(void* buffer, std::uint64_t count) override
    {
        m_Requests.push_back(count);
        const std::uint64_t left = m_Bytes.size() - std::size_t(m_Pos);
        const std::uint64_t take = std::min(count, left);
        std::copy_n(m_Bytes.begin() + m_Pos, take, static_cast<unsigned char*>(buffer));
        m_Pos += std::int64_t(take);
        return take;
    }
    std::int64_t GetInputPos() const override { return m_Pos; }
    void SetInputPos(std::int64_t offset, EMoveMethod from) override
    {
        const std::int64_t end = std::int64_t(m_Bytes.size());
        m_Pos = (from == FROM_BEGIN ? 0 : from == FROM_CURRENT ? m_Pos : end) + offset;
    }
    std::string GetStreamName() const override { return "memory.bin"; }

    const std::vector<std::uint64_t>& Requests() const { return m_Requests; }

private:
    Bytes m_Bytes;
    std::int64_t m_Pos = 0;
    std::vector<std::uint64_t> m_Requests;
};

} // namespace Kiv::Core::Testing
