#include "fft/buffer_access.h"
#include "test_helpers.h"

#include <kx/freqfilt.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>

using Access = kx_FrequencyBufferAccess;
using Defs = kxFrequencyDefs;
using kxtest::expectError;
using Gabor = kxFrequencyFilterGabor;

namespace {

constexpr double kPi = 3.141592653589793;
const char* const kFilterNotInit = "FrequencyFilter has not been initialized";

kxRadian degrees(double d) { return kxRadian(d * kPi / 180.0); }

// Centred index of storage index `index` on an axis of `size`.
long centred(long index, long size) { return index < size / 2 ? index + size / 2 : index - size / 2; }

}  // namespace

TEST(Gabor, Validation)
{
    const kxPair<double> s(0.01, 0.01), p(0, 0);
    const kxPair<long> n(64, 64);
    const char* freq = "Frequency must be between 0.0 and 0.5.";
    EXPECT_NO_THROW(Gabor(s, p, kxRadian(0), 0.0, n, 0));
    EXPECT_NO_THROW(Gabor(s, p, kxRadian(0), 0.5, n, 0));
    for (double f : {-0.0001, 0.5001, std::numeric_limits<double>::quiet_NaN()})
        expectError<Defs::InvalidArgument>([&] { Gabor(s, p, kxRadian(0), f, n, 0); }, freq);
    expectError<Defs::InvalidArgument>([&] { Gabor({0, 1}, p, kxRadian(0), 0.1, n, 0); }, "Sigma values must be positive.");
    expectError<Defs::InvalidArgument>([&] { Gabor(s, {0, -1}, kxRadian(0), 0.1, n, 0); }, "Plateau values cannot be negative.");
    expectError<Defs::InvalidArgument>([&] { Gabor(s, p, kxRadian(0), 0.1, n, -1); }, "DC Removal Radius cannot be negative.");
    EXPECT_NO_THROW(Gabor(s, p, kxRadian(0), 0.1, {1, 1}, 0));
    for (auto bad : {kxPair<long>(0, 8), kxPair<long>(6, 8), kxPair<long>(8, 12)})
        expectError<Defs::InvalidSize>([&] { Gabor(s, p, kxRadian(0), 0.1, bad, 0); }, "Size must be a power of 2.");
    // The first fault in the table's order wins.
    expectError<Defs::InvalidArgument>([&] { Gabor({0, 0}, {-1, -1}, kxRadian(0), 2.0, {3, 3}, -1); }, freq);
    expectError<Defs::InvalidArgument>([&] { Gabor({0, 0}, {-1, -1}, kxRadian(0), 0.1, {3, 3}, -1); },
                                       "Sigma values must be positive.");
    expectError<Defs::InvalidArgument>([&] { Gabor(s, p, kxRadian(0), 0.1, {3, 3}, -1); },
                                       "DC Removal Radius cannot be negative.");
    // Absurd widths are refused instead of allocated.
    expectError<Defs::InvalidArgument>([&] { Gabor({1e6, 1e6}, p, kxRadian(0), 0.1, n, 0); },
                                       "Sigma and plateau values are too large for the filter size.");
}

TEST(Gabor, SupportSizesHandComputed)
{
    struct Case {
        kxPair<double> sigma, plateau;
        double degrees;
        kxPair<long> size;
        long width, height;
    };
    const Case cases[] = {
        // 256 x 256, sigma 0.01: ex = 2.56, width = trunc(20.48 + 12.8) = 33.
        {{0.01, 0.01}, {0, 0}, 0, {256, 256}, 33, 33},
        // 90 degrees, sigma (0.01, 0.02): ex = 5.12 -> trunc(40.96 + 12.8) = 53;
        // ey = 2.56 -> 33.
        {{0.01, 0.02}, {0, 0}, 90, {256, 256}, 53, 33},
        // 30 degrees, sigma (0.02, 0.01): ex = 5.12 cos 30 = 4.434 -> trunc(48.27) = 48 -> 49;
        // ey = max(2.56 cos 30, 5.12 sin 30) = 2.56 -> 33.
        {{0.02, 0.01}, {0, 0}, 30, {256, 256}, 49, 33},
        // 512 x 256: sigmas scale with the width; the height is halved by the
        // aspect: ex = 5.12 -> trunc(40.96 + 25.6) = 66 -> 67; ey = 2.56 -> 33.
        {{0.01, 0.01}, {0, 0}, 0, {512, 256}, 67, 33},
        // A plateau adds twice its extent: px = 0.02 x 256 = 5.12 -> + 10.24.
        {{0.01, 0.01}, {0.02, 0}, 0, {256, 256}, 43, 33},
    };
    for (const Case& c : cases) {
        const Gabor g(c.sigma, c.plateau, c.degrees == 0 ? kxRadian(0) : degrees(c.degrees), 0.1, c.size, 0);
        EXPECT_EQ(g.supportWidth(), c.width) << c.degrees << " " << c.size.x();
        EXPECT_EQ(g.supportHeight(), c.height) << c.degrees << " " << c.size.x();
    }
}

TEST(Gabor, TableValues)
{
    // frequency 0.25 on 256: the lobe sits exactly on bin 64, so the table's
    // centre is exactly 1 and the neighbours follow the Gaussian.
    Gabor g({0.01, 0.02}, {0, 0}, kxRadian(0), 0.25, {256, 256}, 0);
    const long w = g.supportWidth(), h = g.supportHeight();
    const float* t = g.data();
    const long centre = (h / 2) * w + w / 2;
    EXPECT_EQ(t[centre], 1.0f);
    const double sx = 2.56, sy = 5.12;
    EXPECT_EQ(t[centre + 1], static_cast<float>(std::exp(-1.0 / (2 * sx * sx))));
    EXPECT_EQ(t[centre - w], static_cast<float>(std::exp(-1.0 / (2 * sy * sy))));
    EXPECT_EQ(t[centre + 2 * w + 3], static_cast<float>(std::exp(-9.0 / (2 * sx * sx) - 4.0 / (2 * sy * sy))));
    // With a plateau the gain is exactly 1 inside it.
    Gabor p({0.01, 0.01}, {0.01, 0.01}, kxRadian(0), 0.25, {256, 256}, 0);
    const long pw = p.supportWidth(), ph = p.supportHeight();
    EXPECT_EQ(p.data()[(ph / 2) * pw + pw / 2 + 2], 1.0f);   // 2 bins < 2.56
    EXPECT_LT(p.data()[(ph / 2) * pw + pw / 2 + 3], 1.0f);
    // At 90 degrees the lobe's long axis (sigma x) runs vertically.
    Gabor r({0.02, 0.01}, {0, 0}, degrees(90), 0.25, {256, 256}, 0);
    const long rw = r.supportWidth(), rh = r.supportHeight();
    const float* rt = r.data();
    const long rc = (rh / 2) * rw + rw / 2;
    EXPECT_GT(rt[rc + 2 * rw], rt[rc + 2]);
    EXPECT_NEAR(rt[rc + 2 * rw], std::exp(-4.0 / (2 * 5.12 * 5.12)), 1e-6);
}

TEST(Gabor, ApplyZeroesOutsideTheSupportAndRecordsTheBand)
{
    const long W = 64, H = 32;
    Gabor g({0.02, 0.02}, {0, 0}, degrees(30), 0.2, {W, H}, 0);
    const kxFrequencyBuffer before = kxtest::knownBuffer(W, H);
    kxFrequencyBuffer b = before;
    g.apply(b);
    const double aspect = 0.5, r = 0.2 * W;
    const long cx = static_cast<long>(std::trunc(std::cos(kPi / 6) * r)) + W / 2;
    const long cy = static_cast<long>(std::trunc(std::sin(kPi / 6) * r * aspect)) + H / 2;
    const long left = cx - g.supportWidth() / 2, right = cx + g.supportWidth() / 2;
    const long top = cy - g.supportHeight() / 2, bottom = cy + g.supportHeight() / 2;
    EXPECT_EQ(Access::masked(b), 1);
    EXPECT_EQ(Access::maskedMiny(b), top);
    EXPECT_EQ(Access::maskedMaxy(b), bottom);
    long inside = 0;
    for (long y = 0; y < H; ++y)
        for (long x = 0; x < W; ++x) {
            const long X = centred(x, W), Y = centred(y, H);
            const kxPair<double> v = b.get(x, y, false);
            if (top <= Y && Y <= bottom && left <= X && X < right) {
                const float gain = g.data()[(Y - top) * g.supportWidth() + (X - left)];
                const kxPair<double> o = before.get(x, y, false);
                ASSERT_EQ(v, kxPair<double>(static_cast<float>(o.x()) * gain, static_cast<float>(o.y()) * gain));
                ++inside;
            } else {
                ASSERT_EQ(v, kxPair<double>(0, 0)) << x << "," << y;
            }
        }
    EXPECT_GT(inside, 0);
    // The column at `right` is cleared: the table's last column is never used.
    EXPECT_EQ(b.get(right - W / 2, cy - H / 2, true), kxPair<double>(0, 0));
}

TEST(Gabor, OutOfPlaceMatchesInPlaceAndLeavesTheSource)
{
    Gabor g({0.03, 0.01}, {0.01, 0}, degrees(-40), 0.15, {32, 64}, 2);
    const kxFrequencyBuffer src = kxtest::knownBuffer(32, 64);
    kxFrequencyBuffer inPlace = src, dst(4, 4);
    g.apply(inPlace);
    g.apply(src, dst);
    EXPECT_TRUE(dst == inPlace);
    EXPECT_TRUE(src == kxtest::knownBuffer(32, 64));
    EXPECT_EQ(Access::requestedWidth(dst), 32);
}

TEST(Gabor, BandOnlySavesWork)
{
    auto image = kxtest::imageFrom<double>(64, 64, [](long x, long y) { return std::sin(0.9 * x + 0.3 * y) * 40 + x; });
    kxFrequencyBuffer spectrum;
    kfForwardFFT<double>(image, spectrum);
    Gabor g({0.02, 0.02}, {0, 0}, degrees(20), 0.15, {64, 64}, 0);
    g.apply(spectrum);
    ASSERT_EQ(Access::masked(spectrum), 1);
    kxFrequencyBuffer unbanded = spectrum;
    Access::band(unbanded, 0, 0, 0);
    kxPelBuffer<double> re1, im1, re2, im2;
    kfInverseFFT(spectrum, re1, im1);
    kfInverseFFT(unbanded, re2, im2);
    for (long y = 0; y < 64; ++y)
        for (long x = 0; x < 64; ++x) {
            ASSERT_EQ(re1(x, y), re2(x, y));
            ASSERT_EQ(im1(x, y), im2(x, y));
        }
}

TEST(Gabor, CentreTruncationRuleAtOneHundredEightyDegrees)
{
    // r = 0.1 x 256 = 25.6. At 0 degrees the lobe is at +25.6, its peak bin
    // +26. At 180 degrees it should peak at -26, but the offset -25.6 is
    // truncated to -25 before the centre is added while the table assumed the
    // lobe 0.4 bins right of bin -26: the peak lands on -25, one bin away.
    auto peakColumn = [](kxRadian angle) {
        Gabor g({0.01, 0.01}, {0, 0}, angle, 0.1, {256, 256}, 0);
        kxFrequencyBuffer b(256, 256);
        for (long x = -128; x < 128; ++x)
            b.putReal(x, 0, 1.0, true);
        g.apply(b);
        long best = 0;
        double bestValue = -1;
        for (long x = -128; x < 128; ++x)
            if (b.getReal(x, 0, true) > bestValue) {
                bestValue = b.getReal(x, 0, true);
                best = x;
            }
        return best;
    };
    EXPECT_EQ(peakColumn(kxRadian(0)), 26);
    EXPECT_EQ(peakColumn(kxRadian(kPi)), -25);
}

TEST(Gabor, DcRemoval)
{
    Gabor one({0.2, 0.2}, {0, 0}, kxRadian(0), 0.0, {16, 16}, 1);
    kxFrequencyBuffer b = kxtest::knownBuffer(16, 16);
    one.apply(b);
    EXPECT_EQ(b.get(0, 0, true), kxPair<double>(0, 0));
    EXPECT_NE(b.get(1, 0, true), kxPair<double>(0, 0));
    Gabor two({0.2, 0.2}, {0, 0}, kxRadian(0), 0.0, {16, 16}, 2);
    b = kxtest::knownBuffer(16, 16);
    two.apply(b);
    for (long y = -1; y <= 1; ++y)
        for (long x = -1; x <= 1; ++x)
            EXPECT_EQ(b.get(x, y, true), kxPair<double>(0, 0));
    EXPECT_NE(b.get(2, 0, true), kxPair<double>(0, 0));
    // Radius 0 clears nothing.
    Gabor none({0.2, 0.2}, {0, 0}, kxRadian(0), 0.0, {16, 16}, 0);
    b = kxtest::knownBuffer(16, 16);
    none.apply(b);
    EXPECT_NE(b.get(0, 0, true), kxPair<double>(0, 0));
    // A square beyond the buffer is refused before anything is filtered.
    Gabor big({0.2, 0.2}, {0, 0}, kxRadian(0), 0.0, {4, 4}, 4);
    kxFrequencyBuffer small = kxtest::knownBuffer(4, 4);
    expectError<Defs::BadCoord>([&] { big.apply(small); }, "Coordinates are out of bounds");
    EXPECT_EQ(Access::masked(small), 0);
    EXPECT_TRUE(small == kxtest::knownBuffer(4, 4));
}

TEST(Gabor, ApplyChecksInOrder)
{
    Gabor g({0.02, 0.02}, {0, 0}, kxRadian(0), 0.1, {32, 32}, 0), empty;
    kxFrequencyBuffer none, other(64, 32), ok(32, 32), dst;
    expectError<Defs::Uninitialized>([&] { empty.apply(none); }, "FrequencyBuffer has not been initialized");
    expectError<Defs::Uninitialized>([&] { empty.apply(ok); }, kFilterNotInit);
    expectError<Defs::InvalidSize>([&] { g.apply(other); }, "Size of frequency buffer does not match size of filter.");
    expectError<Defs::InvalidSize>([&] { g.apply(other, dst); }, "Size of frequency buffer does not match size of filter.");
    expectError<Defs::Uninitialized>([&] { g.apply(none, dst); }, "FrequencyBuffer has not been initialized");
    EXPECT_THROW(dst.width(), Defs::Uninitialized);
}

TEST(Gabor, SettersAndGetters)
{
    Gabor empty;
    expectError<Defs::Uninitialized>([&] { empty.sigma({0.1, 0.1}); }, kFilterNotInit);
    expectError<Defs::Uninitialized>([&] { empty.frequency(); }, kFilterNotInit);
    expectError<Defs::Uninitialized>([&] { empty.supportWidth(); }, kFilterNotInit);
    EXPECT_EQ(empty.data(), nullptr);
    empty.set({0.02, 0.02}, {0, 0}, kxRadian(0.5), 0.1, {64, 64}, 1);
    EXPECT_TRUE(empty.isInitialized());
    EXPECT_EQ(empty.angle(), kxRadian(0.5));
    EXPECT_EQ(empty.dcRemovalRadius(), 1);

    Gabor g({0.02, 0.02}, {0, 0}, kxRadian(0), 0.1, {64, 64}, 0);
    const unsigned long changes = g.changeCount();
    g.frequency(0.1);   // unchanged: nothing at all happens
    g.sigma({0.02, 0.02});
    g.frequency(std::numeric_limits<double>::quiet_NaN());   // a NaN never counts as a change
    EXPECT_EQ(g.changeCount(), changes);
    EXPECT_EQ(g.frequency(), 0.1);
    g.frequency(0.2);
    EXPECT_EQ(g.frequency(), 0.2);
    EXPECT_GT(g.changeCount(), changes);
    g.size({128, 64});
    EXPECT_EQ(g.size(), kxPair<long>(128, 64));
    EXPECT_EQ(g.supportWidth(), Gabor({0.02, 0.02}, {0, 0}, kxRadian(0), 0.2, {128, 64}, 0).supportWidth());
    expectError<Defs::InvalidArgument>([&] { g.plateau({-1, 0}); }, "Plateau values cannot be negative.");
    EXPECT_EQ(g.plateau(), kxPair<double>(0, 0));   // a failed create changes nothing
}

TEST(Gabor, TableIsReusedWhenItsElementCountIsUnchanged)
{
    Gabor g({0.02, 0.02}, {0, 0}, kxRadian(0), 0.1, {64, 64}, 0);
    const float* before = g.data();
    g.frequency(0.3);   // same support
    EXPECT_EQ(g.data(), before);
}

TEST(Gabor, CopiesAssignmentAndEquality)
{
    Gabor g({0.02, 0.03}, {0.01, 0}, kxRadian(0.3), 0.1, {64, 64}, 2);
    Gabor copy(g);
    EXPECT_TRUE(copy == g);
    EXPECT_NE(copy.data(), g.data());
    copy.frequency(0.2);
    EXPECT_FALSE(copy == g);
    std::unique_ptr<kxFrequencyFilter> clone(g.clone());
    EXPECT_TRUE(*dynamic_cast<Gabor*>(clone.get()) == g);

    Gabor empty;
    Gabor emptyCopy(empty);
    EXPECT_FALSE(emptyCopy.isInitialized());
    EXPECT_TRUE(emptyCopy == empty);
    EXPECT_FALSE(empty == g);

    // Assigning an uninitialised filter drops the table but keeps the rest,
    // the flag included.
    Gabor target = g;
    target = empty;
    EXPECT_EQ(target.data(), nullptr);
    EXPECT_TRUE(target.isInitialized());
    EXPECT_FALSE(target == empty);   // the flags differ
    expectError<Defs::Uninitialized>([&] { target.sigma(); }, kFilterNotInit);
}

TEST(Gabor, PersistenceRoundTrips)
{
    Gabor g({0.02, 0.03}, {0.01, 0}, kxRadian(0.3), 0.1, {64, 32}, 2);
    {
        kxMemoryArchive out;
        static_cast<kxPersistent&>(g).dispatchSerialize(out);
        kxMemoryArchive in(out.bytes());
        Gabor loaded;
        static_cast<kxPersistent&>(loaded).dispatchSerialize(in);
        EXPECT_TRUE(loaded == g);
        EXPECT_EQ(in.remaining(), 0u);
    }
    {
        kxMemoryArchive out;
        const kxFrequencyFilter* base = &g;
        out.storeObject(base);
        kxMemoryArchive in(out.bytes());
        auto loaded = in.loadObjectAs<kxFrequencyFilter>();
        auto* typed = dynamic_cast<Gabor*>(loaded.get());
        ASSERT_NE(typed, nullptr);
        EXPECT_TRUE(*typed == g);
        kxFrequencyBuffer a = kxtest::knownBuffer(64, 32), b = kxtest::knownBuffer(64, 32);
        g.apply(a);
        loaded->apply(b);
        EXPECT_TRUE(a == b);
    }
    {
        // A default filter: base share (Gabor version, filter version,
        // persistent version, flag false), then its fields; it loads back
        // uninitialised.
        Gabor empty;
        kxMemoryArchive out;
        static_cast<kxPersistent&>(empty).dispatchSerialize(out);
        const auto& bytes = out.bytes();
        EXPECT_EQ(std::vector<unsigned char>(bytes.begin(), bytes.begin() + 4),
                  (std::vector<unsigned char>{0, 0, 0, 0}));
        kxMemoryArchive in(bytes);
        Gabor loaded = g;
        static_cast<kxPersistent&>(loaded).dispatchSerialize(in);
        EXPECT_FALSE(loaded.isInitialized());
        EXPECT_EQ(loaded.data(), nullptr);
        EXPECT_TRUE(loaded == empty);
    }
}

TEST(Gabor, MalformedArchivesEndInClearErrors)
{
    Gabor g({0.05, 0.05}, {0, 0}, kxRadian(0), 0.1, {16, 16}, 0);
    kxMemoryArchive out;
    static_cast<kxPersistent&>(g).dispatchSerialize(out);
    const std::vector<unsigned char> full = out.bytes();
    for (std::size_t cut = 0; cut < full.size(); ++cut) {
        kxMemoryArchive in(std::vector<unsigned char>(full.begin(), full.begin() + cut));
        Gabor target({0.1, 0.1}, {0, 0}, kxRadian(0), 0.2, {8, 8}, 0);
        EXPECT_THROW(static_cast<kxPersistent&>(target).dispatchSerialize(in), kxArchive::Error) << cut;
        kxFrequencyBuffer b = kxtest::knownBuffer(8, 8);
        EXPECT_NO_THROW(target.apply(b));   // still whole
    }
    std::vector<unsigned char> bad = full;
    bad[0] = 1;
    kxMemoryArchive in(bad);
    Gabor target;
    try {
        static_cast<kxPersistent&>(target).dispatchSerialize(in);
        FAIL();
    } catch (const kxArchive::UnknownVersion& e) {
        EXPECT_EQ(e.source(), "filt/freqfilt");
    }
    // Support sizes that disagree with the stored gains: width at byte 4.
    for (unsigned char width : {0, 2, 99}) {
        std::vector<unsigned char> sized = full;
        sized[4] = width;
        kxMemoryArchive in2(sized);
        Gabor t2;
        EXPECT_THROW(static_cast<kxPersistent&>(t2).dispatchSerialize(in2), kxArchive::Error) << int(width);
    }
}

// A realistic use: oriented stripes plus noise. The filter tuned to the
// stripes keeps one of their two spectral lobes (so its real part is half the
// stripes) and removes most of the noise.
TEST(Gabor, ExtractsOrientedStripesFromNoise)
{
    const long n = 128;
    const double f = 0.125, theta = 0.0;   // 16 bins: the stripes are periodic in the image
    std::uint32_t state = 7;
    auto noise = [&state] {
        state = state * 1664525u + 1013904223u;
        return (static_cast<double>(state >> 8) / 16777216.0 - 0.5) * 100.0;   // uniform +-50
    };
    kxPelBuffer<double> stripes(n, n), image(n, n);
    for (long y = 0; y < n; ++y)
        for (long x = 0; x < n; ++x) {
            stripes(x, y) = 50.0 * std::cos(2 * kPi * f * (x * std::cos(theta) + y * std::sin(theta)));
            image(x, y) = 100.0 + stripes(x, y) + noise();
        }
    kxFrequencyBuffer spectrum;
    kfForwardFFT<double>(image, spectrum);
    Gabor g({0.01, 0.01}, {0, 0}, kxRadian(theta), f, {n, n}, 0);
    g.apply(spectrum);
    kxPelBuffer<double> re, im;
    kfInverseFFT(spectrum, re, im);
    double err = 0, signal = 0, noiseBefore = 0;
    for (long y = 0; y < n; ++y)
        for (long x = 0; x < n; ++x) {
            const double half = 0.5 * stripes(x, y);
            err += (re(x, y) - half) * (re(x, y) - half);
            signal += half * half;
            noiseBefore += (image(x, y) - 100.0 - stripes(x, y)) * (image(x, y) - 100.0 - stripes(x, y));
        }
    std::cout << "stripes kept: residual " << std::sqrt(err / signal) << " of the stripe amplitude\n";
    EXPECT_LT(err / signal, 0.05);          // the stripes come through
    EXPECT_LT(err, 0.02 * noiseBefore);     // at most 2% of the noise energy remains
}
