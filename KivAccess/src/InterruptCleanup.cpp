#include "Kiv/Access/InterruptCleanup.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <pthread.h>
#include <unistd.h>

namespace Kiv::Access
{

namespace
{
const std::size_t SLOT_COUNT = 256;
const int WATCHED_SIGNALS[] = {SIGINT, SIGTERM, SIGHUP};

// The signal handler may only read fixed memory and call async-signal-safe functions.
struct Slot
{
    std::atomic<bool> taken{false};
    std::atomic<bool> armed{false};
    char path[PATH_MAX] = {}; // zeroed, so the table is static data, not built at load time
};
Slot g_Slots[SLOT_COUNT];

static_assert(std::atomic<bool>::is_always_lock_free);

extern "C" void RemoveWatchedAndReraise(int signalNumber)
{
    for (Slot& slot : g_Slots)
    {
        if (slot.armed.load())
        {
            ::unlink(slot.path);
        }
    }
    // Installed with SA_RESETHAND: the signal's own action ends the process now.
    ::raise(signalNumber);
}

sigset_t WatchedSet()
{
    sigset_t set;
    sigemptyset(&set);
    for (const int signalNumber : WATCHED_SIGNALS)
    {
        sigaddset(&set, signalNumber);
    }
    return set;
}
} // namespace

const std::size_t InterruptCleanup::NOT_WATCHED = SLOT_COUNT;

std::size_t InterruptCleanup::Watch(const std::string& path)
{
    if (path.size() >= PATH_MAX)
    {
        return NOT_WATCHED;
    }
    for (std::size_t i = 0; i < SLOT_COUNT; ++i)
    {
        if (!g_Slots[i].taken.exchange(true))
        {
            std::memcpy(g_Slots[i].path, path.c_str(), path.size() + 1);
            g_Slots[i].armed.store(true);
            return i;
        }
    }
    return NOT_WATCHED;
}

void InterruptCleanup::Release(std::size_t slot)
{
    if (slot < SLOT_COUNT)
    {
        g_Slots[slot].armed.store(false);
        g_Slots[slot].taken.store(false);
    }
}

int InterruptCleanup::CreateTemporaryFile(std::string& pattern, std::size_t& watch)
{
    const sigset_t watched = WatchedSet();
    sigset_t previousMask;
    pthread_sigmask(SIG_BLOCK, &watched, &previousMask);
    const int descriptor = ::mkstemp(pattern.data());
    const int error = errno;
    watch = descriptor >= 0 ? Watch(pattern) : NOT_WATCHED;
    pthread_sigmask(SIG_SETMASK, &previousMask, nullptr);
    errno = error;
    return descriptor;
}

void RemoveWatchedFilesOnInterrupt()
{
    for (const int signalNumber : WATCHED_SIGNALS)
    {
        struct sigaction previous
        {
        };
        sigaction(signalNumber, nullptr, &previous);
        // A signal that whoever started us chose to ignore stays ignored.
        if (previous.sa_handler == SIG_IGN)
        {
            continue;
        }
        struct sigaction action
        {
        };
        action.sa_handler = RemoveWatchedAndReraise;
        action.sa_flags = SA_RESETHAND;
        sigemptyset(&action.sa_mask);
        sigaction(signalNumber, &action, nullptr);
    }
}

} // namespace Kiv::Access
