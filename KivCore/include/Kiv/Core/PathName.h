#pragma once

#include <string>
#include <utility>

namespace Kiv::Core
{

// A file system path split at its last "/". Nothing is resolved or normalised: the path is
// taken as the caller wrote it.
class PathName
{
public:
    explicit PathName(std::string path) : m_Path(std::move(path)) {}

    // Whether something (file, folder, ...) exists there; false for the empty path.
    bool Exists() const;
    const std::string& GetPath() const { return m_Path; }
    // The part after the last "/": "scan.flt" for "data/scan.flt", empty for "data/".
    std::string GetFileName() const;
    // The part before the last "/" without trailing slashes: "data" for "data/scan.flt", "/"
    // for "/scan.flt", empty for "scan.flt".
    std::string GetDirectory() const;

private:
    std::string m_Path;
};

} // namespace Kiv::Core
