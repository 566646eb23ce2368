#include "Kiv/Edit/HeaderEdit.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Kiv/Access/Failure.h"
#include "Kiv/Access/Latin1.h"
#include "Kiv/Access/NumberText.h"
#include "Kiv/Access/ValueView.h"
#include "Kiv/Core/UnitDescriptor.h"

namespace Kiv::Edit
{

using namespace Kiv::Access;

using namespace Kiv::DataCore;

namespace
{
std::string ToHeaderText(const std::string& displayName, const std::string& what,
                         const std::string& utf8)
{
    try
    {
        return Utf8ToLatin1(utf8);
    }
    catch (...)
    {
        Fail(displayName + ": cannot store the " + what +
             " in the header: " + DescribeCurrentException());
    }
}

// Whether the unit library knows the text as a unit.
bool IsKnownUnit(const std::string& text)
{
    static Kiv::Core::UnitDictionary dictionary;
    return dictionary.LookupUnit(text, nullptr) != nullptr;
}

// "20 µm" for a key whose value is in micrometres: the example a hint shows, in UTF-8.
std::string RenderUnitExample(const boost::shared_ptr<DataObject>& object)
{
    const auto value = ValueOf<UnitizedDouble>(object);
    const std::string unit = value ? UnitSpelling(*value) : std::string();
    return "20 " + (unit.empty() ? std::string("\xC2\xB5m") : unit);
}

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
        if (!stored || !stored->GetUnit() || !SameNumber(stored->GetValue(), number))
        {
            return false;
        }
        const std::string readUnit = stored->GetUnit()->GetAbbreviation();
        return readUnit == unit || readUnit == Latin1ToUtf8(unit);
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

bool IsEditedBy(const EntryPath& path, const HeaderEdit& edit)
{
    if (edit.action == HeaderEdit::Action::Resave)
    {
        return false;
    }
    // The section's own entry count changes with a key set or removed; its keys are checked
    // one by one.
    return path == EntryPath{edit.section} || path == EntryPath{edit.section, edit.key};
}

bool IsEdited(const EntryPath& path, const std::vector<HeaderEdit>& edits)
{
    for (const HeaderEdit& edit : edits)
    {
        if (IsEditedBy(path, edit))
        {
            return true;
        }
    }
    return false;
}

// The writer keeps six decimals of a force value; the text it writes, and the float read back.
std::string SixDecimals(float value)
{
    char text[64];
    std::snprintf(text, sizeof text, "%.6f", static_cast<double>(value));
    return text;
}

// The fewest digits that read back as the same float: what the user wrote, as a rule.
std::string ShortestText(float value)
{
    char text[64];
    for (int digits = 1; digits < 9; ++digits)
    {
        std::snprintf(text, sizeof text, "%.*g", digits, static_cast<double>(value));
        if (std::strtof(text, nullptr) == value)
        {
            return text;
        }
    }
    std::snprintf(text, sizeof text, "%.9g", static_cast<double>(value));
    return text;
}

// Force values that differ only by the writer's rounding: one item of loss for each, by its
// line in the data block (one matrix of the list each) and its place on the line. Empty when some
// difference is not the rounding's.
std::vector<std::string> FindRoundingLoss(const TreeSnapshot::Samples& before,
                                          const TreeSnapshot::Samples& after)
{
    std::vector<std::string> items;
    std::size_t first = 0;
    for (std::size_t item = 0; item + 1 < before.shape.size(); item += 2)
    {
        const std::size_t count = before.shape[item] * before.shape[item + 1];
        for (std::size_t index = first; index < first + count && index < before.values.size();
             ++index)
        {
            const float was = before.values[index];
            const float now = after.values[index];
            if (std::memcmp(&was, &now, sizeof was) == 0)
            {
                continue;
            }
            const std::string written = SixDecimals(was);
            if (std::strtof(written.c_str(), nullptr) != now)
            {
                return {};
            }
            items.push_back("line " + std::to_string(item / 2 + 1) + ", value " +
                            std::to_string(index - first + 1) + ": " + ShortestText(was) +
                            " is written as " + written);
        }
        first += count;
    }
    return items;
}

// Whether the entry's section is one the writer said it leaves out.
bool IsNamedIn(const EntryPath& path, const std::vector<std::string>& droppedItems)
{
    const std::string section = DescribePath({path.front()});
    for (const std::string& item : droppedItems)
    {
        if (item.find(section) != std::string::npos)
        {
            return true;
        }
    }
    return false;
}

std::string ShapeText(const TreeSnapshot::Samples& samples)
{
    if (samples.shape.size() == 2)
    {
        return std::to_string(samples.shape[1]) + " x " + std::to_string(samples.shape[0]) +
               " samples";
    }
    return std::to_string(samples.shape.size() / 2) + " curves of " +
           std::to_string(samples.count) + " values";
}

std::string FindDataProblem(const TreeSnapshot& before, const TreeSnapshot& after,
                            std::vector<std::string>& lossItems)
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
            if (samples.shape.size() != 2)
            {
                std::vector<std::string> rounded = FindRoundingLoss(samples, found->second);
                if (!rounded.empty())
                {
                    lossItems.insert(lossItems.end(), rounded.begin(), rounded.end());
                    continue;
                }
            }
            return "the saved data do not read back as before";
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

HeaderEdit PrepareEdit(DataFile& file, const HeaderEdit& edit, const std::string& displayName)
{
    if (edit.action != HeaderEdit::Action::Set)
    {
        return edit;
    }
    const auto section = file.GetSubData({edit.section}, false);
    const auto existing = section && section->Exists(edit.key) ? section->Get(edit.key) : nullptr;
    if (!existing || ClassifyValue(*existing) != ValueKind::Unitized)
    {
        return edit;
    }
    const std::size_t blank = edit.value.find(' ');
    const std::string number = edit.value.substr(0, blank);
    if (blank == std::string::npos || !ParseWholeDouble(number) ||
        edit.value.find_first_not_of(' ', blank) == std::string::npos)
    {
        Fail(displayName + ": " + Latin1ToUtf8(edit.key) +
             " holds a length with a unit, for example \"" + RenderUnitExample(existing) + "\"");
    }
    std::string unit = edit.value.substr(edit.value.find_first_not_of(' ', blank));
    // "u" stands for micro only in front of a unit the unit library knows ("um", "uV/s"),
    // never alone: the file itself writes the Latin-1 micro sign.
    if (unit.size() > 1 && unit[0] == 'u' && IsKnownUnit(unit.substr(1)))
    {
        unit = "\xB5" + unit.substr(1);
    }
    HeaderEdit prepared = edit;
    prepared.value = number + " " + unit;
    return prepared;
}

SaveProblems FindSaveProblems(const TreeSnapshot& before, DataFile& saved,
                              const std::vector<HeaderEdit>& edits,
                              const std::vector<std::string>& droppedItems)
{
    SaveProblems found;
    const TreeSnapshot after(saved);
    // Only the last edit of each key decides what the key holds now.
    for (std::size_t index = 0; index < edits.size() && found.problem.empty(); ++index)
    {
        const HeaderEdit& edit = edits[index];
        bool overridden = false;
        for (std::size_t later = index + 1; later < edits.size(); ++later)
        {
            overridden = overridden ||
                         (edits[later].action != HeaderEdit::Action::Resave &&
                          edits[later].section == edit.section && edits[later].key == edit.key);
        }
        if (edit.action != HeaderEdit::Action::Resave && !overridden)
        {
            found.problem = FindEditedKeyProblem(saved, edit);
        }
    }
    if (found.problem.empty())
    {
        found.problem = FindDataProblem(before, after, found.lossItems);
    }
    if (!found.problem.empty())
    {
        return found;
    }
    for (const auto& [path, rendering] : before.Renderings())
    {
        if (IsEdited(path, edits) || IsDerivedFromLayout(path))
        {
            continue;
        }
        const std::string* const now = after.FindRendering(path);
        if (now == nullptr && IsNamedIn(path, droppedItems))
        {
            continue;
        }
        if (now == nullptr)
        {
            found.problem = DescribePath(path) + " is missing after saving";
            return found;
        }
        if (*now != rendering)
        {
            found.problem = DescribePath(path) + " reads back as " + *now + ", not " + rendering;
            return found;
        }
    }
    for (const auto& [path, rendering] : after.Renderings())
    {
        if (!IsEdited(path, edits) && !IsDerivedFromLayout(path) &&
            before.FindRendering(path) == nullptr)
        {
            found.problem = DescribePath(path) + " (" + rendering + ") appeared in the saved file";
            return found;
        }
    }
    return found;
}

HeaderEdit MakeSetEdit(const std::string& displayName, const std::string& section,
                       const std::string& key, const std::string& value)
{
    return {HeaderEdit::Action::Set, ToHeaderText(displayName, "section name", section),
            ToHeaderText(displayName, "key", key), ToHeaderText(displayName, "value", value)};
}

HeaderEdit MakeUnsetEdit(const std::string& displayName, const std::string& section,
                         const std::string& key)
{
    return {HeaderEdit::Action::Unset, ToHeaderText(displayName, "section name", section),
            ToHeaderText(displayName, "key", key), ""};
}

} // namespace Kiv::Edit
