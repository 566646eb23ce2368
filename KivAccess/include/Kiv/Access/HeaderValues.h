#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <boost/shared_ptr.hpp>

#include "Kiv/Access/Latin1.h"
#include "Kiv/Access/ValueView.h"
#include "Kiv/DataCore/DataContainer.h"

namespace Kiv::Access
{

// The header as a program reads it back (Python's File.header, the json export): one rule for
// what each stored value becomes, so that every front end hands out the same values.
//
// VisitHeaderValue calls exactly one of the visitor's
//   Section(DataContainer&)                       a section or record of further values
//   Text(const std::string& utf8)
//   Whole(std::int64_t)
//   Number(double)
//   Quantity(const boost::shared_ptr<UnitizedDouble>&)   a number with its unit
//   Texts(const std::vector<std::string>& utf8)
//   Nothing()                                     no value, or one of a type no reader knows
template <class Visitor>
void VisitHeaderValue(const boost::shared_ptr<Kiv::DataCore::DataObject>& object, Visitor& visitor)
{
    using namespace Kiv::DataCore;
    switch (object ? ClassifyValue(*object) : ValueKind::Other)
    {
    case ValueKind::Container:
        return visitor.Section(dynamic_cast<DataContainer&>(*object));
    case ValueKind::String:
        if (const auto text = ValueOf<std::string>(object))
        {
            return visitor.Text(Latin1ToUtf8(*text));
        }
        break;
    case ValueKind::Int:
        if (const auto number = ValueOf<int>(object))
        {
            return visitor.Whole(*number);
        }
        break;
    case ValueKind::Long:
        // The host's long is 32 bits wide in every file it writes.
        if (const auto number = ValueOf<HostLong>(object))
        {
            return visitor.Whole(static_cast<std::int32_t>(*number));
        }
        break;
    case ValueKind::Float:
        if (const auto number = ValueOf<float>(object))
        {
            return visitor.Number(static_cast<double>(*number));
        }
        break;
    case ValueKind::Double:
        if (const auto number = ValueOf<double>(object))
        {
            return visitor.Number(*number);
        }
        break;
    case ValueKind::Unitized:
        if (const auto quantity = ValueOf<UnitizedDouble>(object))
        {
            return visitor.Quantity(quantity);
        }
        break;
    case ValueKind::Strings:
        if (const auto texts = ValueOf<StringList>(object))
        {
            std::vector<std::string> utf8;
            utf8.reserve(texts->size());
            for (const auto& text : *texts)
            {
                utf8.push_back(Latin1ToUtf8(text));
            }
            return visitor.Texts(utf8);
        }
        break;
    case ValueKind::Matrix:
    case ValueKind::Matrices:
    case ValueKind::Other:
        break;
    }
    visitor.Nothing();
}

// Calls each(keyUtf8, object) for every entry of a section in order, leaving out samples (a
// matrix or a list of them): they are the data, not the header.
template <class Each>
void ForEachHeaderEntry(Kiv::DataCore::DataContainer& section, Each each)
{
    for (const auto& [key, object] : section.GetEntries())
    {
        const ValueKind kind = object ? ClassifyValue(*object) : ValueKind::Other;
        if (kind != ValueKind::Matrix && kind != ValueKind::Matrices)
        {
            each(Latin1ToUtf8(key), object);
        }
    }
}

} // namespace Kiv::Access
