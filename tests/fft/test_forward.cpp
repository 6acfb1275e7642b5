#include "fft/buffer_access.h"
#include "fft/engine/engine.h"
#include "reference_dft.h"
#include "test_helpers.h"

#include <kx/fft.h>

#include <gtest/gtest.h>

#include <cstring>

using Access = kx_FrequencyBufferAccess;
using Defs = kxFrequencyDefs;
using kxtest::expectError;
using kxtest::imageFrom;

namespace {

// The zero-padded image as interleaved complex floats, for the reference.
template <typename T>
std::vector<float> paddedComplex(const kxPelBuffer<T>& image, long W, long H)
{
    std::vector<float> v(2 * W * H, 0.0f);
    for (long y = 0; y < image.height(); ++y)
        for (long x = 0; x < image.width(); ++x)
            v[2 * (y * W + x)] = static_cast<float>(image(x, y));
    return v;
}

bool sameBits(const kxFrequencyBuffer& a, const kxFrequencyBuffer& b)
{
    return a.width() == b.width() && a.height() == b.height() &&
           std::memcmp(Access::data(a), Access::data(b), sizeof(float) * 2 * a.width() * a.height()) == 0;
}

}  // namespace

TEST(Forward, OneByOneImage)
{
    kxPelBuffer<unsigned char> image(1, 1);
    image(0, 0) = 200;
    kxFrequencyBuffer result;
    kfForwardFFT<unsigned char>(image, result);
    EXPECT_EQ(result.width(), 1);
    EXPECT_EQ(result.get(0, 0, false), kxPair<double>(200, 0));
}

TEST(Forward, ThreeByFiveIsTheTransformOfTheZeroPaddedImage)
{
    auto image = imageFrom<unsigned short>(3, 5, [](long x, long y) { return static_cast<unsigned short>(1000 * x + 7 * y + 1); });
    kxFrequencyBuffer result;
    kfForwardFFT<unsigned short>(image, result);
    ASSERT_EQ(result.width(), 4);
    ASSERT_EQ(result.height(), 8);
    EXPECT_EQ(Access::requestedWidth(result), 3);
    EXPECT_EQ(Access::requestedHeight(result), 5);
    double sum = 0;
    for (long y = 0; y < 5; ++y)
        for (long x = 0; x < 3; ++x)
            sum += image(x, y);
    EXPECT_EQ(result.getReal(0, 0, false), sum);
    EXPECT_EQ(result.getImaginary(0, 0, false), 0.0);
    const auto expected = kxtest::referenceDft(paddedComplex(image, 4, 8), 4, 8, true);
    EXPECT_LT(kxtest::relativeRms(Access::data(result), expected), 1e-6);
}

TEST(Forward, EveryPixelTypeAndFormMatchesTheReference)
{
    const long w = 37, h = 21, W = 64, H = 32;
    auto u8 = imageFrom<unsigned char>(w, h, [](long x, long y) { return static_cast<unsigned char>((x * 7 + y * 13) % 256); });
    auto u16 = imageFrom<unsigned short>(w, h, [](long x, long y) { return static_cast<unsigned short>(x * 1500 + y * 900); });
    auto d = imageFrom<double>(w, h, [](long x, long y) { return std::sin(0.3 * x) * std::cos(0.2 * y) * 100.0; });
    auto check = [&](const kxFrequencyBuffer& result, const std::vector<float>& input) {
        EXPECT_EQ(result.width(), W);
        EXPECT_LT(kxtest::relativeRms(Access::data(result), kxtest::referenceDft(input, W, H, true)), 1e-5);
    };
    kxFrequencyBuffer r;
    kfForwardFFT<unsigned char>(u8, r);
    check(r, paddedComplex(u8, W, H));
    kfForwardFFT<unsigned short>(u16, r);
    check(r, paddedComplex(u16, W, H));
    kfForwardFFT<double>(d, r);
    check(r, paddedComplex(d, W, H));

    // Two images: real and imaginary parts.
    std::vector<float> both = paddedComplex(u8, W, H);
    kxPelBuffer<unsigned char> u8b = imageFrom<unsigned char>(w, h, [&](long x, long y) { return static_cast<unsigned char>(u16(x, y) % 251); });
    const std::vector<float> imag8 = paddedComplex(u8b, W, H);
    for (std::size_t i = 0; i < both.size(); i += 2)
        both[i + 1] = imag8[i];
    kfForwardFFT<unsigned char>(u8, u8b, r);
    check(r, both);
}

TEST(Forward, TwoDoubleImagesEqualTheBufferBuiltFromThemTransformedAgain)
{
    auto re = imageFrom<double>(10, 6, [](long x, long y) { return x * 0.5 - y; });
    auto im = imageFrom<double>(10, 6, [](long x, long y) { return x * y * 0.25; });
    kxFrequencyBuffer direct;
    kfForwardFFT<double>(re, im, direct);
    kxFrequencyBuffer viaBuffer;
    kfForwardFFT(kxFrequencyBuffer(re, im), viaBuffer);
    EXPECT_TRUE(sameBits(direct, viaBuffer));
}

TEST(Forward, OffsetGivesTheSameSpectrumAndIsRecorded)
{
    auto image = imageFrom<unsigned char>(13, 9, [](long x, long y) { return static_cast<unsigned char>(x * y + 3); });
    kxFrequencyBuffer atZero;
    kfForwardFFT<unsigned char>(image, atZero);
    for (auto offset : {kxPair<long>(5, -3), kxPair<long>(-100, 40), kxPair<long>(13, 9)}) {
        kxPelBuffer<unsigned char> shifted = image;
        shifted.offset(offset);
        kxFrequencyBuffer result;
        kfForwardFFT<unsigned char>(shifted, result);
        EXPECT_TRUE(sameBits(result, atZero));
        EXPECT_EQ(Access::offset(result), offset);
        EXPECT_EQ(shifted.offset(), offset);   // the image is not changed
        kxFrequencyBuffer two;
        kfForwardFFT<unsigned char>(shifted, shifted, two);
        kxFrequencyBuffer twoAtZero;
        kfForwardFFT<unsigned char>(image, image, twoAtZero);
        EXPECT_TRUE(sameBits(two, twoAtZero));
    }
}

TEST(Forward, RecordsTheTransformAndClearsTheFlags)
{
    auto image = imageFrom<double>(4, 4, [](long x, long) { return static_cast<double>(x); });
    image.xformCache().xform(kx2XformLinear(kxXform<2>(kxMatrix<2>(2, 0, 0, 2), kxVector<2>(1, 2))));
    kxFrequencyBuffer result(4, 4);
    Access::band(result, 1, 0, 1);
    Access::inverseComputed(result, true);
    kfForwardFFT<double>(image, result);
    EXPECT_EQ(Access::transform(result), image.xformCache());
    EXPECT_EQ(Access::masked(result), 0);
    EXPECT_FALSE(Access::inverseComputed(result));
}

TEST(Forward, ChecksInOrder)
{
    kxPelBuffer<unsigned char> bound(4, 4), unbound;
    kxFrequencyBuffer result;
    expectError<Defs::UnboundWindow>([&] { kfForwardFFT<unsigned char>(unbound, result); }, "");
    expectError<Defs::UnboundWindow>([&] { kfForwardFFT<unsigned char>(unbound, bound, result); }, "");
    expectError<Defs::UnboundWindow>([&] { kfForwardFFT<unsigned char>(bound, unbound, result); }, "");
    const char* msg = "Real and Imaginary buffers must have the same size and offset.";
    kxPelBuffer<unsigned char> wide(5, 4), tall(4, 5), moved(4, 4);
    moved.offset(kxPair<long>(1, 1));
    expectError<Defs::InvalidSize>([&] { kfForwardFFT<unsigned char>(bound, wide, result); }, msg);
    expectError<Defs::InvalidSize>([&] { kfForwardFFT<unsigned char>(bound, tall, result); }, msg);
    expectError<Defs::InvalidSize>([&] { kfForwardFFT<unsigned char>(bound, moved, result); }, msg);
    kxPelBuffer<double> huge(2049, 1);
    expectError<Defs::InvalidSize>([&] { kfForwardFFT<double>(huge, result); },
                                   "Width and Height must be no larger than 2048.");
    expectError<Defs::Uninitialized>([&] { kfForwardFFT(kxFrequencyBuffer(), result); },
                                     "FrequencyBuffer has not been initialized");
    EXPECT_THROW(result.width(), Defs::Uninitialized);   // nothing was changed
}

TEST(Forward, BufferToBufferTransformsTheWholeStoreAndClearsFlags)
{
    kxFrequencyBuffer source(8, 4);
    for (long y = 0; y < 4; ++y)
        for (long x = 0; x < 8; ++x)
            source.put(x, y, kxPair<double>(x + y, x - y), false);
    Access::band(source, 1, 2, 3);
    Access::offset(source, kxPair<long>(2, 2));
    Access::inverseComputed(source, true);
    kxFrequencyBuffer result;
    kfForwardFFT(source, result);
    EXPECT_EQ(Access::masked(result), 0);
    EXPECT_FALSE(Access::inverseComputed(result));
    EXPECT_EQ(Access::offset(result), kxPair<long>(2, 2));
    std::vector<float> expected(Access::data(source), Access::data(source) + 64);
    kf_ComplexFFT2D(expected.data(), kxPair<long>(8, 4), kf_Direction::Forward, {0, 4});
    EXPECT_EQ(std::memcmp(expected.data(), Access::data(result), 64 * sizeof(float)), 0);
    EXPECT_TRUE(Access::inverseComputed(source));   // the source is untouched
}
