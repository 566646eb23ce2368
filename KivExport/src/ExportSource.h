#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <boost/shared_ptr.hpp>

#include "Kiv/Access/FileFacts.h"
#include "Kiv/DataCore/DataFile.h"

namespace Kiv::Export
{

// What the writers need of an open file, read once and in UTF-8, so that no writer walks the
// data tree or knows where a file type keeps its values.
struct ExportSource
{
    std::string displayName; // the input as the user named it
    std::string title;

    // An image file: the samples (rows x columns, row-major) and their lateral size.
    boost::shared_ptr<Kiv::DataCore::FloatMatrix> image;
    Kiv::Access::ImageGeometry geometry;
    // The unit of the samples, when the file states one.
    std::optional<std::string> valueUnit;
    // The image levelled for this export (empty when it is exported as read), and the method's
    // spelling ("none" for an image left as read) for the previews' caption.
    std::vector<float> levelled;
    std::optional<std::string> levelling;

    // A force file: a row per point, 4 columns a series, and the column labels (may be fewer
    // or more than the columns when the header disagrees with the data).
    std::optional<Kiv::Access::CurveTable> curves;
    std::vector<std::string> curveLabels;

    // Every header value as ("Section/Key", text), in file order.
    std::vector<std::pair<std::string, std::string>> headerValues;

    // The levelled samples when there are any, else the image's own.
    const float* ImageSamples() const;
    std::size_t ImageSampleCount() const;
};

// Raises Failure naming the file when it holds neither an image nor force curves.
ExportSource ReadExportSource(Kiv::DataCore::DataFile& file, const std::string& displayName);

// The unit of an image's samples as the header states it (UTF-8), or nothing.
std::optional<std::string> ReadValueUnit(Kiv::DataCore::DataFile& file);

} // namespace Kiv::Export
