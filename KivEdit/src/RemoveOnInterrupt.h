#pragma once

#include <string>

namespace Kiv::Edit
{

// Removes a file if kiv is interrupted or terminated (SIGINT, SIGTERM, SIGHUP) while this
// object lives, then ends kiv as the signal would have: a save cut short leaves no hidden
// temporary file beside the user's file. One file at a time; a signal the caller of kiv chose
// to ignore stays ignored.
class RemoveOnInterrupt
{
public:
    RemoveOnInterrupt() = default;
    ~RemoveOnInterrupt();
    RemoveOnInterrupt(const RemoveOnInterrupt&) = delete;
    RemoveOnInterrupt& operator=(const RemoveOnInterrupt&) = delete;

    // Creates a new file from a mkstemp pattern (rewritten to the file's path) and watches it,
    // with the signals held off in between so that no moment leaves it unwatched. Returns the
    // open descriptor, or -1 with errno set.
    int CreateTemporaryFile(std::string& pattern);

    // Stops watching the file, once it has been renamed or removed.
    void Release();

private:
    void Watch(const std::string& path);

    bool m_Armed = false;
};

} // namespace Kiv::Edit
