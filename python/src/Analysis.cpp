#include <algorithm>
#include <cmath>
#include <exception>
#include <sstream>
#include <vector>

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include "Bindings.h"
#include "Kiv/Access/FileFacts.h"
#include "Kiv/Access/Latin1.h"
#include "Kiv/Analysis/Levelling.h"

namespace Kiv::Python
{

using namespace Kiv::Analysis;

namespace
{

// Any array numpy can turn into float32 or bool; a C-contiguous float32 array is used as it is,
// anything else is copied once.
using FloatArray = py::array_t<float, py::array::c_style | py::array::forcecast>;
using MaskArray = py::array_t<bool, py::array::c_style | py::array::forcecast>;

std::string ShapeText(const py::array& array)
{
    std::ostringstream text;
    text << '(';
    for (py::ssize_t axis = 0; axis < array.ndim(); ++axis)
    {
        text << (axis ? ", " : "") << array.shape(axis);
    }
    text << (array.ndim() == 1 ? ",)" : ")");
    return text.str();
}

ImageView ViewOf(const FloatArray& array, const std::string& function)
{
    if (array.ndim() != 2)
    {
        throw py::value_error(function + ": the array must be 2-D (rows, columns), not of shape " +
                              ShapeText(array));
    }
    return {array.data(), static_cast<std::size_t>(array.shape(0)),
            static_cast<std::size_t>(array.shape(1))};
}

PixelMask MaskOf(const std::optional<MaskArray>& mask, const FloatArray& array,
                 const std::string& function)
{
    if (!mask)
    {
        return nullptr;
    }
    if (mask->ndim() != 2 || mask->shape(0) != array.shape(0) || mask->shape(1) != array.shape(1))
    {
        throw py::value_error(function + ": the mask has shape " + ShapeText(*mask) +
                              ", the array " + ShapeText(array));
    }
    // numpy keeps a bool in one byte holding 0 or 1, as the library reads a mask.
    return reinterpret_cast<PixelMask>(mask->data());
}

std::optional<PixelSize> PixelSizeFromPython(const py::object& value)
{
    if (value.is_none())
    {
        return std::nullopt;
    }
    PixelSize pixel;
    try
    {
        // Sequences first: a numpy array of two also passes for a number.
        if (py::isinstance<py::sequence>(value) && !py::isinstance<py::str>(value))
        {
            const auto pair = value.cast<std::pair<double, double>>();
            pixel = {pair.first, pair.second};
        }
        else
        {
            const double size = value.cast<double>();
            pixel = {size, size};
        }
    }
    catch (const py::cast_error&)
    {
        throw py::value_error("stats: pixel_size takes metres as one number or (x, y)");
    }
    if (!(std::isfinite(pixel.x) && pixel.x > 0.0 && std::isfinite(pixel.y) && pixel.y > 0.0))
    {
        throw py::value_error("stats: pixel_size must be positive and finite");
    }
    return pixel;
}

// Metres in one height unit, through the unit library so that every spelling kiv reads in a
// header ("nm", "um", "µm", "Å") works here too.
double MetresPerHeightUnit(const std::string& zUnit)
{
    std::optional<double> metres;
    try
    {
        metres = Kiv::Access::LengthInMetres(
            Kiv::DataCore::UnitizedDouble(1.0, Access::Utf8ToLatin1(zUnit)));
    }
    catch (const std::exception&)
    {
        metres.reset(); // Not Latin-1, or a unit the library does not know.
    }
    if (!metres || !(*metres > 0.0))
    {
        throw py::value_error("stats: z_unit \"" + zUnit + "\" is not a length unit kiv knows");
    }
    return *metres;
}

py::object Optional(const std::optional<double>& value)
{
    return value ? py::object(py::float_(*value)) : py::object(py::none());
}

py::array_t<double> ToArray(const std::vector<double>& values)
{
    py::array_t<double> array(static_cast<py::ssize_t>(values.size()));
    std::copy(values.begin(), values.end(), array.mutable_data());
    return array;
}

// distance and height unpack like a tuple, the way numpy's own pairs of results do; metres
// rides along as an attribute.
struct PythonProfile
{
    py::array_t<double> distance;
    py::array_t<double> height;
    bool metres = false;
    std::string level;
    std::optional<std::string> zUnit;
};

py::array_t<float> LevelArray(const FloatArray& array, const std::string& method,
                              const std::optional<MaskArray>& mask)
{
    const LevelMethod parsed = LevelMethod::Parse(method);
    const ImageView image = ViewOf(array, "level");
    Exclusion exclusion;
    exclusion.mask = MaskOf(mask, array, "level");
    py::array_t<float> levelled({array.shape(0), array.shape(1)});
    float* const output = levelled.mutable_data();
    {
        py::gil_scoped_release released;
        LevelInto(image, parsed, exclusion, output);
    }
    return levelled;
}

py::dict StatsOfArray(const FloatArray& array, const py::object& pixelSize,
                      const std::optional<std::string>& zUnit, const std::optional<MaskArray>& mask)
{
    const ImageView image = ViewOf(array, "stats");
    const PixelMask pixelMask = MaskOf(mask, array, "stats");
    const auto pixel = PixelSizeFromPython(pixelSize);
    std::optional<Lateral> lateral;
    if (zUnit)
    {
        const double metres = MetresPerHeightUnit(*zUnit);
        if (pixel)
        {
            lateral = Lateral{*pixel, metres};
        }
    }
    HeightParameters parameters;
    {
        py::gil_scoped_release released;
        parameters = ComputeHeightParameters(image, pixelMask, lateral);
    }
    py::dict result;
    AddFiguresToPython(result, parameters, zUnit, pixel);
    return result;
}

} // namespace

void AddFiguresToPython(py::dict& into, const HeightParameters& parameters,
                        const std::optional<std::string>& zUnit,
                        const std::optional<PixelSize>& pixelSize)
{
    into["count"] = parameters.count;
    into["excluded"] = parameters.excluded;
    for (const auto& figure : NamedFigures(parameters))
    {
        into[figure.name] = Optional(figure.value);
    }
    into["z_unit"] = zUnit ? py::object(py::str(Access::ToDisplayText(*zUnit))) : py::none();
    into["pixel_size"] =
        pixelSize ? py::object(py::make_tuple(pixelSize->x, pixelSize->y)) : py::object(py::none());
}

py::object ProfileToPython(const Kiv::Export::FileProfile& profile)
{
    std::optional<std::string> zUnit;
    if (profile.zUnit)
    {
        zUnit = Access::ToDisplayText(*profile.zUnit);
    }
    return py::cast(PythonProfile{ToArray(profile.profile.distance),
                                  ToArray(profile.profile.height), profile.profile.metres,
                                  profile.level, zUnit});
}

void BindAnalysis(py::module_& module)
{
    py::class_<PythonProfile>(
        module, "Profile",
        "Heights along a line (see File.profile): unpacks as (distance, height), two float64 "
        "arrays.\n"
        "distance is in metres when .metres is True (the file gives its pixel size), in pixels "
        "otherwise.\n"
        ">>> distance, height = f.profile(row=10)\n"
        ">>> f.profile(row=10).metres")
        .def_readonly("distance", &PythonProfile::distance,
                      "Distance of each point from the start, in metres or pixels.")
        .def_readonly("height", &PythonProfile::height,
                      "Height at each point in the data's unit; NaN next to a dropout.")
        .def_readonly("metres", &PythonProfile::metres, "Whether distance is in metres.")
        .def_readonly("level", &PythonProfile::level, "The levelling applied first.")
        .def_readonly("z_unit", &PythonProfile::zUnit,
                      "The unit of the heights when the header states one, else None.")
        .def("__iter__", [](const PythonProfile& profile)
             { return py::iter(py::make_tuple(profile.distance, profile.height)); })
        .def("__len__", [](const PythonProfile&) { return 2; })
        .def("__repr__",
             [](const PythonProfile& profile)
             {
                 return "<kiv.Profile of " + std::to_string(profile.height.size()) + " points, " +
                        (profile.metres ? "distance in metres>" : "distance in pixels>");
             });

    module.def("level", &LevelArray, py::arg("array"), py::arg("method") = "plane",
               py::arg("mask") = py::none(),
               "The array levelled by method as a new float32 array (rows, columns).\n\n"
               "method: 'none', 'plane', 'poly:N' (N 1 to 4), 'rows' (= 'rows:median'), "
               "'rows:mean',\n'rows:poly:N' (N 0 to 4), 'rows:mediandiff', 'rows:quantile:Q' "
               "(Q 0 to 1), 'zero:min', 'zero:mean',\nor several joined with '+', applied left "
               "to right: 'rows:mediandiff+plane'.\n"
               "Every fit is computed in double precision over the finite samples; NaN and "
               "infinite samples stay as they are.\n"
               "mask: a boolean array of the array's shape; True leaves the pixel out of the fits "
               "(it is still levelled).\n"
               "Raises ValueError for a method that does not parse or a wrong shape.\n\n"
               ">>> flat = kiv.level(f.image, 'rows:mediandiff+plane')\n"
               ">>> flat = kiv.level(z, 'poly:2', mask=z > 5e-9)");

    module.def("stats", &StatsOfArray, py::arg("array"), py::arg("pixel_size") = py::none(),
               py::arg("z_unit") = py::none(), py::arg("mask") = py::none(),
               "The height parameters (ISO 25178-2) of a 2-D array as it is, as a dict.\n\n"
               "count: the samples used (finite, not masked); excluded: the others. Over those:\n"
               "mean, median, min, max; Sa = mean |z - mean|; Sq = sqrt(mean (z - mean)^2), "
               "divided by N;\nSsk = mean (z - mean)^3 / Sq^3; Sku = mean (z - mean)^4 / Sq^4, "
               "ISO's kurtosis (3 for a Gaussian\nsurface; Gwyddion's 'kurtosis' is the excess, "
               "Sku - 3); Sp = max - mean; Sv = mean - min; Sz = Sp + Sv.\n"
               "With both pixel_size (metres: one number, or (x, y) along a row and from row to "
               "row) and\nz_unit (the height unit, e.g. 'nm', 'um', 'm'): Sdq (root mean square "
               "gradient), Sdr (developed\ninterfacial area ratio) and area (m^2); None "
               "otherwise.\n"
               "mask: a boolean array of the array's shape; True leaves the pixel out.\n"
               "Raises ValueError for a wrong shape, pixel size or unit.\n\n"
               ">>> s = kiv.stats(kiv.level(f.image), pixel_size=f.pixel_size, z_unit='nm')\n"
               ">>> s['Sq'], s['Sku'] - 3  # Sku - 3 is Gwyddion's kurtosis");
}

} // namespace Kiv::Python
