// Windows against their closed forms, the windowed image with and without
// its mean, and bad input.
#include "test_helpers.h"

#include <kx/analysis.h>

#include <gtest/gtest.h>

#include <cmath>
#include <numeric>

namespace {

constexpr double kPi = 3.14159265358979323846;

// The formulas written out independently of the library's loop: symmetric
// Hann, and Tukey as a flat top with half-cosine tapers of alpha (N - 1) / 2.
double hann(long n, long N) { return N == 1 ? 1.0 : 0.5 * (1.0 - std::cos(2.0 * kPi * n / (N - 1))); }

double tukey(long n, long N, double alpha)
{
    if (N == 1 || alpha == 0.0)
        return 1.0;
    const double edge = alpha * (N - 1) / 2.0;
    const double m = n <= (N - 1) / 2.0 ? n : (N - 1) - n;
    return m >= edge ? 1.0 : 0.5 * (1.0 + std::cos(kPi * (m / edge - 1.0)));
}

TEST(Window, HannMatchesItsFormula)
{
    for (long N : {1L, 2L, 3L, 8L, 97L, 200L, 2048L}) {
        const std::vector<double> w = kfWindowWeights(N, kxWindow::hann());
        ASSERT_EQ(static_cast<long>(w.size()), N);
        for (long n = 0; n < N; ++n)
            EXPECT_NEAR(w[n], hann(n, N), 1e-15) << N << " " << n;
        if (N > 1) {
            EXPECT_EQ(w[0], 0.0);
            EXPECT_NEAR(w[N - 1], 0.0, 1e-15);
        }
    }
    // Odd lengths have their peak of exactly 1 in the middle.
    EXPECT_EQ(kfWindowWeights(9, kxWindow::hann())[4], 1.0);
}

TEST(Window, TukeyMatchesItsFormula)
{
    for (double alpha : {0.0, 0.1, 0.25, 0.5, 0.9, 1.0})
        for (long N : {1L, 2L, 5L, 64L, 333L}) {
            const std::vector<double> w = kfWindowWeights(N, kxWindow::tukey(alpha));
            for (long n = 0; n < N; ++n) {
                EXPECT_NEAR(w[n], tukey(n, N, alpha), 1e-14) << alpha << " " << N << " " << n;
                EXPECT_EQ(w[n], w[N - 1 - n]) << "symmetric";
            }
        }
    // Taper 1 is the Hann window, taper 0 no window at all.
    const auto full = kfWindowWeights(50, kxWindow::tukey(1.0)), h = kfWindowWeights(50, kxWindow::hann());
    for (long n = 0; n < 50; ++n)
        EXPECT_NEAR(full[n], h[n], 1e-15);
    for (double v : kfWindowWeights(50, kxWindow::tukey(0.0)))
        EXPECT_EQ(v, 1.0);
    for (double v : kfWindowWeights(50, kxWindow::none()))
        EXPECT_EQ(v, 1.0);
}

TEST(Window, ApplyWindowIsTheSeparableProduct)
{
    const long w = 30, h = 17;
    kxPelBuffer<unsigned short> image =
        kxtest::imageFrom<unsigned short>(w, h, [](long x, long y) { return static_cast<unsigned short>(100 + 3 * x + 1000 * y); });
    image.offset(kxPair<long>(-4, 9));
    const kxWindow window = kxWindow::tukey(0.3);
    const kxPelBuffer<double> out = kfApplyWindow<unsigned short>(image, window);
    ASSERT_EQ(out.width(), w);
    ASSERT_EQ(out.height(), h);
    EXPECT_EQ(out.offset(), kxPair<long>(-4, 9));
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x)
            EXPECT_NEAR(out(x, y), image(x, y) * tukey(x, w, 0.3) * tukey(y, h, 0.3), 1e-9);
}

// With the mean removed the windowed image sums to zero, so that its
// spectrum has no zero-frequency term.
TEST(Window, RemovedMeanLeavesAZeroSum)
{
    const kxPelBuffer<unsigned char> image =
        kxtest::imageFrom<unsigned char>(41, 23, [](long x, long y) { return static_cast<unsigned char>(90 + (x * 7 + y * 13) % 80); });
    for (const kxWindow& window : {kxWindow::hann(), kxWindow::tukey(0.5), kxWindow::none()}) {
        const kxPelBuffer<double> out = kfApplyWindow<unsigned char>(image, window, true);
        double sum = 0.0, magnitude = 0.0;
        for (long y = 0; y < 23; ++y)
            for (long x = 0; x < 41; ++x) {
                sum += out(x, y);
                magnitude += std::fabs(out(x, y));
            }
        EXPECT_NEAR(sum, 0.0, 1e-9 * magnitude) << window.type;
        kxFrequencyBuffer spectrum;
        kfForwardFFT<double>(out, spectrum);
        EXPECT_NEAR(spectrum.getReal(0, 0, false), 0.0, 1e-3) << window.type;
    }
    // The double worker too; a constant image leaves only the rounding of
    // its weighted mean.
    const kxPelBuffer<double> constant = kxtest::imageFrom<double>(8, 8, [](long, long) { return 42.5; });
    const kxPelBuffer<double> out = kfApplyWindow<double>(constant, kxWindow::hann(), true);
    for (long y = 0; y < 8; ++y)
        for (long x = 0; x < 8; ++x)
            EXPECT_NEAR(out(x, y), 0.0, 1e-12);
}

TEST(Window, BadInput)
{
    using kxtest::expectError;
    using Arg = kxFrequencyDefs::InvalidArgument;
    expectError<Arg>([] { kfWindowWeights(0, kxWindow::hann()); }, "Window length must be between 1 and 2048.");
    expectError<Arg>([] { kfWindowWeights(2049, kxWindow::hann()); }, "Window length must be between 1 and 2048.");
    expectError<Arg>([] { kfWindowWeights(16, kxWindow::tukey(std::nan(""))); }, "Tukey taper must be between 0.0 and 1.0.");
    expectError<Arg>([] { kfWindowWeights(16, kxWindow::tukey(-0.01)); }, "Tukey taper must be between 0.0 and 1.0.");
    expectError<Arg>([] { kfWindowWeights(16, kxWindow::tukey(1.01)); }, "Tukey taper must be between 0.0 and 1.0.");
    kxWindow bad;
    bad.type = static_cast<kxWindow::Type>(-1);
    expectError<Arg>([&] { kfWindowWeights(16, bad); }, "Unknown window type.");

    const kxPelBuffer<unsigned char> unbound, empty(5, 0), tall(3, 2049), fine(4, 4);
    expectError<kxFrequencyDefs::UnboundWindow>([&] { kfApplyWindow<unsigned char>(unbound, kxWindow::hann()); },
                                                "Image is not bound.");
    expectError<kxFrequencyDefs::InvalidSize>([&] { kfApplyWindow<unsigned char>(empty, kxWindow::hann()); },
                                              "Image must not be empty.");
    expectError<kxFrequencyDefs::InvalidSize>([&] { kfApplyWindow<unsigned char>(tall, kxWindow::hann()); },
                                              "Width and Height must be no larger than 2048.");
    expectError<Arg>([&] { kfApplyWindow<unsigned char>(fine, kxWindow::tukey(std::nan(""))); },
                     "Tukey taper must be between 0.0 and 1.0.");
}

}  // namespace
