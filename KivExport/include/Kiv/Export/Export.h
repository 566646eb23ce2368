#pragma once

#include <optional>
#include <string>
#include <utility>

#include "Kiv/Analysis/Levelling.h"
#include "Kiv/DataCore/DataFile.h"

namespace Kiv::Export
{

// The formats an open file can be written to. Images go to every format but tsv; force curves
// to npy, csv, tsv, png, json and html. json is the header alone, for either kind of file; html
// is a page that stands alone: an image viewer (colour maps, zoom, readout, profiles, three
// levellings with their height parameters) or an interactive plot of the curves.
enum class Format
{
    Gsf,
    Npy,
    Tiff,
    Csv,
    Tsv,
    Png,
    Json,
    Html,
};

// The format a user names ("gsf", "npy", "tiff" or "tif", "csv", "tsv", "png", "json", "html";
// any case), or nothing for another name.
std::optional<Format> ParseFormat(const std::string& name);
// The format's name as ParseFormat takes it.
std::string FormatName(Format format);
// The extension of its files: ".gsf", ".npy", ".tif", ".csv", ".tsv", ".png", ".json", ".html".
std::string FormatExtension(Format format);
// Every format's name, comma-separated, for help and error texts.
std::string FormatNames();

// How an export looks. colormap is "gray", "afmhot" or "viridis"; range is the values mapped to
// the ends of the colour map (the 1st and 99th percentile of the samples when not given).
// level is applied to an image before every format but json, with exclusion shaping its fits;
// when not given, a png preview is plane-levelled (a raw scan's tilt hides everything else) and
// the data formats keep the samples exact. An html page holds the image unlevelled, plane- and
// row-levelled (and levelled by level, when that is another method) and opens showing level, or
// plane when not given, in colormap over range. Force curves are never levelled.
struct ExportOptions
{
    std::string colormap = "gray";
    std::optional<std::pair<double, double>> range;
    std::optional<Kiv::Analysis::LevelMethod> level;
    Kiv::Analysis::Exclusion exclusion;
};

// Whether a colour map of that name exists.
bool IsKnownColormap(const std::string& name);

// Writes the open file's data to outputPath under a temporary name beside it, renamed when
// complete, so that a partial output never stands under outputPath. sourcePath names the file
// in messages and gives the title when the header has none. An existing outputPath is kept
// unless overwrite is set. Raises Kiv::Access::Failure (one line naming the file) on failure,
// including a format that does not fit the data: a force file to gsf or tiff ("... formats
// that fit: npy, csv, tsv, png, json"), an image to tsv.
void ExportFile(Kiv::DataCore::DataFile& file, const std::string& sourcePath,
                const std::string& outputPath, Format format, const ExportOptions& options = {},
                bool overwrite = false);

} // namespace Kiv::Export
