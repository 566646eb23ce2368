#include "Kiv/Core/HostLong.h"

#include <istream>
#include <ostream>

namespace Kiv::Core
{

std::ostream& operator<<(std::ostream& out, HostLong value)
{
    return out << static_cast<std::int32_t>(value);
}

std::istream& operator>>(std::istream& in, HostLong& value)
{
    std::int32_t read = 0;
    if (in >> read)
    {
        value = HostLong(read);
    }
    return in;
}

} // namespace Kiv::Core
