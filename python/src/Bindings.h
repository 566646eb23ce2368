#pragma once

#include <memory>
#include <string>

#include <boost/shared_ptr.hpp>
#include <pybind11/pybind11.h>

#include "Kiv/DataCore/DataFile.h"
#include "Kiv/Edit/SafeSave.h"

namespace Kiv::Python
{

namespace py = pybind11;

// kiv.Error and its subclasses, and the translation of the host's failures into them or into
// Python's own OSError subclasses.
void BindErrors(py::module_& module);

// kiv.Quantity, and the conversion of header values into Python objects.
void BindQuantity(py::module_& module);
py::object HeaderValueToPython(const boost::shared_ptr<Kiv::DataCore::DataObject>& object);
// The header in file order: section name to a dict of key to value; samples are left out.
py::dict HeaderToPython(Kiv::DataCore::DataContainer& file);

// kiv.SaveReport, what File.save returns.
void BindSaveReport(py::module_& module);
py::object SaveReportToPython(const Kiv::Edit::SaveReport& report);

// kiv.File and kiv.open.
void BindFile(py::module_& module);

} // namespace Kiv::Python
