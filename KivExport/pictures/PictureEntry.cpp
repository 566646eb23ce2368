// The module's one entry point, which the export library looks up after loading it.
#include "PictureWriters.h"

extern "C" const Kiv::Export::PictureWriters* KivExportPictureWriters()
{
    static const Kiv::Export::PictureWriters writers{&Kiv::Export::WriteTiff,
                                                     &Kiv::Export::WritePngPreview};
    return &writers;
}
