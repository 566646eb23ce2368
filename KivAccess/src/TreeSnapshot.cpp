#include "Kiv/Access/TreeSnapshot.h"

#include <cstring>

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

bool TreeSnapshot::Samples::SameAs(const Samples& other) const
{
    return shape == other.shape && values.size() == other.values.size() &&
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
        m_Renderings.emplace_back(path, RenderValue(object));
        if (const auto child = boost::dynamic_pointer_cast<DataContainer>(object))
        {
            Collect(*child, path);
        }
        else if (const auto matrix = ValueOf<FloatMatrix>(object))
        {
            const float* const begin = MatrixSamples(*matrix);
            m_Samples[path] = {{matrix->size1(), matrix->size2()},
                               std::vector<float>(begin, begin + matrix->data().size())};
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
        }
        path.pop_back();
    }
}

} // namespace Kiv::Access
