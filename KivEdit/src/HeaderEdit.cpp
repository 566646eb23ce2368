#include "Kiv/Edit/HeaderEdit.h"

#include <cmath>
#include <cstdlib>

#include "Kiv/Access/Failure.h"
#include "Kiv/Access/Latin1.h"
#include "Kiv/Access/NumberText.h"
#include "Kiv/Access/ValueView.h"

namespace Kiv::Edit
{

using namespace Kiv::Access;

using namespace Kiv::DataCore;

namespace
{
std::string Quoted(const std::string& latin1)
{
    return "\"" + Latin1ToUtf8(latin1) + "\"";
}

// An entry that a file type derives from where things lie in the file rather than reads from
// it: the overview record's "DataOffset" is the end of the header, which moves with every
// edit that changes the header's length.
bool IsDerivedFromLayout(const EntryPath& path)
{
    return path == EntryPath{"PelrixFileOverviewInfo", "DataOffset"};
}

bool SameNumber(double stored, double expected)
{
    return stored == expected || (std::isnan(stored) && std::isnan(expected));
}

// Whether the value read back is what "set" stored: the text itself, or, for a key the file
// type reads as a number, the number the text spells (and its unit, after the first blank).
bool ReadsBackAsSet(const boost::shared_ptr<DataObject>& object, const std::string& value)
{
    const double number = std::strtod(value.c_str(), nullptr);
    switch (ClassifyValue(*object))
    {
    case ValueKind::String:
    {
        const auto text = ValueOf<std::string>(object);
        return text && *text == value;
    }
    case ValueKind::Int:
    {
        const auto stored = ValueOf<int>(object);
        return stored && SameNumber(*stored, number);
    }
    case ValueKind::Long:
    {
        const auto stored = ValueOf<HostLong>(object);
        return stored && SameNumber(static_cast<double>(*stored), number);
    }
    case ValueKind::Float:
    {
        const auto stored = ValueOf<float>(object);
        return stored && SameNumber(*stored, std::strtof(value.c_str(), nullptr));
    }
    case ValueKind::Double:
    {
        const auto stored = ValueOf<double>(object);
        return stored && SameNumber(*stored, number);
    }
    case ValueKind::Unitized:
    {
        const auto stored = ValueOf<UnitizedDouble>(object);
        const std::size_t blank = value.find(' ');
        const std::string unit = blank == std::string::npos ? "" : value.substr(blank + 1);
        return stored && stored->GetUnit() && SameNumber(stored->GetValue(), number) &&
               stored->GetUnit()->GetAbbreviation() == unit;
    }
    default:
        return false;
    }
}

// The value as "reads back as ..." shows it: without its kind.
std::string ShownValue(const boost::shared_ptr<DataObject>& object)
{
    const std::string rendering = RenderValue(object);
    const std::string kind = KindName(*object);
    return rendering.compare(0, kind.size() + 1, kind + " ") == 0
               ? rendering.substr(kind.size() + 1)
               : rendering;
}

std::string FindEditedKeyProblem(DataFile& saved, const HeaderEdit& edit)
{
    const EntryPath path{edit.section, edit.key};
    const auto section = saved.GetSubData({edit.section}, false);
    const bool present = section && section->Exists(edit.key);
    if (edit.action == HeaderEdit::Action::Unset)
    {
        return present ? DescribePath(path) + " is still there after saving" : std::string();
    }
    if (!present)
    {
        return DescribePath(path) + " is missing after saving";
    }
    const auto object = section->Get(edit.key);
    if (!object || !ReadsBackAsSet(object, edit.value))
    {
        const bool text = object && ClassifyValue(*object) == ValueKind::String;
        return DescribePath(path) + " reads back as " +
               (object ? ShownValue(object) : std::string("nothing")) + ", not " +
               (text ? QuoteText(edit.value) : Latin1ToUtf8(edit.value));
    }
    return std::string();
}

template <class T>
bool PutParsed(DataContainer& section, const std::string& key, const std::optional<T>& number)
{
    if (number)
    {
        section.Put<T>(key, *number);
    }
    return number.has_value();
}

// A key the file holds as a plain number gets a number of the same kind when the text spells
// one: the file type may act on the type, as the writer pads the header up to "DataOffset"
// only when it holds a number. Anything else is stored as the text.
void StoreValue(DataContainer& section, const std::string& key, const std::string& text)
{
    const auto existing = section.Exists(key) ? section.Get(key) : nullptr;
    bool stored = false;
    switch (existing ? ClassifyValue(*existing) : ValueKind::Other)
    {
    case ValueKind::Int:
        stored = PutParsed(section, key, ParseWholeInt(text));
        break;
    case ValueKind::Long:
        stored = PutParsed(section, key, ParseWholeLong(text));
        break;
    case ValueKind::Float:
        stored = PutParsed(section, key, ParseWholeFloat(text));
        break;
    case ValueKind::Double:
        stored = PutParsed(section, key, ParseWholeDouble(text));
        break;
    default:
        break;
    }
    if (!stored)
    {
        section.Put<std::string>(key, text);
    }
}

bool IsEdited(const EntryPath& path, const HeaderEdit& edit)
{
    if (edit.action == HeaderEdit::Action::Resave)
    {
        return false;
    }
    // The section's own entry count changes with a key set or removed; its keys are checked
    // one by one.
    return path == EntryPath{edit.section} || path == EntryPath{edit.section, edit.key};
}

std::string ShapeText(const TreeSnapshot::Samples& samples)
{
    if (samples.shape.size() == 2)
    {
        return std::to_string(samples.shape[1]) + " x " + std::to_string(samples.shape[0]) +
               " samples";
    }
    return std::to_string(samples.shape.size() / 2) + " curves of " +
           std::to_string(samples.values.size()) + " values";
}

std::string FindDataProblem(const TreeSnapshot& before, const TreeSnapshot& after)
{
    for (const auto& [path, samples] : before.SampleSets())
    {
        const auto found = after.SampleSets().find(path);
        if (found == after.SampleSets().end())
        {
            return "the saved file has no data under " + DescribePath(path);
        }
        if (found->second.shape != samples.shape)
        {
            return "the saved data read back as " + ShapeText(found->second) + " instead of " +
                   ShapeText(samples);
        }
        if (!samples.SameAs(found->second))
        {
            return "the saved data do not read back as before; the header as saved may no "
                   "longer fit in front of \"DataOffset\"";
        }
    }
    for (const auto& [path, samples] : after.SampleSets())
    {
        if (before.SampleSets().count(path) == 0)
        {
            return "the saved file gained data under " + DescribePath(path);
        }
    }
    return std::string();
}
} // namespace

void CheckEditApplies(DataFile& file, const HeaderEdit& edit, const std::string& displayName)
{
    if (edit.action == HeaderEdit::Action::Resave)
    {
        return;
    }
    const auto section = file.GetSubData({edit.section}, false);
    if (!section)
    {
        Fail(displayName + ": no section " + Quoted(edit.section));
    }
    if (edit.action == HeaderEdit::Action::Unset && !section->Exists(edit.key))
    {
        Fail(displayName + ": no key " + Quoted(edit.key) + " in section " + Quoted(edit.section));
    }
}

void ApplyEdit(DataFile& file, const HeaderEdit& edit, const std::string& displayName)
{
    CheckEditApplies(file, edit, displayName);
    switch (edit.action)
    {
    case HeaderEdit::Action::Set:
        StoreValue(*file.GetSubData({edit.section}, false), edit.key, edit.value);
        break;
    case HeaderEdit::Action::Unset:
        file.GetSubData({edit.section}, false)->Remove(edit.key);
        break;
    case HeaderEdit::Action::Resave:
    {
        std::vector<std::string> keys;
        file.EnumData(keys);
        if (keys.empty())
        {
            Fail(displayName + ": the file holds nothing to save");
        }
        file.ReportChange(keys.front());
        break;
    }
    }
}

std::string FindSaveProblem(const TreeSnapshot& before, DataFile& saved, const HeaderEdit& edit)
{
    const TreeSnapshot after(saved);
    std::string problem =
        edit.action == HeaderEdit::Action::Resave ? "" : FindEditedKeyProblem(saved, edit);
    if (problem.empty())
    {
        problem = FindDataProblem(before, after);
    }
    if (!problem.empty())
    {
        return problem;
    }
    for (const auto& [path, rendering] : before.Renderings())
    {
        if (IsEdited(path, edit) || IsDerivedFromLayout(path))
        {
            continue;
        }
        const std::string* const now = after.FindRendering(path);
        if (now == nullptr)
        {
            return DescribePath(path) + " is missing after saving";
        }
        if (*now != rendering)
        {
            return DescribePath(path) + " reads back as " + *now + ", not " + rendering;
        }
    }
    for (const auto& [path, rendering] : after.Renderings())
    {
        if (!IsEdited(path, edit) && !IsDerivedFromLayout(path) &&
            before.FindRendering(path) == nullptr)
        {
            return DescribePath(path) + " (" + rendering + ") appeared in the saved file";
        }
    }
    return std::string();
}

} // namespace Kiv::Edit
