#pragma once

#include <cstddef>
#include <string>

namespace Kiv::Access
{

// The temporary files being written right now (a save's copy, an export's output), so that an
// interrupted kiv removes them instead of leaving hidden files beside the user's. Libraries
// only watch their files; the front end that owns its process decides whether signals remove
// them (a Python interpreter keeps its own handlers). Every thread holds at most a few.
class InterruptCleanup
{
public:
    static const std::size_t NOT_WATCHED;

    // Watches path until the returned slot is released; a path too long for the fixed table
    // (or more files at once than it holds) is simply not watched.
    static std::size_t Watch(const std::string& path);
    static void Release(std::size_t slot);

    // Creates a new file from a mkstemp pattern (rewritten to the file's path) and watches it,
    // with the signals held off in between so that no moment leaves it unwatched. Returns the
    // open descriptor, or -1 with errno set; watch receives the slot to release.
    static int CreateTemporaryFile(std::string& pattern, std::size_t& watch);
};

// For a front end that owns its process (kiv, not a Python interpreter): on SIGINT, SIGTERM or
// SIGHUP, remove the watched files, then end as the signal would. A signal that whoever started
// the process chose to ignore stays ignored.
void RemoveWatchedFilesOnInterrupt();

} // namespace Kiv::Access
