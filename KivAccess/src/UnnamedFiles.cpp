#include "Kiv/Access/UnnamedFiles.h"

#include <cerrno>
#include <fcntl.h>
#include <random>
#include <unistd.h>

#include "Kiv/Access/InterruptCleanup.h"

namespace Kiv::Access
{

bool CanNameOpenFiles()
{
    static const bool available = ::access("/proc/self/fd", X_OK) == 0;
    return available;
}

std::string OpenFilePath(int descriptor)
{
    return "/proc/self/fd/" + std::to_string(descriptor);
}

std::string HiddenNamePrefix(const std::string& fileName)
{
    return "." + fileName + ".kiv-";
}

std::string HiddenNameBeside(const std::string& path, std::size_t randomLetters)
{
    static const char LETTERS[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    thread_local std::mt19937_64 engine{std::random_device{}()};
    std::uniform_int_distribution<std::size_t> pick(0, sizeof LETTERS - 2);
    const std::size_t slash = path.find_last_of('/');
    const std::string folder = slash == std::string::npos ? "" : path.substr(0, slash + 1);
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    std::string hidden = folder + HiddenNamePrefix(name);
    for (std::size_t i = 0; i < randomLetters; ++i)
    {
        hidden += LETTERS[pick(engine)];
    }
    return hidden;
}

std::optional<NamingFailure> LinkOver(const std::string& openFilePath, const std::string& target,
                                      std::size_t randomLetters)
{
    const int NAME_ATTEMPTS = 100;
    for (int attempt = 0; attempt < NAME_ATTEMPTS; ++attempt)
    {
        const std::string hidden = HiddenNameBeside(target, randomLetters);
        const std::size_t watch = InterruptCleanup::Watch(hidden);
        if (::linkat(AT_FDCWD, openFilePath.c_str(), AT_FDCWD, hidden.c_str(), AT_SYMLINK_FOLLOW) !=
            0)
        {
            const int error = errno;
            InterruptCleanup::Release(watch);
            if (error == EEXIST)
            {
                continue;
            }
            return NamingFailure{NamingFailure::LINK, error};
        }
        const bool moved = ::rename(hidden.c_str(), target.c_str()) == 0;
        const int error = errno;
        if (!moved)
        {
            ::unlink(hidden.c_str());
        }
        InterruptCleanup::Release(watch);
        if (!moved)
        {
            return NamingFailure{NamingFailure::RENAME, error};
        }
        return std::nullopt;
    }
    return NamingFailure{NamingFailure::LINK, EEXIST};
}

} // namespace Kiv::Access
