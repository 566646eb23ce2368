#include "BaselineIO.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <unistd.h>

namespace KivBench
{

namespace
{
[[noreturn]] void Fail(const std::string& what, const std::string& path)
{
    throw std::runtime_error("cannot " + what + " " + path + ": " + std::strerror(errno));
}
} // namespace

namespace
{
// read() until size bytes are in, as a reader of a regular file must loop.
void ReadAll(const std::string& path, char* buffer, std::uint64_t size)
{
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
    {
        Fail("open", path);
    }
    std::uint64_t done = 0;
    while (done < size)
    {
        const ssize_t got = ::read(descriptor, buffer + done, size - done);
        if (got <= 0)
        {
            ::close(descriptor);
            Fail("read", path);
        }
        done += static_cast<std::uint64_t>(got);
    }
    ::close(descriptor);
}
} // namespace

MallocBuffer ReadWholeFile(const std::string& path, std::uint64_t size)
{
    MallocBuffer buffer(static_cast<char*>(std::malloc(size ? size : 1)));
    if (!buffer)
    {
        throw std::bad_alloc();
    }
    ReadAll(path, buffer.get(), size);
    return buffer;
}

Kiv::Core::HugePageBuffer ReadIntoHugePages(const std::string& path, std::uint64_t size)
{
    auto buffer = Kiv::Core::AllocateHugePageBuffer(static_cast<std::size_t>(size));
    ReadAll(path, buffer.get(), size);
    return buffer;
}

RawOutputFile::RawOutputFile(const std::string& path)
    : m_Descriptor(::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644)), m_Path(path)
{
    if (m_Descriptor < 0)
    {
        Fail("open", path);
    }
}

RawOutputFile::~RawOutputFile()
{
    if (m_Descriptor >= 0)
    {
        ::close(m_Descriptor);
    }
}

void RawOutputFile::WriteAllAndClose(const char* bytes, std::uint64_t count)
{
    std::uint64_t done = 0;
    while (done < count)
    {
        const ssize_t put = ::write(m_Descriptor, bytes + done, count - done);
        if (put <= 0)
        {
            Fail("write", m_Path);
        }
        done += static_cast<std::uint64_t>(put);
    }
    const int descriptor = m_Descriptor;
    m_Descriptor = -1;
    if (::close(descriptor) != 0)
    {
        Fail("close", m_Path);
    }
}

std::string ReadFileBytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

} // namespace KivBench
