// Which files of the folder trees a gallery shows, and what tells that one changed.
#include <algorithm>
#include <cctype>
#include <filesystem>
#include <set>
#include <sys/stat.h>

#include "GalleryParts.h"
#include "Kiv/Access/Failure.h"

namespace Kiv::Export
{

namespace fs = std::filesystem;

namespace
{
std::string Lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::set<std::string> ScanExtensions()
{
    std::set<std::string> extensions;
    for (const auto& type : Kiv::DataCore::DataFile::ListFileTypes())
    {
        for (const auto& extension : type.extensions)
        {
            extensions.insert(Lower(extension));
        }
    }
    return extensions;
}

bool HasScanExtension(const std::string& name, const std::set<std::string>& extensions)
{
    const std::size_t dot = name.find_last_of('.');
    return dot != std::string::npos && dot > 0 && extensions.count(Lower(name.substr(dot + 1)));
}

struct Identity
{
    dev_t device = 0;
    ino_t inode = 0;
    bool known = false;
};

Identity IdentityOf(const std::string& path)
{
    struct stat status
    {
    };
    if (::stat(path.c_str(), &status) != 0)
    {
        return {};
    }
    return {status.st_dev, status.st_ino, true};
}

// The name each folder's scans go under when there are several: its own, made unique.
std::vector<std::string> FolderNames(const std::vector<std::string>& folders)
{
    std::vector<std::string> names;
    std::set<std::string> taken;
    for (const auto& folder : folders)
    {
        std::error_code error;
        std::string base = fs::weakly_canonical(folder, error).filename().string();
        if (base.empty())
        {
            base = "root";
        }
        std::string name = base;
        for (int suffix = 2; !taken.insert(name).second; ++suffix)
        {
            name = base + "-" + std::to_string(suffix);
        }
        names.push_back(name);
    }
    return names;
}

std::string Joined(const std::string& folder, const std::string& rest)
{
    return folder.empty() || folder.back() == '/' ? folder + rest : folder + "/" + rest;
}

void AddScansOf(const std::string& folder, const std::string& prefix, const Identity& output,
                const std::set<std::string>& extensions, std::vector<ScanFile>& scans)
{
    std::error_code error;
    auto entry = fs::recursive_directory_iterator(
        folder, fs::directory_options::skip_permission_denied, error);
    for (; !error && entry != fs::recursive_directory_iterator(); entry.increment(error))
    {
        const std::string path = entry->path().string();
        struct stat status
        {
        };
        if (::stat(path.c_str(), &status) != 0)
        {
            continue;
        }
        if (S_ISDIR(status.st_mode))
        {
            if (output.known && status.st_dev == output.device && status.st_ino == output.inode)
            {
                entry.disable_recursion_pending();
            }
            continue;
        }
        if (!S_ISREG(status.st_mode) ||
            !HasScanExtension(entry->path().filename().string(), extensions))
        {
            continue;
        }
        const std::string relative = entry->path().lexically_relative(folder).generic_string();
        ScanFile scan;
        scan.source = Joined(folder, relative);
        scan.relative = prefix.empty() ? relative : prefix + "/" + relative;
        scan.bytes = static_cast<std::int64_t>(status.st_size);
        scan.modifiedNs =
            static_cast<std::int64_t>(status.st_mtim.tv_sec) * 1000000000 + status.st_mtim.tv_nsec;
        scans.push_back(std::move(scan));
    }
    if (error)
    {
        Kiv::Access::FailWithSystemError(folder + ": cannot list the folder", error.value());
    }
}
} // namespace

std::vector<ScanFile> FindScans(const std::vector<std::string>& folders,
                                const std::string& outputFolder)
{
    const auto extensions = ScanExtensions();
    const Identity output = IdentityOf(outputFolder);
    const auto names = FolderNames(folders);
    std::vector<ScanFile> scans;
    for (std::size_t i = 0; i < folders.size(); ++i)
    {
        AddScansOf(folders[i], folders.size() == 1 ? std::string() : names[i], output, extensions,
                   scans);
    }
    std::sort(scans.begin(), scans.end(),
              [](const ScanFile& a, const ScanFile& b) { return a.relative < b.relative; });
    return scans;
}

} // namespace Kiv::Export
