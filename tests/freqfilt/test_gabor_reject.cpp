#include "fft/buffer_access.h"
#include "test_helpers.h"

#include <kx/freqfilt.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <memory>

using Access = kx_FrequencyBufferAccess;
using Defs = kxFrequencyDefs;
using kxtest::expectError;
using Reject = kxFrequencyFilterGaborReject;
using Gabor = kxFrequencyFilterGabor;

namespace {

using kxtest::kPi;

// The reject filter's table through the one thing it shows: filtering a
// buffer of ones around its centre.
double gainAt(const Reject& r, long u, long v, long w, long h)
{
    kxFrequencyBuffer b = kxtest::onesBuffer(w, h);
    r.apply(b);
    return b.getReal(u, v, true);
}

}  // namespace

TEST(GaborReject, ValidationUsesTheProtectionMessage)
{
    expectError<Defs::InvalidArgument>([] { Reject({0.01, 0.01}, {0, 0}, kxRadian(0), 0.1, {64, 64}, -1); },
                                       "DC Protection Radius cannot be negative.");
    Reject r;
    expectError<Defs::InvalidArgument>([&] { r.set({0.01, 0.01}, {0, 0}, kxRadian(0), 0.1, {64, 64}, -1); },
                                       "DC Protection Radius cannot be negative.");
    EXPECT_FALSE(r.isInitialized());
    expectError<Defs::InvalidArgument>([] { Reject({0.01, 0.01}, {0, 0}, kxRadian(0), 0.6, {64, 64}, 0); },
                                       "Frequency must be between 0.0 and 0.5.");
    expectError<Defs::InvalidSize>([] { Reject({0.01, 0.01}, {0, 0}, kxRadian(0), 0.1, {64, 48}, 0); },
                                   "Size must be a power of 2.");
    Reject ok({0.01, 0.01}, {0, 0}, kxRadian(0), 0.1, {64, 64}, 3);
    const unsigned long changes = ok.changeCount();
    ok.dcProtectionRadius(3);
    EXPECT_EQ(ok.changeCount(), changes);
    ok.dcProtectionRadius(1);
    EXPECT_EQ(ok.dcProtectionRadius(), 1);
    expectError<Defs::Uninitialized>([] { Reject().dcProtectionRadius(); }, "FrequencyFilter has not been initialized");
}

TEST(GaborReject, ComplementaryTableWithZeroOnTheLobe)
{
    // frequency 0.25 on 64: the lobe is exactly on bin 16.
    Reject r({0.02, 0.02}, {0, 0}, kxRadian(0), 0.25, {64, 64}, 0);
    Gabor g({0.02, 0.02}, {0, 0}, kxRadian(0), 0.25, {64, 64}, 0);
    EXPECT_EQ(gainAt(r, 16, 0, 64, 64), 0.0);
    for (long u = 10; u < 22; ++u) {
        kxFrequencyBuffer ones(64, 64);
        ones.put(u, 0, kxPair<double>(1, 0), true);
        g.apply(ones);
        EXPECT_NEAR(gainAt(r, u, 0, 64, 64) + ones.getReal(u, 0, true), 1.0, 1e-7) << u;
    }
    // With a plateau every element on it is exactly 0.
    Reject flat({0.02, 0.02}, {0.05, 0.05}, kxRadian(0), 0.25, {64, 64}, 0);
    for (long v = -3; v <= 3; ++v)
        for (long u = 13; u <= 19; ++u)
            EXPECT_EQ(gainAt(flat, u, v, 64, 64), 0.0) << u << "," << v;
}

TEST(GaborReject, ElementsOutsideTheSupportKeepTheirBits)
{
    Reject r({0.02, 0.01}, {0, 0}, kxRadian(0.7), 0.2, {64, 32}, 0);
    const kxFrequencyBuffer before = kxtest::knownBuffer(64, 32);
    kxFrequencyBuffer b = before;
    Access::band(b, 1, 3, 4);
    r.apply(b);
    EXPECT_EQ(Access::masked(b), 0);
    const float* after = Access::data(b);
    const float* was = Access::data(before);
    long untouched = 0, changed = 0;
    for (long i = 0; i < 64 * 32 * 2; ++i) {
        if (std::memcmp(after + i, was + i, 4) == 0)
            ++untouched;
        else
            ++changed;
    }
    // The support is 1/20 of the plane or so; everything else is as before.
    EXPECT_GT(changed, 0);
    EXPECT_GT(untouched, 64 * 32 * 2 * 9 / 10);
    kxFrequencyBuffer dst;
    r.apply(before, dst);
    EXPECT_TRUE(dst == b);
}

TEST(GaborReject, DcProtection)
{
    // A lobe at frequency 0 covers the zero frequency.
    Reject unprotected({0.05, 0.05}, {0, 0}, kxRadian(0), 0.0, {32, 32}, 0);
    EXPECT_EQ(gainAt(unprotected, 0, 0, 32, 32), 0.0);
    Reject protectedDc({0.05, 0.05}, {0, 0}, kxRadian(0), 0.0, {32, 32}, 1);
    EXPECT_EQ(gainAt(protectedDc, 0, 0, 32, 32), 1.0);
    EXPECT_LT(gainAt(protectedDc, 1, 0, 32, 32), 0.5);
    // A square larger than the support restores untouched elements harmlessly.
    Reject narrow({0.01, 0.01}, {0, 0}, kxRadian(0), 0.0, {32, 32}, 6);
    kxFrequencyBuffer b = kxtest::knownBuffer(32, 32);
    const kxFrequencyBuffer before = b;
    narrow.apply(b);
    for (long y = -5; y <= 5; ++y)
        for (long x = -5; x <= 5; ++x)
            EXPECT_EQ(b.get(x, y, true), before.get(x, y, true));
    // A square outside the buffer is refused before anything changes.
    Reject huge({0.05, 0.05}, {0, 0}, kxRadian(0), 0.0, {8, 8}, 6);
    kxFrequencyBuffer small = kxtest::knownBuffer(8, 8);
    Access::band(small, 1, 2, 3);
    expectError<Defs::BadCoord>([&] { huge.apply(small); }, "Coordinates are out of bounds");
    EXPECT_TRUE(small == [] {
        kxFrequencyBuffer k = kxtest::knownBuffer(8, 8);
        Access::band(k, 1, 2, 3);
        return k;
    }());
}

TEST(GaborReject, PersistenceAndClone)
{
    Reject r({0.02, 0.03}, {0.01, 0}, kxRadian(-0.3), 0.1, {32, 64}, 2);
    kxMemoryArchive out;
    out.storeObject(&r);
    kxMemoryArchive in(out.bytes());
    auto loaded = in.loadObjectAs<kxFrequencyFilter>();
    auto* typed = dynamic_cast<Reject*>(loaded.get());
    ASSERT_NE(typed, nullptr);
    EXPECT_TRUE(*typed == r);
    std::unique_ptr<kxFrequencyFilter> clone(r.clone());
    auto* copy = dynamic_cast<Reject*>(clone.get());
    copy->angle(kxRadian(1.0));
    EXPECT_FALSE(*copy == r);
    EXPECT_TRUE(*typed == r);
}

// A realistic use: two reject lobes (at the stripes' frequency and its
// mirror) remove oriented stripes, keep the background, and protect the DC.
TEST(GaborReject, RemovesStripesAndKeepsTheRest)
{
    const long n = 128;
    const double f = 0.125, theta = 0.0;
    kxPelBuffer<double> image(n, n), background(n, n);
    for (long y = 0; y < n; ++y)
        for (long x = 0; x < n; ++x) {
            background(x, y) = 100.0 + 30.0 * std::exp(-((x - 40) * (x - 40) + (y - 70) * (y - 70)) / 50.0);
            image(x, y) = background(x, y) + 50.0 * std::cos(2 * kPi * f * x);
        }
    kxFrequencyBuffer spectrum;
    kfForwardFFT<double>(image, spectrum);
    const kxPair<double> dc = spectrum.get(0, 0, true);
    Reject plus({0.01, 0.01}, {0, 0}, kxRadian(theta), f, {n, n}, 1);
    Reject minus({0.01, 0.01}, {0, 0}, kxRadian(theta + kPi), f, {n, n}, 1);
    plus.apply(spectrum);
    minus.apply(spectrum);
    EXPECT_EQ(spectrum.get(0, 0, true), dc);
    kxPelBuffer<double> out;
    kfInverseFFT<double>(spectrum, out, false);
    double err = 0, stripes = 0;
    for (long y = 0; y < n; ++y)
        for (long x = 0; x < n; ++x) {
            err += (out(x, y) - background(x, y)) * (out(x, y) - background(x, y));
            stripes += 2500.0 * std::cos(2 * kPi * f * x) * std::cos(2 * kPi * f * x);
        }
    std::cout << "stripes left: " << std::sqrt(err / stripes) << " of their amplitude\n";
    EXPECT_LT(err / stripes, 0.01);
}
