#pragma once

#include "ExportSource.h"
#include "Kiv/Export/Export.h"
#include "OutputFile.h"

namespace Kiv::Export
{

// One writer a format. Each takes a source that its format fits (the caller checks) and writes
// the whole output. WriteTiff and WritePngPreview are in modules of their own (PictureWriters.h).
void WriteGsf(const ExportSource& source, OutputFile& output);
void WriteNpy(const ExportSource& source, OutputFile& output);
void WriteTiff(const ExportSource& source, OutputFile& output);
void WriteTextTable(const ExportSource& source, OutputFile& output, char separator);
void WritePngPreview(const ExportSource& source, OutputFile& output, const ExportOptions& options);
// A page that stands alone (HtmlPage.cpp): an image in a viewer with its levellings and figures,
// or force curves in an interactive plot. It levels the image itself, three ways.
void WriteHtmlPage(const ExportSource& source, OutputFile& output, const ExportOptions& options);
// The whole header tree (every section and the file type's own records), not the samples.
void WriteHeaderJson(Kiv::DataCore::DataContainer& file, OutputFile& output);

} // namespace Kiv::Export
