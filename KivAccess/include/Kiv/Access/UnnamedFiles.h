#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace Kiv::Access
{

// Files written without a name (O_TMPFILE) and named only when complete, as saves and exports
// write them, and the hidden names that stand in where that cannot be done.

// Whether this process can reach its open files by path (/proc/self/fd), which giving an
// unnamed file a name needs; without it, writers use hidden named files instead.
bool CanNameOpenFiles();

// The path through which this process reaches an open file.
std::string OpenFilePath(int descriptor);

// ".NAME.kiv-" for a file named NAME: how every hidden name beside it begins, so that a later
// run can tell its leftovers from the user's files.
std::string HiddenNamePrefix(const std::string& fileName);

// The prefix above and randomLetters random letters and digits, beside path.
std::string HiddenNameBeside(const std::string& path, std::size_t randomLetters);

// Which step of LinkOver failed, and its errno.
struct NamingFailure
{
    enum Step
    {
        LINK,
        RENAME
    } step;
    int error;
};

// Puts the file reached by openFilePath in target's place. Only a rename replaces a file in
// one step, and it needs a name to move: a hidden one beside target (randomLetters long), which
// stands, watched for an interrupt, only between the link and the rename. A kill in between
// leaves it; the caller's next run of the same kind may remove it.
std::optional<NamingFailure> LinkOver(const std::string& openFilePath, const std::string& target,
                                      std::size_t randomLetters);

} // namespace Kiv::Access
