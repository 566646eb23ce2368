#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "Kiv/DataCore/DataContainer.h"

namespace Kiv::Access
{

// The keys from the top of a file's tree down to one entry.
using EntryPath = std::vector<std::string>;

// "[Data Parameters] ScanRangeX": the path as a user reads it (UTF-8).
std::string DescribePath(const EntryPath& path);

// What a file's tree held at one moment: every entry's one-line rendering, the exact samples
// of every matrix list and a digest of every matrix's samples, so that a saved file can be
// checked against what was read. An image is only ever compared whole, so its digest stands
// in for a copy that would double the memory a save needs.
class TreeSnapshot
{
public:
    struct Samples
    {
        std::vector<std::size_t> shape; // rows, cols; for a list the shape of each item
        std::vector<float> values;      // a list's values; empty for a matrix
        std::size_t count = 0;          // how many samples there are
        std::uint64_t digest = 0;       // of the samples' bytes
        // Bit for bit, so that NaN samples compare equal to themselves.
        bool SameAs(const Samples& other) const;
    };

    explicit TreeSnapshot(Kiv::DataCore::DataContainer& root);

    // In tree order.
    const std::vector<std::pair<EntryPath, std::string>>& Renderings() const
    {
        return m_Renderings;
    }
    // The rendering of the entry at path, or null when the tree had none.
    const std::string* FindRendering(const EntryPath& path) const;
    const std::map<EntryPath, Samples>& SampleSets() const { return m_Samples; }

private:
    void Collect(Kiv::DataCore::DataContainer& container, EntryPath& path);

    std::vector<std::pair<EntryPath, std::string>> m_Renderings;
    std::map<EntryPath, std::size_t> m_Index;
    std::map<EntryPath, Samples> m_Samples;
};

} // namespace Kiv::Access
