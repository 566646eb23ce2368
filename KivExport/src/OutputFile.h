#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace Kiv::Export
{

// An output written as an unnamed file in its final folder (or, where the file system has none,
// under a hidden temporary name beside its final path) and given its final name only when
// complete, so that a partial output never stands under the final name. Dropped without a
// Commit (a failure, an exception), the temporary file is removed.
class OutputFile
{
public:
    // Raises Failure when finalPath exists and overwrite is not set, or when the folder takes no
    // new file.
    OutputFile(std::string finalPath, bool overwrite);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    int Descriptor() const { return m_Descriptor; }
    const std::string& FinalPath() const { return m_FinalPath; }

    // Writes everything or raises a SystemFailure naming the final path.
    void Write(const void* bytes, std::size_t count);
    // Closes the file and gives it its final name. Without overwrite, an output that appeared
    // meanwhile is kept and this raises.
    void Commit();
    [[noreturn]] void FailWrite(int error) const;

private:
    bool CreateUnnamed();
    void CreateHidden();
    void CommitUnnamed();

    std::string m_FinalPath;
    // Empty while the output has no name (or once it has its final one).
    std::string m_TemporaryPath;
    bool m_Unnamed = false;
    bool m_Overwrite;
    int m_Descriptor = -1;
    std::size_t m_Watch;
};

// Collects small writes into large ones.
class BufferedOutput
{
public:
    explicit BufferedOutput(OutputFile& file) : m_File(file) { m_Buffer.reserve(CAPACITY); }
    ~BufferedOutput() = default;
    BufferedOutput(const BufferedOutput&) = delete;
    BufferedOutput& operator=(const BufferedOutput&) = delete;

    void Write(const void* bytes, std::size_t count);
    void Write(const std::string& text) { Write(text.data(), text.size()); }
    void Put(char c);
    void Flush();

private:
    static constexpr std::size_t CAPACITY = 1 << 16;
    OutputFile& m_File;
    std::string m_Buffer;
};

} // namespace Kiv::Export
