#include "fft/periodic_copy.h"

#include <gtest/gtest.h>

namespace {

kxPelBuffer<unsigned char> numbered(long w, long h)
{
    kxPelBuffer<unsigned char> image(w, h);
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x)
            image(x, y) = static_cast<unsigned char>(10 * y + x + 1);
    return image;
}

}  // namespace

TEST(PeriodicCopy, SameSizeAtZeroCopiesOneToOne)
{
    kxPelBuffer<unsigned char> src = numbered(4, 3);
    kxPelBuffer<unsigned char> dst(4, 3);
    kf_PeriodicCopy<unsigned char>(src, dst, false);
    for (long y = 0; y < 3; ++y)
        for (long x = 0; x < 4; ++x)
            EXPECT_EQ(dst(x, y), src(x, y));
}

TEST(PeriodicCopy, PlacementsWrapWithThePeriod)
{
    // Source columns 1 2 3 (row 0) and 11 12 13 (row 1), destination 4 x 2 at
    // (0, 0), period 4.
    kxPelBuffer<unsigned char> src = numbered(3, 2);
    auto copyAt = [&](long offsetX, const unsigned char (&expected)[2][4]) {
        src.offset(kxPair<long>(offsetX, 0));
        kxPelBuffer<unsigned char> dst(4, 2);
        kf_PeriodicCopy<unsigned char>(src, dst, false);
        for (long y = 0; y < 2; ++y)
            for (long x = 0; x < 4; ++x)
                EXPECT_EQ(dst(x, y), expected[y][x]) << "offset " << offsetX << ": " << x << "," << y;
    };
    // At offset (1, 0) the source fits: column 0 stays zero.
    copyAt(1, {{0, 1, 2, 3}, {0, 11, 12, 13}});
    // At offset (2, 0) the column that leaves the right edge reappears at the left.
    copyAt(2, {{3, 0, 1, 2}, {13, 0, 11, 12}});
}

TEST(PeriodicCopy, NegateWrapsTheOtherWay)
{
    // Negated period: placements at (ox + 3, oy + 2), ... A source at (-1, 0)
    // is rolled left by one column into a destination at (0, 0).
    kxPelBuffer<double> src(3, 2);
    for (long x = 0; x < 3; ++x) {
        src(x, 0) = x + 1;
        src(x, 1) = x + 11;
    }
    src.offset(kxPair<long>(-1, 0));
    kxPelBuffer<double> dst(3, 2);
    kf_PeriodicCopy<double>(src, dst, true);
    const double expected[2][3] = {{2, 3, 1}, {12, 13, 11}};
    for (long y = 0; y < 2; ++y)
        for (long x = 0; x < 3; ++x)
            EXPECT_EQ(dst(x, y), expected[y][x]);
}

TEST(PeriodicCopy, UncoveredPixelsKeepTheirValue)
{
    kxPelBuffer<unsigned short> src(2, 2);
    kfPelSet<unsigned short>(src, 5);
    src.offset(kxPair<long>(10, 10));
    kxPelBuffer<unsigned short> dst(4, 4);
    kfPelSet<unsigned short>(dst, 9);
    kf_PeriodicCopy<unsigned short>(src, dst, false);
    for (long y = 0; y < 4; ++y)
        for (long x = 0; x < 4; ++x)
            EXPECT_EQ(dst(x, y), 9);
}
