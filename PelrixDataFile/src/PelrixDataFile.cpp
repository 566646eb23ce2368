#include "Pelrix/PelrixDataFile.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Kiv/Core/ScopedDescriptor.h"
#include "PelrixIdentity.h"

namespace Pelrix
{

using Kiv::Core::BinaryFileStream;
using Kiv::Core::Elapse;
using Kiv::Core::Lock;

const std::string PelrixDataFile::FILE_TYPE = "Pelrix Data File";
const std::string PelrixDataFile::FILE_DESCRIPTION = "Pelrix SPM Image File Format";
const std::uint16_t PelrixDataFile::VERSION = 1;

namespace
{
// Up to size bytes; 0 at the end of the file, or when it cannot be read.
std::size_t ReadSome(int descriptor, char* into, std::size_t size)
{
    for (;;)
    {
        const ssize_t got = ::read(descriptor, into, size);
        if (got >= 0)
        {
            return static_cast<std::size_t>(got);
        }
        if (errno != EINTR)
        {
            return 0;
        }
    }
}

BinaryFileStream::EMode StreamModeFor(int access)
{
    switch (access)
    {
    case Kiv::DataCore::DataFile::ACCESS_READ:
    case Kiv::DataCore::DataFile::ACCESS_READ_SHARED:
        return BinaryFileStream::READ_MODE;
    case Kiv::DataCore::DataFile::ACCESS_WRITE:
        return BinaryFileStream::WRITE_MODE;
    default:
        return BinaryFileStream::READ_WRITE_MODE;
    }
}

BinaryFileStream::EOpenBehavior StreamBehaviorFor(int behavior)
{
    return behavior >= 0 && behavior <= 2 ? static_cast<BinaryFileStream::EOpenBehavior>(behavior)
                                          : BinaryFileStream::OPEN_EXISTING_TRIM_ON_CLOSE;
}
} // namespace

PelrixDataFile::PelrixDataFile()
{
    InitHeaderSectionsTypeMaps();
}

PelrixDataFile::PelrixDataFile(const std::string& fileName, EAccess access, EOpenBehavior behavior)
    : PelrixDataFile()
{
    Open(fileName, access, behavior);
}

PelrixDataFile::~PelrixDataFile()
{
    if (!IsOpen())
    {
        return;
    }
    try
    {
        Close();
    }
    catch (...)
    {
        // A destructor cannot report a failed save; Close called directly does.
    }
}

bool PelrixDataFile::Open(const std::string& fileName, EAccess access, EOpenBehavior behavior)
{
    Lock lock(BeginDataAccess(), Elapse(Elapse::INFINITE, Elapse::SECONDS));
    if (IsOpen())
    {
        Close();
    }
    m_Access = access;
    if (!m_FileStream.TryOpen(fileName, StreamModeFor(access), StreamBehaviorFor(behavior)))
    {
        return IsOpen();
    }
    m_InputStream = boost::make_shared<Kiv::Core::BufferedBinaryInputStream>(
        m_FileStream, Names::STREAM_BUFFER_SIZE);
    m_OutputStream = boost::make_shared<BufferedBinaryOutputStreamWithByteCounter>(
        m_FileStream, Names::STREAM_BUFFER_SIZE);
    m_FileSize = m_FileStream.GetSize();
    try
    {
        m_UnkeptContent.clear();
        m_UnkeptOverflow = 0;
        if (access != ACCESS_WRITE && m_FileSize != 0)
        {
            ReadFileContents();
        }
        StorePelrixFileOverviewInfo();
        PublishUnkeptContent();
    }
    catch (...)
    {
        // A file that could not be read must never be written back from a half-built tree:
        // forget the changes reading made and close before the error goes on.
        m_ContentModified = false;
        CloseFileAndStreams();
        throw;
    }
    m_ContentModified = false;
    return IsOpen();
}

void PelrixDataFile::ReadFileContents()
{
    // Every name holding a "[" is a section the reader may fill (header sections, "[Data]").
    // A value a caller stored under such a name would leave the reader without a container to
    // fill, so it ends the open here rather than in a null section further down.
    for (const auto& entry : GetEntries())
    {
        if (entry.first.find('[') != std::string::npos &&
            !boost::dynamic_pointer_cast<Kiv::DataCore::DataContainer>(entry.second))
        {
            Kiv::DataCore::DataFileError(GetFileName() +
                                         ": cannot read into this object: its entry \"" +
                                         entry.first + "\" is a value, not a section")
                .RaiseError(PELRIX_CODE_CONTEXT, Names::ALERT_ID, false);
        }
    }
    PeekToDetermineFileType();
    ReadHeader();
    if (m_FileSubType != Names::FORCE)
    {
        LoadImageData();
    }
    else
    {
        LoadForceData();
    }
}

void PelrixDataFile::PeekToDetermineFileType()
{
    std::string line;
    for (int count = 0; count < 10; ++count)
    {
        line.clear();
        const bool more = ReadLine(line);
        if (line.find(Names::FORCE_SECTION) != std::string::npos)
        {
            m_FileSubType = Names::FORCE;
            break;
        }
        if (!more)
        {
            break;
        }
    }
    if (m_FileSubType.empty())
    {
        m_FileSubType = Names::IMAGE;
    }
    m_FileStream.SetInputPos(0, Kiv::Core::FROM_BEGIN);
}

bool PelrixDataFile::IsPelrixFile(const std::string& fileName)
{
    // Only regular files: a device or a pipe could feed the scan forever or block it, and
    // opening some devices does something. The name is checked before the open; the opened
    // file again, and the open does not wait, in case the name was swapped for a pipe meanwhile.
    struct stat status;
    if (fileName.empty() || ::stat(fileName.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
    {
        return false;
    }
    const Kiv::Core::ScopedDescriptor file(
        ::open(fileName.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (file.Get() < 0 || ::fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode))
    {
        return false;
    }
    // The markers hold no line feed, so "one of the first 100 lines contains a marker" is "a
    // marker occurs before the end of line 100". Scanning in blocks keeps memory bounded
    // whatever the file holds.
    static const char* const markers[] = {"[Data Version]", "[Data Parameters]", "[Data]"};
    const std::size_t overlap = std::strlen("[Data Parameters]") - 1;
    std::string window;
    // Every file a batch opens is checked here, and its first lines nearly always name a
    // marker: a small first block keeps that cheap, larger ones follow for the rare rest.
    std::vector<char> block(4096);
    int lines = 0;
    // A header's first hundred lines are a few kilobytes; a file that holds no line feed in
    // its first 64 MiB is not a Pelrix file.
    std::uint64_t scanned = 0;
    const std::uint64_t scanLimit = std::uint64_t(64) << 20;
    while (lines < 100 && scanned < scanLimit)
    {
        std::size_t got = ReadSome(file.Get(), block.data(), block.size());
        if (got == 0)
        {
            break;
        }
        for (std::size_t i = 0; i < got; ++i)
        {
            if (block[i] == '\n' && ++lines == 100)
            {
                got = i;
                break;
            }
        }
        scanned += got;
        window.append(block.data(), got);
        for (const char* marker : markers)
        {
            if (window.find(marker) != std::string::npos)
            {
                return true;
            }
        }
        if (window.size() > overlap)
        {
            window.erase(0, window.size() - overlap);
        }
        block.resize(std::size_t{1} << 16);
    }
    return false;
}

bool PelrixDataFile::IsOpen() const
{
    return m_FileStream.IsOpen();
}

std::string PelrixDataFile::GetFileName() const
{
    return m_FileStream.GetStreamName();
}

std::string PelrixDataFile::GetFileType() const
{
    return FILE_TYPE;
}

std::string PelrixDataFile::DescribeFileType() const
{
    return FILE_DESCRIPTION;
}

} // namespace Pelrix
