#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "Bindings.h"
#include "Kiv/Access/Failure.h"
#include "Kiv/Access/FileFacts.h"
#include "Kiv/Access/HeaderValues.h"
#include "Kiv/Access/Latin1.h"
#include "Kiv/Access/ValueView.h"

namespace Kiv::Python
{

using namespace Kiv::Access;
using Kiv::DataCore::DataContainer;
using Kiv::DataCore::DataObject;
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

namespace
{
// Every header value becomes a Python object here and nowhere else.
class ToPython
{
public:
    void Section(DataContainer& section) { m_Result = HeaderToPython(section); }
    void Text(const std::string& utf8) { m_Result = py::str(utf8); }
    void Whole(std::int64_t number) { m_Result = py::int_(number); }
    void Number(double number) { m_Result = py::float_(number); }
    void Quantity(const boost::shared_ptr<UnitizedDouble>& quantity)
    {
        m_Result = py::cast(Kiv::Python::Quantity(quantity));
    }
    void Texts(const std::vector<std::string>& utf8)
    {
        py::list texts;
        for (const auto& text : utf8)
        {
            texts.append(py::str(text));
        }
        m_Result = std::move(texts);
    }
    void Nothing() { m_Result = py::none(); }

    py::object Take() { return std::move(m_Result); }

private:
    py::object m_Result;
};
} // namespace

py::object HeaderValueToPython(const boost::shared_ptr<DataObject>& object)
{
    ToPython visitor;
    VisitHeaderValue(object, visitor);
    return visitor.Take();
}

py::dict HeaderToPython(DataContainer& container)
{
    py::dict header; // Python dicts keep insertion order, so this is file order.
    ForEachHeaderEntry(container,
                       [&](const std::string& key, const boost::shared_ptr<DataObject>& object)
                       { header[py::str(key)] = HeaderValueToPython(object); });
    return header;
}

} // namespace Kiv::Python
