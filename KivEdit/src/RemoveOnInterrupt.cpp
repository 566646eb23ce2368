#include "RemoveOnInterrupt.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include <unistd.h>

namespace Kiv::Edit
{

namespace
{
const int WATCHED_SIGNALS[] = {SIGINT, SIGTERM, SIGHUP};
const int SIGNAL_COUNT = sizeof WATCHED_SIGNALS / sizeof WATCHED_SIGNALS[0];

// The handler may use only what is async-signal-safe: a fixed buffer, not a std::string.
char g_PathToRemove[PATH_MAX];
volatile std::sig_atomic_t g_Armed = 0;
struct sigaction g_Previous[SIGNAL_COUNT];

extern "C" void RemoveAndReraise(int signalNumber)
{
    if (g_Armed)
    {
        ::unlink(g_PathToRemove);
    }
    // The handler was installed with SA_RESETHAND: the signal's default action ends kiv once
    // this handler returns.
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

int RemoveOnInterrupt::CreateTemporaryFile(std::string& pattern)
{
    const sigset_t watched = WatchedSet();
    sigset_t previousMask;
    sigprocmask(SIG_BLOCK, &watched, &previousMask);
    const int descriptor = ::mkstemp(pattern.data());
    const int error = errno;
    // A path too long to hold, or a second file while one is watched, gets only the normal
    // cleanup.
    if (descriptor >= 0 && pattern.size() < sizeof g_PathToRemove && !g_Armed)
    {
        Watch(pattern);
    }
    sigprocmask(SIG_SETMASK, &previousMask, nullptr);
    errno = error;
    return descriptor;
}

void RemoveOnInterrupt::Watch(const std::string& path)
{
    std::memcpy(g_PathToRemove, path.c_str(), path.size() + 1);
    for (int i = 0; i < SIGNAL_COUNT; ++i)
    {
        struct sigaction action
        {
        };
        action.sa_handler = RemoveAndReraise;
        action.sa_flags = SA_RESETHAND;
        sigemptyset(&action.sa_mask);
        sigaction(WATCHED_SIGNALS[i], nullptr, &g_Previous[i]);
        if (g_Previous[i].sa_handler != SIG_IGN)
        {
            sigaction(WATCHED_SIGNALS[i], &action, nullptr);
        }
    }
    g_Armed = 1;
    m_Armed = true;
}

RemoveOnInterrupt::~RemoveOnInterrupt()
{
    Release();
}

void RemoveOnInterrupt::Release()
{
    if (!m_Armed)
    {
        return;
    }
    const sigset_t watched = WatchedSet();
    sigset_t previousMask;
    sigprocmask(SIG_BLOCK, &watched, &previousMask);
    g_Armed = 0;
    m_Armed = false;
    for (int i = 0; i < SIGNAL_COUNT; ++i)
    {
        sigaction(WATCHED_SIGNALS[i], &g_Previous[i], nullptr);
    }
    sigprocmask(SIG_SETMASK, &previousMask, nullptr);
}

} // namespace Kiv::Edit
