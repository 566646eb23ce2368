// The host's binary container format, written by DataContainer::OutputData(BinaryOutputStream&)
// and read by DataContainer::InputData:
//
//   document  := magic version container
//   magic     := the four bytes "KVDC"
//   version   := u32, currently 1
//   container := count:u32 entry{count}
//   entry     := key:text type:text flags:u32 body
//   body      := container                  when type is "DataContainer" (a sub-container)
//              | size:u64 byte{size}        otherwise: the bytes of the value's serializer
//   text      := length:u32 byte{length}
//   flags     := bit 0: the value is lockable
//                bit 1: the sub-container gives the values stored in it their own locks
//                (a container always has its own mutex, so bit 0 means nothing for it)
//
// Framing numbers (u32, u64) are little-endian. A value's bytes are whatever its serializer
// writes (numbers in the machine's byte order); they are framed by their size so that a reader
// can keep values of types it does not know as UnboundData and bind them later.
//
// Writing: a value is written with its own serializer, or, when it has none, with a serializer
// over a temporary value that shares its contents, so writing never changes the caller's
// objects. Values of a type without any serializer (the list of matrices) are skipped.
// UnboundData is written back as it was read: its stored type name and bytes.
//
// Reading: everything is read and checked before anything is stored, so a failure leaves the
// container as it was. Counts and sizes come from the stream and may be garbage: payloads are
// read in bounded pieces (memory grows only with bytes that arrive), texts and nesting depth
// are capped, and every short read or inconsistency raises DataFileError naming the entry and
// the stream offset. Values of the built-in types are bound through UnboundData::BindType.

#include <algorithm>
#include <functional>
#include <limits>

#include <boost/make_shared.hpp>

#include "Kiv/Core/BinaryStream.h"
#include "Kiv/Core/CodeContext.h"
#include "Kiv/DataCore/Alerts.h"
#include "Kiv/DataCore/BuiltInSerializers.h"
#include "Kiv/DataCore/ContainerXML.h"
#include "Kiv/DataCore/DataContainer.h"
#include "Kiv/DataCore/UnboundData.h"

namespace Kiv::DataCore
{

namespace
{
const char* const ALERT_ID = "Kiv.DataCore.DataContainer.BinaryFormat";
const char MAGIC[4] = {'K', 'V', 'D', 'C'};
constexpr std::uint32_t VERSION = 1;

constexpr std::uint32_t FLAG_LOCKABLE = 1;
constexpr std::uint32_t FLAG_LOCKS_ENTRIES = 2;
constexpr std::uint32_t KNOWN_FLAGS = FLAG_LOCKABLE | FLAG_LOCKS_ENTRIES;

// Limits that only a corrupt stream (or a cycle of containers) reaches.
constexpr unsigned MAX_DEPTH = 64;
constexpr std::uint64_t MAX_KEY_BYTES = 1024 * 1024;
constexpr std::uint64_t MAX_TYPE_NAME_BYTES = 1024;
constexpr std::uint64_t READ_CHUNK_BYTES = 1024 * 1024;

std::string JoinPath(const std::string& parent, const std::string& key)
{
    return parent + "/\"" + key + "\"";
}

// Counts what goes through to the stream, so that the count returned is what was written,
// whatever the stream reports as its position.
class CountingOutputStream : public Kiv::Core::BinaryOutputStream
{
public:
    explicit CountingOutputStream(Kiv::Core::BinaryOutputStream& out) : m_Out(out) {}

    void Write(const void* buffer, std::uint64_t count) override
    {
        m_Out.Write(buffer, count);
        m_Written += count;
    }
    void Flush() override { m_Out.Flush(); }
    std::int64_t GetOutputPos() const override { return m_Out.GetOutputPos(); }
    void SetOutputPos(std::int64_t offset, Kiv::Core::EMoveMethod from) override
    {
        m_Out.SetOutputPos(offset, from);
    }
    std::string GetStreamName() const override { return m_Out.GetStreamName(); }

    std::uint64_t GetWritten() const { return m_Written; }

private:
    Kiv::Core::BinaryOutputStream& m_Out;
    std::uint64_t m_Written = 0;
};

class ContainerBinaryWriter
{
public:
    explicit ContainerBinaryWriter(Kiv::Core::BinaryOutputStream& out) : m_Out(out) {}

    std::uint64_t WriteDocument(const DataContainer& container)
    {
        m_Out.Write(MAGIC, sizeof(MAGIC));
        WriteU32(VERSION);
        WriteContainer(container, "", 1);
        return m_Out.GetWritten();
    }

private:
    // One entry that will be written, with what writes it.
    struct WritableEntry
    {
        std::string key;
        boost::shared_ptr<DataObject> object;
        const DataContainer* container = nullptr;
        const UnboundData* unbound = nullptr;
        boost::shared_ptr<Serializer> serializer;
    };

    [[noreturn]] void Fail(const std::string& message)
    {
        const std::string name = m_Out.GetStreamName();
        DataFileError((name.empty() ? std::string() : name + ": ") + message)
            .RaiseError(KIV_CODE_CONTEXT, ALERT_ID, false);
    }

    void WriteU32(std::uint32_t value)
    {
        const unsigned char bytes[4] = {
            static_cast<unsigned char>(value), static_cast<unsigned char>(value >> 8),
            static_cast<unsigned char>(value >> 16), static_cast<unsigned char>(value >> 24)};
        m_Out.Write(bytes, sizeof(bytes));
    }

    void WriteU64(std::uint64_t value)
    {
        WriteU32(static_cast<std::uint32_t>(value));
        WriteU32(static_cast<std::uint32_t>(value >> 32));
    }

    void WriteText(const std::string& text, std::uint64_t maxBytes, const std::string& what)
    {
        if (text.size() > maxBytes)
        {
            Fail(Kiv::Core::FormatAlertMessage("%1% of %2% bytes is longer than the %3% allowed",
                                               what, text.size(), maxBytes));
        }
        WriteU32(static_cast<std::uint32_t>(text.size()));
        m_Out.Write(text.data(), text.size());
    }

    std::vector<WritableEntry> CollectWritable(const DataContainer& container)
    {
        std::vector<WritableEntry> writable;
        for (const auto& [key, object] : container.GetEntries())
        {
            if (!object)
            {
                continue;
            }
            WritableEntry entry;
            entry.key = key;
            entry.object = object;
            entry.container = dynamic_cast<const DataContainer*>(object.get());
            entry.unbound = dynamic_cast<const UnboundData*>(object.get());
            if (entry.container == nullptr && entry.unbound == nullptr)
            {
                entry.serializer = FindSerializerFor(*object);
                if (!entry.serializer)
                {
                    continue; // a type that cannot be serialized, such as a list of matrices
                }
            }
            writable.push_back(std::move(entry));
        }
        return writable;
    }

    void WriteContainer(const DataContainer& container, const std::string& path, unsigned depth)
    {
        if (depth > MAX_DEPTH)
        {
            Fail(Kiv::Core::FormatAlertMessage(
                "%1% lies more than %2% containers deep (is a container stored inside itself?)",
                path, MAX_DEPTH));
        }
        const std::vector<WritableEntry> entries = CollectWritable(container);
        if (entries.size() > std::numeric_limits<std::uint32_t>::max())
        {
            Fail(Kiv::Core::FormatAlertMessage("%1% holds too many entries (%2%) for the format",
                                               path, entries.size()));
        }
        WriteU32(static_cast<std::uint32_t>(entries.size()));
        for (const auto& entry : entries)
        {
            WriteEntry(entry, JoinPath(path, entry.key), depth);
        }
    }

    void WriteEntry(const WritableEntry& entry, const std::string& path, unsigned depth)
    {
        WriteText(entry.key, MAX_KEY_BYTES, "the key " + path);
        if (entry.container != nullptr)
        {
            // A container always has its own mutex: only what it gives its entries is told.
            const std::uint32_t flags = entry.container->LocksEntries() ? FLAG_LOCKS_ENTRIES : 0;
            WriteText(CONTAINER_TYPE_NAME, MAX_TYPE_NAME_BYTES, "the type name of " + path);
            WriteU32(flags);
            WriteContainer(*entry.container, path, depth + 1);
            return;
        }
        // The value's lock is held from its size to its last byte, so both agree.
        const auto lock = entry.object->GetDataLock();
        WriteText(entry.object->GetTypeName(), MAX_TYPE_NAME_BYTES, "the type name of " + path);
        WriteU32(entry.object->IsLockable() ? FLAG_LOCKABLE : 0);
        if (entry.unbound != nullptr)
        {
            const std::vector<char>& bytes = entry.unbound->GetContents();
            WriteU64(bytes.size());
            m_Out.Write(bytes.data(), bytes.size());
            return;
        }
        const std::uint64_t size = entry.serializer->GetDataSize_bytes();
        WriteU64(size);
        const std::uint64_t start = m_Out.GetWritten();
        entry.serializer->ToBinary(m_Out);
        const std::uint64_t written = m_Out.GetWritten() - start;
        if (written != size)
        {
            Fail(Kiv::Core::FormatAlertMessage(
                "the value %1% announced %2% bytes but its serializer wrote %3%", path, size,
                written));
        }
    }

    CountingOutputStream m_Out;
};

// What was read for one entry, stored into containers only once the whole stream was read.
struct ReadNode
{
    std::string key;
    boost::shared_ptr<DataObject> value; // empty for a sub-container
    bool lockable = false;
    bool locksEntries = false;
    std::vector<ReadNode> entries; // a sub-container's entries
};

class ContainerBinaryReader
{
public:
    explicit ContainerBinaryReader(Kiv::Core::BinaryInputStream& in) : m_In(in) {}

    std::vector<ReadNode> ReadDocument()
    {
        char magic[sizeof(MAGIC)];
        ReadExactly(magic, sizeof(magic), "the format's magic");
        if (!std::equal(magic, magic + sizeof(magic), MAGIC))
        {
            Fail(0, "not a Kiv data container stream (its first bytes are not \"KVDC\")");
        }
        const std::uint32_t version = ReadU32("the format version");
        if (version != VERSION)
        {
            Fail(4, Kiv::Core::FormatAlertMessage(
                        "unsupported container format version %1% (this build reads version %2%)",
                        version, VERSION));
        }
        return ReadContainer("", 1);
    }

    std::uint64_t GetBytesConsumed() const { return m_Consumed; }

private:
    [[noreturn]] void Fail(std::uint64_t offset, const std::string& message)
    {
        const std::string name = m_In.GetStreamName();
        DataFileError(Kiv::Core::FormatAlertMessage("%1%offset %2%: %3%",
                                                    name.empty() ? std::string() : name + ": ",
                                                    offset, message))
            .RaiseError(KIV_CODE_CONTEXT, ALERT_ID, false);
    }

    void ReadExactly(void* buffer, std::uint64_t count, const std::string& what)
    {
        auto* bytes = static_cast<char*>(buffer);
        std::uint64_t done = 0;
        while (done < count)
        {
            const std::uint64_t got = m_In.Read(bytes + done, count - done);
            if (got == 0)
            {
                Fail(m_Consumed + done,
                     Kiv::Core::FormatAlertMessage(
                         "the stream ends in %1% (%2% of %3% bytes there)", what, done, count));
            }
            done += got;
        }
        m_Consumed += count;
    }

    std::uint32_t ReadU32(const std::string& what)
    {
        unsigned char bytes[4];
        ReadExactly(bytes, sizeof(bytes), what);
        return static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8 |
               static_cast<std::uint32_t>(bytes[2]) << 16 |
               static_cast<std::uint32_t>(bytes[3]) << 24;
    }

    std::uint64_t ReadU64(const std::string& what)
    {
        const std::uint64_t low = ReadU32(what);
        return low | static_cast<std::uint64_t>(ReadU32(what)) << 32;
    }

    std::string ReadText(std::uint64_t maxBytes, const std::string& what)
    {
        const std::uint64_t at = m_Consumed;
        const std::uint32_t length = ReadU32("the length of " + what);
        if (length > maxBytes)
        {
            Fail(at,
                 Kiv::Core::FormatAlertMessage("%1% claims %2% bytes, more than the %3% allowed",
                                               what, length, maxBytes));
        }
        std::string text(length, '\0');
        ReadExactly(text.data(), length, what);
        return text;
    }

    std::vector<char> ReadPayload(std::uint64_t size, const std::string& what)
    {
        std::vector<char> bytes;
        while (bytes.size() < size)
        {
            const std::size_t done = bytes.size();
            const auto piece = static_cast<std::size_t>(std::min(size - done, READ_CHUNK_BYTES));
            bytes.resize(done + piece);
            ReadExactly(bytes.data() + done, piece, what);
        }
        return bytes;
    }

    std::vector<ReadNode> ReadContainer(const std::string& path, unsigned depth)
    {
        if (depth > MAX_DEPTH)
        {
            Fail(m_Consumed, Kiv::Core::FormatAlertMessage("%1% lies more than %2% containers deep",
                                                           path, MAX_DEPTH));
        }
        const std::string where = path.empty() ? std::string("the top container") : path;
        const std::uint32_t count = ReadU32("the entry count of " + where);
        std::vector<ReadNode> entries;
        for (std::uint32_t index = 0; index < count; ++index)
        {
            entries.push_back(ReadEntry(path, where, index, depth));
        }
        return entries;
    }

    ReadNode ReadEntry(const std::string& parentPath, const std::string& where, std::uint32_t index,
                       unsigned depth)
    {
        ReadNode node;
        const std::string entryName =
            Kiv::Core::FormatAlertMessage("entry %1% of %2%", index, where);
        node.key = ReadText(MAX_KEY_BYTES, "the key of " + entryName);
        const std::string path = JoinPath(parentPath, node.key);
        const std::string typeName = ReadText(MAX_TYPE_NAME_BYTES, "the type name of " + path);
        const std::uint64_t flagsAt = m_Consumed;
        const std::uint32_t flags = ReadU32("the flags of " + path);
        if ((flags & ~KNOWN_FLAGS) != 0)
        {
            Fail(flagsAt, Kiv::Core::FormatAlertMessage("%1% has unknown flags %2%", path, flags));
        }
        node.lockable = (flags & FLAG_LOCKABLE) != 0;
        node.locksEntries = (flags & FLAG_LOCKS_ENTRIES) != 0;
        if (typeName == CONTAINER_TYPE_NAME)
        {
            node.entries = ReadContainer(path, depth + 1);
            return node;
        }
        const std::uint64_t valueAt = m_Consumed;
        const std::uint64_t size = ReadU64("the size of " + path);
        std::vector<char> bytes = ReadPayload(size, "the value of " + path);
        node.value = MakeValue(valueAt, path, typeName, std::move(bytes), node.lockable);
        return node;
    }

    // A value of a built-in type, bound; any other value stays unbound for the caller to bind.
    boost::shared_ptr<DataObject> MakeValue(std::uint64_t offset, const std::string& path,
                                            const std::string& typeName, std::vector<char> bytes,
                                            bool lockable)
    {
        const std::uint64_t size = bytes.size();
        const auto unbound = boost::make_shared<UnboundData>(typeName, std::move(bytes), lockable);
        if (!IsSerializableBuiltInType(typeName))
        {
            return unbound;
        }
        // A fixed size is checked here so that a corrupt size is an error, not a bind warning.
        const auto probe = MakeSerializableValue(typeName)->GetSerializer();
        if (probe->DataSizeIsConstant() && probe->GetDataSize_bytes() != size)
        {
            Fail(offset,
                 Kiv::Core::FormatAlertMessage("%1% of type %2% holds %3% bytes instead of %4%",
                                               path, typeName, size, probe->GetDataSize_bytes()));
        }
        boost::shared_ptr<DataObject> bound;
        try
        {
            bound = BindSerializableType(*unbound);
        }
        catch (const Kiv::Core::Error& error)
        {
            Fail(offset, path + " of type " + typeName + ": " + error.what());
        }
        if (!bound)
        {
            Fail(offset, path + " of type " + typeName + " could not be bound");
        }
        return bound;
    }

    Kiv::Core::BinaryInputStream& m_In;
    std::uint64_t m_Consumed = 0;
};
} // namespace

std::uint64_t DataContainer::OutputData(Kiv::Core::BinaryOutputStream& out) const
{
    return ContainerBinaryWriter(out).WriteDocument(*this);
}

std::uint64_t DataContainer::InputData(Kiv::Core::BinaryInputStream& in)
{
    ContainerBinaryReader reader(in);
    const std::vector<ReadNode> entries = reader.ReadDocument();
    // Sub-containers are filled before they are stored, so each change is reported once.
    std::function<void(DataContainer&, const std::vector<ReadNode>&)> store =
        [&store](DataContainer& target, const std::vector<ReadNode>& nodes)
    {
        for (const auto& node : nodes)
        {
            if (node.value)
            {
                target.PutDataObject(node.key, node.value);
                continue;
            }
            const auto child = boost::make_shared<DataContainer>(node.locksEntries);
            store(*child, node.entries);
            target.PutDataObject(node.key, child);
        }
    };
    store(*this, entries);
    return reader.GetBytesConsumed();
}

} // namespace Kiv::DataCore
