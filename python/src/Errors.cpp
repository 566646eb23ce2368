#include <cerrno>

#include <pybind11/stl.h>

#include "Bindings.h"
#include "Kiv/Access/Failure.h"
#include "Kiv/Access/Latin1.h"
#include "Kiv/Edit/SafeSave.h"

namespace Kiv::Python
{

namespace
{

// Python builds the right OSError subclass (FileNotFoundError, PermissionError, ...) from the
// errno itself; the message stays the one line kiv prints.
void RaiseOsError(const Kiv::Access::SystemFailure& failure)
{
    const py::object error = py::reinterpret_steal<py::object>(PyObject_CallFunction(
        PyExc_OSError, "is", failure.Error(), Kiv::Access::ToDisplayText(failure.what()).c_str()));
    if (!error)
    {
        return; // The call raised on its own; leave that error set.
    }
    PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(error.ptr())), error.ptr());
}

} // namespace

void BindErrors(py::module_& module)
{
    static py::exception<Kiv::Access::Failure> error(module, "Error");
    error.doc() = "A failure the file or the request caused; str(e) is the one line kiv prints.";
    static py::exception<Kiv::Access::FormatFailure> formatError(module, "FormatError",
                                                                 error.ptr());
    formatError.doc() = "No file type takes the file, or its type's module rejects it.";

    static py::exception<Kiv::Edit::SaveRefused> saveRefused(module, "SaveRefused", error.ptr());
    saveRefused.doc() = "A save that would drop content: .items lists it; save(allow_loss=True) "
                        "saves without it.";

    py::register_exception_translator(
        [](std::exception_ptr thrown)
        {
            try
            {
                if (thrown)
                {
                    std::rethrow_exception(thrown);
                }
            }
            catch (const Kiv::Access::SystemFailure& failure)
            {
                RaiseOsError(failure);
            }
            catch (const Kiv::Edit::SaveRefused& refused)
            {
                // py::exception's own call operator only sets the error; build the instance
                // through the class object so that it can carry the items.
                py::object raised = py::reinterpret_borrow<py::object>(saveRefused.ptr())(
                    py::str(Kiv::Access::ToDisplayText(refused.what())));
                raised.attr("items") = py::cast(refused.Items());
                PyErr_SetObject(saveRefused.ptr(), raised.ptr());
            }
            catch (const Kiv::Access::FormatFailure& failure)
            {
                PyErr_SetString(formatError.ptr(),
                                Kiv::Access::ToDisplayText(failure.what()).c_str());
            }
            catch (const Kiv::Access::Failure& failure)
            {
                PyErr_SetString(error.ptr(), Kiv::Access::ToDisplayText(failure.what()).c_str());
            }
        });
}

} // namespace Kiv::Python
