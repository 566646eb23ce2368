#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Kiv/Analysis/HeightParameters.h"
#include "Kiv/Analysis/Levelling.h"

namespace
{

using namespace Kiv::Analysis;

const float NaN = std::numeric_limits<float>::quiet_NaN();

struct Grid
{
    std::size_t rows;
    std::size_t columns;
    std::vector<float> samples;

    ImageView View() const { return {samples.data(), rows, columns}; }
};

template <class F>
Grid MakeGrid(std::size_t rows, std::size_t columns, F height)
{
    Grid grid{rows, columns, std::vector<float>(rows * columns)};
    for (std::size_t r = 0; r < rows; ++r)
    {
        for (std::size_t c = 0; c < columns; ++c)
        {
            grid.samples[r * columns + c] = static_cast<float>(height(double(r), double(c)));
        }
    }
    return grid;
}

TEST(LevelMethodText, ReadsEverySpellingAndWritesItPlainly)
{
    const std::pair<const char*, const char*> cases[] = {
        {"none", "none"},
        {"plane", "plane"},
        {"PLANE", "plane"},
        {"poly:3", "poly:3"},
        {"rows", "rows:median"},
        {"rows:mean", "rows:mean"},
        {"rows:poly:2", "rows:poly:2"},
        {"rows:quantile:0.25", "rows:quantile:0.25"},
        {"rows:mediandiff+plane", "rows:mediandiff+plane"},
        {"none+zero:min", "zero:min"},
        {"plane+zero:mean", "plane+zero:mean"},
    };
    for (const auto& [text, plain] : cases)
    {
        EXPECT_EQ(LevelMethod::Parse(text).Text(), plain) << text;
    }
}

TEST(LevelMethodText, RefusesWhatDoesNotParseQuotingIt)
{
    for (const char* text :
         {"", "flat", "poly", "poly:5", "poly:1.5", "poly:-1", "rows:poly", "rows:quantile:1.5",
          "rows:quantile:x", "plane+", "zero:max", "rows:median:2"})
    {
        try
        {
            LevelMethod::Parse(text);
            ADD_FAILURE() << "accepted \"" << text << "\"";
        }
        catch (const std::invalid_argument& error)
        {
            EXPECT_NE(std::string(error.what()).find(std::string("\"") + text + "\""),
                      std::string::npos)
                << error.what();
        }
    }
}

// Each background the method can remove exactly, with dropouts that must stay and not disturb
// the fit; what remains is the constant the method leaves (0 for fits with an intercept).
TEST(Levelling, RemovesTheBackgroundItFitsAndKeepsDropouts)
{
    struct Case
    {
        const char* method;
        double (*height)(double r, double c);
        double remains;
    };
    const Case cases[] = {
        {"plane", [](double r, double c) { return 3.0 + 0.5 * c - 0.25 * r; }, 0.0},
        {"poly:2", [](double r, double c) { return 1.0 + 0.01 * c * c - 0.02 * r * c + r; }, 0.0},
        {"poly:4", [](double r, double c) { return 1e-4 * std::pow(c - 7, 4) - 1e-3 * r * r; },
         0.0},
        {"rows:mean", [](double r, double) { return r * r; }, 0.0},
        {"rows:poly:3", [](double r, double c) { return r * (0.1 * c * c * c - c); }, 0.0},
        {"rows:mediandiff", [](double r, double) { return 5.0 * r; }, 0.0},
        {"plane+zero:min", [](double r, double c) { return 2.0 * c + r; }, 0.0},
    };
    for (const Case& test : cases)
    {
        Grid grid = MakeGrid(12, 15, test.height);
        grid.samples[17] = NaN;
        grid.samples[40] = std::numeric_limits<float>::infinity();
        const std::vector<float> levelled = Level(grid.View(), LevelMethod::Parse(test.method));
        for (std::size_t i = 0; i < levelled.size(); ++i)
        {
            if (i == 17 || i == 40)
            {
                EXPECT_EQ(std::memcmp(&levelled[i], &grid.samples[i], sizeof(float)), 0)
                    << test.method;
                continue;
            }
            ASSERT_NEAR(levelled[i], test.remains, 2e-4) << test.method << " at " << i;
        }
    }
}

// A threshold keeps the features out of the fit, so the background under them comes out flat.
TEST(Levelling, ExcludedFeaturesDoNotTiltTheFit)
{
    Grid grid = MakeGrid(20, 20, [](double r, double c) { return 0.1 * c + 0.2 * r; });
    for (std::size_t i : {45u, 46u, 47u, 65u, 66u, 67u, 300u, 301u})
    {
        grid.samples[i] += 50.0f;
    }
    Exclusion exclusion;
    exclusion.abovePercentile = 90;
    const auto method = LevelMethod::Parse("plane+plane");
    const std::vector<float> levelled = Level(grid.View(), method, exclusion);
    EXPECT_NEAR(levelled[0], 0.0, 1e-4);
    EXPECT_NEAR(levelled[399], 0.0, 1e-4);
    EXPECT_NEAR(levelled[46], 50.0, 1e-3);
}

// Large enough for the counted selection of the median rather than a plain one; the answer is
// checked against a full sort, for an odd and an even count.
TEST(HeightParameters, MedianOfManySamplesIsExact)
{
    std::mt19937 random(7);
    std::normal_distribution<float> noise(2.0f, 3.0f);
    for (const std::size_t rows : {401u, 400u})
    {
        Grid grid{rows, 301, std::vector<float>(rows * 301)};
        for (float& sample : grid.samples)
        {
            sample = noise(random);
        }
        grid.samples[5] = NaN;
        const HeightParameters figures = ComputeHeightParameters(grid.View());
        std::vector<double> sorted;
        for (const float sample : grid.samples)
        {
            if (std::isfinite(sample))
            {
                sorted.push_back(sample);
            }
        }
        std::sort(sorted.begin(), sorted.end());
        const std::size_t n = sorted.size();
        const double median = (sorted[(n - 1) / 2] + sorted[n / 2]) / 2.0;
        EXPECT_EQ(figures.median, median) << rows;
        EXPECT_EQ(figures.count, n);
        EXPECT_EQ(figures.excluded, 1u);
        EXPECT_EQ(figures.minimum, sorted.front());
        EXPECT_EQ(figures.maximum, sorted.back());

        // The same selection by counting, through a percentile: the 30th of n sorted values lies
        // 0.3 (n - 1) ranks up, and every sample up to it is kept.
        Exclusion exclusion;
        exclusion.abovePercentile = 30;
        const double position = 0.3 * static_cast<double>(n - 1);
        const auto low = static_cast<std::size_t>(position);
        const double threshold =
            sorted[low] + (sorted[low + 1] - sorted[low]) * (position - static_cast<double>(low));
        const auto kept = static_cast<std::uint64_t>(
            std::upper_bound(sorted.begin(), sorted.end(), threshold) - sorted.begin());
        EXPECT_EQ(AnalyseSurface(grid.View(), LevelMethod(), exclusion).count, kept) << rows;
    }
}

TEST(HeightParameters, NoUsableSampleGivesNaNFigures)
{
    const Grid grid{2, 2, {NaN, NaN, NaN, NaN}};
    const HeightParameters figures = AnalyseSurface(grid.View(), LevelMethod::Parse("plane"));
    EXPECT_EQ(figures.count, 0u);
    EXPECT_EQ(figures.excluded, 4u);
    EXPECT_TRUE(std::isnan(figures.Sq) && std::isnan(figures.median) && std::isnan(figures.Sz));
}

// On a tilted plane every pixel's gradient is the tilt, borders included, and each inner pixel's
// area is its projection stretched by sqrt(1 + slope^2).
TEST(HeightParameters, HybridFiguresOfAPlaneAreItsSlope)
{
    const double slope = 0.3; // height units per metre of x, with 1 nm pixels and nm heights
    const Grid grid = MakeGrid(9, 9, [&](double, double c) { return slope * c; });
    const Lateral lateral{{1e-9, 1e-9}, 1e-9};
    const HeightParameters figures = ComputeHeightParameters(grid.View(), nullptr, lateral);
    ASSERT_TRUE(figures.Sdq && figures.Sdr && figures.area);
    EXPECT_NEAR(*figures.Sdq, slope, 1e-6);
    // A border column's outer corners repeat its own height: its outer triangle is flat, its
    // inner one has the whole slope and the two others half of it along each axis.
    const double inner = std::sqrt(1 + slope * slope);
    const double border = (inner + 1 + 2 * std::sqrt(1 + slope * slope / 2)) / 4;
    const double expected = 9 * (7 * inner + 2 * border) * 1e-18;
    EXPECT_NEAR(*figures.area / expected, 1.0, 1e-6);
    EXPECT_NEAR(*figures.Sdr, *figures.area / 81e-18 - 1, 1e-12);
    EXPECT_FALSE(ComputeHeightParameters(grid.View()).Sdq.has_value());
}

// A summary takes the samples' own figures in the levelling's first pass where it can and in a
// pass of their own where it cannot; either way they are the plain figures of the finite samples,
// and the levelled ones are those of AnalyseSurface to the bit.
TEST(SurfaceSummary, GivesThePlainAndTheLevelledFiguresOfSeparateCalls)
{
    std::mt19937 generator(11);
    std::normal_distribution<double> noise(0.0, 0.5);
    const auto tilted = [&](std::size_t rows, std::size_t columns, double base)
    {
        return MakeGrid(rows, columns,
                        [&](double r, double c)
                        { return base + 0.02 * r - 0.03 * c + noise(generator); });
    };
    Grid holes = tilted(301, 257, 5.0);
    for (std::size_t i = 7; i < holes.samples.size(); i += 997)
    {
        holes.samples[i] = (i % 2) ? NaN : -std::numeric_limits<float>::infinity();
    }
    const struct
    {
        const char* name;
        Grid grid;
    } images[] = {
        {"tilted, in two threads' blocks", tilted(1200, 1001, 5.0)},
        {"far from zero", tilted(64, 63, 1.0e5)},
        {"with dropouts", holes},
        {"one sample", Grid{1, 1, {4.0f}}},
        {"no finite sample", Grid{2, 2, {NaN, NaN, NaN, NaN}}},
    };
    const auto same = [](double a, double b) { return a == b || (std::isnan(a) && std::isnan(b)); };
    for (const auto& image : images)
    {
        double sum = 0.0;
        double minimum = std::numeric_limits<double>::infinity();
        double maximum = -minimum;
        std::uint64_t count = 0;
        for (const float value : image.grid.samples)
        {
            if (std::isfinite(value))
            {
                sum += value;
                minimum = std::min<double>(minimum, value);
                maximum = std::max<double>(maximum, value);
                ++count;
            }
        }
        const double mean = sum / static_cast<double>(count);
        double squares = 0.0;
        for (const float value : image.grid.samples)
        {
            squares += std::isfinite(value) ? (value - mean) * (value - mean) : 0.0;
        }
        const double sq = std::sqrt(squares / static_cast<double>(count));
        for (const char* method : {"plane", "poly:2", "rows", "none", "plane+zero:mean"})
        {
            const std::string what = std::string(image.name) + ", " + method;
            const SurfaceSummary summary =
                SummariseSurface(image.grid.View(), LevelMethod::Parse(method));
            const SampleFigures& plain = summary.asTheyAre;
            EXPECT_EQ(plain.count, count) << what;
            EXPECT_EQ(plain.excluded, image.grid.samples.size() - count) << what;
            EXPECT_TRUE(same(plain.minimum, count ? minimum : NAN)) << what;
            EXPECT_TRUE(same(plain.maximum, count ? maximum : NAN)) << what;
            if (count == 0)
            {
                EXPECT_TRUE(std::isnan(plain.mean) && std::isnan(plain.Sq)) << what;
            }
            else
            {
                EXPECT_NEAR(plain.mean, mean, 1e-12 * std::fabs(mean)) << what;
                EXPECT_NEAR(plain.Sq, sq, 1e-9 * sq + 1e-12) << what;
            }

            const HeightParameters levelled =
                AnalyseSurface(image.grid.View(), LevelMethod::Parse(method), {}, std::nullopt,
                               MedianFigure::Skipped);
            for (const auto& [a, b] : {std::pair{summary.levelled.Sa, levelled.Sa},
                                       {summary.levelled.Sq, levelled.Sq},
                                       {summary.levelled.mean, levelled.mean},
                                       {summary.levelled.Sz, levelled.Sz}})
            {
                EXPECT_TRUE(same(a, b)) << what << ": " << a << " against " << b;
            }
        }
    }
}

} // namespace
