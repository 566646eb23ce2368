#pragma once

#include <memory>
#include <optional>
#include <string>

#include <boost/shared_ptr.hpp>
#include <pybind11/pybind11.h>

#include "Kiv/Analysis/HeightParameters.h"
#include "Kiv/DataCore/DataFile.h"
#include "Kiv/Edit/SafeSave.h"
#include "Kiv/Export/SurfaceProfile.h"

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

// What a notebook shows of a file. Both run without Python and so without the GIL.
// Whether the file has an image or force curves, which the png preview shows.
bool HasPreview(Kiv::DataCore::DataFile& file);
// The png preview exactly as File.export(path, "png") writes it, made in a private temporary
// folder that is removed however the export ends.
std::string PreviewPng(Kiv::DataCore::DataFile& file, const std::string& path);
// An HTML fragment (UTF-8, every header text escaped): the preview inline, the scan size,
// resolution and plane-levelled Sa and Sq of an image or the series and points of force curves,
// and the first header sections.
std::string SummaryHtml(Kiv::DataCore::DataFile& file, const std::string& path);

// kiv.level, kiv.stats and kiv.Profile.
void BindAnalysis(py::module_& module);
// Adds the figures to a stats dict under the names kiv.stats documents; the hybrid ones, the
// height unit (UTF-8) and the pixel size are None where unknown.
void AddFiguresToPython(py::dict& into, const Kiv::Analysis::HeightParameters& parameters,
                        const std::optional<std::string>& zUnit,
                        const std::optional<Kiv::Analysis::PixelSize>& pixelSize);
// A kiv.Profile holding copies of the profile's arrays.
py::object ProfileToPython(const Kiv::Export::FileProfile& profile);

} // namespace Kiv::Python
