#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace KivBench
{

// A folder of its own under TMPDIR (or /tmp), made once and removed with everything in it.
class TemporaryFolder
{
public:
    explicit TemporaryFolder(const std::string& prefix);
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::string& Path() const { return m_Path; }
    // The path of name inside the folder; the file is removed with the folder.
    std::string FilePath(const std::string& name);

private:
    std::string m_Path;
    std::vector<std::string> m_Files;
};

// The shape of a generated image file.
struct ImageFileLayout
{
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t dataOffset = 4096;
};

// The files the measurements are about.
inline constexpr ImageFileLayout LARGE_IMAGE{4096, 4096, 4096}; // 64 MiB of samples
inline constexpr ImageFileLayout SMALL_IMAGE{512, 512, 4096};   // 1 MiB of samples
inline constexpr std::uint32_t FORCE_LINES = 16384;
inline constexpr std::uint32_t FORCE_SERIES = 2; // 8 values a line

// The sample that generated image files hold at column x of row y.
float ImageSample(std::uint32_t x, std::uint32_t y);

// An image header as an instrument writes it: about forty keys in six sections, CR LF line
// ends, micro signs as the Latin-1 byte B5, ended by "[Data]" and padded with zero bytes up to
// the data offset.
std::string MakeImageHeader(const ImageFileLayout& layout);

// Hands the bytes of an image file (header, then width x height little-endian floats) to sink
// in pieces, so that even a 64 MiB file never sits whole in this process's memory.
void ForEachImageFilePiece(const ImageFileLayout& layout,
                           const std::function<void(const char*, std::size_t)>& sink);

// Writes the image file; returns its size.
std::uint64_t WriteImageFile(const std::string& path, const ImageFileLayout& layout);

// Whether the file holds exactly the bytes WriteImageFile writes for layout.
bool ImageFileMatches(const std::string& path, const ImageFileLayout& layout);

// A force file's header and its data lines: lineCount lines of 4 x seriesCount "%f" values.
struct ForceFileText
{
    std::string header;
    std::string data;
};
ForceFileText MakeForceFile(std::uint32_t lineCount, std::uint32_t seriesCount);
// The value that generated force files hold in column column of line line.
double ForceValue(std::uint32_t line, std::uint32_t column);

void WriteWholeFile(const std::string& path, const std::string& bytes);

// A generated file in the run's folder.
struct PreparedFile
{
    std::string path;
    std::uint64_t size = 0;
    std::uint64_t dataTextBytes = 0; // force files: the bytes after the "[Data]" line
    std::string expectedBytes;       // force files: the whole file
};
PreparedFile PrepareImageFile(const ImageFileLayout& layout, const std::string& name);
PreparedFile PrepareForceFile(std::uint32_t lineCount, std::uint32_t seriesCount,
                              const std::string& name);

// Registers the plug-in's factory with the host once per process, as the module's
// RegisterDataFileTypes does.
void RegisterPelrixFileType();

// The run's temporary folder: main makes it before the benchmarks run and removes it after.
TemporaryFolder& RunFolder();
void SetRunFolder(TemporaryFolder* folder);

} // namespace KivBench
