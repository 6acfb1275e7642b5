// Periodic components and their removal: known sinusoids and a square-wave
// grating found to within 0.002 cycle per pixel with the harmonics grouped,
// interference removed from a natural-looking image, and bad input.
#include "synthetic.h"
#include "test_helpers.h"

#include <kx/analysis.h>

#include <gtest/gtest.h>

#include <cmath>
#include <complex>

namespace {

using kxsynth::Field;
using kxsynth::kPi;

struct Wave {
    double fx, fy, amplitude, phase;
};

double sine(const Wave& s, long x, long y)
{
    return s.amplitude * std::sin(2.0 * kPi * (s.fx * x + s.fy * y) + s.phase);
}

double squareWave(const Wave& s, long x, long y)
{
    return sine(s, x, y) >= 0.0 ? s.amplitude : -s.amplitude;
}

// A quiet natural background with two sinusoids and a square-wave grating,
// each given with fy > 0 as the finder reports them.
const Wave kSine1{0.0731, 0.1137, 20.0, 0.3};
const Wave kSine2{-0.1523, 0.0412, 15.0, 1.1};
const Wave kSquare{-0.0372, 0.0281, 25.0, 0.0};

Field gratingImage(long w, long h)
{
    Field f = kxsynth::degrade(kxsynth::naturalImage(w, h, 606u), 0.25, 96.0, 5.0, 607u);
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x)
            f.at(x, y) += sine(kSine1, x, y) + sine(kSine2, x, y) + squareWave(kSquare, x, y);
    return f;
}

const kxPeriodicComponent* near(const std::vector<kxPeriodicComponent>& found, const Wave& s, double tolerance)
{
    for (const auto& c : found)
        if (std::fabs(c.fx - s.fx) <= tolerance && std::fabs(c.fy - s.fy) <= tolerance)
            return &c;
    return nullptr;
}

TEST(PeriodicComponents, TwoSinusoidsAndASquareWaveWithItsHarmonics)
{
    const long w = 240, h = 200;
    const auto found = kfFindPeriodicComponents<double>(kxsynth::toDoubles(gratingImage(w, h)));
    ASSERT_EQ(found.size(), 3u);
    for (const Wave& s : {kSine1, kSine2, kSquare}) {
        const kxPeriodicComponent* c = near(found, s, 0.002);
        ASSERT_NE(c, nullptr) << s.fx << ", " << s.fy;
        EXPECT_NEAR(c->frequency, std::hypot(s.fx, s.fy), 0.002);
        EXPECT_NEAR(c->period, 1.0 / std::hypot(s.fx, s.fy), 0.002 / std::pow(std::hypot(s.fx, s.fy), 2));
        EXPECT_NEAR(c->angle, std::atan2(s.fy, s.fx), 0.05);
        EXPECT_GT(c->strength, 12.0);
        EXPECT_GT(c->sigma.x(), 0.0);
        EXPECT_GT(c->sigma.y(), 0.0);
    }
    // The sinusoids have no harmonics; the square wave has its odd ones,
    // each at n times the fundamental.
    EXPECT_TRUE(near(found, kSine1, 0.002)->harmonics.empty());
    EXPECT_TRUE(near(found, kSine2, 0.002)->harmonics.empty());
    const kxPeriodicComponent* square = near(found, kSquare, 0.002);
    ASSERT_GE(square->harmonics.size(), 3u);
    const long orders[] = {3, 5, 7};
    for (std::size_t i = 0; i < 3; ++i) {
        const kxPeriodicHarmonic& hm = square->harmonics[i];
        EXPECT_EQ(hm.order, orders[i]);
        // Reported in the searched half, so possibly as the conjugate.
        const double sign = (hm.fx * kSquare.fx + hm.fy * kSquare.fy) >= 0.0 ? 1.0 : -1.0;
        EXPECT_NEAR(hm.fx, sign * orders[i] * kSquare.fx, 0.002 * orders[i]);
        EXPECT_NEAR(hm.fy, sign * orders[i] * kSquare.fy, 0.002 * orders[i]);
        EXPECT_GE(hm.strength, 4.0);
    }
    for (const auto& hm : square->harmonics)
        EXPECT_NE(hm.order % 2, 0) << "a square wave has no even harmonics";
    // Strongest first.
    for (std::size_t i = 1; i < found.size(); ++i)
        EXPECT_GE(found[i - 1].strength, found[i].strength);
}

TEST(PeriodicComponents, NaturalImageAloneHasNone)
{
    const auto found = kfFindPeriodicComponents<unsigned char>(
        kxsynth::toPixels(kxsynth::degrade(kxsynth::naturalImage(300, 250, 11u), 1.0, 0.0, 3.0, 12u)));
    EXPECT_TRUE(found.empty()) << found.size() << " components, first at " << found[0].fx << ", " << found[0].fy;
}

TEST(PeriodicComponents, MaxComponentsKeepsTheStrongest)
{
    kxPeriodicSearchOptions options;
    options.maxComponents = 1;
    const auto found = kfFindPeriodicComponents<double>(kxsynth::toDoubles(gratingImage(240, 200)), options);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_NE(near(found, kSine1, 0.002), nullptr);   // the one standing out most over its ring's floor
}

// The spectrum form agrees with the image form on the same windowed image.
TEST(PeriodicComponents, SpectrumFormMatchesImageForm)
{
    const auto image = kxsynth::toDoubles(gratingImage(240, 200));
    kxFrequencyBuffer spectrum;
    kfForwardFFT<double>(kfApplyWindow<double>(image, kxWindow::hann(), true), spectrum);
    const auto a = kfFindPeriodicComponents(spectrum);
    const auto b = kfFindPeriodicComponents<double>(image);
    ASSERT_EQ(a.size(), b.size());
    for (std::size_t i = 0; i < a.size(); ++i) {
        EXPECT_EQ(a[i].fx, b[i].fx);
        EXPECT_EQ(a[i].fy, b[i].fy);
        EXPECT_EQ(a[i].harmonics.size(), b[i].harmonics.size());
    }
}

// ---------------------------------------------------------------------------
// Texture removal

const Wave kInterference[] = {{0.0934, 0.1517, 30.0, 0.4}, {-0.1871, 0.0617, 30.0, 2.0}};

double psnr(const Field& a, const kxPelBuffer_const<double>& b)
{
    double se = 0.0;
    for (long y = 0; y < a.h; ++y)
        for (long x = 0; x < a.w; ++x)
            se += (a.at(x, y) - b(x, y)) * (a.at(x, y) - b(x, y));
    return 10.0 * std::log10(255.0 * 255.0 / (se / static_cast<double>(a.w * a.h)));
}

// Amplitude of the wave at (fx, fy) in the difference of two images,
// measured under a Hann window (so that the rest of the difference leaks
// little into it).
double amplitudeAt(const Field& clean, const kxPelBuffer_const<double>& other, double fx, double fy)
{
    const auto wx = kfWindowWeights(clean.w, kxWindow::hann()), wy = kfWindowWeights(clean.h, kxWindow::hann());
    std::complex<double> sum = 0.0;
    double weights = 0.0;
    for (long y = 0; y < clean.h; ++y)
        for (long x = 0; x < clean.w; ++x) {
            const double wgt = wx[x] * wy[y];
            sum += wgt * (other(x, y) - clean.at(x, y)) * std::polar(1.0, -2.0 * kPi * (fx * x + fy * y));
            weights += wgt;
        }
    return 2.0 * std::abs(sum) / weights;
}

TEST(TextureRemoval, InterferenceOnANaturalImage)
{
    const long w = 240, h = 200;
    const Field clean = kxsynth::degrade(kxsynth::naturalImage(w, h, 2024u), 0.7, 40.0, 0.0, 1u);
    kxPelBuffer<double> noisy(w, h);
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x)
            noisy(x, y) = clean.at(x, y) + sine(kInterference[0], x, y) + sine(kInterference[1], x, y);

    std::vector<kxPeriodicComponent> found;
    const kxPelBuffer<double> cleaned = kfRemovePeriodicTexture<double>(noisy, kxTextureRemovalOptions(), &found);
    ASSERT_EQ(found.size(), 2u);
    const double before = psnr(clean, noisy), after = psnr(clean, cleaned);
    EXPECT_GE(after - before, 15.0);
    for (const Wave& s : kInterference) {
        const double was = amplitudeAt(clean, noisy, s.fx, s.fy), is = amplitudeAt(clean, cleaned, s.fx, s.fy);
        EXPECT_NEAR(was, 30.0, 1.0);
        EXPECT_LT(is, 0.3);
    }
}

// The same on 8-bit pixels (rounded and clamped): the gain is smaller, the
// rounding now being part of the error, but still well above 15 dB.
TEST(TextureRemoval, EightBitImage)
{
    const long w = 300, h = 250;
    const Field clean = kxsynth::degrade(kxsynth::naturalImage(w, h, 77u), 0.6, 50.0, 0.0, 1u);
    Field noisy = clean;
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x)
            noisy.at(x, y) += sine(kInterference[0], x, y) + sine(kInterference[1], x, y);
    const kxPelBuffer<unsigned char> in = kxsynth::toPixels(noisy);
    const kxPelBuffer<unsigned char> out = kfRemovePeriodicTexture<unsigned char>(in);
    kxPelBuffer<double> inD(w, h), outD(w, h);
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x) {
            inD(x, y) = in(x, y);
            outD(x, y) = out(x, y);
        }
    EXPECT_GE(psnr(clean, outD) - psnr(clean, inD), 15.0);
}

// A square-wave grating goes with its harmonics: both lobes of each are
// notched, so none of them is left in the result.
TEST(TextureRemoval, SquareWaveAndItsHarmonics)
{
    const long w = 240, h = 200;
    const Field withGratings = gratingImage(w, h);
    Field clean = withGratings;
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x)
            clean.at(x, y) -= sine(kSine1, x, y) + sine(kSine2, x, y) + squareWave(kSquare, x, y);
    const kxPelBuffer<double> cleaned = kfRemovePeriodicTexture<double>(kxsynth::toDoubles(withGratings));
    EXPECT_GE(psnr(clean, cleaned) - psnr(clean, kxsynth::toDoubles(withGratings)), 15.0);
    for (long n : {1, 3, 5, 7, 9}) {
        const double before = amplitudeAt(clean, kxsynth::toDoubles(withGratings), n * kSquare.fx, n * kSquare.fy);
        const double after = amplitudeAt(clean, cleaned, n * kSquare.fx, n * kSquare.fy);
        EXPECT_NEAR(before, 4.0 * kSquare.amplitude / (kPi * n), 0.1 * before) << "order " << n;
        EXPECT_LT(after, 0.05 * before) << "order " << n;
    }
}

// An image without periodic components comes back as it was, and keeps its
// offset.
TEST(TextureRemoval, NothingToRemove)
{
    kxPelBuffer<unsigned short> in =
        kxtest::imageFrom<unsigned short>(64, 48, [](long x, long y) { return static_cast<unsigned short>(1000 + x * y); });
    in.offset(kxPair<long>(5, -3));
    std::vector<kxPeriodicComponent> found(3);
    const kxPelBuffer<unsigned short> out = kfRemovePeriodicTexture<unsigned short>(in, kxTextureRemovalOptions(), &found);
    EXPECT_TRUE(found.empty());
    ASSERT_EQ(out.width(), 64);
    EXPECT_EQ(out.offset(), kxPair<long>(5, -3));
    for (long y = 0; y < 48; ++y)
        for (long x = 0; x < 64; ++x)
            ASSERT_EQ(out(x, y), in(x, y)) << x << ", " << y;
}

// The reject filter: gain 0 at the centre of each lobe and its conjugate,
// 1 at the zero frequency and far from every lobe; the notch a Gaussian of
// the given width.
TEST(RejectFilter, GainsOfTheNotches)
{
    kxPeriodicComponent c;
    c.fx = 0.125;
    c.fy = 0.25;
    c.sigma = kxPair<double>(0.01, 0.02);
    kxPeriodicHarmonic second;
    second.order = 2;
    second.fx = 0.25;
    second.fy = 0.5 - 1.0;   // folded
    c.harmonics.push_back(second);
    const kxFrequencyFilterImage filter = kfPeriodicRejectFilter({c}, kxPair<long>(128, 64), 1.0, 0.001);
    kxFrequencyBuffer ones(128, 64);
    for (long y = 0; y < 64; ++y)
        for (long x = 0; x < 128; ++x)
            ones.put(x, y, kxPair<double>(1.0, 0.0), false);
    filter.apply(ones);
    auto gain = [&](long u, long v) { return ones.getReal(u, v, true); };
    EXPECT_EQ(gain(0, 0), 1.0);
    EXPECT_NEAR(gain(16, 16), 0.0, 1e-7);     // (0.125, 0.25) on a 128 x 64 grid
    EXPECT_NEAR(gain(-16, -16), 0.0, 1e-7);   // its conjugate
    EXPECT_NEAR(gain(32, -32), 0.0, 1e-7);    // the harmonic, at the Nyquist row
    EXPECT_NEAR(gain(-32, -32), 0.0, 1e-7);
    // One bin off along x: sigma 0.01 x 128 = 1.28 bins.
    EXPECT_NEAR(gain(17, 16), 1.0 - std::exp(-0.5 / (1.28 * 1.28)), 1e-6);
    // One bin off along y: sigma 0.02 x 64 = 1.28 bins as well.
    EXPECT_NEAR(gain(16, 17), 1.0 - std::exp(-0.5 / (1.28 * 1.28)), 1e-6);
    EXPECT_NEAR(gain(-40, 10), 1.0, 1e-7);
    EXPECT_EQ(ones.getImaginary(16, 17, true), 0.0);
}

TEST(PeriodicComponents, BadInput)
{
    using kxtest::expectError;
    using Arg = kxFrequencyDefs::InvalidArgument;
    const kxPelBuffer<unsigned char> image(32, 32), small(7, 32), unbound, wide(4000, 8);
    expectError<kxFrequencyDefs::UnboundWindow>([&] { kfFindPeriodicComponents<unsigned char>(unbound); },
                                                "Image is not bound.");
    expectError<kxFrequencyDefs::InvalidSize>([&] { kfFindPeriodicComponents<unsigned char>(small); },
                                              "Image or spectrum must be at least 8 x 8 for a peak search.");
    expectError<kxFrequencyDefs::InvalidSize>([&] { kfFindPeriodicComponents<unsigned char>(wide); },
                                              "Width and Height must be no larger than 2048.");
    expectError<kxFrequencyDefs::InvalidSize>(
        [&] { kfFindPeriodicComponents<double>(kxPelBuffer<double>(0, 0)); }, "Image must not be empty.");

    kxFrequencyBuffer none, tiny(4, 16), spectrum(32, 32);
    expectError<kxFrequencyDefs::Uninitialized>([&] { kfFindPeriodicComponents(none); },
                                                "FrequencyBuffer has not been initialized");
    expectError<kxFrequencyDefs::InvalidSize>([&] { kfFindPeriodicComponents(tiny); },
                                              "Image or spectrum must be at least 8 x 8 for a peak search.");
    kxFrequencyBuffer spent(32, 32);
    kxPelBuffer<double> re, im;
    kfInverseFFT(spent, re, im, true);
    expectError<kxFrequencyDefs::InvalidBuffer>([&] { kfFindPeriodicComponents(spent); },
                                                "Cannot access frequency data once inverse has been computed.");

    auto withOptions = [&](auto change) {
        kxPeriodicSearchOptions o;
        change(o);
        return [&spectrum, o] { kfFindPeriodicComponents(spectrum, o); };
    };
    expectError<Arg>(withOptions([](auto& o) { o.maxComponents = 0; }), "Maximum number of components must be at least 1.");
    expectError<Arg>(withOptions([](auto& o) { o.threshold = std::nan(""); }), "Thresholds must be finite and greater than 1.");
    expectError<Arg>(withOptions([](auto& o) { o.harmonicThreshold = 1.0; }), "Thresholds must be finite and greater than 1.");
    expectError<Arg>(withOptions([](auto& o) { o.threshold = HUGE_VAL; }), "Thresholds must be finite and greater than 1.");
    expectError<Arg>(withOptions([](auto& o) { o.maxHarmonic = 0; }), "Maximum harmonic order must be between 1 and 256.");
    expectError<Arg>(withOptions([](auto& o) { o.maxHarmonic = 257; }), "Maximum harmonic order must be between 1 and 256.");
    expectError<Arg>(withOptions([](auto& o) { o.minFrequency = std::nan(""); }), "Minimum frequency must be between 0.0 and 0.5.");
    expectError<Arg>(withOptions([](auto& o) { o.minFrequency = 0.6; }), "Minimum frequency must be between 0.0 and 0.5.");
    kxPeriodicSearchOptions nanOptions;
    nanOptions.threshold = std::nan("");
    expectError<Arg>([&] { kfFindPeriodicComponents<unsigned char>(image, nanOptions); },
                     "Thresholds must be finite and greater than 1.");
}

TEST(TextureRemoval, BadInput)
{
    using kxtest::expectError;
    using Arg = kxFrequencyDefs::InvalidArgument;
    const kxPelBuffer<unsigned char> image(32, 32), small(32, 7), unbound;
    expectError<kxFrequencyDefs::UnboundWindow>([&] { kfRemovePeriodicTexture<unsigned char>(unbound); },
                                                "Image is not bound.");
    expectError<kxFrequencyDefs::InvalidSize>([&] { kfRemovePeriodicTexture<unsigned char>(small); },
                                              "Image or spectrum must be at least 8 x 8 for a peak search.");
    expectError<kxFrequencyDefs::InvalidSize>([&] { kfRemovePeriodicTexture<unsigned char>(kxPelBuffer<unsigned char>(2049, 9)); },
                                              "Width and Height must be no larger than 2048.");
    kxTextureRemovalOptions o;
    o.minSigma = std::nan("");
    expectError<Arg>([&] { kfRemovePeriodicTexture<unsigned char>(image, o); },
                     "Width scale must be between 1 and 10, minimum sigma above 0 and at most 0.1.");
    o = kxTextureRemovalOptions();
    o.widthScale = 0.5;
    expectError<Arg>([&] { kfRemovePeriodicTexture<unsigned char>(image, o); },
                     "Width scale must be between 1 and 10, minimum sigma above 0 and at most 0.1.");
    o = kxTextureRemovalOptions();
    o.search.maxComponents = -1;
    expectError<Arg>([&] { kfRemovePeriodicTexture<unsigned char>(image, o); },
                     "Maximum number of components must be at least 1.");

    kxPeriodicComponent c;
    c.fx = 0.1;
    c.fy = 0.1;
    c.sigma = kxPair<double>(0.01, 0.01);
    expectError<Arg>([&] { kfPeriodicRejectFilter({c}, kxPair<long>(96, 64)); }, "Size must be a power of 2 no larger than 2048.");
    expectError<Arg>([&] { kfPeriodicRejectFilter({c}, kxPair<long>(4096, 64)); }, "Size must be a power of 2 no larger than 2048.");
    expectError<Arg>([&] { kfPeriodicRejectFilter({c}, kxPair<long>(0, 64)); }, "Size must be a power of 2 no larger than 2048.");
    expectError<Arg>([&] { kfPeriodicRejectFilter({c}, kxPair<long>(64, 64), std::nan("")); },
                     "Width scale must be between 1 and 10, minimum sigma above 0 and at most 0.1.");
    expectError<Arg>([&] { kfPeriodicRejectFilter({c}, kxPair<long>(64, 64), 10.5); },
                     "Width scale must be between 1 and 10, minimum sigma above 0 and at most 0.1.");
    expectError<Arg>([&] { kfPeriodicRejectFilter({c}, kxPair<long>(64, 64), 1.5, 0.2); },
                     "Width scale must be between 1 and 10, minimum sigma above 0 and at most 0.1.");
    expectError<Arg>([&] { kfPeriodicRejectFilter({c}, kxPair<long>(64, 64), 1.5, 0.0); },
                     "Width scale must be between 1 and 10, minimum sigma above 0 and at most 0.1.");
    c.fx = std::nan("");
    expectError<Arg>([&] { kfPeriodicRejectFilter({c}, kxPair<long>(64, 64)); },
                     "Component frequencies and widths must be finite.");
}

}  // namespace
