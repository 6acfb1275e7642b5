// Spectrum, periodic components and texture removal on images larger than
// one transform.
#include <kx/tiling.h>

#include "test_helpers.h"
#include "tiling_reference.h"

#include <cmath>
#include <cstdio>

using namespace kxtest;

namespace {

// The scene with an interference pattern of `amplitude` grey levels.
kxPelBuffer<unsigned char> sceneWithPattern(long w, long h, double frequency, double angle, double amplitude)
{
    return imageFrom<unsigned char>(w, h, [&](long x, long y) {
        return static_cast<unsigned char>(
            std::lround(std::min(255.0, std::max(0.0, sceneValue(x, y, frequency, angle, amplitude)))));
    });
}

// The amplitude of the wave at (fx, fy) in the interior of an image (a
// border of `border` pixels left out), by projection on cos and sin.
template <typename Pixel>
double waveAmplitude(long w, long h, long border, double fx, double fy, const Pixel& pixel)
{
    double c = 0.0, s = 0.0, n = 0.0;
    for (long y = border; y < h - border; y += 3)
        for (long x = border; x < w - border; x += 3) {
            const double phase = 2.0 * kPi * (fx * x + fy * y);
            c += pixel(x, y) * std::cos(phase);
            s += pixel(x, y) * std::sin(phase);
            n += 1.0;
        }
    return 2.0 * std::hypot(c, s) / n;
}

bool sameSpectrum(const kxFrequencyBuffer& a, const kxFrequencyBuffer& b)
{
    if (a.width() != b.width() || a.height() != b.height())
        return false;
    const kxPelBuffer<double> ra = a.getRealImage(false), rb = b.getRealImage(false);
    for (long y = 0; y < a.height(); ++y)
        for (long x = 0; x < a.width(); ++x)
            if (ra(x, y) != rb(x, y))
                return false;
    return true;
}

const double kAngle = 3.141592653589793 / 6.0;   // 30 degrees

}  // namespace

TEST(WelchSpectrum, FindsAnInterferenceOnALargeImage)
{
    const double frequency = 0.1237;
    const kxPelBuffer<unsigned char> image = sceneWithPattern(3100, 2300, frequency, kAngle, 3.0);
    const std::vector<kxPeriodicComponent> found = kfFindPeriodicComponentsTiled(kfImageView(image));
    ASSERT_FALSE(found.empty());
    EXPECT_NEAR(found[0].fx, frequency * std::cos(kAngle), 0.002);
    EXPECT_NEAR(found[0].fy, frequency * std::sin(kAngle), 0.002);
    EXPECT_NEAR(found[0].frequency, frequency, 0.002);
    std::printf("interference %.5f found at %.5f cycles per pixel\n", frequency, found[0].frequency);
}

TEST(WelchSpectrum, SameForAnyJobsAndOnTheScaleOfOneTile)
{
    const kxPelBuffer<unsigned char> image = sceneWithPattern(1300, 900, 0.2, kAngle, 5.0);
    kxWelchOptions options;
    options.segment = 256;
    options.overlap = 0.25;
    const kxFrequencyBuffer one = kfWelchSpectrum(kfImageView(image), options);
    EXPECT_EQ(one.width(), 256);
    EXPECT_EQ(one.height(), 256);
    for (unsigned jobs : {2u, 3u}) {
        options.jobs = jobs;
        EXPECT_TRUE(sameSpectrum(one, kfWelchSpectrum(kfImageView(image), options)));
    }
    // The averaged amplitude of the pattern's bin is that of one tile's
    // windowed transform: amplitude / 2 x the window's sum.
    const std::vector<double> weights = kfWindowWeights(256, kxWindow::hann());
    double windowSum = 0.0;
    for (double v : weights)
        windowSum += v;
    // The pattern: 0.2 cycle per pixel at 30 degrees, bin (44.3, 25.6).
    double peak = 0.0;
    const kxPelBuffer<double> amplitude = one.getRealImage(false);
    for (long y = 24; y <= 27; ++y)
        for (long x = 43; x <= 46; ++x)
            peak = std::max(peak, amplitude(x, y));
    // The pattern falls between bins: the Hann window's scalloping loses
    // up to 1 - 0.637^2 of the peak in two dimensions.
    EXPECT_LT(peak, 5.0 / 2.0 * windowSum * windowSum * 1.01);
    EXPECT_GT(peak, 5.0 / 2.0 * windowSum * windowSum * 0.4);
}

TEST(WelchSpectrum, SmallImageGivesOneTileOfItsPaddedSize)
{
    const kxPelBuffer<unsigned char> image = sceneWithPattern(300, 100, 0.2, kAngle, 5.0);
    const kxFrequencyBuffer s = kfWelchSpectrum(kfImageView(image));
    EXPECT_EQ(s.width(), 512);
    EXPECT_EQ(s.height(), 128);
}

TEST(WelchSpectrum, RefusesBadOptions)
{
    const kxPelBuffer<unsigned char> image = sceneWithPattern(300, 200, 0.2, kAngle, 5.0);
    kxWelchOptions options;
    options.segment = 100;
    expectError<kxFrequencyDefs::InvalidArgument>([&] { kfWelchSpectrum(kfImageView(image), options); },
                                                  "Segment must be a power of two from 64 to 2048, not 100.");
    options.segment = 256;
    options.overlap = 0.8;
    expectError<kxFrequencyDefs::InvalidArgument>([&] { kfWelchSpectrum(kfImageView(image), options); },
                                                  "Overlap must be from 0 to 0.75.");
    options.overlap = std::nan("");
    expectError<kxFrequencyDefs::InvalidArgument>([&] { kfWelchSpectrum(kfImageView(image), options); },
                                                  "Overlap must be from 0 to 0.75.");
    const kxPelBuffer<unsigned char> tiny(7, 100);
    expectError<kxFrequencyDefs::InvalidSize>([&] { kfWelchSpectrum(kfImageView(tiny)); },
                                              "The image must be at least 8 x 8.");
}

TEST(TextureRemoval, RemovesAPatternFromALargeImage)
{
    const long w = 2600, h = 2200;
    const double frequency = 0.125;
    const kxPelBuffer<unsigned char> image = sceneWithPattern(w, h, frequency, kAngle, 12.0);
    kxPelBuffer<unsigned char> result(w, h);
    kxTextureRemovalOptions removal;
    removal.search.maxComponents = 2;
    const std::vector<kxPeriodicComponent> removed =
        kfRemovePeriodicTextureTiled(kfImageView(image), kfImageView(result), removal);
    ASSERT_FALSE(removed.empty());
    EXPECT_NEAR(removed[0].frequency, frequency, 0.002);
    const double fx = frequency * std::cos(kAngle), fy = frequency * std::sin(kAngle);
    auto before = [&](long x, long y) { return static_cast<double>(image(x, y)); };
    auto after = [&](long x, long y) { return static_cast<double>(result(x, y)); };
    const double a0 = waveAmplitude(w, h, 0, fx, fy, before), a1 = waveAmplitude(w, h, 0, fx, fy, after);
    EXPECT_NEAR(a0, 12.0, 0.5);
    EXPECT_LT(a1, 0.05 * a0);
    // The rest of the scene stays: against the scene without the pattern.
    double squares = 0.0;
    for (long y = 0; y < h; y += 7)
        for (long x = 0; x < w; x += 7) {
            const double clean = std::lround(std::min(255.0, std::max(0.0, sceneValue(x, y, 0.0, 0.0, 0.0))));
            squares += (result(x, y) - clean) * (result(x, y) - clean);
        }
    const double rms = std::sqrt(squares / ((h / 7 + 1) * (w / 7 + 1)));
    EXPECT_LT(rms, 2.5);
}

namespace {

// A random scene that can be drawn at any sub-pixel shift: Gaussian blobs
// of 2 to 16 pixels at random places, each drawn where it exceeds 1e-4.
class SmoothScene {
public:
    SmoothScene()
    {
        std::uint64_t state = 12345;
        auto next = [&] {
            state = state * 6364136223846793005ull + 1442695040888963407ull;
            return static_cast<double>(state >> 11) / 9007199254740992.0;
        };
        for (int i = 0; i < 9000; ++i)
            blobs_.push_back({-1500.0 + 7500.0 * next(), -1500.0 + 5600.0 * next(), 2.0 + 14.0 * next(),
                              80.0 * (next() - 0.5)});
    }
    // The scene moved by (dx, dy): pixel (x, y) shows the scene at (x - dx, y - dy).
    kxPelBuffer<double> image(long w, long h, double dx, double dy) const
    {
        kxPelBuffer<double> out(w, h);
        kfPelSet<double>(out, 100.0);
        for (const Blob& b : blobs_) {
            const double cx = b.x + dx, cy = b.y + dy, reach = 4.3 * b.sigma;
            const long x0 = std::max(0L, static_cast<long>(std::floor(cx - reach)));
            const long x1 = std::min(w - 1, static_cast<long>(std::ceil(cx + reach)));
            const long y0 = std::max(0L, static_cast<long>(std::floor(cy - reach)));
            const long y1 = std::min(h - 1, static_cast<long>(std::ceil(cy + reach)));
            const double k = -1.0 / (2.0 * b.sigma * b.sigma);
            for (long y = y0; y <= y1; ++y)
                for (long x = x0; x <= x1; ++x) {
                    const double ddx = x - cx, ddy = y - cy;
                    out(x, y) += b.amplitude * std::exp((ddx * ddx + ddy * ddy) * k);
                }
        }
        return out;
    }

private:
    struct Blob {
        double x, y, sigma, amplitude;
    };
    std::vector<Blob> blobs_;
};

}  // namespace

TEST(LargeRegistration, CoarseThenSubPixelBeyond2048)
{
    const long w = 4500, h = 2600;
    const SmoothScene scene;
    const kxPelBuffer<double> reference = scene.image(w, h, 0.0, 0.0);
    for (auto shift : {std::pair<double, double>(310.37, -145.62), std::pair<double, double>(-1201.5, 402.25)}) {
        const kxPelBuffer<double> moving = scene.image(w, h, shift.first, shift.second);
        const kxPhaseCorrelation found = kfPhaseCorrelateLarge(kfImageView(reference), kfImageView(moving));
        EXPECT_NEAR(found.dx, shift.first, 0.05);
        EXPECT_NEAR(found.dy, shift.second, 0.05);
        // Two windowed views of one scene: well above the few hundredths of
        // unrelated images.
        EXPECT_GT(found.confidence, 0.1);
        std::printf("shift %.2f, %.2f found %.4f, %.4f (confidence %.3f)\n", shift.first, shift.second, found.dx,
                    found.dy, found.confidence);
    }
}

TEST(LargeRegistration, SmallImagesAreCorrelatedWholeAndBadInputRefused)
{
    const SmoothScene scene;
    const kxPelBuffer<double> reference = scene.image(600, 400, 0.0, 0.0), moving = scene.image(600, 400, 12.0, -7.0);
    const kxPhaseCorrelation large = kfPhaseCorrelateLarge(kfImageView(reference), kfImageView(moving));
    const kxPhaseCorrelation whole = kfPhaseCorrelate<double>(reference, moving);
    EXPECT_EQ(large.dx, whole.dx);
    EXPECT_EQ(large.dy, whole.dy);
    const kxPelBuffer<double> other(600, 399);
    expectError<kxFrequencyDefs::InvalidSize>(
        [&] { kfPhaseCorrelateLarge(kfImageView(reference), kfImageView(other)); },
        "The images must have the same size, at least 1 x 1.");
    kxLargeRegistrationOptions options;
    options.window = 1000;
    const kxPelBuffer<double> big(3000, 100);
    expectError<kxFrequencyDefs::InvalidArgument>(
        [&] { kfPhaseCorrelateLarge(kfImageView(big), kfImageView(big), options); },
        "Window must be a power of two from 64 to 2048, not 1000.");
}
