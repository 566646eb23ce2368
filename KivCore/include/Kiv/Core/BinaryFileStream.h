#pragma once

#include <cstdint>
#include <string>

#include "Kiv/Core/BinaryStream.h"

namespace Kiv::Core
{

// A file on disk read and written at two independent positions, one for input and one for
// output. Transfers go straight to the operating system (no buffer of its own), so a
// buffered stream on top decides the granularity. Errors raise IOError naming the file.
class BinaryFileStream : public BinaryInputStream, public BinaryOutputStream
{
public:
    enum EMode
    {
        READ_MODE = 1,
        WRITE_MODE = 2,
        READ_WRITE_MODE = 3,
    };

    // None of these cuts an existing file when it is opened.
    enum EOpenBehavior
    {
        // The file must exist.
        OPEN_EXISTING = 0,
        // Open the file, creating it (empty) when it is missing.
        OPEN_ALWAYS = 1,
        // Create the file; fail when it exists already.
        CREATE_NEW = 2,
        // Like OPEN_EXISTING; in addition, when anything was written, Close cuts the file right
        // after the furthest byte written. Rewriting a file from the start then leaves no stale
        // bytes of the old, longer content behind it.
        OPEN_EXISTING_TRIM_ON_CLOSE = 3,
    };

    BinaryFileStream() = default;
    // Closes without raising; call Close to learn about errors.
    ~BinaryFileStream() override;
    BinaryFileStream(const BinaryFileStream&) = delete;
    BinaryFileStream& operator=(const BinaryFileStream&) = delete;

    // Closes a file that is open, then opens fileName. Both positions start at 0.
    // Raises IOError such as: cannot open "x.flt": No such file or directory
    void Open(const std::string& fileName, EMode mode, EOpenBehavior behavior);
    // Open without raising: false and the message in errorText when it fails.
    bool TryOpen(const std::string& fileName, EMode mode, EOpenBehavior behavior,
                 std::string* errorText = nullptr) noexcept;
    bool IsOpen() const { return m_Descriptor >= 0; }
    // For reads by position (pread) that leave the stream's own position alone; -1 when closed.
    int GetDescriptor() const { return m_Descriptor; }
    // The name given to the last Open, kept after Close for messages.
    const std::string& GetFileName() const { return m_FileName; }
    std::uint64_t GetSize() const;
    // The first position at or after offset that may hold data: holes of a sparse file read as
    // zero bytes and can be skipped. The file's size when only a hole follows; offset itself
    // when the file system cannot tell.
    std::int64_t NextDataPos(std::int64_t offset) const;
    // Applies the trim of OPEN_EXISTING_TRIM_ON_CLOSE and releases the file. Does nothing when
    // closed. The file is released even when the trim or the close fails; the failure raises.
    void Close() override;

    std::uint64_t Read(void* buffer, std::uint64_t count) override;
    std::int64_t GetInputPos() const override { return m_InputPos; }
    void SetInputPos(std::int64_t offset, EMoveMethod from) override;

    using BinaryOutputStream::Write;
    void Write(const void* buffer, std::uint64_t count) override;
    std::int64_t GetOutputPos() const override { return m_OutputPos; }
    void SetOutputPos(std::int64_t offset, EMoveMethod from) override;

    std::string GetStreamName() const override { return m_FileName; }

    // Listeners hear of every input or output position change (reads, writes and moves, told
    // before the change) and of every block written.
    void AddListener(StreamPositionListener* listener) override;
    void RemoveListener(StreamPositionListener* listener) override;

private:
    void RequireOpen(const char* action) const;
    // The absolute position that offset counted from `from` names; raises for one before the
    // start of the file.
    std::int64_t ResolvePosition(std::int64_t current, std::int64_t offset, EMoveMethod from,
                                 const char* positionName) const;
    // Trims (when due) and closes the descriptor; false and the message when either failed.
    bool ReleaseDescriptor(std::string* errorText) noexcept;

    int m_Descriptor = -1;
    std::string m_FileName;
    EMode m_Mode = READ_MODE;
    bool m_TrimOnClose = false;
    std::int64_t m_InputPos = 0;
    std::int64_t m_OutputPos = 0;
    // One past the furthest byte written since Open; -1 while nothing was written.
    std::int64_t m_WrittenEnd = -1;
    StreamListenerList m_Listeners;
};

} // namespace Kiv::Core
