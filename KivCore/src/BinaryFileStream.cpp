#include "Kiv/Core/BinaryFileStream.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <limits>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>

#include "Kiv/Core/CodeContext.h"
#include "Kiv/Core/Error.h"
#include "Kiv/Core/HugePages.h"

namespace Kiv::Core
{

namespace
{

const char* const ALERT_ID = "Kiv.Core.BinaryFileStream";

static_assert(sizeof(off_t) == sizeof(std::int64_t), "file positions need a 64-bit off_t");

// Linux moves at most about 2 GiB per call; asking for less keeps every count in ssize_t.
constexpr std::uint64_t MAX_TRANSFER = std::uint64_t(1) << 30;

std::string DescribeErrno(int error)
{
    return std::generic_category().message(error);
}

// What one stretch of a read delivered: the bytes until the end of the file or the first
// failure, and that failure's errno (0 for none).
struct Delivered
{
    std::uint64_t bytes = 0;
    int error = 0;
};

Delivered ReadStretch(int descriptor, unsigned char* bytes, std::uint64_t count,
                      std::int64_t position)
{
    Delivered delivered;
    while (delivered.bytes < count)
    {
        const std::uint64_t chunk = std::min(count - delivered.bytes, MAX_TRANSFER);
        const ssize_t got = ::pread(descriptor, bytes + delivered.bytes, chunk,
                                    position + static_cast<std::int64_t>(delivered.bytes));
        if (got < 0)
        {
            if (errno == EINTR)
            {
                continue;
            }
            delivered.error = errno;
            break;
        }
        if (got == 0)
        {
            break;
        }
        delivered.bytes += static_cast<std::uint64_t>(got);
    }
    return delivered;
}

// Below this a second thread costs more than it saves.
constexpr std::uint64_t SPLIT_READ_MIN = std::uint64_t(16) << 20;

// A large read in two stretches, the second on a thread of its own: copying out of the page
// cache, and faulting in the memory copied to, are work for a processor each. The stretches
// meet on a 2 MiB boundary of the buffer, so that no huge page is faulted from both sides.
// The result is what one read would have delivered: the second stretch counts only when the
// first came back whole.
Delivered ReadSplit(int descriptor, unsigned char* bytes, std::uint64_t count,
                    std::int64_t position)
{
    const auto middle =
        (reinterpret_cast<std::uintptr_t>(bytes) + count / 2) & ~std::uintptr_t{HUGE_PAGE_SIZE - 1};
    const std::uint64_t firstCount = middle - reinterpret_cast<std::uintptr_t>(bytes);
    Delivered second;
    std::thread helper;
    try
    {
        helper = std::thread(
            [&]
            {
                second = ReadStretch(descriptor, bytes + firstCount, count - firstCount,
                                     position + static_cast<std::int64_t>(firstCount));
            });
    }
    catch (const std::system_error&)
    {
        return ReadStretch(descriptor, bytes, count, position);
    }
    Delivered first = ReadStretch(descriptor, bytes, firstCount, position);
    helper.join();
    if (first.error != 0 || first.bytes < firstCount)
    {
        return first;
    }
    return {first.bytes + second.bytes, second.error};
}

void StoreError(std::string* target, const std::string& text) noexcept
{
    if (target == nullptr)
    {
        return;
    }
    try
    {
        *target = text;
    }
    catch (...)
    {
        target->clear();
    }
}

int OpenFlags(BinaryFileStream::EMode mode, BinaryFileStream::EOpenBehavior behavior)
{
    int flags = O_CLOEXEC;
    switch (mode)
    {
    case BinaryFileStream::READ_MODE:
        flags |= O_RDONLY;
        break;
    case BinaryFileStream::WRITE_MODE:
        flags |= O_WRONLY;
        break;
    case BinaryFileStream::READ_WRITE_MODE:
        flags |= O_RDWR;
        break;
    }
    switch (behavior)
    {
    case BinaryFileStream::OPEN_EXISTING:
    case BinaryFileStream::OPEN_EXISTING_TRIM_ON_CLOSE:
        break;
    case BinaryFileStream::OPEN_ALWAYS:
        flags |= O_CREAT;
        break;
    case BinaryFileStream::CREATE_NEW:
        flags |= O_CREAT | O_EXCL;
        break;
    }
    return flags;
}

bool IsValidMode(int mode)
{
    return mode >= BinaryFileStream::READ_MODE && mode <= BinaryFileStream::READ_WRITE_MODE;
}

bool IsValidBehavior(int behavior)
{
    return behavior >= BinaryFileStream::OPEN_EXISTING &&
           behavior <= BinaryFileStream::OPEN_EXISTING_TRIM_ON_CLOSE;
}

} // namespace

BinaryFileStream::~BinaryFileStream()
{
    ReleaseDescriptor(nullptr);
}

void BinaryFileStream::Open(const std::string& fileName, EMode mode, EOpenBehavior behavior)
{
    std::string errorText;
    if (!TryOpen(fileName, mode, behavior, &errorText))
    {
        IOError(errorText).RaiseError(KIV_CODE_CONTEXT, ALERT_ID, false);
    }
}

bool BinaryFileStream::TryOpen(const std::string& fileName, EMode mode, EOpenBehavior behavior,
                               std::string* errorText) noexcept
{
    try
    {
        std::string closeError;
        const bool closed = ReleaseDescriptor(&closeError);
        m_FileName = fileName;
        if (!closed)
        {
            StoreError(errorText, closeError);
            return false;
        }
        if (!IsValidMode(mode) || !IsValidBehavior(behavior))
        {
            StoreError(errorText, FormatAlertMessage("cannot open \"%1%\": invalid mode %2% or "
                                                     "open behavior %3%",
                                                     fileName, int(mode), int(behavior)));
            return false;
        }

        int descriptor = -1;
        do
        {
            descriptor = ::open(fileName.c_str(), OpenFlags(mode, behavior), 0666);
        } while (descriptor < 0 && errno == EINTR);
        if (descriptor < 0)
        {
            StoreError(errorText, FormatAlertMessage("cannot open \"%1%\": %2%", fileName,
                                                     DescribeErrno(errno)));
            return false;
        }

        // Reading a directory opens fine and only fails at the first read; refuse it here.
        struct stat status = {};
        if (::fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode))
        {
            ::close(descriptor);
            StoreError(errorText, FormatAlertMessage("cannot open \"%1%\": %2%", fileName,
                                                     DescribeErrno(EISDIR)));
            return false;
        }

        m_Descriptor = descriptor;
        m_Mode = mode;
        m_TrimOnClose = behavior == OPEN_EXISTING_TRIM_ON_CLOSE;
        m_InputPos = 0;
        m_OutputPos = 0;
        m_WrittenEnd = -1;
        return true;
    }
    catch (...)
    {
        StoreError(errorText, "cannot open \"" + fileName + "\": out of memory");
        return false;
    }
}

std::uint64_t BinaryFileStream::GetSize() const
{
    RequireOpen("get the size of");
    struct stat status = {};
    if (::fstat(m_Descriptor, &status) != 0)
    {
        IOError(FormatAlertMessage("cannot get the size of \"%1%\": %2%", m_FileName,
                                   DescribeErrno(errno)))
            .RaiseError(KIV_CODE_CONTEXT, ALERT_ID, false);
    }
    return static_cast<std::uint64_t>(status.st_size);
}

std::int64_t BinaryFileStream::NextDataPos(std::int64_t offset) const
{
    RequireOpen("look for data in");
    // lseek moves the descriptor's own offset, which no transfer here uses (they all pass
    // their position to pread or pwrite).
    const off_t found = ::lseek(m_Descriptor, static_cast<off_t>(offset), SEEK_DATA);
    if (found >= 0)
    {
        return static_cast<std::int64_t>(found);
    }
    return errno == ENXIO ? std::max(offset, static_cast<std::int64_t>(GetSize())) : offset;
}

void BinaryFileStream::Close()
{
    std::string errorText;
    if (!ReleaseDescriptor(&errorText))
    {
        IOError(errorText).RaiseError(KIV_CODE_CONTEXT, ALERT_ID, false);
    }
}

std::uint64_t BinaryFileStream::Read(void* buffer, std::uint64_t count)
{
    RequireOpen("read");
    if (m_Mode == WRITE_MODE)
    {
        IOError(
            FormatAlertMessage("cannot read \"%1%\": it was opened for writing only", m_FileName))
            .RaiseError(KIV_CODE_CONTEXT, ALERT_ID, false);
    }
    if (count == 0)
    {
        return 0;
    }
    m_Listeners.NotifyInputPositionChanging(*this);

    auto* const bytes = static_cast<unsigned char*>(buffer);
    const bool split = count >= SPLIT_READ_MIN && std::thread::hardware_concurrency() > 1;
    const Delivered delivered = split ? ReadSplit(m_Descriptor, bytes, count, m_InputPos)
                                      : ReadStretch(m_Descriptor, bytes, count, m_InputPos);
    m_InputPos += static_cast<std::int64_t>(delivered.bytes);
    if (delivered.error != 0)
    {
        IOError(FormatAlertMessage("cannot read \"%1%\" at byte %2%: %3%", m_FileName, m_InputPos,
                                   DescribeErrno(delivered.error)))
            .RaiseError(KIV_CODE_CONTEXT, ALERT_ID, false);
    }
    return delivered.bytes;
}

void BinaryFileStream::SetInputPos(std::int64_t offset, EMoveMethod from)
{
    RequireOpen("move the input position of");
    const std::int64_t target = ResolvePosition(m_InputPos, offset, from, "input");
    // Told even when the position stays: a reader with read-ahead over this file must drop it
    // whenever someone places the file explicitly.
    m_Listeners.NotifyInputPositionChanging(*this);
    m_InputPos = target;
}

void BinaryFileStream::Write(const void* buffer, std::uint64_t count)
{
    RequireOpen("write");
    if (m_Mode == READ_MODE)
    {
        IOError(
            FormatAlertMessage("cannot write \"%1%\": it was opened for reading only", m_FileName))
            .RaiseError(KIV_CODE_CONTEXT, ALERT_ID, false);
    }
    if (count == 0)
    {
        return;
    }
    // Told first: a buffered writer over this file puts its pending bytes in place, which
    // moves the output position this write starts from.
    m_Listeners.NotifyOutputPositionChanging(*this);
    if (count > std::uint64_t(std::numeric_limits<std::int64_t>::max() - m_OutputPos))
    {
        IOError(FormatAlertMessage("cannot write %1% bytes to \"%2%\" at byte %3%: beyond the "
                                   "largest file position",
                                   count, m_FileName, m_OutputPos))
            .RaiseError(KIV_CODE_CONTEXT, ALERT_ID, false);
    }

    const auto* bytes = static_cast<const unsigned char*>(buffer);
    const std::int64_t start = m_OutputPos;
    std::uint64_t done = 0;
    int error = 0;
    while (done < count)
    {
        const std::uint64_t chunk = std::min(count - done, MAX_TRANSFER);
        const ssize_t put =
            ::pwrite(m_Descriptor, bytes + done, chunk, start + static_cast<std::int64_t>(done));
        if (put < 0 && errno == EINTR)
        {
            continue;
        }
        if (put <= 0)
        {
            // A write that moves nothing and reports nothing would loop forever.
            error = put < 0 ? errno : EIO;
            break;
        }
        done += static_cast<std::uint64_t>(put);
    }

    // What did land is accounted for and announced even when the rest failed.
    if (done > 0)
    {
        m_OutputPos = start + static_cast<std::int64_t>(done);
        m_WrittenEnd = std::max(m_WrittenEnd, m_OutputPos);
        m_Listeners.NotifyBytesWritten(*this, start, done);
    }
    if (error != 0)
    {
        IOError(FormatAlertMessage("cannot write \"%1%\" at byte %2%: %3%", m_FileName,
                                   start + static_cast<std::int64_t>(done), DescribeErrno(error)))
            .RaiseError(KIV_CODE_CONTEXT, ALERT_ID, false);
    }
}

void BinaryFileStream::SetOutputPos(std::int64_t offset, EMoveMethod from)
{
    RequireOpen("move the output position of");
    // Told first, and even when the position stays: pending bytes of a buffered writer over
    // this file go out at the old position, and FROM_CURRENT and FROM_END then count from the
    // file as it really is.
    m_Listeners.NotifyOutputPositionChanging(*this);
    m_OutputPos = ResolvePosition(m_OutputPos, offset, from, "output");
}

void BinaryFileStream::AddListener(StreamPositionListener* listener)
{
    m_Listeners.Add(listener);
}

void BinaryFileStream::RemoveListener(StreamPositionListener* listener)
{
    m_Listeners.Remove(listener);
}

void BinaryFileStream::RequireOpen(const char* action) const
{
    if (IsOpen())
    {
        return;
    }
    const std::string message =
        m_FileName.empty()
            ? FormatAlertMessage("cannot %1% a file stream: no file is open", action)
            : FormatAlertMessage("cannot %1% \"%2%\": the file is not open", action, m_FileName);
    IOError(message).RaiseError(KIV_CODE_CONTEXT, ALERT_ID, false);
}

std::int64_t BinaryFileStream::ResolvePosition(std::int64_t current, std::int64_t offset,
                                               EMoveMethod from, const char* positionName) const
{
    std::int64_t base = 0;
    switch (from)
    {
    case FROM_BEGIN:
        base = 0;
        break;
    case FROM_CURRENT:
        base = current;
        break;
    case FROM_END:
        base = static_cast<std::int64_t>(GetSize());
        break;
    default:
        LogicError(FormatAlertMessage("cannot move the %1% position of \"%2%\": unknown move "
                                      "method %3%",
                                      positionName, m_FileName, int(from)))
            .RaiseError(KIV_CODE_CONTEXT, ALERT_ID, false);
    }

    // Both operands fit in int64 and base is never negative, so only an upward overflow is
    // possible.
    if (offset > 0 && base > std::numeric_limits<std::int64_t>::max() - offset)
    {
        IOError(FormatAlertMessage("cannot move the %1% position of \"%2%\" by %3%: beyond the "
                                   "largest file position",
                                   positionName, m_FileName, offset))
            .RaiseError(KIV_CODE_CONTEXT, ALERT_ID, false);
    }
    const std::int64_t target = base + offset;
    if (target < 0)
    {
        IOError(FormatAlertMessage("cannot move the %1% position of \"%2%\" to %3%: before the "
                                   "start of the file",
                                   positionName, m_FileName, target))
            .RaiseError(KIV_CODE_CONTEXT, ALERT_ID, false);
    }
    return target;
}

bool BinaryFileStream::ReleaseDescriptor(std::string* errorText) noexcept
{
    if (m_Descriptor < 0)
    {
        return true;
    }
    bool released = true;
    if (m_TrimOnClose && m_WrittenEnd >= 0)
    {
        int result = 0;
        do
        {
            result = ::ftruncate(m_Descriptor, m_WrittenEnd);
        } while (result != 0 && errno == EINTR);
        if (result != 0)
        {
            released = false;
            StoreError(errorText,
                       FormatAlertMessage("cannot trim \"%1%\" to %2% bytes: %3%", m_FileName,
                                          m_WrittenEnd, DescribeErrno(errno)));
        }
    }
    // Not retried on EINTR: Linux has released the descriptor by then, and a retry could
    // close one that another thread has just been given.
    if (::close(m_Descriptor) != 0 && errno != EINTR && released)
    {
        released = false;
        StoreError(errorText, FormatAlertMessage("cannot close \"%1%\": %2%", m_FileName,
                                                 DescribeErrno(errno)));
    }
    m_Descriptor = -1;
    m_WrittenEnd = -1;
    return released;
}

} // namespace Kiv::Core
