// Writes the two sample files byte by byte, the way the instrument software lays them out:
//   topography_128.flt  a 128 x 128 image: a tilted surface with rounded bumps and some noise
//   force_2x300.flt     two series of approach and retract force curves, 300 points each
// Usage: kiv-make-samples FOLDER
//
// Everything is computed with additions and multiplications only, from a fixed-seed generator,
// so the files come out the same on every machine. The headers are already in the form the
// plug-in writes back (four decimals for values with units, "DataOffset" right-aligned in six
// characters), so saving a sample unchanged gives the same bytes.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

namespace
{
const char* const CRLF = "\r\n";
const char* const MICRO = "\xB5"; // the micro sign in Latin-1

// SplitMix64: small, fast and the same everywhere.
class Random
{
public:
    explicit Random(std::uint64_t seed) : m_State(seed) {}
    double Uniform()
    {
        m_State += 0x9E3779B97F4A7C15ull;
        std::uint64_t z = m_State;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        z ^= z >> 31;
        return static_cast<double>(z >> 11) * (1.0 / 9007199254740992.0);
    }
    // Close to a normal distribution with mean 0 and standard deviation 1 (sum of twelve
    // uniforms), without the library's transcendental functions.
    double Noise()
    {
        double sum = 0.0;
        for (int i = 0; i < 12; ++i)
        {
            sum += Uniform();
        }
        return sum - 6.0;
    }

private:
    std::uint64_t m_State;
};

std::string Section(const std::string& name, const std::vector<std::string>& lines)
{
    std::string text = name + CRLF;
    for (const auto& line : lines)
    {
        text += line + CRLF;
    }
    return text + CRLF;
}

void AppendFloatLittleEndian(std::string& bytes, float value)
{
    std::uint32_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    for (int shift = 0; shift < 32; shift += 8)
    {
        bytes.push_back(static_cast<char>((bits >> shift) & 0xFF));
    }
}

bool WriteFile(const std::string& path, const std::string& bytes)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    out.close();
    if (!out)
    {
        std::cerr << "kiv-make-samples: cannot write " << path << "\n";
        return false;
    }
    std::cout << "wrote " << path << " (" << bytes.size() << " bytes)\n";
    return true;
}

// A smooth bump of the given height that falls to zero at the radius: (1 - (r/R)^2)^2.
double Bump(double x, double y, double centreX, double centreY, double radius, double height)
{
    const double r2 =
        ((x - centreX) * (x - centreX) + (y - centreY) * (y - centreY)) / (radius * radius);
    return r2 >= 1.0 ? 0.0 : height * (1.0 - r2) * (1.0 - r2);
}

std::string MakeTopography()
{
    const int size = 128;
    const double rangeMicrometres = 10.0;
    const int dataOffset = 4096;
    const std::string micrometre = std::string(MICRO) + "m";

    std::string header;
    header +=
        Section("[Data Version]", {"DataVersion=2", "Program=Pelrix Scan 3.2.1", "FileFormat=FLT"});
    header +=
        Section("[Data Parameters]",
                {"DataOffset=  " + std::to_string(dataOffset), "ScanRangeX=10.0000 " + micrometre,
                 "ScanRangeY=10.0000 " + micrometre, "ResolutionX=" + std::to_string(size),
                 "ResolutionY=" + std::to_string(size), "Color Table Index=2",
                 "Title=Synthetic topography", "Channel=Topography", "Date=2024-03-18",
                 "Time=14:05:09", "ScanningRate=20.0000 " + micrometre + "/s",
                 "ZTransferCoefficient=0.3488 " + micrometre + "/V", "Scan Angle=0.0000 deg",
                 "Direction=Forward"});
    header += Section("[Custom Color Table]", {"Entries=4", "Color0=0 0 0", "Color1=128 64 0",
                                               "Color2=230 160 60", "Color3=255 255 255"});
    header += Section("[PreProcessing]", {"Leveling=Plane", "Filter=None"});
    header += Section("[Piezo Parameters]", {"X Sensitivity=1.2500 " + micrometre + "/V",
                                             "Y Sensitivity=1.2500 " + micrometre + "/V",
                                             "Z Sensitivity=0.3488 " + micrometre + "/V",
                                             "Creep Correction=On", "Hysteresis Correction=On"});
    header += Section("[System Info]",
                      {"Instrument=Pelrix SPM-3000", "Controller=PX-C4", "Firmware=4.1.7",
                       "Serial Number=PX3K-00421", "Operator=synthetic"});
    header += std::string("[Data]") + CRLF;
    header.resize(static_cast<std::size_t>(dataOffset), '\0');

    // Heights in nanometres: a plane tilted by a few nanometres a micrometre, five rounded
    // grains, and half a nanometre of noise.
    struct Grain
    {
        double x, y, radius, height;
    };
    const Grain grains[] = {{2.5, 3.0, 1.6, 18.0},
                            {6.8, 2.2, 1.1, 12.0},
                            {4.6, 6.4, 2.2, 25.0},
                            {8.4, 7.9, 1.3, 9.0},
                            {1.4, 8.6, 0.9, 7.5}};
    Random random(20240318);
    std::string bytes = header;
    for (int row = 0; row < size; ++row)
    {
        for (int column = 0; column < size; ++column)
        {
            const double x = rangeMicrometres * (column + 0.5) / size;
            const double y = rangeMicrometres * (row + 0.5) / size;
            double height = 2.0 * x + 1.2 * y - 10.0;
            for (const Grain& grain : grains)
            {
                height += Bump(x, y, grain.x, grain.y, grain.radius, grain.height);
            }
            height += 0.5 * random.Noise();
            AppendFloatLittleEndian(bytes, static_cast<float>(height));
        }
    }
    return bytes;
}

// One series: the cantilever meets the surface at contactZ on approach and, held by adhesion,
// lets go a little later on retract.
struct Series
{
    double contactZ;      // µm
    double stiffness;     // nN a µm of travel in contact
    double adhesion;      // nN at the pull-off point
    double pullOffLength; // µm past contact before the tip lets go
};

std::string Number(float value)
{
    // The writer's own form, so the values read back to the same floats.
    char text[64];
    std::snprintf(text, sizeof text, "%f", static_cast<double>(value));
    return text;
}

std::string MakeForceCurves()
{
    const int points = 300;
    const double zStart = -0.5;
    const double zEnd = 0.25;
    const std::string micrometre = std::string(MICRO) + "m";
    const Series series[] = {{0.05, 200.0, 6.0, 0.03}, {0.08, 185.0, 4.5, 0.025}};

    std::string header;
    header +=
        Section("[Point Spectroscopy Data]",
                {"Leveling=None", "Approach Rate=750.0000 " + micrometre + "/s",
                 "Retreat Rate=750.0000 " + micrometre + "/s", "Z Start=-0.5000 " + micrometre,
                 "Z End=0.2500 " + micrometre, "Drive Start=-2.0000 V", "Drive End=1.0000 V",
                 "Spring Constant=0.2000 N/m", "Deflection Sensitivity=45.0000 nm/V",
                 "Setpoint=1.5000 V", "Dwell Time=0.1000 s"});
    std::string labels;
    for (int s = 1; s <= 2; ++s)
    {
        const std::string n = std::to_string(s);
        labels += std::string(s == 1 ? "" : ",") + "Z Approach " + n + " (" + micrometre +
                  "),Force Approach " + n + " (nN),Z Retract " + n + " (" + micrometre +
                  "),Force Retract " + n + " (nN)";
    }
    // The labels line has always ended in a bare line feed.
    header += std::string("[Series layout]") + CRLF + "Points Number=" + std::to_string(points) +
              CRLF + "Series Number=2" + CRLF + labels + "\n" + CRLF;
    header += std::string("[Data]") + CRLF;

    Random random(750);
    std::string text = header;
    for (int i = 0; i < points; ++i)
    {
        const double approachZ = zStart + (zEnd - zStart) * i / (points - 1);
        const double retractZ = zEnd - (zEnd - zStart) * i / (points - 1);
        std::string line;
        for (const Series& s : series)
        {
            const double approachForce =
                approachZ > s.contactZ ? s.stiffness * (approachZ - s.contactZ) : 0.0;
            double retractForce = 0.0;
            if (retractZ > s.contactZ)
            {
                retractForce = s.stiffness * (retractZ - s.contactZ);
            }
            else if (retractZ > s.contactZ - s.pullOffLength)
            {
                // Held by adhesion: pulled below zero force until the tip snaps free.
                retractForce = -s.adhesion * (s.contactZ - retractZ) / s.pullOffLength;
            }
            const float values[] = {static_cast<float>(approachZ),
                                    static_cast<float>(approachForce + 0.05 * random.Noise()),
                                    static_cast<float>(retractZ),
                                    static_cast<float>(retractForce + 0.05 * random.Noise())};
            for (const float value : values)
            {
                line += (line.empty() ? "" : "\t") + Number(value);
            }
        }
        text += line + "\n";
    }
    return text;
}
} // namespace

int main(int argc, char** argv)
{
    if (argc != 2)
    {
        std::cerr << "usage: kiv-make-samples FOLDER\n";
        return 2;
    }
    const std::string folder = argv[1];
    const bool written = WriteFile(folder + "/topography_128.flt", MakeTopography()) &&
                         WriteFile(folder + "/force_2x300.flt", MakeForceCurves());
    return written ? 0 : 1;
}
