#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Kiv/Access/InterruptCleanup.h"

namespace
{

using Kiv::Access::InterruptCleanup;

// A child process watches two files (one by name, one made from a pattern) and one released
// file, then is terminated: the watched files must be gone, the released one kept, and the
// child must end by the signal, as if nothing had caught it.
TEST(InterruptCleanup, ASignalRemovesTheWatchedFilesAndStillEndsTheProcess)
{
    const auto folder =
        std::filesystem::temp_directory_path() / ("kiv-interrupt-" + std::to_string(::getpid()));
    std::filesystem::create_directories(folder);
    const std::string named = (folder / "named").string();
    const std::string released = (folder / "released").string();
    const std::string pattern = (folder / ".made.kiv-XXXXXX").string();

    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0)
    {
        Kiv::Access::RemoveWatchedFilesOnInterrupt();
        ::close(::creat(named.c_str(), 0600));
        InterruptCleanup::Watch(named);
        ::close(::creat(released.c_str(), 0600));
        InterruptCleanup::Release(InterruptCleanup::Watch(released));
        std::string made = pattern;
        std::size_t slot = InterruptCleanup::NOT_WATCHED;
        if (InterruptCleanup::CreateTemporaryFile(made, slot) < 0 ||
            slot == InterruptCleanup::NOT_WATCHED)
        {
            ::_exit(3);
        }
        ::raise(SIGTERM);
        ::_exit(4); // not reached: the signal ends the child
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << "status " << status;

    std::vector<std::string> left;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
    {
        left.push_back(entry.path().filename().string());
    }
    EXPECT_EQ(left, std::vector<std::string>{"released"});
    std::filesystem::remove_all(folder);
}

} // namespace
