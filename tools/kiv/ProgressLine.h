#pragma once

#include <chrono>
#include <ostream>

#include "Kiv/Export/FileBatch.h"

namespace Kiv::Tool
{

// "[ 120/1000] 12%  340 files/s", redrawn in place at most ten times a second and for the last
// file. Only for a terminal: a log file gets the failures and the summary alone.
class ProgressLine
{
public:
    explicit ProgressLine(std::ostream& err) : m_Err(err) {}

    void Show(const Kiv::Export::BatchProgress& progress);
    // Takes the line away before anything else is written to the terminal.
    void Clear();

private:
    std::ostream& m_Err;
    std::chrono::steady_clock::time_point m_Shown{};
    bool m_Visible = false;
};

// Whether stderr is a terminal, where a progress line belongs.
bool ErrorsGoToTerminal();

} // namespace Kiv::Tool
