#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <utility>
#include <vector>

#include "WriteTestFiles.h"

namespace WriteTest
{
namespace
{

// Writes the values as force curves of one series and returns the saved data block beside
// what C's "%f" prints for them.
std::pair<std::string, std::string> WrittenAndPrinted(const std::vector<float>& values)
{
    ScratchFolder folder;
    const std::string path = folder.Write("force.flt", ForceInputFile());
    std::string expected;
    {
        const auto file = OpenFile(path);
        FloatMatrixList curves;
        for (std::size_t i = 0; i + 4 <= values.size(); i += 4)
        {
            FloatMatrix line(4, 1);
            for (std::size_t j = 0; j < 4; ++j)
            {
                line(j, 0) = values[i + j];
                char text[64];
                std::snprintf(text, sizeof text, j < 3 ? "%f\t" : "%f\n",
                              static_cast<double>(values[i + j]));
                expected += text;
            }
            curves.push_back(line);
        }
        file->GetSubData({"[Data]"}, false)->Put("RawData", curves);
        file->Close();
    }
    const std::string written = ReadBytes(path);
    const std::size_t data = written.find("[Data]\r\n");
    return {data == std::string::npos ? written : written.substr(data + 8), expected};
}

// The force block must be exactly what C's "%f" prints, whatever the value: the writer uses its
// own integer conversion, and this pins it to printf where the two could part ways.
TEST(ForceText, EveryValueIsWhatPrintfPrints)
{
    const float chosen[] = {0.0f,
                            -0.0f,
                            0.5f,
                            2.5e-7f,
                            5e-7f,
                            -1.25e-6f,
                            0.1f,
                            1234567.875f,
                            -3.4028235e38f,
                            std::numeric_limits<float>::denorm_min(),
                            std::numeric_limits<float>::infinity(),
                            -std::numeric_limits<float>::infinity(),
                            std::numeric_limits<float>::quiet_NaN(),
                            16777217.0f,
                            0.0000005f,
                            999999.9999f,
                            -4.76837158203125e-7f, // -2^-21: below half a millionth
                            8.796093e12f,          // either side of 2^43
                            8.796094e12f,
                            -1.7592186e13f};
    std::vector<float> values(std::begin(chosen), std::end(chosen));
    std::mt19937 random(20261123);
    for (int i = 0; i < 4000; ++i)
    {
        // Ties at the sixth decimal: odd multiples of 2^-7 and finer, which round half to even.
        const int power = 7 + static_cast<int>(random() % 24);
        values.push_back(std::ldexp(static_cast<float>(random() % 100001) - 50000.0f, -power));
        // Any finite bit pattern up to about 2^44, through every exponent.
        const std::uint32_t bits = (random() & 0x807FFFFFu) | ((random() % 171u) << 23);
        float any;
        std::memcpy(&any, &bits, sizeof any);
        values.push_back(any);
    }
    const auto [written, printed] = WrittenAndPrinted(values);
    EXPECT_TRUE(SameBytes(written, printed));
}

} // namespace
} // namespace WriteTest
