// A page that stands alone: one HTML file holding the samples (base64 float32), what the library
// computed of them (levellings, figures, colour ranges) as JSON, the viewer's script and the
// plotting library, so that it opens from disk or an e-mail with no network. The page draws and
// samples what is embedded and computes no figure of its own.
#include <algorithm>
#include <cmath>
#include <sstream>
#include <stdexcept>

#include "ColorMaps.h"
#include "CurveNames.h"
#include "EmbeddedFiles.h"
#include "Kiv/Access/Failure.h"
#include "Kiv/Access/JsonStream.h"
#include "Kiv/Analysis/HeightParameters.h"
#include "PageText.h"
#include "PlotScales.h"
#include "Writers.h"

namespace Kiv::Export
{

namespace
{
using Kiv::Access::JsonStream;
using Kiv::Analysis::LevelMethod;

// The previews' default colour range, so that a page opens looking like the PNG.
const double LOW_PERCENTILE = 0.01;
const double HIGH_PERCENTILE = 0.99;
const int COLORMAP_ENTRIES = 256;
const char* const COLORMAPS[] = {"gray", "afmhot", "viridis"};
// What a user switches between; a levelling asked for on the command line joins them.
const char* const PAGE_LEVELLINGS[] = {"none", "plane", "rows"};
const std::size_t COLUMNS_PER_SERIES = 4;

// One way of levelling the image, with what the page shows of it.
struct PageLevelling
{
    std::string name;            // as the page's selector names it ("rows")
    std::string method;          // the method's plain spelling ("rows:median")
    std::vector<float> levelled; // empty for "none": the image's own samples are written
    std::pair<double, double> range;
    Kiv::Analysis::HeightParameters figures;
};

std::vector<PageLevelling> ChooseLevellings(const ExportOptions& options, std::size_t& shown)
{
    std::vector<PageLevelling> levellings;
    for (const char* name : PAGE_LEVELLINGS)
    {
        levellings.push_back({name, LevelMethod::Parse(name).Text(), {}, {}, {}});
    }
    // Plane-levelled unless asked otherwise, as the previews: a raw scan's tilt hides the rest.
    const std::string wanted = options.level ? options.level->Text() : "plane";
    const auto match = std::find_if(levellings.begin(), levellings.end(),
                                    [&](const PageLevelling& l) { return l.method == wanted; });
    if (match == levellings.end())
    {
        levellings.push_back({wanted, wanted, {}, {}, {}});
    }
    shown = static_cast<std::size_t>(std::find_if(levellings.begin(), levellings.end(),
                                                  [&](const PageLevelling& l)
                                                  { return l.method == wanted; }) -
                                     levellings.begin());
    return levellings;
}

std::vector<PageLevelling> LevelForPage(const ExportSource& source, const ExportOptions& options,
                                        std::size_t& shown)
{
    std::vector<PageLevelling> levellings = ChooseLevellings(options, shown);
    const Kiv::Analysis::ImageView view{source.ImageSamples(), source.geometry.rows,
                                        source.geometry.columns};
    try
    {
        for (PageLevelling& levelling : levellings)
        {
            const LevelMethod method = LevelMethod::Parse(levelling.method);
            if (!method.IsNone())
            {
                levelling.levelled = Kiv::Analysis::Level(view, method, options.exclusion);
            }
            const float* samples =
                levelling.levelled.empty() ? view.samples : levelling.levelled.data();
            levelling.range =
                PercentileRange(samples, view.Count(), LOW_PERCENTILE, HIGH_PERCENTILE);
            // The library's figures, computed as kiv stats computes them.
            levelling.figures = Kiv::Analysis::AnalyseSurface(view, method, options.exclusion);
        }
    }
    catch (const std::invalid_argument& error)
    {
        Kiv::Access::Fail(source.displayName + ": " + error.what());
    }
    return levellings;
}

void Pair(JsonStream& json, double first, double second)
{
    json.Raw('[').Number(first).Raw(',').Number(second).Raw(']');
}

void OptionalString(JsonStream& json, const std::optional<std::string>& text)
{
    if (text)
    {
        json.String(*text);
    }
    else
    {
        json.Raw("null");
    }
}

void Figures(JsonStream& json, const Kiv::Analysis::HeightParameters& p)
{
    json.Raw("{\"count\":").Unsigned(p.count).Raw(",\"excluded\":").Unsigned(p.excluded);
    // The page shows the height figures; it knows no height unit to give the hybrid ones.
    for (const auto& figure : Kiv::Analysis::NamedFigures(p))
    {
        if (figure.hybrid)
        {
            continue;
        }
        json.Raw(",\"").Raw(figure.name).Raw("\":").Number(*figure.value);
    }
    json.Raw('}');
}

// Each colour map as 256 RGB bytes, entry i the preview's colour at i / 255, so that a value
// the page maps to entry round(t * 255) gets the preview's colour.
void ColorMaps(JsonStream& json)
{
    json.Raw('{');
    bool first = true;
    for (const char* name : COLORMAPS)
    {
        const ColorMap map = *ColorMap::Named(name);
        std::string bytes;
        for (int i = 0; i < COLORMAP_ENTRIES; ++i)
        {
            const Rgb colour = map.At(static_cast<double>(i) / (COLORMAP_ENTRIES - 1));
            for (const double c : {colour.red, colour.green, colour.blue})
            {
                bytes += static_cast<char>(std::lround(std::clamp(c, 0.0, 1.0) * 255.0));
            }
        }
        std::string text;
        AppendBase64(bytes.data(), bytes.size(), text);
        json.Raw(first ? "" : ",").String(name).Raw(':').String(text);
        first = false;
    }
    json.Raw('}');
}

void ImageJson(JsonStream& json, const ExportSource& source, const ExportOptions& options,
               const std::vector<PageLevelling>& levellings, std::size_t shown)
{
    json.Raw("\"image\":{\"rows\":").Unsigned(source.geometry.rows);
    json.Raw(",\"columns\":").Unsigned(source.geometry.columns).Raw(",\"pixel\":");
    const auto width = source.geometry.PixelWidthMetres();
    const auto height = source.geometry.PixelHeightMetres();
    if (width && height && *width > 0 && *height > 0)
    {
        Pair(json, *width, *height);
    }
    else
    {
        json.Raw("null");
    }
    json.Raw(",\"unit\":");
    OptionalString(json, source.valueUnit);
    json.Raw(",\"colormap\":").String(options.colormap == "grey" ? "gray" : options.colormap);
    json.Raw(",\"range\":");
    if (options.range)
    {
        Pair(json, options.range->first, options.range->second);
    }
    else
    {
        json.Raw("null");
    }
    json.Raw(",\"shown\":").Unsigned(shown).Raw(",\"levellings\":[");
    for (std::size_t i = 0; i < levellings.size(); ++i)
    {
        const PageLevelling& levelling = levellings[i];
        json.Raw(i ? ",\n" : "\n").Raw("{\"name\":").String(levelling.name);
        json.Raw(",\"method\":").String(levelling.method).Raw(",\"range\":");
        Pair(json, levelling.range.first, levelling.range.second);
        json.Raw(",\"figures\":");
        Figures(json, levelling.figures);
        json.Raw('}');
    }
    json.Raw("]}");
}

// The curves as the PNG plot draws them: approach and retract of each series of 4 columns, or
// the second column against the first for a table of fewer.
void CurvesJson(JsonStream& json, const ExportSource& source)
{
    const auto& table = *source.curves;
    const auto label = [&](std::size_t column)
    {
        return column < source.curveLabels.size() ? source.curveLabels[column]
                                                  : "Column " + std::to_string(column + 1);
    };
    const auto name = [&](std::size_t column, std::size_t series, const char* kind)
    {
        return column < source.curveLabels.size()
                   ? CurveNameWithoutUnit(source.curveLabels[column])
                   : "Series " + std::to_string(series + 1) + " " + kind;
    };
    json.Raw("\"curves\":{\"points\":").Unsigned(table.points);
    json.Raw(",\"columns\":").Unsigned(table.columns).Raw(",\"series\":[");
    const std::size_t series = table.columns / COLUMNS_PER_SERIES;
    const auto curve = [&](std::size_t x, std::size_t y, const std::string& text, std::size_t s,
                           bool retract, bool first)
    {
        json.Raw(first ? "" : ",").Raw("{\"x\":").Unsigned(x).Raw(",\"y\":").Unsigned(y);
        json.Raw(",\"name\":").String(text).Raw(",\"series\":").Unsigned(s);
        json.Raw(",\"retract\":").Raw(retract ? "true" : "false").Raw('}');
    };
    for (std::size_t s = 0; s < series; ++s)
    {
        const std::size_t first = s * COLUMNS_PER_SERIES;
        curve(first, first + 1, name(first + 1, s, "approach"), s, false, s == 0);
        curve(first + 2, first + 3, name(first + 3, s, "retract"), s, true, false);
    }
    if (series == 0 && table.columns >= 2)
    {
        curve(0, 1, label(1), 0, false, true);
    }
    json.Raw("],\"xLabel\":").String(CurveAxisName(label(0)));
    json.Raw(",\"yLabel\":").String(CurveAxisName(label(1))).Raw('}');
}

std::string BaseName(const std::string& path)
{
    const std::size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string PageJson(const ExportSource& source, const ExportOptions& options,
                     const std::vector<PageLevelling>& levellings, std::size_t shown)
{
    std::ostringstream text;
    {
        JsonStream json(text);
        json.Raw("{\"kind\":").String(source.curves ? "curves" : "image");
        json.Raw(",\"title\":").String(source.title);
        json.Raw(",\"file\":").String(BaseName(source.displayName)).Raw(",\n");
        if (source.curves)
        {
            CurvesJson(json, source);
        }
        else
        {
            ImageJson(json, source, options, levellings, shown);
            json.Raw(",\n\"colormaps\":");
            ColorMaps(json);
        }
        json.Raw(",\n\"header\":[");
        for (std::size_t i = 0; i < source.headerValues.size(); ++i)
        {
            json.Raw(i ? ",\n[" : "\n[").String(source.headerValues[i].first);
            json.Raw(',').String(source.headerValues[i].second).Raw(']');
        }
        json.Raw("]}");
    }
    return JsonForScript(text.str());
}

// Data blocks the browser keeps as text and never runs; the page decodes them with atob.
void WriteSampleBlock(BufferedOutput& out, const std::string& id, const float* values,
                      std::size_t count)
{
    out.Write("<script type=\"application/octet-stream\" id=\"" + id + "\">");
    out.Write(Float32Base64(values, count));
    out.Write("</script>\n");
}

std::string_view RequireFile(std::string_view name)
{
    const std::string_view text = EmbeddedFile(name);
    if (text.empty())
    {
        throw std::logic_error("the page source " + std::string(name) + " is not built in");
    }
    return text;
}

// The plotting library with its licence, which its minified form carries only as a link.
void WritePlotLibrary(BufferedOutput& out)
{
    out.Write("/*! uPlot, MIT License:\n");
    const std::string_view licence = RequireFile("vendor/uPlot-LICENSE");
    out.Write(licence.data(), licence.size());
    out.Write("*/\n");
    const std::string_view script = RequireFile("vendor/uPlot.iife.min.js");
    out.Write(script.data(), script.size());
}
} // namespace

void WriteHtmlPage(const ExportSource& source, OutputFile& output, const ExportOptions& options)
{
    std::size_t shown = 0;
    const std::vector<PageLevelling> levellings =
        source.image ? LevelForPage(source, options, shown) : std::vector<PageLevelling>();
    const std::string data = PageJson(source, options, levellings, shown);
    BufferedOutput out(output);
    WriteTemplate(RequireFile("viewer.html"), out,
                  [&](std::string_view name, BufferedOutput& to)
                  {
                      if (name == "TITLE")
                      {
                          to.Write(EscapeHtml(source.title));
                      }
                      else if (name == "KIND")
                      {
                          to.Write(source.curves ? "curves" : "image");
                      }
                      else if (name == "STYLE")
                      {
                          const auto plot = RequireFile("vendor/uPlot.min.css");
                          const auto own = RequireFile("viewer.css");
                          to.Write(plot.data(), plot.size());
                          to.Put('\n');
                          to.Write(own.data(), own.size());
                      }
                      else if (name == "DATA")
                      {
                          to.Write(data);
                      }
                      else if (name == "SAMPLES")
                      {
                          for (std::size_t i = 0; i < levellings.size(); ++i)
                          {
                              const auto& l = levellings[i];
                              WriteSampleBlock(to, "samples-" + std::to_string(i),
                                               l.levelled.empty() ? source.ImageSamples()
                                                                  : l.levelled.data(),
                                               source.ImageSampleCount());
                          }
                          if (source.curves)
                          {
                              WriteSampleBlock(to, "curves", source.curves->values.data(),
                                               source.curves->values.size());
                          }
                      }
                      else if (name == "PLOT_LIBRARY")
                      {
                          WritePlotLibrary(to);
                      }
                      else if (name == "SCRIPT")
                      {
                          const auto script = RequireFile("viewer.js");
                          to.Write(script.data(), script.size());
                      }
                  });
    out.Flush();
}

} // namespace Kiv::Export
