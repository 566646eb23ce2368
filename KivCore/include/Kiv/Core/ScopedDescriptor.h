#pragma once

#include <unistd.h>

namespace Kiv::Core
{

// A file descriptor closed when it goes out of scope, so that no early return leaks one.
class ScopedDescriptor
{
public:
    explicit ScopedDescriptor(int descriptor) : m_Descriptor(descriptor) {}
    ~ScopedDescriptor()
    {
        if (m_Descriptor >= 0)
        {
            ::close(m_Descriptor);
        }
    }
    ScopedDescriptor(const ScopedDescriptor&) = delete;
    ScopedDescriptor& operator=(const ScopedDescriptor&) = delete;

    int Get() const { return m_Descriptor; }

    // Closes now, so that an error of the close itself is seen; false when it failed.
    bool Close()
    {
        const int descriptor = m_Descriptor;
        m_Descriptor = -1;
        return ::close(descriptor) == 0;
    }

private:
    int m_Descriptor;
};

} // namespace Kiv::Core
