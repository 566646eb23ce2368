#include "Kiv/Core/BinaryStream.h"

#include <algorithm>

namespace Kiv::Core
{

void StreamPositionListener::OnInputPositionChanging(BinaryInputStream&) {}

void StreamPositionListener::OnOutputPositionChanging(BinaryOutputStream&) {}

void StreamPositionListener::OnBytesWritten(BinaryOutputStream&, std::int64_t, std::uint64_t) {}

void StreamListenerList::Add(StreamPositionListener* listener)
{
    if (listener == nullptr ||
        std::find(m_Listeners.begin(), m_Listeners.end(), listener) != m_Listeners.end())
    {
        return;
    }
    m_Listeners.push_back(listener);
}

void StreamListenerList::Remove(StreamPositionListener* listener) noexcept
{
    m_Listeners.erase(std::remove(m_Listeners.begin(), m_Listeners.end(), listener),
                      m_Listeners.end());
}

// Indexed loops: a listener may remove itself (or another) while it is being told, which
// would invalidate iterators.
void StreamListenerList::NotifyInputPositionChanging(BinaryInputStream& stream) const
{
    for (std::size_t i = 0; i < m_Listeners.size(); ++i)
    {
        m_Listeners[i]->OnInputPositionChanging(stream);
    }
}

void StreamListenerList::NotifyOutputPositionChanging(BinaryOutputStream& stream) const
{
    for (std::size_t i = 0; i < m_Listeners.size(); ++i)
    {
        m_Listeners[i]->OnOutputPositionChanging(stream);
    }
}

void StreamListenerList::NotifyBytesWritten(BinaryOutputStream& stream, std::int64_t pos,
                                            std::uint64_t count) const
{
    for (std::size_t i = 0; i < m_Listeners.size(); ++i)
    {
        m_Listeners[i]->OnBytesWritten(stream, pos, count);
    }
}

void BinaryInputStream::Close() {}

std::string BinaryInputStream::GetStreamName() const
{
    return std::string();
}

void BinaryInputStream::AddListener(StreamPositionListener*) {}

void BinaryInputStream::RemoveListener(StreamPositionListener*) {}

void BinaryOutputStream::Write(unsigned char byte)
{
    Write(&byte, 1);
}

void BinaryOutputStream::Flush() {}

void BinaryOutputStream::Close() {}

std::string BinaryOutputStream::GetStreamName() const
{
    return std::string();
}

void BinaryOutputStream::AddListener(StreamPositionListener*) {}

void BinaryOutputStream::RemoveListener(StreamPositionListener*) {}

} // namespace Kiv::Core
