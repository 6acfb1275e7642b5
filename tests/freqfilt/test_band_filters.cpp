// The band-pass and band-reject filters.
#include "fft/buffer_access.h"
#include "test_helpers.h"

#include <kx/freqfilt.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>

using Access = kx_FrequencyBufferAccess;
using Defs = kxFrequencyDefs;
using kxtest::expectError;
using BandPass = kxFrequencyFilterBandPass;
using BandReject = kxFrequencyFilterBandReject;

namespace {

using kxtest::kPi;

// The profile through its effect on a buffer of ones.
std::vector<double> gainsOnRow0(const kxFrequencyFilter& f, long w, long h)
{
    kxFrequencyBuffer b = kxtest::onesBuffer(w, h);
    f.apply(b);
    std::vector<double> g;
    for (long x = 0; x < w / 2; ++x)
        g.push_back(b.getReal(x, 0, false));
    return g;
}

}  // namespace

TEST(BandFilters, Validation)
{
    const kxPair<long> n(256, 256);
    const char* freq = "Frequency must be between 0.0 and 0.5.";
    EXPECT_NO_THROW(BandPass(0.01, 0.0, 0.5, n, 0));
    expectError<Defs::InvalidArgument>([&] { BandPass(0.01, 0.0, 0.5000001, n, 0); }, freq);
    expectError<Defs::InvalidArgument>([&] { BandPass(0.01, 0.0, -0.1, n, 0); }, freq);
    expectError<Defs::InvalidArgument>([&] { BandPass(0.01, 0.0, std::nan(""), n, 0); }, freq);
    expectError<Defs::InvalidArgument>([&] { BandPass(0.0, 0.0, 0.1, n, 0); }, "Sigma must be positive.");
    expectError<Defs::InvalidArgument>([&] { BandPass(std::nan(""), 0.0, 0.1, n, 0); }, "Sigma must be positive.");
    expectError<Defs::InvalidArgument>([&] { BandPass(0.01, -0.1, 0.1, n, 0); }, "Plateau cannot be negative.");
    expectError<Defs::InvalidArgument>([&] { BandPass(0.01, std::nan(""), 0.1, n, 0); }, "Plateau cannot be negative.");
    expectError<Defs::InvalidArgument>([&] { BandPass(0.01, 0.0, 0.1, n, -2); }, "DC Removal Radius cannot be negative.");
    expectError<Defs::InvalidArgument>([&] { BandReject(0.01, 0.0, 0.1, n, -2); },
                                       "DC Protection Radius cannot be negative.");
    expectError<Defs::InvalidSize>([&] { BandPass(0.01, 0.0, 0.1, {256, 100}, 0); }, "Size must be a power of 2.");
    // Argument checks come first.
    expectError<Defs::InvalidArgument>([&] { BandPass(0.01, -1.0, 0.1, {256, 100}, 0); }, "Plateau cannot be negative.");
    expectError<Defs::InvalidArgument>([&] { BandPass(1e6, 0.0, 0.1, n, 0); },
                                       "Sigma and plateau values are too large for the filter size.");
}

TEST(BandFilters, ProfileHandComputed)
{
    // s = 2.56, p = 5.12: width = trunc(10.24 + 5.12 + 12.8) = 28 -> 29;
    // 928 gains, the first 164 (i / 32 <= 5.12) exactly 1.
    BandPass f(0.01, 0.02, 0.2, {256, 256}, 0);
    EXPECT_EQ(f.supportWidth(), 29);
    BandReject r(0.01, 0.02, 0.2, {256, 256}, 0);
    // Through the filters: bins on the ring at distance d from f0 = 51.2.
    const std::vector<double> pass = gainsOnRow0(f, 256, 256);
    const std::vector<double> reject = gainsOnRow0(r, 256, 256);
    for (long x = 47; x <= 56; ++x) {   // |x - 51.2| <= 5.12 -> plateau
        EXPECT_EQ(pass[x], 1.0) << x;
        EXPECT_EQ(reject[x], 0.0) << x;
    }
    // Beyond the plateau: the Gaussian at the oversampled index.
    const long x = 60;
    const long index = static_cast<long>((60.0 - static_cast<float>(51.2)) * 32);
    const double d = index / 32.0 - 5.12;
    EXPECT_EQ(pass[x], static_cast<float>(std::exp(-d * d / (2 * 2.56 * 2.56))));
    // Pass and reject are complementary everywhere on the row: on the band
    // their gains sum to 1, off it the pass filter gives 0 and the reject
    // filter leaves the 1.
    for (long i = 0; i < 128; ++i)
        EXPECT_NEAR(pass[i] + reject[i], 1.0, 1e-7) << i;
}

TEST(BandFilters, RingIsACircleInCyclesPerPixel)
{
    // 512 x 256: vertical distances count twice, so a ring of radius 0.1
    // cycles per pixel is 51.2 bins across and 25.6 bins up.
    BandPass f(0.005, 0.01, 0.1, {512, 256}, 0);
    kxFrequencyBuffer b(512, 256);
    for (long y = 0; y < 256; ++y)
        for (long x = 0; x < 512; ++x)
            b.put(x, y, kxPair<double>(1, 0), false);
    f.apply(b);
    EXPECT_EQ(b.getReal(51, 0, true), 1.0);
    EXPECT_EQ(b.getReal(0, 26, true), 1.0);   // 26 x 2 = 52 bins
    EXPECT_EQ(b.getReal(0, -26, true), 1.0);
    EXPECT_EQ(b.getReal(0, 51, true), 0.0);
    EXPECT_EQ(b.getReal(36, 18, true), 1.0);   // sqrt(36^2 + 36^2) = 50.9
    EXPECT_EQ(b.getReal(0, 0, true), 0.0);
}

TEST(BandFilters, OutsideTheBandPassZeroesAndRejectKeepsBits)
{
    BandPass pass(0.01, 0.01, 0.1, {64, 64}, 0);
    BandReject reject(0.01, 0.01, 0.1, {64, 64}, 0);
    const kxFrequencyBuffer before = kxtest::knownBuffer(64, 64);
    kxFrequencyBuffer p = before, r = before;
    Access::band(p, 1, 3, 9);
    pass.apply(p);
    reject.apply(r);
    EXPECT_EQ(Access::masked(p), 0);
    EXPECT_EQ(Access::masked(r), 0);
    // f0 = 6.4, width = trunc(2.56 + 0.64 + 3.2) = 6 -> 7: f0 - 7 < 0 so
    // inner = -1 (nothing is inside it), outer = trunc(13.4^2) = 179.
    long outside = 0;
    for (long y = 0; y < 64; ++y)
        for (long x = 0; x < 64; ++x) {
            const long u = x < 32 ? x : x - 64, v = y < 32 ? y : y - 64;
            const long r2 = u * u + v * v;
            if (r2 >= 179) {
                ++outside;
                ASSERT_EQ(p.get(x, y, false), kxPair<double>(0, 0));
                ASSERT_EQ(std::memcmp(Access::data(r) + 2 * (y * 64 + x), Access::data(before) + 2 * (y * 64 + x), 8), 0);
            }
        }
    EXPECT_GT(outside, 3000);
}

TEST(BandFilters, PassPlusRejectIsTheSpectrum)
{
    BandPass pass(0.02, 0.01, 0.2, {64, 32}, 0);
    BandReject reject(0.02, 0.01, 0.2, {64, 32}, 0);
    const kxFrequencyBuffer x = kxtest::knownBuffer(64, 32);
    kxFrequencyBuffer p, r, sum;
    pass.apply(x, p);
    reject.apply(x, r);
    kfFrequencyAdd(p, r, sum);
    for (long y = 0; y < 32; ++y)
        for (long c = 0; c < 64; ++c) {
            const kxPair<double> e = x.get(c, y, false), s = sum.get(c, y, false);
            ASSERT_NEAR(s.x(), e.x(), 1e-5 * std::fabs(e.x()) + 1e-6);
            ASSERT_NEAR(s.y(), e.y(), 1e-5 * std::fabs(e.y()) + 1e-6);
        }
}

TEST(BandFilters, FarRowsAndDcSquare)
{
    // f0 = 3.2, width 7: rowLimit = trunc(3.2 + 7) = 10. Rows beyond are
    // cleared by the pass filter and copied by the out-of-place reject.
    BandPass pass(0.01, 0.0, 0.05, {64, 64}, 3);
    BandReject reject(0.01, 0.0, 0.05, {64, 64}, 0);
    const kxFrequencyBuffer x = kxtest::knownBuffer(64, 64);
    kxFrequencyBuffer p = x, r;
    pass.apply(p);
    reject.apply(x, r);
    for (long c = 0; c < 64; ++c) {
        EXPECT_EQ(p.get(c, 11, false), kxPair<double>(0, 0));
        EXPECT_EQ(r.get(c, 11, false), x.get(c, 11, false));
        EXPECT_EQ(r.get(c, 53, false), x.get(c, 53, false));
    }
    // Radius 3 clears the 5 x 5 square -2..2.
    for (long v = -2; v <= 2; ++v)
        for (long u = -2; u <= 2; ++u)
            EXPECT_EQ(p.get(u, v, true), kxPair<double>(0, 0));
    BandPass tooBig(0.01, 0.0, 0.05, {4, 4}, 4);
    kxFrequencyBuffer small = kxtest::knownBuffer(4, 4);
    expectError<Defs::BadCoord>([&] { tooBig.apply(small); }, "Coordinates are out of bounds");
}

TEST(BandFilters, RejectProtectsTheDcSquare)
{
    // A ring at frequency 0 passes through the square.
    BandReject r2(0.02, 0.01, 0.0, {32, 32}, 2);
    kxFrequencyBuffer b = kxtest::knownBuffer(32, 32);
    const kxFrequencyBuffer before = b;
    r2.apply(b);
    for (long v = -1; v <= 1; ++v)
        for (long u = -1; u <= 1; ++u)
            EXPECT_EQ(b.get(u, v, true), before.get(u, v, true));
    EXPECT_NE(b.get(2, 0, true), before.get(2, 0, true));
    BandReject r0(0.02, 0.01, 0.0, {32, 32}, 0);
    kxFrequencyBuffer c = kxtest::knownBuffer(32, 32);
    r0.apply(c);
    EXPECT_EQ(c.get(0, 0, true), kxPair<double>(0, 0));
    // Protection beyond the buffer: refused before anything changes, in
    // place and out of place.
    BandReject huge(0.02, 0.01, 0.1, {8, 8}, 6);
    kxFrequencyBuffer small = kxtest::knownBuffer(8, 8);
    Access::band(small, 1, 1, 1);
    expectError<Defs::BadCoord>([&] { huge.apply(small); }, "Coordinates are out of bounds");
    EXPECT_EQ(Access::masked(small), 1);
    kxFrequencyBuffer unchanged = kxtest::knownBuffer(8, 8);
    Access::band(unchanged, 1, 1, 1);
    EXPECT_TRUE(small == unchanged);
    kxFrequencyBuffer dst;
    expectError<Defs::BadCoord>([&] { huge.apply(kxtest::knownBuffer(8, 8), dst); }, "Coordinates are out of bounds");
    EXPECT_EQ(Access::data(dst), nullptr);   // not sized either
}

TEST(BandFilters, OutOfPlaceGivesThePaddedSizeAsRequestedSize)
{
    BandPass f(0.01, 0.0, 0.1, {128, 64}, 0);
    kxFrequencyBuffer src(100, 50);
    Access::offset(src, kxPair<long>(3, 3));
    kxFrequencyBuffer dst;
    f.apply(src, dst);
    EXPECT_EQ(Access::requestedWidth(dst), 128);
    EXPECT_EQ(Access::requestedHeight(dst), 64);
    EXPECT_EQ(Access::offset(dst), kxPair<long>(0, 0));
    kxFrequencyBuffer inPlace = src;
    f.apply(inPlace);
    EXPECT_EQ(std::memcmp(Access::data(inPlace), Access::data(dst), 128 * 64 * 8), 0);
}

TEST(BandFilters, SettersGettersEqualityPersistence)
{
    BandPass empty;
    expectError<Defs::Uninitialized>([&] { empty.supportWidth(); }, "FrequencyFilter has not been initialized");
    expectError<Defs::Uninitialized>([&] { empty.sigma(0.1); }, "FrequencyFilter has not been initialized");
    kxFrequencyBuffer b(8, 8);
    expectError<Defs::Uninitialized>([&] { empty.apply(b); }, "FrequencyFilter has not been initialized");
    kxFrequencyBuffer none;
    expectError<Defs::Uninitialized>([&] { empty.apply(none); }, "FrequencyBuffer has not been initialized");

    BandPass f(0.01, 0.02, 0.1, {64, 64}, 1);
    const unsigned long changes = f.changeCount();
    f.sigma(0.01);
    f.plateau(std::nan(""));
    EXPECT_EQ(f.changeCount(), changes);
    f.frequency(0.2);
    EXPECT_EQ(f.frequency(), 0.2);
    kxFrequencyBuffer narrow = kxtest::knownBuffer(32, 64);
    expectError<Defs::InvalidSize>([&] { f.apply(narrow); }, "Size of frequency buffer does not match size of filter.");

    BandReject r(0.03, 0.0, 0.25, {32, 64}, 2);
    for (kxFrequencyFilter* filter : std::initializer_list<kxFrequencyFilter*>{&f, &r}) {
        kxMemoryArchive out;
        out.storeObject(filter);
        kxMemoryArchive in(out.bytes());
        auto loaded = in.loadObjectAs<kxFrequencyFilter>();
        ASSERT_TRUE(loaded);
        std::unique_ptr<kxFrequencyFilter> clone(filter->clone());
        if (auto* p = dynamic_cast<BandPass*>(loaded.get())) {
            EXPECT_TRUE(*p == f);
            EXPECT_TRUE(*dynamic_cast<BandPass*>(clone.get()) == f);
        } else {
            auto* q = dynamic_cast<BandReject*>(loaded.get());
            ASSERT_NE(q, nullptr);
            EXPECT_TRUE(*q == r);
            EXPECT_TRUE(*dynamic_cast<BandReject*>(clone.get()) == r);
        }
        // Every truncation is a clear error.
        const auto& full = out.bytes();
        for (std::size_t cut = 0; cut < full.size(); cut += 7) {
            kxMemoryArchive cutIn(std::vector<unsigned char>(full.begin(), full.begin() + cut));
            EXPECT_THROW(cutIn.loadObject(), kxArchive::Error) << cut;
        }
    }
    BandPass copy(f);
    copy = BandPass();
    EXPECT_TRUE(copy.isInitialized());
    expectError<Defs::Uninitialized>([&] { copy.frequency(); }, "FrequencyFilter has not been initialized");
}

// A real use: a periodic texture with a small defect. A band-reject filter
// tuned to the texture frequency removes the texture and leaves the defect
// standing out against a flat background.
TEST(BandFilters, RejectRemovesATextureAndKeepsTheDefect)
{
    const long n = 256;
    const double f = 1.0 / 8;   // 32 bins: a texture period of 8 pixels
    kxPelBuffer<unsigned char> image(n, n);
    auto inDefect = [](long x, long y) { return (x - 150) * (x - 150) + (y - 90) * (y - 90) <= 16; };
    for (long y = 0; y < n; ++y)
        for (long x = 0; x < n; ++x) {
            const double texture = 40 * std::cos(2 * kPi * f * x) + 40 * std::cos(2 * kPi * f * y);
            image(x, y) = static_cast<unsigned char>(120 + texture + (inDefect(x, y) ? 40 : 0));
        }
    auto contrast = [&](const kxPelBuffer_const<double>& img) {
        double defect = 0, background = 0, backgroundSq = 0;
        long nd = 0, nb = 0;
        for (long y = 0; y < n; ++y)
            for (long x = 0; x < n; ++x) {
                if (inDefect(x, y)) {
                    defect += img(x, y);
                    ++nd;
                } else if (std::abs(x - 150) > 12 || std::abs(y - 90) > 12) {
                    background += img(x, y);
                    backgroundSq += img(x, y) * img(x, y);
                    ++nb;
                }
            }
        const double mean = background / nb;
        const double sd = std::sqrt(backgroundSq / nb - mean * mean);
        return (defect / nd - mean) / sd;   // defect contrast in background standard deviations
    };
    kxPelBuffer<double> original(n, n);
    for (long y = 0; y < n; ++y)
        for (long x = 0; x < n; ++x)
            original(x, y) = image(x, y);

    kxFrequencyBuffer spectrum;
    kfForwardFFT<unsigned char>(image, spectrum);
    // The texture's frequencies lie on the ring of radius 0.125.
    BandReject ring(0.004, 0.004, f, {n, n}, 1);
    ring.apply(spectrum);
    kxPelBuffer<double> filtered, imag;
    kfInverseFFT(spectrum, filtered, imag);
    const double before = contrast(original), after = contrast(filtered);
    std::cout << "defect contrast: " << before << " -> " << after << " background sd\n";
    EXPECT_LT(before, 1.5);
    EXPECT_GT(after, 20.0);
}

// On a grid one row high the only row holds vertical frequency 0, so the
// ring at horizontal frequency 2 of 8 keeps the elements at u = 2 and u = -2
// with gain 1 and clears every other.
// The ring walk counts the only row of a grid one row high as frequency -1
// (and the only column of a grid one column wide likewise): on 8 x 1 the
// ring of radius 2 bins lies at yterm = 64 from every element, all outside.
TEST(BandFilters, SingleRowCountsAsFrequencyMinusOne)
{
    const BandPass pass(0.01, 0.0, 0.25, {8, 1}, 0);
    kxFrequencyBuffer b = kxtest::onesBuffer(8, 1);
    pass.apply(b);
    for (long x = 0; x < 8; ++x)
        EXPECT_EQ(b.get(x, 0, false), kxPair<double>(0, 0)) << x;
    const BandReject reject(0.01, 0.0, 0.25, {1, 8}, 0);
    kxFrequencyBuffer c = kxtest::onesBuffer(1, 8);
    reject.apply(c);
    for (long y = 0; y < 8; ++y)
        EXPECT_EQ(c.get(0, y, false), kxPair<double>(1, 1)) << y;
}
