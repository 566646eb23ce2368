#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "Kiv/Analysis/ImageView.h"
#include "Kiv/Analysis/Levelling.h"

namespace Kiv::Analysis
{

// The height parameters of a surface (ISO 25178-2) over its N used samples: finite, and not
// excluded. m is their mean; every sum is taken in double precision.
// - Sa = sum |z - m| / N.
// - Sq = sqrt(sum (z - m)^2 / N): divided by N, not N - 1.
// - Ssk = (sum (z - m)^3 / N) / Sq^3.
// - Sku = (sum (z - m)^4 / N) / Sq^4: ISO's kurtosis, 3 for a Gaussian surface. Gwyddion's
//   "kurtosis" is the excess, Sku - 3.
// - Sp = max - m; Sv = m - min, a depth and so positive; Sz = Sp + Sv.
// - median: the middle sample, or the mean of the two middle ones for an even N.
// Ssk and Sku are NaN for a flat surface (Sq = 0); every figure is NaN when N = 0.
//
// Where the pixel size and the height unit are known (Lateral), also:
// - Sdq, the root mean square gradient: sqrt(mean((dz/dx)^2 + (dz/dy)^2)), the gradients by
//   central differences inside and one-sided differences on the border rows and columns (as
//   numpy.gradient), over the used samples whose gradient is finite.
// - area: the surface's area in square metres, each used pixel split into four triangles from its
//   centre (its own height) to its corners (the mean of the four pixels around each corner),
//   with the border rows and columns repeated outwards; pixels whose nine neighbours are not all
//   finite are left out.
// - Sdr = area / projected area - 1, the projected area being that of the same pixels.
struct HeightParameters
{
    std::uint64_t count = 0;    // N
    std::uint64_t excluded = 0; // dropouts and excluded pixels
    double mean = 0.0;
    double median = 0.0;
    double minimum = 0.0;
    double maximum = 0.0;
    double Sa = 0.0;
    double Sq = 0.0;
    double Ssk = 0.0;
    double Sku = 0.0;
    double Sp = 0.0;
    double Sv = 0.0;
    double Sz = 0.0;
    std::optional<double> Sdq;
    std::optional<double> Sdr;
    std::optional<double> area; // m^2
};

// The figures under the names every front end gives them, in this order: "mean", "median",
// "min", "max", "Sa", "Sq", "Ssk", "Sku", "Sp", "Sv", "Sz", then the hybrid "Sdq", "Sdr" and
// "area", which have no value when unknown. count and excluded are counts and are left to the
// caller.
struct NamedFigure
{
    const char* name;
    std::optional<double> value;
    bool hybrid;
};
std::vector<NamedFigure> NamedFigures(const HeightParameters& figures);

// What the hybrid parameters need: the pixel size in metres and the height unit in metres (1e-9
// for samples in nm).
struct Lateral
{
    PixelSize pixel;
    double metresPerHeightUnit = 1.0;
};

// The figures of the samples as they are; a nonzero mask entry leaves its pixel out.
HeightParameters ComputeHeightParameters(const ImageView& image, PixelMask mask = nullptr,
                                         const std::optional<Lateral>& lateral = std::nullopt);

// The median needs a selection among the samples, and on a large image some memory for it (about
// a twentieth of the samples' own at most); a caller that shows no median can do without.
enum class MedianFigure
{
    Computed,
    Skipped, // left NaN
};

// The figures of the image levelled by method, as Level would give it but computed in double
// precision without storing the levelled surface. The exclusion shapes the fits as in Level, and
// the figures leave out the pixels it excludes from the levelled surface.
HeightParameters AnalyseSurface(const ImageView& image, const LevelMethod& method,
                                const Exclusion& exclusion = {},
                                const std::optional<Lateral>& lateral = std::nullopt,
                                MedianFigure median = MedianFigure::Computed);

// The figures of the samples as they are that a glance shows: minimum, maximum, mean and Sq
// (the root mean square deviation from the mean, Rq), over the finite samples.
struct SampleFigures
{
    std::uint64_t count = 0;    // finite samples
    std::uint64_t excluded = 0; // dropouts
    double mean = 0.0;
    double minimum = 0.0;
    double maximum = 0.0;
    double Sq = 0.0;
};

struct SurfaceSummary
{
    SampleFigures asTheyAre;
    HeightParameters levelled; // as AnalyseSurface gives them, without a median
};

// Both at once, for a summary of a scan: where the levelling starts with a plane or polynomial
// fit, the samples are measured in the fit's own pass over them, which saves a pass over an image
// that may be larger than the processor's caches.
SurfaceSummary SummariseSurface(const ImageView& image, const LevelMethod& method);

} // namespace Kiv::Analysis
