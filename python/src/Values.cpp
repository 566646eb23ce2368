#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "Bindings.h"
#include "Kiv/Access/Failure.h"
#include "Kiv/Access/FileFacts.h"
#include "Kiv/Access/Latin1.h"
#include "Kiv/Access/ValueView.h"

namespace Kiv::Python
{

using namespace Kiv::Access;
using Kiv::DataCore::DataContainer;
using Kiv::DataCore::DataObject;
using Kiv::DataCore::StringList;
using Kiv::DataCore::UnitizedDouble;

namespace
{

// A header number with its unit; conversions go through the host's unit library so that
// Python agrees with kiv on every unit the file may spell.
class Quantity
{
public:
    explicit Quantity(boost::shared_ptr<UnitizedDouble> value) : m_Value(std::move(value)) {}

    double Value() const { return m_Value->GetValue(); }

    std::string Unit() const { return UnitSpelling(*m_Value); }

    double To(const std::string& target) const
    {
        const auto& unit = m_Value->GetUnit();
        if (!unit)
        {
            Fail("a value without a unit cannot be converted to \"" + target + "\"");
        }
        return ConvertUnit(Value(), *unit, Utf8ToLatin1(target));
    }

    double Si() const
    {
        const auto& unit = m_Value->GetUnit();
        return unit && !unit->IsUnitless() ? unit->ConvertToBaseUnits(Value()) : Value();
    }

    std::string Repr() const
    {
        return "kiv.Quantity(" + FormatNumber(Value()) + ", '" + Unit() + "')";
    }

private:
    boost::shared_ptr<UnitizedDouble> m_Value;
};

} // namespace

void BindQuantity(py::module_& module)
{
    py::class_<Quantity>(module, "Quantity",
                         "A header number with its unit, as the file spells it.\n\n"
                         ">>> q = kiv.open('scan.flt').header['[Data Parameters]']['ScanRangeX']\n"
                         ">>> q.value, q.unit, q.to('nm'), q.si  # 10.0, 'µm', 10000.0, 1e-05")
        .def_property_readonly("value", &Quantity::Value, "The number as the file states it.")
        .def_property_readonly("unit", &Quantity::Unit,
                               "The unit as the file spells it, e.g. 'µm'; '' for none.")
        .def("to", &Quantity::To, py::arg("unit"),
             "The value in another unit of the same quantity, e.g. q.to('m').\n"
             "Raises kiv.Error for an unknown unit or a different quantity.")
        .def_property_readonly("si", &Quantity::Si,
                               "The value in SI base units (metres for a length).")
        .def("__float__", &Quantity::Value)
        .def("__repr__", &Quantity::Repr)
        .def("__str__", [](const Quantity& q) { return FormatNumber(q.Value()) + " " + q.Unit(); });
}

// Every header value becomes a Python object here and nowhere else.
py::object HeaderValueToPython(const boost::shared_ptr<DataObject>& object)
{
    if (!object)
    {
        return py::none();
    }
    switch (ClassifyValue(*object))
    {
    case ValueKind::String:
        return py::str(Latin1ToUtf8(*ValueOf<std::string>(object)));
    case ValueKind::Int:
        return py::int_(*ValueOf<int>(object));
    case ValueKind::Long:
        return py::int_(static_cast<std::int32_t>(*ValueOf<Kiv::DataCore::HostLong>(object)));
    case ValueKind::Float:
        return py::float_(*ValueOf<float>(object));
    case ValueKind::Double:
        return py::float_(*ValueOf<double>(object));
    case ValueKind::Unitized:
        return py::cast(Quantity(ValueOf<UnitizedDouble>(object)));
    case ValueKind::Strings:
    {
        py::list texts;
        for (const auto& text : *ValueOf<StringList>(object))
        {
            texts.append(py::str(Latin1ToUtf8(text)));
        }
        return std::move(texts);
    }
    case ValueKind::Container:
        return HeaderToPython(dynamic_cast<DataContainer&>(*object));
    case ValueKind::Matrix:
    case ValueKind::Matrices:
    case ValueKind::Other:
        break;
    }
    return py::none();
}

py::dict HeaderToPython(DataContainer& container)
{
    py::dict header; // Python dicts keep insertion order, so this is file order.
    for (const auto& entry : container.GetEntries())
    {
        const auto kind = entry.second ? ClassifyValue(*entry.second) : ValueKind::Other;
        if (kind == ValueKind::Matrix || kind == ValueKind::Matrices)
        {
            continue; // Samples are File.image and File.curves, not header values.
        }
        header[py::str(Latin1ToUtf8(entry.first))] = HeaderValueToPython(entry.second);
    }
    return header;
}

} // namespace Kiv::Python
