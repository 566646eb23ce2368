// The unified diff a dry run shows: the header before and after the save, line by line.
#include <algorithm>
#include <sstream>
#include <vector>

#include "Kiv/Edit/SafeSave.h"

namespace Kiv::Edit
{

namespace
{
constexpr std::size_t CONTEXT_LINES = 3;

// Lines without their breaks: the header's CR LF would only show as noise.
std::vector<std::string> SplitLines(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
    {
        if (!line.empty() && line.back() == '\r')
        {
            line.pop_back();
        }
        lines.push_back(line);
    }
    return lines;
}

struct Step
{
    char mark; // ' ', '-' or '+'
    std::size_t before;
    std::size_t after;
};

// The longest common subsequence of the two line lists, as a script of kept, removed and added
// lines. Headers are a few hundred lines, so the quadratic table is small.
std::vector<Step> Script(const std::vector<std::string>& a, const std::vector<std::string>& b)
{
    std::vector<std::vector<std::size_t>> common(a.size() + 1,
                                                 std::vector<std::size_t>(b.size() + 1, 0));
    for (std::size_t i = a.size(); i-- > 0;)
    {
        for (std::size_t j = b.size(); j-- > 0;)
        {
            common[i][j] = a[i] == b[j] ? common[i + 1][j + 1] + 1
                                        : std::max(common[i + 1][j], common[i][j + 1]);
        }
    }
    std::vector<Step> steps;
    std::size_t i = 0;
    std::size_t j = 0;
    while (i < a.size() || j < b.size())
    {
        if (i < a.size() && j < b.size() && a[i] == b[j])
        {
            steps.push_back({' ', i++, j++});
        }
        else if (j == b.size() || (i < a.size() && common[i + 1][j] >= common[i][j + 1]))
        {
            steps.push_back({'-', i++, j});
        }
        else
        {
            steps.push_back({'+', i, j++});
        }
    }
    return steps;
}

std::string Range(std::size_t start, std::size_t count)
{
    // A hunk that holds no line of a side names the line before it, as diff -u does.
    return std::to_string(count == 0 ? start : start + 1) + "," + std::to_string(count);
}
} // namespace

std::string SaveReport::HeaderDiff() const
{
    const std::vector<std::string> before = SplitLines(headerBefore);
    const std::vector<std::string> after = SplitLines(headerAfter);
    const std::vector<Step> steps = Script(before, after);
    std::ostringstream out;
    for (std::size_t index = 0; index < steps.size();)
    {
        if (steps[index].mark == ' ')
        {
            ++index;
            continue;
        }
        // A hunk: the changes from here on while no more than twice the context lies between
        // two of them, with the context around.
        const std::size_t first = index > CONTEXT_LINES ? index - CONTEXT_LINES : 0;
        std::size_t last = index;
        for (std::size_t probe = index; probe < steps.size(); ++probe)
        {
            if (steps[probe].mark != ' ')
            {
                last = probe;
            }
            else if (probe - last > 2 * CONTEXT_LINES)
            {
                break;
            }
        }
        const std::size_t end = std::min(steps.size(), last + 1 + CONTEXT_LINES);
        std::size_t removed = 0;
        std::size_t added = 0;
        for (std::size_t step = first; step < end; ++step)
        {
            removed += steps[step].mark != '+';
            added += steps[step].mark != '-';
        }
        if (out.tellp() == 0)
        {
            out << "--- header before\n+++ header after\n";
        }
        out << "@@ -" << Range(steps[first].before, removed) << " +"
            << Range(steps[first].after, added) << " @@\n";
        for (std::size_t step = first; step < end; ++step)
        {
            const Step& s = steps[step];
            out << s.mark << (s.mark == '+' ? after[s.after] : before[s.before]) << '\n';
        }
        index = end;
    }
    return out.str();
}

} // namespace Kiv::Edit
