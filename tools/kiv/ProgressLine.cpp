#include "ProgressLine.h"

#include <cstdio>
#include <string>
#include <unistd.h>

namespace Kiv::Tool
{

void ProgressLine::Show(const Kiv::Export::BatchProgress& progress)
{
    const auto now = std::chrono::steady_clock::now();
    if (progress.done != progress.total && now - m_Shown < std::chrono::milliseconds(100))
    {
        return;
    }
    m_Shown = now;
    const int width = static_cast<int>(std::to_string(progress.total).size());
    const double rate = progress.seconds > 0 ? progress.done / progress.seconds : 0.0;
    char line[128];
    std::snprintf(line, sizeof line, "\r\033[K[%*zu/%zu] %zu%%  %.0f files/s", width, progress.done,
                  progress.total, progress.done * 100 / progress.total, rate);
    m_Err << line << std::flush;
    m_Visible = true;
}

void ProgressLine::Clear()
{
    if (m_Visible)
    {
        m_Err << "\r\033[K" << std::flush;
        m_Visible = false;
    }
}

bool ErrorsGoToTerminal()
{
    return ::isatty(STDERR_FILENO) != 0;
}

} // namespace Kiv::Tool
