#include "fft/buffer_access.h"
#include "test_helpers.h"

#include <kx/fft.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>

using Access = kx_FrequencyBufferAccess;
using Defs = kxFrequencyDefs;
using kxtest::expectError;
using kxtest::imageFrom;

namespace {

using kxtest::kNotInit;

template <typename T>
kxPelBuffer<T> testImage(long w, long h, double range)
{
    return imageFrom<T>(w, h, [=](long x, long y) {
        return static_cast<T>(std::fmod((x * 37 + y * 91 + (x * y) % 17) * 1.0, range));
    });
}

template <typename T>
double maxDifference(const kxPelBuffer_const<T>& a, const kxPelBuffer_const<T>& b)
{
    EXPECT_EQ(a.width(), b.width());
    EXPECT_EQ(a.height(), b.height());
    double worst = 0;
    for (long y = 0; y < a.height(); ++y)
        for (long x = 0; x < a.width(); ++x)
            worst = std::max(worst, std::fabs(static_cast<double>(a(x, y)) - static_cast<double>(b(x, y))));
    return worst;
}

// A buffer whose store holds the given spatial values (inverse computed), so
// that the second-image makers and the workers read them directly.
kxFrequencyBuffer spatialBuffer(const std::vector<kxPair<double>>& values)
{
    kxFrequencyBuffer b(static_cast<long>(values.size()), 1);
    for (std::size_t i = 0; i < values.size(); ++i)
        b.put(static_cast<long>(i), 0, values[i], false);
    Access::inverseComputed(b, true);
    return b;
}

}  // namespace

template <typename T>
void roundTrip(long w, long h, double range, double tolerance)
{
    const kxPelBuffer<T> image = testImage<T>(w, h, range);
    kxFrequencyBuffer spectrum;
    kfForwardFFT<T>(image, spectrum);
    kxPelBuffer<T> unbound;
    kfInverseFFT<T>(spectrum, unbound, false);
    EXPECT_LE(maxDifference<T>(unbound, image), tolerance) << w << " x " << h;
    EXPECT_EQ(unbound.offset(), kxPair<long>(0, 0));
    kxPelBuffer<T> bound(w, h);
    kfInverseFFT<T>(spectrum, bound, false);
    EXPECT_LE(maxDifference<T>(bound, image), tolerance) << w << " x " << h;
}

TEST(Inverse, RoundTripsEveryPixelTypeAndSize)
{
    for (auto s : {kxPair<long>(1, 1), kxPair<long>(3, 5), kxPair<long>(100, 60), kxPair<long>(640, 480),
                   kxPair<long>(2048, 2048)}) {
        roundTrip<unsigned char>(s.x(), s.y(), 256, 0);
        roundTrip<unsigned short>(s.x(), s.y(), 65536, 1);
        roundTrip<double>(s.x(), s.y(), 1000, 0.05);   // single precision: 5e-5 of the range
    }
}

TEST(Inverse, RoundTripKeepsTheTransform)
{
    kxPelBuffer<double> image = testImage<double>(20, 10, 50);
    image.xformCache().xform(kx2XformLinear(kxXform<2>(kxMatrix<2>(0.5, 0, 0, 0.5), kxVector<2>(3, 4))));
    kxFrequencyBuffer spectrum;
    kfForwardFFT<double>(image, spectrum);
    kxPelBuffer<double> back;
    kfInverseFFT<double>(spectrum, back, false);
    EXPECT_EQ(back.xformCache(), image.xformCache());
    kxPelBuffer<double> shiftedImage = image;
    shiftedImage.offset(kxPair<long>(-2, 1));
    kfForwardFFT<double>(shiftedImage, spectrum);
    kxPelBuffer<double> unboundWithOffset;
    kfInverseFFT<double>(spectrum, unboundWithOffset, false);
    EXPECT_EQ(unboundWithOffset.xformCache(), image.xformCache());
    EXPECT_EQ(unboundWithOffset.offset(), kxPair<long>(-2, 1));
}

// With a recorded offset the 8-bit magnitude path (the one with the optional
// angle image) returns the pixels in place at that offset.
TEST(Inverse, EightBitPathReturnsAnOffsetImageInPlace)
{
    kxPelBuffer<unsigned char> image = testImage<unsigned char>(30, 20, 256);
    image.offset(kxPair<long>(7, -4));
    kxFrequencyBuffer spectrum;
    kfForwardFFT<unsigned char>(image, spectrum);
    kxPelBuffer<unsigned char> back;
    kfInverseFFT<unsigned char>(spectrum, back, false);
    EXPECT_EQ(back.offset(), kxPair<long>(7, -4));
    EXPECT_EQ(maxDifference<unsigned char>(back, image), 0);
    // A bound destination at the same place receives the same pixels.
    kxPelBuffer<unsigned char> bound(30, 20);
    bound.offset(kxPair<long>(7, -4));
    kfInverseFFT<unsigned char>(spectrum, bound, false);
    EXPECT_EQ(maxDifference<unsigned char>(bound, image), 0);
}

// The other paths lay the result down with the periodic copy from the
// recorded offset into an image at (0, 0), then give it that offset: pixel
// (x, y) of the result holds source pixel (x - ox, y - oy) where that lies in
// the image, and zero elsewhere, for a positive offset.
TEST(Inverse, OtherPathsShiftThePixelsByAPositiveOffset)
{
    const long w = 12, h = 8, ox = 3, oy = 2;
    kxPelBuffer<unsigned short> image = testImage<unsigned short>(w, h, 60000);
    image.offset(kxPair<long>(ox, oy));
    kxFrequencyBuffer spectrum;
    kfForwardFFT<unsigned short>(image, spectrum);
    kxPelBuffer<unsigned short> back;
    kfInverseFFT<unsigned short>(spectrum, back, false);
    EXPECT_EQ(back.offset(), kxPair<long>(ox, oy));
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x) {
            const double expected = (x >= ox && y >= oy) ? image(x - ox, y - oy) : 0.0;
            EXPECT_NEAR(back(x, y), expected, 1) << x << "," << y;
        }
}

// For a negative offset the placements wrap: the result is the source rolled
// by the offset.
TEST(Inverse, OtherPathsRollThePixelsByANegativeOffset)
{
    const long w = 12, h = 8, ox = -5, oy = -1;
    kxPelBuffer<double> image = testImage<double>(w, h, 100);
    image.offset(kxPair<long>(ox, oy));
    kxFrequencyBuffer spectrum;
    kfForwardFFT<double>(image, spectrum);
    kxPelBuffer<double> back;
    kfInverseFFT<double>(spectrum, back, false);
    EXPECT_EQ(back.offset(), kxPair<long>(ox, oy));
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x)
            EXPECT_NEAR(back(x, y), image((x - ox) % w, (y - oy) % h), 1e-3) << x << "," << y;
}

TEST(Inverse, MagnitudesWrapWithoutClamping)
{
    kxFrequencyBuffer b(1, 1);
    b.put(0, 0, kxPair<double>(300.2, 0), false);
    kxPelBuffer<unsigned char> u8;
    kfInverseFFT<unsigned char>(b, u8, false);
    EXPECT_EQ(u8(0, 0), 44);   // 300 modulo 256
    b.put(0, 0, kxPair<double>(0, -70000.2), false);
    kxPelBuffer<unsigned short> u16;
    kfInverseFFT<unsigned short>(b, u16, false);
    EXPECT_EQ(u16(0, 0), 70000 - 65536);
    b.put(0, 0, kxPair<double>(2.5, 0), false);
    kfInverseFFT<unsigned char>(b, u8, false);
    EXPECT_EQ(u8(0, 0), 3);   // rounded half up
}

// An 8-bit image through the forward and the scaled const inverse to 8 and
// 16 bits.
struct ScaledInverses {
    kxPelBuffer<unsigned char> u8;
    kxPelBuffer<unsigned short> u16;

    explicit ScaledInverses(const kxPelBuffer<unsigned char>& image)
    {
        kxFrequencyBuffer spectrum;
        kfForwardFFT<unsigned char>(image, spectrum);
        kfInverseFFT<unsigned char>(spectrum, u8, true);
        kfInverseFFT<unsigned short>(spectrum, u16, true);
    }
};

TEST(Inverse, ScaleOnAConstantImageGivesZero)
{
    // A constant image filling its grid has only the zero frequency, whose
    // inverse is exactly constant again: hi == lo, the gain is exactly the
    // range, and every pixel becomes (m - lo) x gain + 0.5 truncated = 0.
    kxPelBuffer<unsigned char> flat(16, 16);
    kfPelSet<unsigned char>(flat, 77);
    const ScaledInverses result(flat);
    for (long y = 0; y < 16; ++y)
        for (long x = 0; x < 16; ++x) {
            EXPECT_EQ(result.u8(x, y), 0);
            EXPECT_EQ(result.u16(x, y), 0);
        }
}

TEST(Inverse, ScaleStretchesARampToTheFullRange)
{
    auto ramp = imageFrom<unsigned char>(16, 4, [](long x, long) { return static_cast<unsigned char>(10 + 4 * x); });
    const ScaledInverses result(ramp);
    for (long x = 0; x < 16; ++x) {
        EXPECT_NEAR(result.u8(x, 0), x * 255.0 / 15, 1) << x;
        EXPECT_NEAR(result.u16(x, 2), x * 65535.0 / 15, 2) << x;
    }
    EXPECT_EQ(result.u8(0, 0), 0);
    EXPECT_EQ(result.u8(15, 3), 255);
}

TEST(Inverse, DoubleWorkersIgnoreScale)
{
    kxPelBuffer<double> image = testImage<double>(9, 7, 40);
    kxFrequencyBuffer spectrum;
    kfForwardFFT<double>(image, spectrum);
    kxPelBuffer<double> a, b, c, d;
    kxPelBuffer<unsigned char> qa, qb;
    kfInverseFFT<double>(spectrum, a, false);
    kfInverseFFT<double>(spectrum, b, true);
    kfInverseFFTQuadrant<double>(spectrum, c, qa, false);
    kfInverseFFTQuadrant<double>(spectrum, d, qb, true);
    EXPECT_EQ(maxDifference<double>(a, b), 0);
    EXPECT_EQ(maxDifference<double>(a, c), 0);
    EXPECT_EQ(maxDifference<double>(c, d), 0);
}

TEST(Inverse, InPlaceSetsTheFlagAndASecondRunReusesTheResult)
{
    kxPelBuffer<unsigned short> image = testImage<unsigned short>(20, 12, 5000);
    kxFrequencyBuffer spectrum;
    kfForwardFFT<unsigned short>(image, spectrum);
    kxPelBuffer<unsigned short> first, second;
    unsigned long firstPolls, secondPolls;
    {
        kxAttention::Probe probe;
        kfInverseFFT<unsigned short>(spectrum, first, false, true);
        firstPolls = probe.count();
    }
    EXPECT_TRUE(Access::inverseComputed(spectrum));
    expectError<Defs::InvalidBuffer>([&] { spectrum.getReal(0, 0, false); },
                                     "Cannot access frequency data once inverse has been computed.");
    {
        kxAttention::Probe probe;
        kfInverseFFT<unsigned short>(spectrum, second, false, true);
        secondPolls = probe.count();
    }
    EXPECT_EQ(secondPolls, 1u);   // the worker's own poll: the engine did not run
    EXPECT_GT(firstPolls, secondPolls);
    EXPECT_EQ(maxDifference<unsigned short>(first, second), 0);
    // The real and imaginary parts of the same result, also in place.
    kxPelBuffer<double> re, im;
    kfInverseFFT(spectrum, re, im, true);
    for (long y = 0; y < 12; ++y)
        for (long x = 0; x < 20; ++x) {
            EXPECT_NEAR(re(x, y), image(x, y), 0.05);
            EXPECT_NEAR(im(x, y), 0.0, 0.05);
        }
    // Even the non-in-place const form now reads the stored result.
    kxPelBuffer<unsigned short> third;
    kfInverseFFT<unsigned short>(static_cast<const kxFrequencyBuffer&>(spectrum), third, false);
    EXPECT_EQ(maxDifference<unsigned short>(first, third), 0);
}

TEST(Inverse, ConstFormsLeaveTheBufferReadableAndUnchanged)
{
    kxPelBuffer<double> image = testImage<double>(10, 10, 30);
    kxFrequencyBuffer spectrum;
    kfForwardFFT<double>(image, spectrum);
    const kxFrequencyBuffer before = spectrum;
    kxPelBuffer<double> out, angle, re, im;
    kxPelBuffer<unsigned char> quadrant;
    const kxFrequencyBuffer& view = spectrum;
    kfInverseFFT<double>(view, out, false);
    kfInverseFFTAngle<double>(view, out, angle, false);
    kfInverseFFTQuadrant<double>(view, out, quadrant, false);
    kfInverseFFT(view, re, im);
    kxFrequencyBuffer dst;
    kfInverseFFT(view, dst);
    EXPECT_TRUE(spectrum == before);
    EXPECT_NO_THROW(spectrum.getReal(1, 1, false));
}

TEST(Inverse, BoundDestinationReceivesOnlyTheOverlap)
{
    kxPelBuffer<unsigned char> image = testImage<unsigned char>(8, 8, 200);
    kxFrequencyBuffer spectrum;
    kfForwardFFT<unsigned char>(image, spectrum);
    kxPelBuffer<unsigned char> dst(5, 12);
    kfPelSet<unsigned char>(dst, 250);
    dst.offset(kxPair<long>(4, -2));
    kfInverseFFT<unsigned char>(spectrum, dst, false);
    EXPECT_EQ(dst.width(), 5);
    EXPECT_EQ(dst.height(), 12);
    EXPECT_EQ(dst.offset(), kxPair<long>(4, -2));
    // dst covers x 4..8, y -2..9; the result covers x 0..7, y 0..7.
    for (long y = 0; y < 12; ++y)
        for (long x = 0; x < 5; ++x) {
            const long cx = x + 4, cy = y - 2;
            const int expected = (cx < 8 && cy >= 0 && cy < 8) ? image(cx, cy) : 250;
            EXPECT_EQ(dst(x, y), expected) << x << "," << y;
        }
}

TEST(Inverse, QuadrantCodes)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    kxFrequencyBuffer b = spatialBuffer({{1, 1}, {-1, 1}, {1, -1}, {-1, -1}, {-0.0, 0}, {nan, nan}});
    kxPelBuffer<unsigned char> codes;
    kf_ComputeQuadrantImage(b, codes);
    const int expected[] = {0, 1, 2, 3, 0, 0};   // a NaN part counts as not negative
    ASSERT_EQ(codes.width(), 6);
    for (long x = 0; x < 6; ++x)
        EXPECT_EQ(codes(x, 0), expected[x]) << x;

    // The double-quadrant worker computes its codes inline: a NaN part counts
    // as negative there.
    kxPelBuffer<double> magnitude;
    kxPelBuffer<unsigned char> inline_;
    kfInverseFFTQuadrant<double>(b, magnitude, inline_, false, false);
    const int expectedInline[] = {0, 1, 2, 3, 0, 3};
    for (long x = 0; x < 6; ++x)
        EXPECT_EQ(inline_(x, 0), expectedInline[x]) << x;
    // Through the 8- and 16-bit workers the codes are kf_ComputeQuadrantImage's.
    kxPelBuffer<unsigned char> m8, q8;
    kfInverseFFTQuadrant<unsigned char>(b, m8, q8, false, false);
    for (long x = 0; x < 6; ++x)
        EXPECT_EQ(q8(x, 0), expected[x]) << x;
}

TEST(Inverse, AngleImageOfASingleComplexExponential)
{
    // One frequency k = 3 on a 16 x 1 grid: the spatial result is
    // e^(+2 pi i 3 x / 16), so the angle is 2 pi 3 x / 16 wrapped to (-pi, pi].
    kxFrequencyBuffer b(16, 1);
    b.put(3, 0, kxPair<double>(16, 0), false);
    kxPelBuffer<double> magnitude, angle;
    kfInverseFFTAngle<double>(b, magnitude, angle, false, false);
    const double pi = 3.141592653589793;
    for (long x = 0; x < 16; ++x) {
        EXPECT_NEAR(magnitude(x, 0), 1.0, 1e-6);
        EXPECT_NEAR(std::remainder(angle(x, 0) - 2 * pi * 3 * x / 16, 2 * pi), 0.0, 1e-6) << x;
        EXPECT_EQ(angle(x, 0), static_cast<double>(static_cast<float>(angle(x, 0))));   // atan2f
    }
}

TEST(Inverse, MaskedBandGivesTheSameResultWhenRowsOutsideAreZero)
{
    kxPelBuffer<double> image = testImage<double>(32, 32, 10);
    kxFrequencyBuffer spectrum;
    kfForwardFFT<double>(image, spectrum);
    // Keep centred rows 12..20 (vertical frequencies -4..4) and zero the rest.
    for (long y = -16; y < 16; ++y)
        if (y < -4 || y > 4)
            for (long x = -16; x < 16; ++x)
                spectrum.put(x, y, kxPair<double>(0, 0), true);
    kxFrequencyBuffer banded = spectrum;
    Access::band(banded, 1, 12, 20);
    kxPelBuffer<double> plain, masked;
    kfInverseFFT<double>(spectrum, plain, false);
    kfInverseFFT<double>(banded, masked, false);
    EXPECT_EQ(maxDifference<double>(plain, masked), 0);
}

TEST(Inverse, BufferFormGivesTheUnscaledInverseAndClearsFlags)
{
    kxPelBuffer<double> image = testImage<double>(8, 4, 10);
    kxFrequencyBuffer spectrum;
    kfForwardFFT<double>(image, spectrum);
    const double before11 = spectrum.getReal(1, 1, false);
    Access::band(spectrum, 1, 0, 4);
    kxFrequencyBuffer dst;
    kfInverseFFT(spectrum, dst, false);
    EXPECT_EQ(Access::masked(dst), 0);
    EXPECT_FALSE(Access::inverseComputed(dst));
    for (long y = 0; y < 4; ++y)
        for (long x = 0; x < 8; ++x)
            EXPECT_NEAR(dst.getReal(x, y, false), image(x, y) * 32, 1e-3);
    // In place: the source holds the result and is flagged; dst is readable.
    kxFrequencyBuffer dst2;
    kfInverseFFT(spectrum, dst2, true);
    EXPECT_TRUE(Access::inverseComputed(spectrum));
    EXPECT_FALSE(Access::inverseComputed(dst2));
    EXPECT_EQ(Access::masked(dst2), 0);
    EXPECT_TRUE(dst2 == dst);
    // A flagged source is used as it stands.
    kxFrequencyBuffer dst3;
    kfInverseFFT(spectrum, dst3, false);
    EXPECT_TRUE(dst3 == dst);
    // Transformed forward again it gives the spectrum times W x H.
    kxFrequencyBuffer back;
    kfForwardFFT(dst, back);
    EXPECT_NEAR(back.getReal(1, 1, false), 32 * before11, 1e-1);
}

TEST(Inverse, UninitializedBufferIsRefusedEverywhere)
{
    kxFrequencyBuffer empty;
    kxPelBuffer<unsigned char> u8;
    kxPelBuffer<double> d, d2;
    kxFrequencyBuffer dst;
    expectError<Defs::Uninitialized>([&] { kfInverseFFT<unsigned char>(empty, u8, false, true); }, kNotInit);
    expectError<Defs::Uninitialized>([&] { kfInverseFFTAngle<double>(empty, d, d2, false, false); }, kNotInit);
    expectError<Defs::Uninitialized>([&] { kfInverseFFTQuadrant<unsigned char>(empty, u8, u8, false, false); }, kNotInit);
    expectError<Defs::Uninitialized>([&] { kfInverseFFT(empty, d, d2, false); }, kNotInit);
    expectError<Defs::Uninitialized>([&] { kfInverseFFT(empty, dst, true); }, kNotInit);
    EXPECT_FALSE(u8.isBound());
}

TEST(Inverse, WorkerPollsOnceBeforeItsPixelLoopsAndStopsCleanly)
{
    kxFrequencyBuffer b(1, 1);
    kxPelBuffer<unsigned char> out;
    {
        kxAttention::Probe probe;
        kfInverseFFT<unsigned char>(b, out, false);
        EXPECT_EQ(probe.count(), 3u);   // engine: one per pass; worker: one
    }
    kxPelBuffer<double> image = testImage<double>(64, 64, 9);
    kxFrequencyBuffer spectrum;
    kfForwardFFT<double>(image, spectrum);
    for (unsigned long n = 1; n <= 11; ++n) {
        kxAttention::Probe probe(n);
        kxPelBuffer<double> result;
        EXPECT_THROW(kfInverseFFT<double>(spectrum, result, false, false), kxAttention::Stopped) << n;
        EXPECT_FALSE(Access::inverseComputed(spectrum));
    }
}

// The exported workers behind the angle and quadrant forms make the entry
// points' first check: a buffer never filled, reset by assignment from an
// empty one, or left by a stopped transform is refused before its store is
// read, and the destination image stays unbound.
TEST(Inverse, ExportedSecondImageWorkersRefuseABufferWithoutData)
{
    kxPelBuffer<double> image = testImage<double>(16, 8, 9);
    kxFrequencyBuffer never;
    kxFrequencyBuffer reset;
    kfForwardFFT<double>(image, reset);
    reset = kxFrequencyBuffer();
    kxFrequencyBuffer stopped;
    {
        kxAttention::Probe probe(1);
        EXPECT_THROW(kfForwardFFT<double>(image, stopped), kxAttention::Stopped);
    }
    for (kxFrequencyBuffer* b : {&never, &reset, &stopped}) {
        kxPelBuffer<double> angle;
        kxPelBuffer<unsigned char> quadrant;
        expectError<Defs::Uninitialized>([&] { kf_ComputeAngleImage(*b, angle); }, kNotInit);
        expectError<Defs::Uninitialized>([&] { kf_ComputeQuadrantImage(*b, quadrant); }, kNotInit);
        EXPECT_FALSE(angle.isBound());
        EXPECT_FALSE(quadrant.isBound());
    }
}
