#include "Kiv/Core/PathName.h"

#include <sys/stat.h>

namespace Kiv::Core
{

bool PathName::Exists() const
{
    struct stat status = {};
    return !m_Path.empty() && ::stat(m_Path.c_str(), &status) == 0;
}

std::string PathName::GetFileName() const
{
    const std::size_t slash = m_Path.rfind('/');
    return slash == std::string::npos ? m_Path : m_Path.substr(slash + 1);
}

std::string PathName::GetDirectory() const
{
    const std::size_t slash = m_Path.rfind('/');
    if (slash == std::string::npos)
    {
        return std::string();
    }
    const std::size_t end = m_Path.find_last_not_of('/', slash);
    // Only slashes before the name: the directory is the root.
    return end == std::string::npos ? std::string("/") : m_Path.substr(0, end + 1);
}

} // namespace Kiv::Core
