#include "Pelrix/PelrixDataFile.h"

#include <locale>
#include <sstream>

#include "PelrixIdentity.h"

namespace Pelrix
{

using namespace Kiv::DataCore;

namespace
{
template <class T>
bool WriteIfType(DataObject& object, DataContainer& section, const std::string& key,
                 std::ostream& out)
{
    if (!object.IsType(typeid(T)))
    {
        return false;
    }
    T value{};
    section.Get(key, value);
    out << value;
    return true;
}
} // namespace

std::string PelrixDataFile::GetFormattedValueString(boost::shared_ptr<DataContainer> section,
                                                    std::string key) const
{
    std::ostringstream out;
    // Headers are read back with the C library's number parsing: no grouping, a point.
    out.imbue(std::locale::classic());
    const auto object = section->Get(key);
    if (object && object->IsType(typeid(std::string)))
    {
        std::string text;
        section->Get(key, text);
        out << text;
    }
    else if (object && (WriteIfType<float>(*object, *section, key, out) ||
                        WriteIfType<double>(*object, *section, key, out) ||
                        WriteIfType<int>(*object, *section, key, out) ||
                        WriteIfType<HostLong>(*object, *section, key, out)))
    {
    }
    else if (object && object->IsType(typeid(UnitizedDouble)))
    {
        UnitizedDouble value(0.0);
        section->Get(key, value);
        out.setf(std::ios::fixed, std::ios::floatfield);
        out.setf(std::ios::showpoint);
        out.precision(4);
        out << value.ToString(out);
    }
    else
    {
        // The message has always named another format's class and spelled "GetFormated";
        // programs match on it, so it stays.
        DataFileError(
            "ERROR: Unknown value type in HalvimoorDataFile::GetFormatedValueString. Key: " + key)
            .RaiseError(Kiv::Core::CodeContext("PelrixDataFile", 998, KIV_SOURCE_TIME_STAMP,
                                               "Pelrix::PelrixDataFile::GetFormattedValueString",
                                               __PRETTY_FUNCTION__),
                        Names::LEGACY_ALERT_ID, false);
    }
    return out.str();
}

} // namespace Pelrix
