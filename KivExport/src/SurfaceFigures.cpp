// What the surface analysis needs of an open file: its image, pixel size and height unit; the
// analysis itself is KivAnalysis's.
#include "Kiv/Export/SurfaceFigures.h"

#include <cmath>
#include <stdexcept>

#include "ExportSource.h"
#include "Kiv/Access/Failure.h"
#include "Kiv/Access/FileFacts.h"
#include "Kiv/Access/ValueView.h"
#include "Kiv/Export/SurfaceProfile.h"

namespace Kiv::Export
{

using namespace Kiv::Access;
using namespace Kiv::Analysis;
using Kiv::DataCore::DataFile;
using Kiv::DataCore::FloatMatrix;

namespace
{
struct FileImage
{
    boost::shared_ptr<FloatMatrix> matrix;
    ImageView view;
    std::optional<PixelSize> pixelSize;
};

FileImage RequireImage(DataFile& file, const std::string& displayName)
{
    FileImage image;
    image.matrix = FindImage(file);
    if (!image.matrix || image.matrix->size1() == 0 || image.matrix->size2() == 0)
    {
        Fail(displayName + ": holds no image to analyse");
    }
    image.view = {MatrixSamples(*image.matrix), image.matrix->size1(), image.matrix->size2()};
    const ImageGeometry geometry = ReadImageGeometry(file, *image.matrix);
    const auto x = geometry.PixelWidthMetres();
    const auto y = geometry.PixelHeightMetres();
    if (x && y && std::isfinite(*x) && std::isfinite(*y) && *x > 0.0 && *y > 0.0)
    {
        image.pixelSize = PixelSize{*x, *y};
    }
    return image;
}

// The unit in metres, or nothing when the unit library knows it as no length.
std::optional<double> MetresPerHeightUnit(const std::string& unit)
{
    std::optional<double> metres;
    try
    {
        metres = LengthInMetres(Kiv::DataCore::UnitizedDouble(1.0, unit));
    }
    catch (const Kiv::DataCore::UnitizedDouble::XUnitNotFound&)
    {
    }
    if (!metres || !std::isfinite(*metres) || !(*metres > 0.0))
    {
        return std::nullopt;
    }
    return metres;
}

// The analysis raises invalid_argument for what the user asked (a row past the image, a
// percentile past 100): a failure of this file like any other.
template <class Operation>
auto NamingTheFile(const std::string& displayName, Operation operation)
{
    try
    {
        return operation();
    }
    catch (const std::invalid_argument& error)
    {
        Fail(displayName + ": " + error.what());
    }
}
} // namespace

SurfaceFigures AnalyseFileSurface(DataFile& file, const std::string& displayName,
                                  const SurfaceRequest& request)
{
    const FileImage image = RequireImage(file, displayName);
    SurfaceFigures figures;
    figures.level = request.level.Text();
    figures.zUnit = request.zUnit ? request.zUnit : ReadValueUnit(file);
    figures.pixelSize = image.pixelSize;
    std::optional<Lateral> lateral;
    if (figures.zUnit)
    {
        const auto metres = MetresPerHeightUnit(*figures.zUnit);
        // A unit the user names must be a height; the file's own may be a channel's (volts,
        // degrees), whose surface has no area, and then the hybrid figures are just unknown.
        if (!metres && request.zUnit)
        {
            Fail(displayName + ": the height unit \"" + *figures.zUnit +
                 "\" is not a length the unit library knows");
        }
        if (metres && figures.pixelSize)
        {
            lateral = Lateral{*figures.pixelSize, *metres};
        }
    }
    figures.parameters = NamingTheFile(
        displayName,
        [&] { return AnalyseSurface(image.view, request.level, request.exclusion, lateral); });
    return figures;
}

FileProfile ProfileFileSurface(DataFile& file, const std::string& displayName,
                               const ProfileRequest& request)
{
    const FileImage image = RequireImage(file, displayName);
    const ProfileSelection& selection = request.selection;
    if (selection.along == ProfileSelection::Along::Line && selection.inMetres && !image.pixelSize)
    {
        Fail(displayName +
             ": points in metres need the pixel size, which the header does not give");
    }
    FileProfile result;
    result.level = request.level.Text();
    result.zUnit = ReadValueUnit(file);
    std::vector<float> levelled;
    ImageView view = image.view;
    if (!request.level.IsNone())
    {
        levelled = NamingTheFile(displayName, [&]
                                 { return Level(image.view, request.level, request.exclusion); });
        view.samples = levelled.data();
    }
    result.profile = NamingTheFile(
        displayName,
        [&]
        {
            switch (selection.along)
            {
            case ProfileSelection::Along::Row:
                return RowProfile(view, selection.index, image.pixelSize);
            case ProfileSelection::Along::Column:
                return ColumnProfile(view, selection.index, image.pixelSize);
            case ProfileSelection::Along::Line:
                break;
            }
            if (!selection.inMetres)
            {
                return LineProfile(view, selection.from, selection.to, image.pixelSize);
            }
            return LineProfile(
                view, PixelPointFromMetres(selection.from.x, selection.from.y, *image.pixelSize),
                PixelPointFromMetres(selection.to.x, selection.to.y, *image.pixelSize),
                image.pixelSize);
        });
    return result;
}

} // namespace Kiv::Export
