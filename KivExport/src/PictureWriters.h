#pragma once

#include <thread>

#include "Writers.h"

namespace Kiv::Export
{

// The writers that need cairo and libtiff. They live in a module of their own, loaded the first
// time a picture is written: the two libraries bring some 28 more with them, and every other
// export (and every other kiv command) starts faster without them.
struct PictureWriters
{
    void (*writeTiff)(const ExportSource& source, OutputFile& output);
    void (*writePngPreview)(const ExportSource& source, OutputFile& output,
                            const ExportOptions& options);
};

// Loads the module from the folder this library was loaded from, once; raises Failure when it
// cannot.
const PictureWriters& LoadPictureWriters();

// Starts loading the module on a thread of its own, so that the loading (several milliseconds
// of dynamic linking) overlaps with reading the first input. Whoever needs the writers first
// waits for it; a failure is raised there, to the file that needed them. Joins on destruction.
class PictureWritersPreload
{
public:
    PictureWritersPreload();
    ~PictureWritersPreload();
    PictureWritersPreload(const PictureWritersPreload&) = delete;
    PictureWritersPreload& operator=(const PictureWritersPreload&) = delete;

private:
    std::thread m_Thread;
};

} // namespace Kiv::Export

// What the module hands out; looked up by this name.
extern "C" const Kiv::Export::PictureWriters* KivExportPictureWriters();
