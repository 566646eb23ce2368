#include "Pelrix/PelrixSelfTest.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <unistd.h>

#include "Pelrix/PelrixDataFileFactory.h"

namespace Pelrix
{

using namespace Kiv::DataCore;

namespace
{
// A folder of its own under the system's temporary folder, removed with everything in it.
class TemporaryFolder
{
public:
    TemporaryFolder()
    {
        const char* base = std::getenv("TMPDIR");
        std::string pattern =
            std::string(base && *base ? base : "/tmp") + "/pelrix-selftest-XXXXXX";
        if (::mkdtemp(pattern.data()) == nullptr)
        {
            FailCheck("cannot create a temporary folder under " + pattern);
        }
        m_Path = pattern;
    }
    ~TemporaryFolder()
    {
        for (const auto& file : m_Files)
        {
            std::remove(file.c_str());
        }
        ::rmdir(m_Path.c_str());
    }
    std::string Write(const std::string& name, const std::string& bytes)
    {
        const std::string path = m_Path + "/" + name;
        std::ofstream(path, std::ios::binary) << bytes;
        m_Files.push_back(path);
        return path;
    }

private:
    std::string m_Path;
    std::vector<std::string> m_Files;
};

std::string SmallImageFile(std::uint32_t offset)
{
    std::string header =
        "[Data Version]\r\nVersion=1\r\n\r\n[Data Parameters]\r\n"
        "DataOffset=" +
        std::to_string(offset) +
        "\r\nScanRangeX=2 \xB5m\r\nResolutionX=3\r\nResolutionY=2\r\n\r\n[Data]\r\n";
    header.resize(offset, '\0');
    const float samples[] = {1.0f, 2.0f, 3.0f, 4.0f, 5.0f, 6.5f};
    header.append(reinterpret_cast<const char*>(samples), sizeof samples);
    return header;
}

// A check fails, rather than the host crashing, when a section it looks into is missing.
boost::shared_ptr<DataContainer> RequireSection(DataFile& file, const std::string& name)
{
    const auto section = file.GetSubData({name}, false);
    CheckThat(static_cast<bool>(section), "no " + name + " section");
    return section;
}

boost::shared_ptr<DataFile> OpenThroughFactory(const std::string& path)
{
    PelrixDataFileFactory factory;
    CheckThat(factory.IsFactoryFileType(path), "the factory does not recognise " + path);
    const auto file = factory.Create(path, DataFile::ACCESS_READ, DataFile::OPEN_EXISTING, nullptr);
    CheckThat(file && file->IsOpen(), "the factory did not open " + path);
    return file;
}

void CheckImageFile()
{
    TemporaryFolder folder;
    const auto file = OpenThroughFactory(folder.Write("image.flt", SmallImageFile(256)));
    FloatMatrix samples;
    CheckThat(RequireSection(*file, "[Data]")->Get("RawData", samples), "no RawData matrix");
    CheckThat(samples.size1() == 2 && samples.size2() == 3, "the matrix is not 2 x 3");
    CheckThat(samples(0, 1) == 2.0f && samples(1, 0) == 4.0f && samples(1, 2) == 6.5f,
              "the samples are not where the file put them");
    UnitizedDouble range(0.0);
    CheckThat(RequireSection(*file, "[Data Parameters]")->Get("ScanRangeX", range) &&
                  range.GetValue() == 2.0 && range.GetUnit()->GetAbbreviation() == "\xB5m",
              "ScanRangeX is not 2 \xB5m");
}

void CheckForceFile()
{
    TemporaryFolder folder;
    const std::string text = "[Point Spectroscopy Data]\r\nApproach Rate=750.0000 \xB5m/s\r\n\r\n"
                             "[Series layout]\r\nPoints Number=2\r\nSeries Number=1\r\n"
                             "Z,Force,Z,Force\n\r\n[Data]\r\n"
                             "1.5\t2\t3\t4\n-0.0125\t0.5\n";
    const auto file = OpenThroughFactory(folder.Write("force.flt", text));
    FloatMatrixList curves;
    CheckThat(RequireSection(*file, "[Data]")->Get("RawData", curves), "no RawData curves");
    CheckThat(curves.size() == 2, "expected 2 curves, read " + std::to_string(curves.size()));
    CheckThat(curves[0](0, 0) == 1.5f && curves[0](3, 0) == 4.0f, "the first line is wrong");
    CheckThat(curves[1](1, 0) == 0.5f && curves[1](3, 0) == 0.5f,
              "a short line does not repeat its last value");
    std::string labels;
    RequireSection(*file, "PelrixFileOverviewInfo")->Get("ForceCurveDataLabels", labels);
    CheckThat(labels == "Z,Force,Z,Force", "the curve labels are \"" + labels + "\"");
}

void CheckRejectsOtherFiles()
{
    TemporaryFolder folder;
    PelrixDataFileFactory factory;
    CheckThat(!factory.IsFactoryFileType(folder.Write("notes.txt", "just text\n")),
              "a text file was taken for a Pelrix file");
    CheckThat(!factory.IsFactoryFileType("/nonexistent/file.flt"),
              "a missing file was taken for a Pelrix file");
}
} // namespace

std::unique_ptr<ModuleTestSuite> MakeSelfTestSuite()
{
    auto suite = std::make_unique<ModuleTestSuite>("PelrixDataFile");
    suite->AddCheck("reads an image file", CheckImageFile);
    suite->AddCheck("reads a force file", CheckForceFile);
    suite->AddCheck("recognises only Pelrix files", CheckRejectsOtherFiles);
    return suite;
}

} // namespace Pelrix
