#include <pybind11/stl.h>

#include "Bindings.h"

namespace Kiv::Python
{

namespace
{

// The report as Python holds it: plain values, so that it outlives the file and prints well.
struct PythonSaveReport
{
    bool saved = false;
    bool wouldSave = false;
    std::string refusal;
    std::vector<std::string> dropped;
    std::optional<std::pair<long, long>> offsetMove;
    std::string headerBefore;
    std::string headerAfter;
    std::string diff;
};

} // namespace

py::object SaveReportToPython(const Kiv::Edit::SaveReport& report)
{
    PythonSaveReport converted{report.saved,       report.saved || report.wouldSave,
                               report.refusal,     report.droppedItems,
                               std::nullopt,       report.headerBefore,
                               report.headerAfter, report.HeaderDiff()};
    if (report.offsetMove)
    {
        converted.offsetMove = std::make_pair(report.offsetMove->from, report.offsetMove->to);
    }
    return py::cast(std::move(converted));
}

void BindSaveReport(py::module_& module)
{
    py::class_<PythonSaveReport>(module, "SaveReport",
                                 "What File.save did, or for a dry run what it would do.")
        .def_readonly("saved", &PythonSaveReport::saved,
                      "True when the file was replaced by the verified new version.")
        .def_readonly("would_save", &PythonSaveReport::wouldSave,
                      "True when the save went through, or for a dry run would.")
        .def_readonly("refusal", &PythonSaveReport::refusal,
                      "For a dry run that would be refused: the one-line reason.")
        .def_readonly("dropped", &PythonSaveReport::dropped,
                      "Content the file type's writer left out (or would), one line each.")
        .def_readonly("offset_move", &PythonSaveReport::offsetMove,
                      "(from, to) when DataOffset moved to make room for a longer header, "
                      "else None.")
        .def_readonly("header_before", &PythonSaveReport::headerBefore,
                      "The header text before the save.")
        .def_readonly("header_after", &PythonSaveReport::headerAfter,
                      "The header text after the save (or as a dry run would write it).")
        .def_readonly("diff", &PythonSaveReport::diff,
                      "A unified diff of header_before against header_after; '' when equal.")
        .def("__repr__",
             [](const PythonSaveReport& report)
             {
                 return "<kiv.SaveReport saved=" + std::string(report.saved ? "True" : "False") +
                        " would_save=" + (report.wouldSave ? "True" : "False") +
                        " dropped=" + std::to_string(report.dropped.size()) + ">";
             });
}

} // namespace Kiv::Python
