#include "fft/buffer_access.h"
#include "test_helpers.h"

#include <kx/fft.h>

#include <gtest/gtest.h>

#include <cmath>

using Access = kx_FrequencyBufferAccess;
using Defs = kxFrequencyDefs;
using kxtest::expectError;

TEST(ComponentImages, PaddedSizeAndCentring)
{
    kxFrequencyBuffer b(100, 50);
    b.put(0, 0, kxPair<double>(1.5, -2.5), false);
    b.put(64, 32, kxPair<double>(7, 8), false);
    b.put(127, 63, kxPair<double>(3, 4), false);
    for (bool centered : {false, true}) {
        for (auto image : {b.getRealImage(centered), b.getImaginaryImage(centered), b.getMagnitudeImage(centered),
                           b.getPhaseImage(centered)}) {
            EXPECT_EQ(image.width(), 128);
            EXPECT_EQ(image.height(), 64);
        }
    }
    const kxPelBuffer<double> centred = b.getRealImage(true);
    EXPECT_EQ(centred(64, 32), 1.5);   // the zero frequency in the middle
    EXPECT_EQ(centred(0, 0), 7.0);     // storage (64, 32) at the corner
    EXPECT_EQ(centred(63, 31), 3.0);   // storage (127, 63): frequency (-1, -1)
    const kxPelBuffer<double> plain = b.getImaginaryImage(false);
    EXPECT_EQ(plain(0, 0), -2.5);
    EXPECT_EQ(plain(64, 32), 8.0);
    // Every pixel is written: the two modes hold the same values, moved.
    const kxPelBuffer<double> real = b.getRealImage(false);
    for (long y = 0; y < 64; ++y)
        for (long x = 0; x < 128; ++x)
            ASSERT_EQ(centred((x + 64) % 128, (y + 32) % 64), real(x, y));
}

TEST(ComponentImages, MagnitudeAndPhase)
{
    kxFrequencyBuffer b(4, 1);
    b.put(0, 0, kxPair<double>(3, 4), false);
    b.put(1, 0, kxPair<double>(0, 0), false);
    b.put(2, 0, kxPair<double>(0, 1), false);
    b.put(3, 0, kxPair<double>(-1, -0.0), false);
    const kxPelBuffer<double> m = b.getMagnitudeImage(false);
    EXPECT_EQ(m(0, 0), 5.0);
    EXPECT_EQ(m(1, 0), 0.0);
    const kxPelBuffer<double> p = b.getPhaseImage(false);
    EXPECT_EQ(p(2, 0), kxRadian(std::atan2(1.0, 0.0)).norm().toDouble());
    EXPECT_EQ(p(1, 0), 0.0);
    EXPECT_NEAR(p(3, 0), 3.141592653589793, 1e-15);   // atan2(-0, -1) = -pi, normalised to pi
    EXPECT_GT(p(3, 0), 0.0);
}

TEST(ComponentImages, OneByOne)
{
    kxFrequencyBuffer b(1, 1);
    b.put(0, 0, kxPair<double>(2, 0), false);
    EXPECT_EQ(b.getRealImage(true)(0, 0), 2.0);
    EXPECT_EQ(b.getRealImage(false).width(), 1);
}

TEST(ComponentImages, RefusedWithoutFrequencyData)
{
    kxFrequencyBuffer empty;
    expectError<Defs::Uninitialized>([&] { empty.getMagnitudeImage(true); }, "FrequencyBuffer has not been initialized");
    kxFrequencyBuffer b(8, 8);
    kxPelBuffer<double> out;
    kfInverseFFT<double>(b, out, false, true);
    const char* msg = "Cannot access frequency data once inverse has been computed.";
    expectError<Defs::InvalidBuffer>([&] { b.getRealImage(false); }, msg);
    expectError<Defs::InvalidBuffer>([&] { b.getImaginaryImage(false); }, msg);
    expectError<Defs::InvalidBuffer>([&] { b.getMagnitudeImage(false); }, msg);
    expectError<Defs::InvalidBuffer>([&] { b.getPhaseImage(true); }, msg);
}
