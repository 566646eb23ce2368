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
    // The file kind comes from the first ten lines. Nearly every file decides it within the
    // first block; the rest is looked at once the header tells where the samples lie.
    FirstLinesSearch forceSection({Names::FORCE_SECTION}, 10, true);
    const bool readable =
        SearchFile(m_FileStream.GetDescriptor(), forceSection, 0, FIRST_LINES_BLOCK);
    ReadHeaderLines();
    ImageSamples early;
    if (readable && !forceSection.Decided() && m_FileSubType != Names::FORCE)
    {
        early = FinishFileKindLook(forceSection);
    }
    PeekToDetermineFileType(readable && forceSection.Found());
    NoteHeaderContent();
    if (m_FileSubType != Names::FORCE)
    {
        LoadImageData(std::move(early));
    }
    else
    {
        LoadForceData();
    }
}

// The first lines run on past the first block when a short header is followed by samples
// without a line feed, through all of them in the worst case (an all-zero image). An image file
// reads those samples anyway: where the header describes an image that can be read, it is read
// first and the look goes on over its samples in memory rather than reading them twice. The
// samples are handed on to the image reader, or dropped when the look finds a force file.
PelrixDataFile::ImageSamples PelrixDataFile::FinishFileKindLook(FirstLinesSearch& search)
{
    const int descriptor = m_FileStream.GetDescriptor();
    ImageSamples image;
    try
    {
        image = ReadImageSamples(false);
    }
    catch (const Kiv::Core::Error&)
    {
        // Raised again by the image reader if the file is one; a force file never meets it.
        image = ImageSamples();
    }
    if (!image.matrix)
    {
        SearchFile(descriptor, search, FIRST_LINES_BLOCK);
        return image;
    }
    const auto begin = static_cast<std::uint64_t>(image.dataOffset);
    const std::uint64_t end = begin + image.delivered;
    if (begin > FIRST_LINES_BLOCK)
    {
        SearchFile(descriptor, search, FIRST_LINES_BLOCK, begin);
    }
    // In slices, so that the look's copy of a slice without carriage returns stays small.
    constexpr std::uint64_t SLICE = std::uint64_t{1} << 20;
    const char* const bytes = reinterpret_cast<const char*>(&image.matrix->data()[0]);
    for (std::uint64_t at = std::max(begin, FIRST_LINES_BLOCK); at < end && !search.Decided();
         at += SLICE)
    {
        search.Feed(bytes + (at - begin), static_cast<std::size_t>(std::min(SLICE, end - at)));
    }
    if (!search.Decided())
    {
        if (image.delivered < image.byteCount)
        {
            search.End();
        }
        else
        {
            SearchFile(descriptor, search, std::max(end, FIRST_LINES_BLOCK));
        }
    }
    return image;
}

// forceSectionSeen: whether "[Point Spectroscopy Data]" stands in the first ten lines as the
// header reader sees them. An earlier "FORCE" stays.
void PelrixDataFile::PeekToDetermineFileType(bool forceSectionSeen)
{
    if (forceSectionSeen)
    {
        m_FileSubType = Names::FORCE;
    }
    if (m_FileSubType.empty())
    {
        m_FileSubType = Names::IMAGE;
    }
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
