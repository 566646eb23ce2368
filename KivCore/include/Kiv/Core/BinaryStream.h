#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Kiv::Core
{

enum EMoveMethod
{
    FROM_BEGIN = 0,
    FROM_CURRENT = 1,
    FROM_END = 2,
};

class BinaryInputStream;
class BinaryOutputStream;

// Told by a stream before its positions change and after bytes were written into it, so that
// a filter holding read-ahead or pending bytes over that stream can keep them consistent when
// someone else moves or writes the stream.
class StreamPositionListener
{
public:
    virtual void OnInputPositionChanging(BinaryInputStream& stream);
    virtual void OnOutputPositionChanging(BinaryOutputStream& stream);
    virtual void OnBytesWritten(BinaryOutputStream& stream, std::int64_t pos, std::uint64_t count);

protected:
    StreamPositionListener() = default;
    StreamPositionListener(const StreamPositionListener&) = default;
    StreamPositionListener& operator=(const StreamPositionListener&) = default;
    virtual ~StreamPositionListener() = default;
};

// The listeners of one stream. Notification tolerates listeners that remove themselves while
// being told.
class StreamListenerList
{
public:
    // A null or already registered listener is ignored.
    void Add(StreamPositionListener* listener);
    void Remove(StreamPositionListener* listener) noexcept;

    void NotifyInputPositionChanging(BinaryInputStream& stream) const;
    void NotifyOutputPositionChanging(BinaryOutputStream& stream) const;
    void NotifyBytesWritten(BinaryOutputStream& stream, std::int64_t pos,
                            std::uint64_t count) const;

private:
    std::vector<StreamPositionListener*> m_Listeners;
};

class BinaryInputStream
{
public:
    virtual ~BinaryInputStream() = default;
    BinaryInputStream(const BinaryInputStream&) = delete;
    BinaryInputStream& operator=(const BinaryInputStream&) = delete;

    // Reads at the input position and advances it. Delivers fewer than count bytes only at
    // the end of the input, and 0 there.
    virtual std::uint64_t Read(void* buffer, std::uint64_t count) = 0;
    virtual std::int64_t GetInputPos() const = 0;
    virtual void SetInputPos(std::int64_t offset, EMoveMethod from) = 0;
    virtual void Close();
    // The file behind the stream, for error messages; empty when there is none.
    virtual std::string GetStreamName() const;

    // Only streams that others can move keep listeners; the rest ignore them.
    virtual void AddListener(StreamPositionListener* listener);
    virtual void RemoveListener(StreamPositionListener* listener);

protected:
    BinaryInputStream() = default;
};

class BinaryOutputStream
{
public:
    virtual ~BinaryOutputStream() = default;
    BinaryOutputStream(const BinaryOutputStream&) = delete;
    BinaryOutputStream& operator=(const BinaryOutputStream&) = delete;

    // Writes all count bytes at the output position and advances it, or raises.
    virtual void Write(const void* buffer, std::uint64_t count) = 0;
    virtual void Write(unsigned char byte);
    virtual void Flush();
    virtual void Close();
    virtual std::int64_t GetOutputPos() const = 0;
    virtual void SetOutputPos(std::int64_t offset, EMoveMethod from) = 0;
    // The file behind the stream, for error messages; empty when there is none.
    virtual std::string GetStreamName() const;

    // Only streams that others can move keep listeners; the rest ignore them.
    virtual void AddListener(StreamPositionListener* listener);
    virtual void RemoveListener(StreamPositionListener* listener);

protected:
    BinaryOutputStream() = default;
};

} // namespace Kiv::Core
