#pragma once

#include <cstddef>
#include <string>

namespace Kiv::Export
{

// The temporary outputs being written right now, so that an interrupted kiv removes them
// instead of leaving hidden files beside the user's. Every worker thread holds at most one.
class InterruptCleanup
{
public:
    // Watches path until the returned slot is released; a path too long for the fixed table
    // (or more outputs at once than it holds) is simply not watched.
    static std::size_t Watch(const std::string& path);
    static void Release(std::size_t slot);
    static const std::size_t NOT_WATCHED;
};

} // namespace Kiv::Export
