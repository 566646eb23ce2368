#include "Pelrix/PelrixDataFile.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "FirstLinesSearch.h"
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
    // The lines as the header reader would see them, without holding any of them: a short
    // header followed by samples without a line feed is one "line" as long as the file.
    FirstLinesSearch search({Names::FORCE_SECTION}, 10, true);
    if (SearchFile(m_FileStream.GetDescriptor(), search) && search.Found())
    {
        m_FileSubType = Names::FORCE;
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
    FirstLinesSearch search({"[Data Version]", "[Data Parameters]", "[Data]"}, 100, false);
    return SearchFile(file.Get(), search) && search.Found();
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
