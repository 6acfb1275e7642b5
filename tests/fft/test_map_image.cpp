#include "test_helpers.h"

#include <kx/fft.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

using Defs = kxFrequencyDefs;

namespace {

kxPelBuffer<double> row(const std::vector<double>& values)
{
    kxPelBuffer<double> image(static_cast<long>(values.size()), 1);
    for (std::size_t i = 0; i < values.size(); ++i)
        image(static_cast<long>(i), 0) = values[i];
    return image;
}

std::vector<int> mapped(const std::vector<double>& values, Defs::FrequencyMapping mapping, double low = 0,
                        double high = 0)
{
    const kxPelBuffer<unsigned char> out = kfFrequencyMapImage(row(values), mapping, low, high);
    std::vector<int> v;
    for (long x = 0; x < out.width(); ++x)
        v.push_back(out(x, 0));
    return v;
}

}  // namespace

TEST(MapImage, Linear)
{
    EXPECT_EQ(mapped({0, 500, 1000}, Defs::eMapLinear), (std::vector<int>{0, 127, 255}));
    EXPECT_EQ(mapped({-10, 0, 10}, Defs::eMapLinear), (std::vector<int>{0, 127, 255}));
    EXPECT_EQ(mapped({0, 0, 0}, Defs::eMapLinear), (std::vector<int>{0, 0, 0}));
    // Without negative values the range starts at zero, not at the minimum.
    EXPECT_EQ(mapped({100, 200}, Defs::eMapLinear), (std::vector<int>{127, 255}));
}

TEST(MapImage, LinearRange)
{
    EXPECT_EQ(mapped({100, 200, 300, 50}, Defs::eMapLinearRange, 100, 200), (std::vector<int>{0, 127, 255, 0}));
    EXPECT_EQ(mapped({-100, 0, 100}, Defs::eMapLinearRange, -100, 100), (std::vector<int>{0, 127, 255}));
    EXPECT_EQ(mapped({std::numeric_limits<double>::quiet_NaN()}, Defs::eMapLinearRange, 0, 10), (std::vector<int>{0}));
}

TEST(MapImage, Clip)
{
    EXPECT_EQ(mapped({-3.5, 12.9, 300, std::numeric_limits<double>::quiet_NaN()}, Defs::eMapClip),
              (std::vector<int>{0, 12, 255, 0}));
}

TEST(MapImage, LogWrapsAtTheTop)
{
    // gain = 255 / ln 10; ln(11) x gain = 265.5 -> 265, stored as 9.
    EXPECT_EQ(mapped({0, 1, 10}, Defs::eMapLog), (std::vector<int>{0, 76, 9}));
    // Range below 2 counts as 2.
    EXPECT_EQ(mapped({0, 1}, Defs::eMapLog),
              (std::vector<int>{0, static_cast<int>(std::log(2.0) * (255 / std::log(2.0)))}));
    // With negative values the data are offset by the minimum.
    EXPECT_EQ(mapped({-5, 5}, Defs::eMapLog), (std::vector<int>{0, static_cast<int>(static_cast<long long>(std::log(11.0) * 255 / std::log(10.0)) & 255)}));
}

TEST(MapImage, Phase)
{
    EXPECT_EQ(mapped({3.14159, -1.0, 0.0, 1.0}, Defs::eMapPhase), (std::vector<int>{127, 216, 0, 40}));
}

TEST(MapImage, UnknownMappingLeavesTheNewImageAsMade)
{
    kxPelBuffer<double> src(5, 3);
    kfPelSet(src, 99.0);
    const kxPelBuffer<unsigned char> out = kfFrequencyMapImage(src, static_cast<Defs::FrequencyMapping>(7), 0, 0);
    EXPECT_EQ(out.width(), 5);
    EXPECT_EQ(out.height(), 3);
    for (long y = 0; y < 3; ++y)
        for (long x = 0; x < 5; ++x)
            EXPECT_EQ(out(x, y), 0);
}

// Any int is a valid mapping value (the enumeration has a fixed underlying
// type), so a value far outside 0..4 is well defined: the image is made and
// not written.
TEST(MapImage, MappingValuesFarOutsideTheEnumerationAreWellDefined)
{
    kxPelBuffer<double> src(4, 2);
    kfPelSet(src, 7.0);
    for (int value : {5, 1000, -1, std::numeric_limits<int>::max()}) {
        const kxPelBuffer<unsigned char> out = kfFrequencyMapImage(src, static_cast<Defs::FrequencyMapping>(value), 0, 0);
        EXPECT_EQ(out.width(), 4);
        EXPECT_EQ(out(3, 1), 0);
    }
}

TEST(MapImage, KeepsTransformsButNotOffset)
{
    kxPelBuffer<double> src(2, 2);
    src.offset(kxPair<long>(4, 4));
    src.xformCache().xform(kx2XformLinear(kxXform<2>(kxMatrix<2>(), kxVector<2>(1, 2))));
    const kxPelBuffer<unsigned char> out = kfFrequencyMapImage(src, Defs::eMapClip, 0, 0);
    EXPECT_EQ(out.xformCache(), src.xformCache());
    EXPECT_EQ(out.offset(), kxPair<long>(0, 0));
}

TEST(MapImage, UnboundSourceIsRefused)
{
    kxtest::expectError<Defs::UnboundWindow>([] { kfFrequencyMapImage(kxPelBuffer<double>(), Defs::eMapLog, 0, 0); }, "");
}

TEST(MapImage, WalksRowsByTheirStride)
{
    kxPelBuffer<double> src(3, 2, 64);   // rows of 8 pixels
    ASSERT_EQ(src.rowUpdate(), 8);
    src(2, 1) = 200;
    const kxPelBuffer<unsigned char> out = kfFrequencyMapImage(src, Defs::eMapClip, 0, 0);
    EXPECT_EQ(out(2, 1), 200);
    EXPECT_EQ(out(2, 0), 0);
}
