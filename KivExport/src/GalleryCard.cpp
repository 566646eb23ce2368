// What a gallery card says of a scan, read from the open file once; the page only shows it.
#include <cmath>

#include "ExportSource.h"
#include "GalleryParts.h"
#include "Kiv/Access/ValueView.h"
#include "Kiv/Export/SurfaceFigures.h"

namespace Kiv::Export
{

namespace
{
const char* const TIMES = " \xC3\x97 "; // " × "

// The value of the first header key of that name in any section, or null.
GalleryJson HeaderFact(const ExportSource& source, const std::string& key)
{
    for (const auto& [sectionKey, value] : source.headerValues)
    {
        const std::size_t slash = sectionKey.find('/');
        if (slash != std::string::npos &&
            sectionKey.compare(slash + 1, std::string::npos, key) == 0)
        {
            return value;
        }
    }
    return nullptr;
}

GalleryJson Figure(double value)
{
    return std::isfinite(value) ? GalleryJson(value) : GalleryJson(nullptr);
}

void DescribeImage(Kiv::DataCore::DataFile& file, const ExportSource& source, GalleryJson& card)
{
    const auto& geometry = source.geometry;
    card["kind"] = "image";
    card["resolution"] = std::to_string(geometry.columns) + TIMES + std::to_string(geometry.rows);
    card["scanSize"] = geometry.rangeX && geometry.rangeY
                           ? GalleryJson(Kiv::Access::FormatUnitized(*geometry.rangeX) + TIMES +
                                         Kiv::Access::FormatUnitized(*geometry.rangeY))
                           : GalleryJson(nullptr);
    card["area"] = geometry.widthMetres && geometry.heightMetres
                       ? Figure(*geometry.widthMetres * *geometry.heightMetres)
                       : GalleryJson(nullptr);
    SurfaceRequest request;
    request.level = Kiv::Analysis::LevelMethod::Parse("plane");
    const SurfaceFigures figures = AnalyseFileSurface(file, source.displayName, request);
    card["Sa"] = Figure(figures.parameters.Sa);
    card["Sq"] = Figure(figures.parameters.Sq);
    card["zUnit"] = figures.zUnit ? GalleryJson(*figures.zUnit) : GalleryJson(nullptr);
}

void DescribeCurves(const ExportSource& source, GalleryJson& card)
{
    const auto& curves = *source.curves;
    card["kind"] = "force";
    const std::size_t series = curves.columns / 4;
    card["resolution"] =
        std::to_string(curves.points) + " points" + TIMES + std::to_string(series) + " series";
    card["scanSize"] = nullptr;
    card["area"] = nullptr;
    card["Sa"] = nullptr;
    card["Sq"] = nullptr;
    card["zUnit"] = nullptr;
}
} // namespace

GalleryJson DescribeScan(Kiv::DataCore::DataFile& file, const std::string& source)
{
    const ExportSource data = ReadExportSource(file, source);
    GalleryJson card;
    card["title"] = data.title;
    card["channel"] = HeaderFact(data, "Channel");
    card["date"] = HeaderFact(data, "Date");
    card["time"] = HeaderFact(data, "Time");
    if (data.image)
    {
        DescribeImage(file, data, card);
    }
    else
    {
        DescribeCurves(data, card);
    }
    GalleryJson header = GalleryJson::array();
    for (const auto& [key, value] : data.headerValues)
    {
        header.push_back({key, value});
    }
    card["header"] = std::move(header);
    return card;
}

} // namespace Kiv::Export
