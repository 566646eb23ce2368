#include <cmath>
#include <cstdio>
#include <limits>

#include "WriteTestFiles.h"

namespace WriteTest
{
namespace
{

// The force block must be exactly what C's "%f" prints, whatever the value: the writer uses a
// faster conversion, and this pins it to printf on the values where the two could part ways.
TEST(ForceText, EveryValueIsWhatPrintfPrints)
{
    const float values[] = {0.0f,
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
                            999999.9999f};
    ScratchFolder folder;
    const std::string path = folder.Write("force.flt", ForceInputFile());
    std::string expected;
    {
        const auto file = OpenFile(path);
        FloatMatrixList curves;
        for (std::size_t i = 0; i + 4 <= std::size(values); i += 4)
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
    ASSERT_NE(data, std::string::npos);
    EXPECT_TRUE(SameBytes(written.substr(data + 8), expected));
}

} // namespace
} // namespace WriteTest
