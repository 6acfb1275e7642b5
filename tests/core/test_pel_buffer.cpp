#include <kx/core/core.h>

#include <gtest/gtest.h>

#include <limits>

TEST(PelBuffer, DefaultIsUnbound)
{
    kxPelBuffer<unsigned char> image;
    EXPECT_FALSE(image.isBound());
    EXPECT_EQ(image.pointToOffset(), nullptr);
    EXPECT_THROW(image.at(0, 0), kx_PelBuffer::Error);
}

TEST(PelBuffer, NewPixelsAreZeroAndRowsAreAligned)
{
    kxPelBuffer<unsigned short> image(5, 3, 32);
    ASSERT_TRUE(image.isBound());
    EXPECT_EQ(image.width(), 5);
    EXPECT_EQ(image.height(), 3);
    EXPECT_EQ(image.rowUpdate(), 16);   // 10 bytes rounded up to 32
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(image.pointToOffset()) % 32, 0u);
    for (long y = 0; y < 3; ++y)
        for (long x = 0; x < 5; ++x)
            EXPECT_EQ(image.at(x, y), 0);
    EXPECT_EQ(image.offset(), kxPair<long>(0, 0));
    kxPelBuffer<double> packed(3, 2, 1);
    EXPECT_EQ(packed.rowUpdate(), 3);
}

TEST(PelBuffer, RefusesBadSizesAndAlignments)
{
    EXPECT_THROW(kxPelBuffer<double>(-1, 2), kx_PelBuffer::Error);
    EXPECT_THROW(kxPelBuffer<double>(2, -1), kx_PelBuffer::Error);
    EXPECT_THROW(kxPelBuffer<double>(2, 2, 3), kx_PelBuffer::Error);
    EXPECT_THROW(kxPelBuffer<double>(2, 2, 0), kx_PelBuffer::Error);
    EXPECT_THROW(kxPelBuffer<unsigned char>(1L << 40, 1L << 40), kx_PelBuffer::Error);
    kxPelBuffer<unsigned char> image(4, 4);
    EXPECT_THROW(image.at(4, 0), kx_PelBuffer::Error);
    EXPECT_THROW(image.at(0, -1), kx_PelBuffer::Error);
}

TEST(PelBuffer, CopiesSharePixelsButNotOffsetOrTransform)
{
    kxPelBuffer<unsigned char> a(4, 4);
    kxPelBuffer<unsigned char> b = a;
    b.offset(kxPair<long>(2, 3));
    b.xformCache().xform(kx2XformLinear(kxXform<2>(kxMatrix<2>(), kxVector<2>(1, 1))));
    b.at(1, 1) = 77;
    EXPECT_EQ(a.at(1, 1), 77);
    EXPECT_EQ(a.offset(), kxPair<long>(0, 0));
    EXPECT_EQ(a.xformCache().linearXform(), kxXform<2>());
    kxPelBuffer_const<unsigned char> view = a;
    EXPECT_EQ(view.at(1, 1), 77);
    EXPECT_TRUE(view.sharesPixels(a));
    a.copyXforms(b);
    EXPECT_EQ(a.xformCache(), b.xformCache());
}

TEST(PelBuffer, SetFillsTheWindow)
{
    kxPelBuffer<double> image(3, 2);
    kfPelSet(image, 2.5);
    for (long y = 0; y < 2; ++y)
        for (long x = 0; x < 3; ++x)
            EXPECT_EQ(image(x, y), 2.5);
}

TEST(PelBuffer, CopyTouchesOnlyTheOverlapOfThePlacedWindows)
{
    kxPelBuffer<unsigned char> src(3, 2);
    for (long y = 0; y < 2; ++y)
        for (long x = 0; x < 3; ++x)
            src(x, y) = static_cast<unsigned char>(10 * y + x + 1);
    src.offset(kxPair<long>(2, 1));
    kxPelBuffer<unsigned char> dst(4, 4);
    kfPelSet<unsigned char>(dst, 200);
    kfPelCopy<unsigned char>(src, dst);
    // src covers client x 2..4, y 1..2; dst covers x 0..3, y 0..3.
    const unsigned char expected[4][4] = {{200, 200, 200, 200},
                                          {200, 200, 1, 2},
                                          {200, 200, 11, 12},
                                          {200, 200, 200, 200}};
    for (long y = 0; y < 4; ++y)
        for (long x = 0; x < 4; ++x)
            EXPECT_EQ(dst(x, y), expected[y][x]) << x << "," << y;
    src.offset(kxPair<long>(10, 10));   // no overlap: nothing changes
    kfPelCopy<unsigned char>(src, dst);
    EXPECT_EQ(dst(2, 1), 1);
}

TEST(PelBuffer, CopyBetweenWindowsOntoTheSamePixels)
{
    kxPelBuffer<unsigned short> image(4, 1);
    for (long x = 0; x < 4; ++x)
        image(x, 0) = static_cast<unsigned short>(x + 1);
    kxPelBuffer_const<unsigned short> shifted = image;
    shifted.offset(kxPair<long>(1, 0));   // 1 2 3 4 laid one to the right
    kfPelCopy(shifted, image);
    EXPECT_EQ(image(0, 0), 1);
    EXPECT_EQ(image(1, 0), 1);
    EXPECT_EQ(image(2, 0), 2);
    EXPECT_EQ(image(3, 0), 3);
    kxPelBuffer<unsigned short> unbound;
    EXPECT_THROW(kfPelCopy<unsigned short>(unbound, image), kx_PelBuffer::Error);
}

// Offsets near the ends of a long once overflowed offset + width in the
// copies; they are refused where they are set.
TEST(PelBuffer, OffsetsBeyondTheArchiveRangeAreRefused)
{
    kxPelBuffer<unsigned char> image(4, 4);
    const long big = 2147483647L;
    EXPECT_NO_THROW(image.offset(kxPair<long>(big, -big - 1)));
    EXPECT_EQ(image.offset(), kxPair<long>(big, -big - 1));
    for (long bad : {big + 1, -big - 2, std::numeric_limits<long>::max(), std::numeric_limits<long>::min()}) {
        EXPECT_THROW(image.offset(kxPair<long>(bad, 0)), kx_PelBuffer::Error);
        EXPECT_THROW(image.offset(kxPair<long>(0, bad)), kx_PelBuffer::Error);
    }
    EXPECT_EQ(image.offset(), kxPair<long>(big, -big - 1));
    // The extreme offsets that remain copy without overflow.
    kxPelBuffer<unsigned char> other(4, 4);
    other.offset(kxPair<long>(big, -big - 1));
    kfPelSet(image, static_cast<unsigned char>(9));
    kfPelCopy(image, other);
    EXPECT_EQ(other(3, 3), 9);
    EXPECT_THROW(kxPelBuffer<unsigned char>(big + 1, 1), kx_PelBuffer::Error);
}
