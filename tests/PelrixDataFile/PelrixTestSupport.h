#pragma once

// What the reader and the writer tests share: a temporary folder, file bytes, and typed
// look-ups that name the value they did not find.

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>
#include <unistd.h>

#include "Pelrix/PelrixDataFile.h"

namespace PelrixTest
{

using Kiv::DataCore::DataContainer;
using Kiv::DataCore::DataFile;
using Kiv::DataCore::FloatMatrix;
using Kiv::DataCore::FloatMatrixList;
using Kiv::DataCore::HostLong;
using Kiv::DataCore::StringList;
using Kiv::DataCore::UnitizedDouble;
using Pelrix::PelrixDataFile;

// The Latin-1 micro sign, the one byte files spell "µ" with.
inline const std::string MICRO = "\xB5";

// A folder of its own for each test, removed with everything in it afterwards.
class TempFolder
{
public:
    TempFolder()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "pelrix.XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr)
        {
            throw std::runtime_error("cannot make a temporary folder from " + pattern);
        }
        m_Path = pattern;
    }
    ~TempFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_Path, ignored);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    // Writes bytes to a file in the folder and returns its path.
    std::string Write(const std::string& name, const std::string& bytes) const
    {
        const std::string path = PathOf(name);
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        if (!out)
        {
            throw std::runtime_error("cannot write " + path);
        }
        return path;
    }
    std::string PathOf(const std::string& name) const { return (m_Path / name).string(); }

private:
    std::filesystem::path m_Path;
};

inline std::string ReadBytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
    {
        throw std::runtime_error("cannot read " + path);
    }
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The little-endian bytes of the floats, as an image block holds them.
inline std::string FloatBytes(const std::vector<float>& samples)
{
    std::string bytes(samples.size() * sizeof(float), '\0');
    if (!samples.empty())
    {
        std::memcpy(&bytes[0], samples.data(), bytes.size());
    }
    return bytes;
}

// The value stored under key in a section; throws when it is missing or of another type, so
// that a test names the value it did not find.
template <class T>
T ValueIn(DataContainer& file, const std::string& section, const std::string& key)
{
    const auto container = file.GetSubData({section}, false);
    T value{};
    if (!container || !container->Get(key, value))
    {
        throw std::runtime_error("no value of the expected type under " + section + " / " + key);
    }
    return value;
}

inline UnitizedDouble UnitizedIn(DataContainer& file, const std::string& section,
                                 const std::string& key)
{
    const auto container = file.GetSubData({section}, false);
    UnitizedDouble value(0.0);
    if (!container || !container->Get(key, value))
    {
        throw std::runtime_error("no unitized value under " + section + " / " + key);
    }
    return value;
}

} // namespace PelrixTest
