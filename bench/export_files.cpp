// Writes the image files the export benchmark converts: "DIR large" one 4096 x 4096 image,
// "DIR small N" N images of 256 x 256.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "BenchFiles.h"

int main(int argc, char** argv)
{
    const std::string kind = argc > 2 ? argv[2] : "";
    if (argc < 3 || (kind != "large" && kind != "small") || (kind == "small" && argc < 4))
    {
        std::fprintf(stderr, "usage: kiv_bench_export_files DIR large | DIR small COUNT\n");
        return 2;
    }
    const std::string folder = argv[1];
    if (kind == "large")
    {
        KivBench::WriteImageFile(folder + "/large.flt", KivBench::LARGE_IMAGE);
        return 0;
    }
    const KivBench::ImageFileLayout small{256, 256, 4096};
    const long count = std::strtol(argv[3], nullptr, 10);
    for (long i = 0; i < count; ++i)
    {
        char name[32];
        std::snprintf(name, sizeof name, "/small_%05ld.flt", i);
        KivBench::WriteImageFile(folder + name, small);
    }
    return 0;
}
