#include "Kiv/Access/TreeSnapshot.h"

#include <cstring>

#include <xxhash.h>

#include "Kiv/Access/Latin1.h"
#include "Kiv/Access/ValueView.h"

namespace Kiv::Access
{

using namespace Kiv::DataCore;

std::string DescribePath(const EntryPath& path)
{
    std::string text;
    for (const auto& key : path)
    {
        // A key that is empty or has blanks at its ends would vanish into the message.
        const bool quoted = key.empty() || key.front() == ' ' || key.back() == ' ';
        text += (text.empty() ? "" : " ") + (quoted ? QuoteText(key) : Latin1ToUtf8(key));
    }
    return text;
}

namespace
{
// XXH3 reads at memory speed, so the digest of an image costs a fraction of reading it.
std::uint64_t Digest(const float* samples, std::size_t count)
{
    return XXH3_64bits(samples, count * sizeof(float));
}
} // namespace

bool TreeSnapshot::Samples::SameAs(const Samples& other) const
{
    return shape == other.shape && count == other.count && digest == other.digest &&
           values.size() == other.values.size() &&
           (values.empty() ||
            std::memcmp(values.data(), other.values.data(), values.size() * sizeof(float)) == 0);
}

TreeSnapshot::TreeSnapshot(DataContainer& root)
{
    EntryPath path;
    Collect(root, path);
}

const std::string* TreeSnapshot::FindRendering(const EntryPath& path) const
{
    const auto found = m_Index.find(path);
    return found == m_Index.end() ? nullptr : &m_Renderings[found->second].second;
}

void TreeSnapshot::Collect(DataContainer& container, EntryPath& path)
{
    for (const auto& [key, object] : container.GetEntries())
    {
        path.push_back(key);
        m_Index[path] = m_Renderings.size();
        const auto matrix = ValueOf<FloatMatrix>(object);
        // A matrix's samples are compared exactly below: its figures (a pass over every
        // sample) would only repeat that comparison, so its rendering is its shape.
        m_Renderings.emplace_back(path, matrix ? KindName(*object) + ", " +
                                                     std::to_string(matrix->size1()) + " x " +
                                                     std::to_string(matrix->size2())
                                               : RenderValue(object));
        if (const auto child = boost::dynamic_pointer_cast<DataContainer>(object))
        {
            Collect(*child, path);
        }
        else if (matrix)
        {
            const float* const begin = MatrixSamples(*matrix);
            const std::size_t count = matrix->data().size();
            m_Samples[path] = {{matrix->size1(), matrix->size2()}, {}, count, Digest(begin, count)};
        }
        else if (const auto list = ValueOf<FloatMatrixList>(object))
        {
            Samples& samples = m_Samples[path];
            for (const FloatMatrix& item : *list)
            {
                samples.shape.push_back(item.size1());
                samples.shape.push_back(item.size2());
                const float* const begin = MatrixSamples(item);
                samples.values.insert(samples.values.end(), begin, begin + item.data().size());
            }
            samples.count = samples.values.size();
            samples.digest = Digest(samples.values.data(), samples.count);
        }
        path.pop_back();
    }
}

} // namespace Kiv::Access
