#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>

#include <gtest/gtest.h>

#include "Kiv/Access/TreeSnapshot.h"
#include "Kiv/DataCore/Data.h"

namespace
{

using namespace Kiv::Access;
using namespace Kiv::DataCore;

TreeSnapshot::Samples SnapshotOf(const FloatMatrix& image)
{
    DataContainer file;
    file.GetSubData({"[Data]"}, true)->Put<FloatMatrix>("Image", image);
    const TreeSnapshot snapshot(file);
    return snapshot.SampleSets().at({"[Data]", "Image"});
}

// An image is kept as a digest, not a copy: every single changed sample, wherever it lies
// (in the digest's wide steps or in the bytes after the last one), must still show.
TEST(TreeSnapshot, AnyChangedImageSampleIsSeen)
{
    const struct
    {
        std::size_t rows, cols;
    } shapes[] = {{1, 1}, {1, 7}, {3, 8}, {5, 13}, {64, 64}};
    for (const auto& shape : shapes)
    {
        FloatMatrix image(shape.rows, shape.cols);
        for (std::size_t i = 0; i < image.data().size(); ++i)
        {
            image.data()[i] = static_cast<float>(i) * 0.25f - 3.0f;
        }
        const TreeSnapshot::Samples before = SnapshotOf(image);
        EXPECT_TRUE(before.SameAs(SnapshotOf(image)));
        for (std::size_t i = 0; i < image.data().size(); ++i)
        {
            FloatMatrix changed = image;
            std::uint32_t bits;
            std::memcpy(&bits, &changed.data()[i], sizeof bits);
            bits ^= 1u; // the smallest change a float can have
            std::memcpy(&changed.data()[i], &bits, sizeof bits);
            EXPECT_FALSE(before.SameAs(SnapshotOf(changed)))
                << shape.rows << " x " << shape.cols << ", sample " << i;
        }
        if (image.data().size() > 1)
        {
            FloatMatrix swapped = image;
            std::swap(swapped.data()[0], swapped.data()[1]);
            EXPECT_FALSE(before.SameAs(SnapshotOf(swapped))) << "samples in another order";
        }
    }
}

TEST(TreeSnapshot, ImagesCompareBitForBitAndByShape)
{
    FloatMatrix nan(2, 2);
    std::fill(nan.data().begin(), nan.data().end(), std::numeric_limits<float>::quiet_NaN());
    EXPECT_TRUE(SnapshotOf(nan).SameAs(SnapshotOf(nan))) << "NaN samples equal themselves";

    FloatMatrix zero(2, 2);
    std::fill(zero.data().begin(), zero.data().end(), 0.0f);
    FloatMatrix negativeZero(2, 2);
    std::fill(negativeZero.data().begin(), negativeZero.data().end(), -0.0f);
    EXPECT_FALSE(SnapshotOf(zero).SameAs(SnapshotOf(negativeZero)));

    FloatMatrix wide(1, 4);
    std::fill(wide.data().begin(), wide.data().end(), 0.0f);
    EXPECT_FALSE(SnapshotOf(zero).SameAs(SnapshotOf(wide))) << "same samples, other shape";
}

} // namespace
