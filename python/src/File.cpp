#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "Bindings.h"
#include "Kiv/Access/Failure.h"
#include "Kiv/Access/FileAccess.h"
#include "Kiv/Access/FileFacts.h"
#include "Kiv/Access/Latin1.h"
#include "Kiv/Access/ValueView.h"
#include "Kiv/Analysis/Levelling.h"
#include "Kiv/Edit/HeaderEdit.h"
#include "Kiv/Edit/SafeSave.h"
#include "Kiv/Export/Export.h"
#include "Kiv/Export/SurfaceFigures.h"
#include "Kiv/Export/SurfaceProfile.h"

namespace Kiv::Python
{

using namespace Kiv::Access;
using Kiv::DataCore::DataFile;
using Kiv::DataCore::FloatMatrix;

namespace
{

// Module-load warnings go through Python's warnings, where a Python user looks for them.
void LoadModulesWarningInPython()
{
    std::vector<std::string> warnings;
    {
        py::gil_scoped_release released;
        LoadFileTypeModules([&warnings](const std::string& warning)
                            { warnings.push_back(warning); });
    }
    for (const auto& warning : warnings)
    {
        PyErr_WarnEx(PyExc_RuntimeWarning, ("kiv: " + warning).c_str(), 1);
    }
}

// A read-only float32 view of samples owned by holder; the array's base keeps holder, and so
// the samples, alive after the file is closed or collected.
template <class Holder>
py::array_t<float> SharedSamples(Holder holder, const float* samples, std::size_t rows,
                                 std::size_t columns)
{
    auto* const owner = new Holder(std::move(holder));
    py::capsule base(owner, [](void* held) { delete static_cast<Holder*>(held); });
    py::array_t<float> array({rows, columns}, {columns * sizeof(float), sizeof(float)}, samples,
                             base);
    py::detail::array_proxy(array.ptr())->flags &= ~py::detail::npy_api::NPY_ARRAY_WRITEABLE_;
    return array;
}

// An opened file as Python sees it. Closing drops the host's file; arrays handed out
// before keep their own samples.
class File
{
public:
    explicit File(std::string path) : m_Path(std::move(path))
    {
        LoadModulesWarningInPython();
        py::gil_scoped_release released;
        m_File = OpenForReading(m_Path);
    }

    const std::string& Path() const { return m_Path; }

    std::string FileType() { return ToDisplayText(Open().GetFileType()); }

    std::string Kind()
    {
        if (FindImage(Open()))
        {
            return "image";
        }
        return FindForceCurves(Open()) ? "force" : "other";
    }

    py::dict Header() { return HeaderToPython(Open()); }

    py::array_t<float> Image()
    {
        auto image = FindImage(Open());
        if (!image)
        {
            Fail(m_Path + ": holds no image");
        }
        const float* const samples = MatrixSamples(*image);
        const std::size_t rows = image->size1();
        const std::size_t columns = image->size2();
        return SharedSamples(std::move(image), samples, rows, columns);
    }

    py::array_t<float> Curves()
    {
        const auto curves = RequireCurves();
        auto table = std::make_shared<CurveTable>(MakeCurveTable(*curves));
        const float* const values = table->values.data();
        const std::size_t points = table->points;
        const std::size_t columns = table->columns;
        return SharedSamples(std::move(table), values, points, columns);
    }

    std::vector<std::string> Labels()
    {
        RequireCurves();
        std::vector<std::string> labels;
        for (const auto& label : FindCurveLabels(Open()))
        {
            labels.push_back(Latin1ToUtf8(label));
        }
        return labels;
    }

    py::object CurvesFrame()
    {
        py::module_ pandas;
        try
        {
            pandas = py::module_::import("pandas");
        }
        catch (const py::error_already_set&)
        {
            throw py::import_error("kiv: File.curves_frame() needs pandas; install python3-pandas "
                                   "or use File.curves and File.labels");
        }
        const auto labels = Labels();
        const auto curves = Curves();
        py::object columns = py::none();
        if (labels.size() == static_cast<std::size_t>(curves.shape(1)))
        {
            columns = py::cast(labels);
        }
        return pandas.attr("DataFrame")(curves, py::arg("columns") = columns);
    }

    std::pair<py::object, py::object> ScanSize() { return Geometry(false); }
    std::pair<py::object, py::object> PixelSize() { return Geometry(true); }

    // Edits wait for save(); what the open file can check cheaply (Latin-1, a value with a
    // unit) fails here already, with the message save would give.
    void Set(const std::string& section, const std::string& key, const std::string& value)
    {
        const auto edit = Kiv::Edit::MakeSetEdit(m_Path, section, key, value);
        Kiv::Edit::PrepareEdit(Open(), edit, m_Path);
        m_Edits.push_back(edit);
    }

    void Unset(const std::string& section, const std::string& key)
    {
        m_Edits.push_back(Kiv::Edit::MakeUnsetEdit(m_Path, section, key));
    }

    py::object Save(bool allowLoss, bool dryRun)
    {
        Open();
        Kiv::Edit::SaveReport report;
        {
            py::gil_scoped_release released;
            report = Kiv::Edit::SaveEdits(m_Path, m_Edits, {allowLoss, dryRun});
            if (report.saved)
            {
                // Show the saved file, not the tree from before it.
                m_File = OpenForReading(m_Path);
            }
        }
        if (!dryRun)
        {
            m_Edits.clear();
        }
        return SaveReportToPython(report);
    }

    void Export(const std::string& outputPath, const std::string& formatName,
                const std::string& colormap, std::optional<std::pair<double, double>> range,
                bool overwrite, const std::optional<std::string>& level)
    {
        Kiv::Export::ExportOptions options;
        options.colormap = colormap;
        options.range = range;
        if (level)
        {
            options.level = Kiv::Analysis::LevelMethod::Parse(*level);
        }
        const auto format = Kiv::Export::ParseFormat(formatName);
        if (!format)
        {
            Fail(outputPath + ": unknown format \"" + formatName +
                 "\"; formats: " + Kiv::Export::FormatNames());
        }
        if (!Kiv::Export::IsKnownColormap(colormap))
        {
            Fail(outputPath + ": unknown colour map \"" + colormap +
                 "\"; colour maps: gray, afmhot, viridis");
        }
        if (range && !(range->first < range->second))
        {
            Fail(outputPath + ": range takes (min, max) with min below max");
        }
        DataFile& file = Open();
        py::gil_scoped_release released;
        Kiv::Export::ExportFile(file, m_Path, outputPath, *format, options, overwrite);
    }

    py::dict Stats(const std::string& level, std::optional<double> above,
                   std::optional<double> below, std::optional<double> abovePercentile,
                   const std::optional<std::string>& zUnit)
    {
        Kiv::Export::SurfaceRequest request;
        request.level = Kiv::Analysis::LevelMethod::Parse(level);
        request.exclusion.above = above;
        request.exclusion.below = below;
        request.exclusion.abovePercentile = abovePercentile;
        Kiv::Analysis::CheckExclusion(request.exclusion);
        if (zUnit)
        {
            // Units are Latin-1 like the headers that spell them; one beyond Latin-1 is a unit
            // the library cannot know.
            try
            {
                request.zUnit = Utf8ToLatin1(*zUnit);
            }
            catch (const std::exception&)
            {
                Fail(m_Path + ": the height unit \"" + *zUnit +
                     "\" is not a length the unit library knows");
            }
        }
        DataFile& file = Open();
        Kiv::Export::SurfaceFigures figures;
        {
            py::gil_scoped_release released;
            figures = Kiv::Export::AnalyseFileSurface(file, m_Path, request);
        }
        py::dict result;
        result["file"] = m_Path;
        result["level"] = figures.level;
        AddFiguresToPython(result, figures.parameters, figures.zUnit, figures.pixelSize);
        return result;
    }

    py::object Profile(std::optional<std::int64_t> row, std::optional<std::int64_t> column,
                       std::optional<std::pair<double, double>> start,
                       std::optional<std::pair<double, double>> end, bool metres,
                       const std::string& level)
    {
        using Kiv::Export::ProfileSelection;
        const int lines = (row ? 1 : 0) + (column ? 1 : 0) + (start || end ? 1 : 0);
        if (lines != 1 || start.has_value() != end.has_value())
        {
            throw py::value_error(m_Path +
                                  ": profile takes exactly one of row, col or start and end");
        }
        if (metres && !start)
        {
            throw py::value_error(m_Path + ": metres applies to start and end");
        }
        Kiv::Export::ProfileRequest request;
        request.level = Kiv::Analysis::LevelMethod::Parse(level);
        ProfileSelection& selection = request.selection;
        if (row || column)
        {
            selection.along = row ? ProfileSelection::Along::Row : ProfileSelection::Along::Column;
            selection.index = Index(row ? *row : *column, row ? "row" : "column");
        }
        else
        {
            selection.along = ProfileSelection::Along::Line;
            selection.from = {start->first, start->second};
            selection.to = {end->first, end->second};
            selection.inMetres = metres;
        }
        DataFile& file = Open();
        Kiv::Export::FileProfile profile;
        {
            py::gil_scoped_release released;
            profile = Kiv::Export::ProfileFileSurface(file, m_Path, request);
        }
        return ProfileToPython(profile);
    }

    // Jupyter shows a file by these. A closed file, or one with nothing to draw, falls back to
    // the plain repr.
    py::object ReprPng()
    {
        // A reference of our own: another thread may close the file while the GIL is free.
        const auto file = m_File;
        if (!file || !HasPreview(*file))
        {
            return py::none();
        }
        std::string png;
        {
            py::gil_scoped_release released;
            png = PreviewPng(*file, m_Path);
        }
        return py::bytes(png);
    }

    py::object ReprHtml()
    {
        const auto file = m_File;
        if (!file)
        {
            return py::none();
        }
        std::string html;
        {
            py::gil_scoped_release released;
            html = SummaryHtml(*file, m_Path);
        }
        return py::str(html);
    }

    void Close() { m_File.reset(); }

private:
    DataFile& Open()
    {
        if (!m_File)
        {
            Fail(m_Path + ": the file is closed");
        }
        return *m_File;
    }

    // A row or column index; negative ones count from the end, as numpy's do.
    std::size_t Index(std::int64_t index, const std::string& what)
    {
        const auto image = FindImage(Open());
        if (!image)
        {
            Fail(m_Path + ": holds no image");
        }
        if (index >= 0)
        {
            return static_cast<std::size_t>(index);
        }
        const std::size_t size = what == "row" ? image->size1() : image->size2();
        const std::int64_t wrapped = index + static_cast<std::int64_t>(size);
        if (wrapped < 0)
        {
            Fail(m_Path + ": " + what + " " + std::to_string(index) + " is outside the image's " +
                 std::to_string(size) + " " + what + "s");
        }
        return static_cast<std::size_t>(wrapped);
    }

    boost::shared_ptr<Kiv::DataCore::FloatMatrixList> RequireCurves()
    {
        auto curves = FindForceCurves(Open());
        if (!curves)
        {
            Fail(m_Path + ": holds no force curves");
        }
        return curves;
    }

    std::pair<py::object, py::object> Geometry(bool perPixel)
    {
        const auto image = FindImage(Open());
        if (!image)
        {
            Fail(m_Path + ": holds no image");
        }
        const auto geometry = ReadImageGeometry(Open(), *image);
        const auto toPython = [](const std::optional<double>& metres)
        { return metres ? py::object(py::float_(*metres)) : py::object(py::none()); };
        if (perPixel)
        {
            return {toPython(geometry.PixelWidthMetres()), toPython(geometry.PixelHeightMetres())};
        }
        return {toPython(geometry.widthMetres), toPython(geometry.heightMetres)};
    }

    std::string m_Path;
    boost::shared_ptr<DataFile> m_File;
    std::vector<Kiv::Edit::HeaderEdit> m_Edits;
};

} // namespace

void BindFile(py::module_& module)
{
    py::class_<File>(module, "File",
                     "A file read through its file type's module (see kiv.open).\n\n"
                     ">>> with kiv.open('scan.flt') as f:\n"
                     "...     f.image.shape, f.scan_size, f.header['[Data Parameters]']['Title']")
        .def(py::init<std::string>(), py::arg("path"), "Opens the file at path (see kiv.open).")
        .def_property_readonly("path", &File::Path, "The path the file was opened with.")
        .def_property_readonly("file_type", &File::FileType,
                               "The file type that read it, e.g. 'Pelrix Data File'.")
        .def_property_readonly("kind", &File::Kind, "'image' for a scan, 'force' for force curves.")
        .def_property_readonly("header", &File::Header,
                               "The header in file order: {section: {key: value}}.\n"
                               "Texts are str, whole numbers int, other numbers float, numbers "
                               "with a unit kiv.Quantity.\n"
                               ">>> f.header['[Data Parameters]']['ScanRangeX'].to('m')")
        .def_property_readonly("image", &File::Image,
                               "The image as a read-only float32 array (rows, columns) sharing "
                               "the file's samples;\nit stays valid after the file is closed.\n"
                               ">>> f.image.mean()")
        .def_property_readonly("scan_size", &File::ScanSize,
                               "(x, y): the scanned width and height in metres (None when the "
                               "header gives no length).")
        .def_property_readonly("pixel_size", &File::PixelSize,
                               "(x, y): the size of one pixel in metres.")
        .def_property_readonly("curves", &File::Curves,
                               "Force curves: float32 array (points, 4 x series), NaN where a "
                               "point holds fewer values.\n>>> f.curves[:, 0]")
        .def_property_readonly("labels", &File::Labels,
                               "The force curves' column labels, split at commas and trimmed.")
        .def("curves_frame", &File::CurvesFrame,
             "The force curves as a pandas.DataFrame with the labels as columns.\n"
             ">>> f.curves_frame().describe()")
        .def("set", &File::Set, py::arg("section"), py::arg("key"), py::arg("value"),
             "Queues storing value (a str, as kiv set takes it) under key of section; save() "
             "writes it.\n"
             "A key holding a length needs a unit ('20 um' is stored as '20 \u00b5m').\n"
             ">>> f.set('[Data Parameters]', 'Title', 'tip 3')")
        .def("unset", &File::Unset, py::arg("section"), py::arg("key"),
             "Queues removing key from section; save() writes it.")
        .def("save", &File::Save, py::arg("allow_loss") = false, py::arg("dry_run") = false,
             "Saves the queued edits safely: the file is replaced by a verified new version or "
             "left unchanged.\n"
             "Returns a kiv.SaveReport; after a real save header and image show the saved file.\n"
             "Raises kiv.SaveRefused (.items) when the save would drop content, unless "
             "allow_loss.\n"
             "dry_run writes nothing and keeps the edits queued.\n"
             ">>> f.save(dry_run=True).diff")
        .def("export", &File::Export, py::arg("path"), py::arg("format"),
             py::arg("colormap") = "gray", py::arg("range") = py::none(),
             py::arg("overwrite") = false, py::arg("level") = py::none(),
             "Writes the data to path as format: gsf, npy, tiff, csv, tsv or png, the header "
             "as json,\nor html: a page that stands alone, as kiv export --to html writes it "
             "(an image viewer with\nthe unlevelled, plane- and row-levelled surface, or a "
             "plot of the force curves).\n"
             "colormap ('gray', 'afmhot', 'viridis') and range ((min, max)) shape a png "
             "preview and the\nhtml page's first view; an existing path is kept unless "
             "overwrite.\n"
             "level (the methods of kiv.level) levels an image before it is written; by "
             "default a png\npreview is plane-levelled and the other formats keep the samples "
             "as they are. An html page\nholds the image unlevelled, plane- and row-levelled "
             "(and by level, when another) and\nopens showing level, or plane.\n"
             ">>> f.export('flat.gsf', 'gsf', level='rows:mediandiff+plane')\n"
             ">>> f.export('scan.html', 'html')\n"
             ">>> f.export('scan.npy', 'npy')")
        .def("stats", &File::Stats, py::arg("level") = "plane",
             py::arg("exclude_above") = py::none(), py::arg("exclude_below") = py::none(),
             py::arg("exclude_above_percentile") = py::none(), py::arg("z_unit") = py::none(),
             "The height parameters of the image levelled by level, as kiv.stats gives them, "
             "plus 'file' and 'level'.\n"
             "level takes the methods of kiv.level ('none' for the samples as they are).\n"
             "exclude_above / exclude_below (in the data's unit) and exclude_above_percentile "
             "(0 to 100) leave\npixels out of the fits and the figures, applied before each "
             "levelling step to the surface as it\nstands then.\n"
             "z_unit names the height unit when the header gives none; the pixel size comes "
             "from the header,\nand Sdq, Sdr and area are given when both are known.\n"
             ">>> s = f.stats('rows:mediandiff+plane', z_unit='nm')\n"
             ">>> s['Sq'], s['Sdr']")
        .def("profile", &File::Profile, py::arg("row") = py::none(), py::arg("col") = py::none(),
             py::arg("start") = py::none(), py::arg("end") = py::none(), py::arg("metres") = false,
             py::arg("level") = "none",
             "Heights along a row, a column or a line from start to end, as a kiv.Profile that "
             "unpacks as\n(distance, height), two float64 arrays.\n"
             "Exactly one of row, col (negative counts from the end) or start and end: (x, y) "
             "points in pixels\n(x the column, y the row, pixel centres on whole numbers), or "
             "with metres=True in metres from\nthe first pixel's centre. Points lie one pixel "
             "apart from the start, sampled bilinearly; NaN next to\na dropout. distance is in "
             "metres when the header gives the pixel size (profile.metres), in pixels\n"
             "otherwise. level (as in kiv.level) levels the image first.\n"
             ">>> distance, height = f.profile(row=64, level='plane')\n"
             ">>> f.profile(start=(0, 0), end=(5e-6, 5e-6), metres=True).height")
        .def("_repr_png_", &File::ReprPng,
             "The png preview as bytes, exactly what export(path, 'png') writes: the image "
             "plane-levelled,\nor the force curves' plot. Jupyter shows a file by it.")
        .def("_repr_html_", &File::ReprHtml,
             "An HTML fragment for Jupyter: the png preview inline, the scan size, resolution "
             "and plane-levelled\nSa and Sq of an image (the series and points of force "
             "curves) and the first header sections.")
        .def("close", &File::Close, "Releases the file; arrays taken before stay valid.")
        .def("__enter__", [](py::object self) { return self; })
        .def("__exit__", [](File& file, py::args) { file.Close(); })
        .def("__repr__", [](const File& file) { return "<kiv.File '" + file.Path() + "'>"; });

    module.def(
        "open", [](const std::string& path) { return File(path); }, py::arg("path"),
        "Opens a file through the registered file types.\n\n"
        ">>> f = kiv.open('scan.flt')\n>>> f.image.shape\n\n"
        "Raises FileNotFoundError/PermissionError, kiv.FormatError or kiv.Error.");
    module.def(
        "formats",
        []
        {
            LoadModulesWarningInPython();
            std::vector<std::string> types;
            for (const auto& type : DataFile::ListFileTypes())
            {
                types.push_back(ToDisplayText(type.fileType));
            }
            return types;
        },
        "The registered file types, e.g. ['Pelrix Data File'].");
}

} // namespace Kiv::Python
