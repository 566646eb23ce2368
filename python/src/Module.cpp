#include "Bindings.h"

PYBIND11_MODULE(kiv, module)
{
    module.doc() = "Scanning-probe files as numpy arrays with their header.\n\n"
                   ">>> import kiv\n>>> kiv.open('scan.flt').image.shape";
    module.attr("__version__") = KIV_VERSION;
    Kiv::Python::BindErrors(module);
    Kiv::Python::BindQuantity(module);
    Kiv::Python::BindSaveReport(module);
    Kiv::Python::BindFile(module);
    Kiv::Python::BindAnalysis(module);
}
