#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "Kiv/Core/HugePages.h"

namespace KivBench
{

// The least any reader or writer of a file must pay, done with plain system calls: the
// baselines the plug-in is compared with.

struct FreeDeleter
{
    void operator()(void* pointer) const { std::free(pointer); }
};
using MallocBuffer = std::unique_ptr<char, FreeDeleter>;

// Opens path, reads its size bytes with read() into a fresh malloc'd buffer, closes it.
MallocBuffer ReadWholeFile(const std::string& path, std::uint64_t size);

// The physical floor of an open: one read() of the file into a 2 MiB-aligned buffer the kernel
// backs with huge pages, so that neither page faults nor copies through a buffer are paid.
Kiv::Core::HugePageBuffer ReadIntoHugePages(const std::string& path, std::uint64_t size);

// A file opened for writing in place (not truncated), as the plug-in rewrites its files.
class RawOutputFile
{
public:
    explicit RawOutputFile(const std::string& path);
    ~RawOutputFile();
    RawOutputFile(const RawOutputFile&) = delete;
    RawOutputFile& operator=(const RawOutputFile&) = delete;

    // Writes count bytes at the start of the file with write(), then closes it.
    void WriteAllAndClose(const char* bytes, std::uint64_t count);

private:
    int m_Descriptor = -1;
    std::string m_Path;
};

// The whole content of a file.
std::string ReadFileBytes(const std::string& path);

} // namespace KivBench
