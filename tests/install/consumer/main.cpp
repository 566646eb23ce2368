// Opens an image through the installed host and prints its resolution: proves that the
// headers, the libraries and the file-type modules are found from the installed prefix alone.
#include <iostream>

#include "Kiv/DataCore/DataFile.h"
#include "Kiv/DataCore/ModuleLoader.h"
#include "Kiv/DataCore/ValueTypes.h"

int main(int argc, char** argv)
{
    if (argc != 2)
    {
        std::cerr << "usage: kiv-consumer FILE\n";
        return 2;
    }
    using Kiv::DataCore::DataFile;
    const auto report = Kiv::DataCore::LoadPluginModules();
    for (const std::string& error : report.errors)
    {
        std::cerr << error << '\n';
    }
    try
    {
        const auto file =
            DataFile::Open(argv[1], DataFile::ACCESS_READ, DataFile::OPEN_EXISTING, "", nullptr);
        const auto parameters = file->GetSubData({"[Data Parameters]"}, false);
        Kiv::DataCore::HostLong x;
        Kiv::DataCore::HostLong y;
        if (!parameters || !parameters->Get("ResolutionX", x) || !parameters->Get("ResolutionY", y))
        {
            std::cerr << argv[1] << ": no resolution\n";
            return 1;
        }
        std::cout << file->GetFileType() << ": " << x << " x " << y << '\n';
        file->Close();
    }
    catch (const std::exception& error)
    {
        std::cerr << argv[1] << ": " << error.what() << '\n';
        return 1;
    }
    return 0;
}
