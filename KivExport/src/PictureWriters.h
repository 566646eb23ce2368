#pragma once

#include <thread>

#include "Writers.h"

namespace Kiv::Export
{

// The TIFF and the PNG writer each live in a module of their own, loaded the first time a file
// of that format is written: libtiff and cairo bring some 28 libraries with them, and every other
// export (and every other kiv command) starts faster without them.
using TiffWriterFunction = void (*)(const ExportSource& source, OutputFile& output);
using PngWriterFunction = void (*)(const ExportSource& source, OutputFile& output,
                                   const ExportOptions& options);

// Each loads its module from the folder this library was loaded from, once; raises Failure
// when it cannot.
TiffWriterFunction LoadTiffWriter();
PngWriterFunction LoadPngWriter();

// Starts loading the module a format needs (if any) on a thread of its own, so that the loading
// (several milliseconds of dynamic linking) overlaps with reading the first input. Whoever needs
// the writer first waits for it; a failure is raised there, to the file that needed it. Joins
// on destruction.
class PictureWritersPreload
{
public:
    explicit PictureWritersPreload(Format format);
    ~PictureWritersPreload();
    PictureWritersPreload(const PictureWritersPreload&) = delete;
    PictureWritersPreload& operator=(const PictureWritersPreload&) = delete;

private:
    std::thread m_Thread;
};

} // namespace Kiv::Export

// What the modules hand out; looked up by these names.
extern "C" void KivExportWriteTiff(const Kiv::Export::ExportSource& source,
                                   Kiv::Export::OutputFile& output);
extern "C" void KivExportWritePng(const Kiv::Export::ExportSource& source,
                                  Kiv::Export::OutputFile& output,
                                  const Kiv::Export::ExportOptions& options);
