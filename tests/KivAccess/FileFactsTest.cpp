#include <cmath>

#include <gtest/gtest.h>

#include "Kiv/Access/Failure.h"
#include "Kiv/Access/FileFacts.h"
#include "Kiv/DataCore/Data.h"

namespace
{

using namespace Kiv::Access;
using namespace Kiv::DataCore;

TEST(FileFacts, CurveLabelsAreSplitAtCommasAndTrimmed)
{
    const struct
    {
        std::string line;
        std::vector<std::string> labels;
    } cases[] = {
        {"Z Approach 1 (\xB5m),Force Approach 1 (nN)",
         {"Z Approach 1 (\xB5m)", "Force Approach 1 (nN)"}},
        {" a , b\t,c ", {"a", "b", "c"}},
        {"a,,b", {"a", "", "b"}},
        {"single", {"single"}},
        {"", {}},
        {"  ", {}},
    };
    for (const auto& c : cases)
    {
        EXPECT_EQ(SplitCurveLabels(c.line), c.labels) << c.line;
    }
}

TEST(FileFacts, UnitsConvertThroughTheUnitLibrary)
{
    const UnitizedDouble microns(10.0, "\xB5m");
    EXPECT_DOUBLE_EQ(ConvertUnit(10.0, *microns.GetUnit(), "m"), 1e-5);
    EXPECT_DOUBLE_EQ(ConvertUnit(10.0, *microns.GetUnit(), "nm"), 10000.0);
    EXPECT_DOUBLE_EQ(*LengthInMetres(microns), 1e-5);

    const UnitizedDouble volts(2.0, "V");
    EXPECT_FALSE(LengthInMetres(volts).has_value());
    EXPECT_THROW(ConvertUnit(2.0, *volts.GetUnit(), "m"), Failure);
    EXPECT_THROW(ConvertUnit(10.0, *microns.GetUnit(), "no-such-unit!"), Failure);
    EXPECT_FALSE(LengthInMetres(UnitizedDouble(3.0)).has_value());
}

TEST(FileFacts, GeometryComesFromTheScanRangesOfAnySection)
{
    DataContainer file;
    const auto parameters = file.GetSubData({"[Data Parameters]"}, true);
    parameters->Put<UnitizedDouble>("ScanRangeX", UnitizedDouble(10.0, "\xB5m"));
    parameters->Put<UnitizedDouble>("ScanRangeY", UnitizedDouble(5.0, "nm"));
    const FloatMatrix image(4, 8);

    const ImageGeometry geometry = ReadImageGeometry(file, image);
    EXPECT_EQ(geometry.columns, 8u);
    EXPECT_EQ(geometry.rows, 4u);
    EXPECT_DOUBLE_EQ(*geometry.widthMetres, 1e-5);
    EXPECT_DOUBLE_EQ(*geometry.heightMetres, 5e-9);
    EXPECT_DOUBLE_EQ(*geometry.PixelWidthMetres(), 1.25e-6);
    EXPECT_DOUBLE_EQ(*geometry.PixelHeightMetres(), 1.25e-9);

    DataContainer bare;
    EXPECT_FALSE(ReadImageGeometry(bare, image).PixelWidthMetres().has_value());
}

TEST(FileFacts, CurveTableHasARowPerPointAndPadsShortPoints)
{
    FloatMatrixList curves(2, FloatMatrix(3, 1));
    curves[0](0, 0) = 1;
    curves[0](1, 0) = 2;
    curves[0](2, 0) = 3;
    curves[1] = FloatMatrix(2, 1);
    curves[1](0, 0) = 4;
    curves[1](1, 0) = 5;

    const CurveTable table = MakeCurveTable(curves);
    ASSERT_EQ(table.points, 2u);
    ASSERT_EQ(table.columns, 3u);
    EXPECT_EQ(table.values[0], 1);
    EXPECT_EQ(table.values[2], 3);
    EXPECT_EQ(table.values[3], 4);
    EXPECT_EQ(table.values[4], 5);
    EXPECT_TRUE(std::isnan(table.values[5]));
}

} // namespace
