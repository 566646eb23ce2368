#include "Kiv/Export/Export.h"

#include <cmath>
#include <stdexcept>
#include <vector>

#include "ExportSource.h"
#include "Kiv/Access/Failure.h"
#include "PictureWriters.h"
#include "Writers.h"

namespace Kiv::Export
{

namespace
{
const std::vector<Format> IMAGE_FORMATS = {Format::Gsf, Format::Npy,  Format::Tiff, Format::Csv,
                                           Format::Png, Format::Json, Format::Html};
const std::vector<Format> CURVE_FORMATS = {Format::Npy, Format::Csv,  Format::Tsv,
                                           Format::Png, Format::Json, Format::Html};

std::string Names(const std::vector<Format>& formats)
{
    std::string names;
    for (const Format format : formats)
    {
        names += (names.empty() ? "" : ", ") + FormatName(format);
    }
    return names;
}

void RequireFit(const ExportSource& source, Format format)
{
    const bool curves = source.curves.has_value();
    const auto& fitting = curves ? CURVE_FORMATS : IMAGE_FORMATS;
    if (std::find(fitting.begin(), fitting.end(), format) == fitting.end())
    {
        Kiv::Access::Fail(source.displayName + ": " + (curves ? "force curves" : "an image") +
                          " cannot be exported to " + FormatName(format) +
                          "; formats that fit: " + Names(fitting));
    }
}

void RequireUsableOptions(const ExportOptions& options)
{
    if (!IsKnownColormap(options.colormap))
    {
        Kiv::Access::Fail("unknown colour map \"" + options.colormap +
                          "\"; known: gray, afmhot, viridis");
    }
    if (options.range &&
        !(std::isfinite(options.range->first) && std::isfinite(options.range->second) &&
          options.range->first < options.range->second))
    {
        Kiv::Access::Fail("the range needs two finite numbers, the first below the second");
    }
    try
    {
        Kiv::Analysis::CheckExclusion(options.exclusion);
    }
    catch (const std::invalid_argument& error)
    {
        Kiv::Access::Fail(error.what());
    }
}

Kiv::Analysis::LevelMethod LevellingFor(Format format, const ExportOptions& options)
{
    if (options.level)
    {
        return *options.level;
    }
    return format == Format::Png ? Kiv::Analysis::LevelMethod::Parse("plane")
                                 : Kiv::Analysis::LevelMethod();
}

// Once for whichever writer follows, into a copy: the open file's samples stay as read.
void LevelImage(ExportSource& source, const Kiv::Analysis::LevelMethod& method,
                const Kiv::Analysis::Exclusion& exclusion)
{
    source.levelling = method.Text();
    if (method.IsNone())
    {
        return;
    }
    const Kiv::Analysis::ImageView view{source.ImageSamples(), source.geometry.rows,
                                        source.geometry.columns};
    try
    {
        source.levelled = Kiv::Analysis::Level(view, method, exclusion);
    }
    catch (const std::invalid_argument& error)
    {
        Kiv::Access::Fail(source.displayName + ": " + error.what());
    }
}

void WriteFormat(const ExportSource& source, OutputFile& output, Format format,
                 const ExportOptions& options)
{
    switch (format)
    {
    case Format::Gsf:
        return WriteGsf(source, output);
    case Format::Npy:
        return WriteNpy(source, output);
    case Format::Tiff:
        return LoadTiffWriter()(source, output);
    case Format::Csv:
        return WriteTextTable(source, output, ',');
    case Format::Tsv:
        return WriteTextTable(source, output, '\t');
    case Format::Png:
        return LoadPngWriter()(source, output, options);
    case Format::Html:
        return WriteHtmlPage(source, output, options);
    case Format::Json:
        break; // the header, which ExportFile writes from the tree
    }
}
} // namespace

void ExportFile(Kiv::DataCore::DataFile& file, const std::string& sourcePath,
                const std::string& outputPath, Format format, const ExportOptions& options,
                bool overwrite)
{
    RequireUsableOptions(options);
    if (format == Format::Json)
    {
        // Every file that opens has a header, whatever its samples hold, and reading them is
        // not needed.
        OutputFile output(outputPath, overwrite);
        WriteHeaderJson(file, output);
        output.Commit();
        return;
    }
    ExportSource source = ReadExportSource(file, sourcePath);
    RequireFit(source, format);
    // A page holds the image levelled several ways, which its writer computes.
    if (source.image && format != Format::Html)
    {
        LevelImage(source, LevellingFor(format, options), options.exclusion);
    }
    OutputFile output(outputPath, overwrite);
    WriteFormat(source, output, format, options);
    output.Commit();
}

} // namespace Kiv::Export
