#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "Bindings.h"
#include "Kiv/Access/Failure.h"
#include "Kiv/Access/FileFacts.h"
#include "Kiv/Access/HeaderValues.h"
#include "Kiv/Access/Latin1.h"
#include "Kiv/Access/ValueView.h"
#include "Kiv/Export/Export.h"
#include "Kiv/Export/HtmlText.h"
#include "Kiv/Export/SurfaceFigures.h"

namespace Kiv::Python
{

using namespace Kiv::Access;
using Kiv::DataCore::DataContainer;
using Kiv::DataCore::DataFile;
using Kiv::DataCore::DataObject;

namespace
{

// The header sections a notebook shows under the preview; the rest is in File.header.
constexpr std::size_t SHOWN_SECTIONS = 3;

// Removes the folder and what it holds however the export ends.
class TemporaryFolder
{
public:
    TemporaryFolder()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "kiv-preview-XXXXXX");
        if (!::mkdtemp(pattern.data()))
        {
            FailWithSystemError("cannot make a temporary folder for the preview", errno);
        }
        m_Path = pattern;
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_Path, ignored);
    }

    const std::filesystem::path& Path() const { return m_Path; }

private:
    std::filesystem::path m_Path;
};

// Six significant digits, as kiv info shows figures.
std::string Figure(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", value);
    return text;
}

// A header value as one line of text (UTF-8), the way File.header gives it.
class ValueText
{
public:
    void Section(DataContainer& section)
    {
        m_Text = std::to_string(section.GetEntries().size()) + " entries";
    }
    void Text(const std::string& utf8) { m_Text = utf8; }
    void Whole(std::int64_t number) { m_Text = std::to_string(number); }
    void Number(double number) { m_Text = FormatNumber(number); }
    void Quantity(const boost::shared_ptr<Kiv::DataCore::UnitizedDouble>& quantity)
    {
        m_Text = FormatUnitized(*quantity);
    }
    void Texts(const std::vector<std::string>& utf8)
    {
        for (const auto& text : utf8)
        {
            m_Text += (m_Text.empty() ? "" : ", ") + text;
        }
    }
    void Nothing() {}

    const std::string& Take() const { return m_Text; }

private:
    std::string m_Text;
};

void Row(std::ostringstream& html, const std::string& label, const std::string& valueHtml)
{
    html << "<tr><th>" << label << "</th><td>" << valueHtml << "</td></tr>\n";
}

std::string RangeText(const boost::shared_ptr<Kiv::DataCore::UnitizedDouble>& range)
{
    return range ? FormatUnitized(*range) : std::string("unknown");
}

void ImageRows(std::ostringstream& html, DataFile& file, const std::string& path)
{
    const auto image = FindImage(file);
    const ImageGeometry geometry = ReadImageGeometry(file, *image);
    Row(html, "Scan size",
        Kiv::Export::EscapeHtml(RangeText(geometry.rangeX)) + " &times; " +
            Kiv::Export::EscapeHtml(RangeText(geometry.rangeY)));
    Row(html, "Resolution",
        std::to_string(geometry.columns) + " &times; " + std::to_string(geometry.rows) +
            " samples");
    Kiv::Export::SurfaceRequest request;
    request.level = Kiv::Analysis::LevelMethod::Parse("plane");
    const auto figures = Kiv::Export::AnalyseFileSurface(file, path, request);
    const std::string unit =
        figures.zUnit ? " " + Kiv::Export::EscapeHtml(ToDisplayText(*figures.zUnit)) : "";
    Row(html, "Sa (plane-levelled)", Figure(figures.parameters.Sa) + unit);
    Row(html, "Sq (plane-levelled)", Figure(figures.parameters.Sq) + unit);
}

void ForceRows(std::ostringstream& html, const Kiv::DataCore::FloatMatrixList& curves)
{
    const std::size_t values = curves.empty() ? 0 : curves.front().data().size();
    // Each series is an approach and a retract curve, each a distance and a force.
    Row(html, "Series", std::to_string(values / 4));
    Row(html, "Points", std::to_string(curves.size()));
}

void SectionRows(std::ostringstream& html, DataFile& file)
{
    std::size_t shown = 0;
    for (const auto& [name, object] : file.GetEntries())
    {
        const auto section = boost::dynamic_pointer_cast<DataContainer>(object);
        if (shown == SHOWN_SECTIONS)
        {
            break;
        }
        if (!section)
        {
            continue;
        }
        std::ostringstream rows;
        ForEachHeaderEntry(
            *section,
            [&rows](const std::string& key, const boost::shared_ptr<DataObject>& value)
            {
                ValueText text;
                VisitHeaderValue(value, text);
                Row(rows, Kiv::Export::EscapeHtml(key), Kiv::Export::EscapeHtml(text.Take()));
            });
        // A section of samples alone has nothing to show.
        if (rows.tellp() > 0)
        {
            html << "<tr><th colspan=\"2\">" << Kiv::Export::EscapeHtml(Latin1ToUtf8(name))
                 << "</th></tr>\n"
                 << rows.str();
            ++shown;
        }
    }
}

} // namespace

bool HasPreview(DataFile& file)
{
    return FindImage(file) || FindForceCurves(file);
}

std::string PreviewPng(DataFile& file, const std::string& path)
{
    const TemporaryFolder folder;
    const std::string output = folder.Path() / "preview.png";
    Kiv::Export::ExportFile(file, path, output, Kiv::Export::Format::Png);
    std::ifstream stream(output, std::ios::binary);
    if (!stream)
    {
        Fail(path + ": cannot read back the preview written to " + output);
    }
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

std::string SummaryHtml(DataFile& file, const std::string& path)
{
    const std::string name = ToDisplayText(std::filesystem::path(path).filename().string());
    std::ostringstream html;
    // Notebooks centre table cells; a header reads better aligned left.
    html << "<div class=\"kiv-file\">\n<style>.kiv-file th, .kiv-file td { text-align: left; "
            "}</style>\n";
    if (HasPreview(file))
    {
        const std::string png = PreviewPng(file, path);
        std::string base64;
        Kiv::Export::AppendBase64(png.data(), png.size(), base64);
        html << "<img src=\"data:image/png;base64," << base64 << "\" alt=\"Preview of "
             << Kiv::Export::EscapeHtml(name) << "\" style=\"max-width:100%\">\n";
    }
    html << "<table>\n";
    Row(html, "File", Kiv::Export::EscapeHtml(ToDisplayText(path)));
    if (FindImage(file))
    {
        ImageRows(html, file, path);
    }
    else if (const auto curves = FindForceCurves(file))
    {
        ForceRows(html, *curves);
    }
    SectionRows(html, file);
    html << "</table>\n</div>\n";
    return html.str();
}

} // namespace Kiv::Python
