#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <boost/make_shared.hpp>

#include "Kiv/Edit/SafeSave.h"
#include "Pelrix/PelrixDataFile.h"
#include "Pelrix/PelrixDataFileFactory.h"

namespace KivEditTest
{

namespace fs = std::filesystem;

// The file type built in: these tests call the library, not the module loader.
inline void RegisterPelrix()
{
    Kiv::DataCore::RegisterDataFileFactory(typeid(Pelrix::PelrixDataFile),
                                           boost::make_shared<Pelrix::PelrixDataFileFactory>());
}

inline std::string ReadAll(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void WriteAll(const fs::path& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

// A fresh folder, removed with what it holds.
class Folder
{
public:
    Folder()
    {
        std::string pattern = (fs::temp_directory_path() / "kiv-edit-XXXXXX").string();
        m_Path = ::mkdtemp(pattern.data());
    }
    ~Folder()
    {
        std::error_code ignored;
        fs::remove_all(m_Path, ignored);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    fs::path operator/(const std::string& name) const { return m_Path / name; }
    std::size_t Count() const
    {
        return static_cast<std::size_t>(
            std::distance(fs::directory_iterator(m_Path), fs::directory_iterator()));
    }

private:
    fs::path m_Path;
};

inline std::string Sample(const std::string& name)
{
    return ReadAll(fs::path(KIV_SAMPLES_DIR) / name);
}

inline std::string SaveCorpusFile(const std::string& name)
{
    return ReadAll(fs::path(KIV_TEST_SOURCE_DIR) / "fuzz" / "save-corpus" / name);
}

} // namespace KivEditTest
