// The pure helpers behind the exports: round lengths and ticks, colour maps, contrast, names.
#include <cmath>
#include <limits>
#include <vector>

#include <gtest/gtest.h>

#include "ColorMaps.h"
#include "Kiv/Export/BatchExport.h"
#include "PlotScales.h"
#include "ViridisTable.h"

namespace
{
using namespace Kiv::Export;

TEST(RoundLength, TakesTheLongestRoundLengthThatFits)
{
    const struct
    {
        double maxMetres;
        double length;
        const char* label;
    } cases[] = {
        {10e-6 / 3, 2e-6, "2 µm"}, {1e-6, 1e-6, "1 µm"},     {0.999e-6, 500e-9, "500 nm"},
        {1e-3, 1e-3, "1 mm"},      {7e-4, 500e-6, "500 µm"}, {0.3, 0.2, "200 mm"},
        {2.5, 2.0, "2 m"},         {4e-9, 2e-9, "2 nm"},     {3e-10, 2e-10, "200 pm"},
    };
    for (const auto& c : cases)
    {
        const auto [length, label] = RoundLength(c.maxMetres);
        EXPECT_DOUBLE_EQ(length, c.length) << c.maxMetres;
        EXPECT_EQ(label, c.label) << c.maxMetres;
    }
}

TEST(RoundTicks, CoverTheRangeAtARoundStepWithAnExactZero)
{
    const auto ticks = RoundTicks(-0.52, 0.27, 8);
    ASSERT_EQ(ticks.size(), 8u);
    EXPECT_NEAR(ticks.front(), -0.5, 1e-12);
    EXPECT_NEAR(ticks.back(), 0.2, 1e-12);
    EXPECT_EQ(ticks[5], 0.0); // not -5.55e-17: the label would read "-5.551e-17"
    EXPECT_TRUE(RoundTicks(1.0, 1.0, 5).empty());
}

TEST(LabelNumber, UsesATypographicMinus)
{
    EXPECT_EQ(LabelNumber(-7.8224), "\u22127.822");
    EXPECT_EQ(LabelNumber(28.85), "28.85");
}

TEST(ColorMap, EndsAndMiddles)
{
    const auto gray = ColorMap::Named("gray");
    const auto afmhot = ColorMap::Named("afmhot");
    const auto viridis = ColorMap::Named("viridis");
    ASSERT_TRUE(gray && afmhot && viridis);
    EXPECT_FALSE(ColorMap::Named("jet"));

    EXPECT_DOUBLE_EQ(gray->At(0.25).green, 0.25);
    EXPECT_DOUBLE_EQ(gray->At(-3).red, 0.0);   // below the range: the first colour
    EXPECT_DOUBLE_EQ(gray->At(NAN).blue, 0.0); // never an undefined colour
    const Rgb orange = afmhot->At(0.5);
    EXPECT_DOUBLE_EQ(orange.red, 1.0);
    EXPECT_DOUBLE_EQ(orange.green, 0.5);
    EXPECT_DOUBLE_EQ(orange.blue, 0.0);

    EXPECT_DOUBLE_EQ(viridis->At(0.0).red, VIRIDIS_TABLE[0][0]);
    EXPECT_DOUBLE_EQ(viridis->At(1.0).green, VIRIDIS_TABLE[255][1]);
    EXPECT_DOUBLE_EQ(viridis->At(100.0 / 255).blue, VIRIDIS_TABLE[100][2]);
    // Half way between two entries is their mean.
    EXPECT_NEAR(viridis->At(127.5 / 255).red, (VIRIDIS_TABLE[127][0] + VIRIDIS_TABLE[128][0]) / 2,
                1e-12);
}

TEST(ViridisTable, IsSmoothAsPublished)
{
    // A mistyped digit shows as a jump between neighbours; the published steps stay below 0.011.
    for (int i = 1; i < 256; ++i)
    {
        for (int c = 0; c < 3; ++c)
        {
            EXPECT_LT(std::fabs(VIRIDIS_TABLE[i][c] - VIRIDIS_TABLE[i - 1][c]), 0.011) << i;
        }
    }
}

TEST(PercentileRange, LeavesOutDropoutsAndWidensAFlatImage)
{
    std::vector<float> samples;
    for (int i = 0; i <= 100; ++i)
    {
        samples.push_back(static_cast<float>(i));
    }
    samples.push_back(std::numeric_limits<float>::quiet_NaN());
    samples.push_back(std::numeric_limits<float>::infinity());
    const auto [low, high] = PercentileRange(samples.data(), samples.size(), 0.01, 0.99);
    EXPECT_DOUBLE_EQ(low, 1.0);
    EXPECT_DOUBLE_EQ(high, 99.0);

    const std::vector<float> flat(16, 4.0f);
    const auto [flatLow, flatHigh] = PercentileRange(flat.data(), flat.size(), 0.01, 0.99);
    EXPECT_LT(flatLow, 4.0);
    EXPECT_GT(flatHigh, 4.0);

    const float none[] = {NAN, NAN};
    EXPECT_EQ(PercentileRange(none, 2, 0.01, 0.99), std::make_pair(0.0, 1.0));
}

TEST(Formats, NamesAndExtensions)
{
    const struct
    {
        const char* name;
        std::optional<Format> format;
    } cases[] = {{"gsf", Format::Gsf},   {"NPY", Format::Npy},   {"tif", Format::Tiff},
                 {"tiff", Format::Tiff}, {"csv", Format::Csv},   {"tsv", Format::Tsv},
                 {"png", Format::Png},   {"JSON", Format::Json}, {"html", Format::Html},
                 {"jpeg", std::nullopt}, {"", std::nullopt}};
    for (const auto& c : cases)
    {
        EXPECT_EQ(ParseFormat(c.name), c.format) << c.name;
    }
    EXPECT_EQ(FormatExtension(Format::Tiff), ".tif");
    EXPECT_EQ(FormatNames(), "gsf, npy, tiff, csv, tsv, png, json, html");
}

TEST(OutputPathFor, NamesOutputsAfterTheirInputs)
{
    const BatchTarget beside;
    BatchTarget folder;
    folder.outputFolder = "out";
    BatchTarget slashed;
    slashed.outputFolder = "out/";
    BatchTarget named;
    named.outputFile = "x.bin";
    const struct
    {
        const char* input;
        const BatchTarget& target;
        const char* output;
    } cases[] = {
        {"a/b/scan.flt", beside, "a/b/scan.npy"},       {"scan.flt", beside, "scan.npy"},
        {"a/b/scan.flt", folder, "out/scan.npy"},       {"scan.flt", slashed, "out/scan.npy"},
        {"dir.v2/scan", beside, "dir.v2/scan.npy"},     {"a/.hidden", folder, "out/.hidden.npy"},
        {"scan.2024.flt", folder, "out/scan.2024.npy"}, {"scan.flt", named, "x.bin"},
    };
    for (const auto& c : cases)
    {
        EXPECT_EQ(OutputPathFor(c.input, Format::Npy, c.target), c.output) << c.input;
    }
}
} // namespace
