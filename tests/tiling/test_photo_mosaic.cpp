// A real photograph tiled into a large mosaic with a 30-degree periodic
// pattern: the tiled Gabor reject filter against the continuous filter in
// double precision, at the image's borders and across tile borders.
#include <kx/tiling.h>

#include "image_io.h"
#include "test_helpers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>

using namespace kxtest;

namespace {

#ifdef KX_SMALL_MOSAIC   // the sanitizers' build: the same checks, smaller
constexpr long kWidth = 3000, kHeight = 2400;
#else
constexpr long kWidth = 8000, kHeight = 6000;
#endif
constexpr double kFrequency = 0.1, kSigma = 0.015, kAmplitude = 10.0;
const double kAngle = kPi / 6.0;

long mirror(long p, long n)
{
    const long period = 2 * n;
    long q = p % period;
    if (q < 0)
        q += period;
    return q < n ? q : period - 1 - q;
}

// The continuous two-lobe Gabor reject filter: gain (1 - g(f))(1 - g(-f))
// with g a Gaussian of kSigma at +-(fx, fy); the lobes are far apart, so the
// kernel is delta - 2 Re(k) with k the lobe's kernel,
//     k(x, y) = 2 pi sigma^2 exp(-2 pi^2 sigma^2 (x^2 + y^2)) e^(2 pi i (fx x + fy y)),
// which is separable: kx(x) ky(y). Cut where the envelope is below 1e-10.
class GaborRejectReference {
public:
    GaborRejectReference()
        : reach_(static_cast<long>(std::ceil(std::sqrt(2.0 * std::log(1e10)) / (2.0 * kPi * kSigma))))
    {
        const double fx = kFrequency * std::cos(kAngle), fy = kFrequency * std::sin(kAngle);
        for (long d = -reach_; d <= reach_; ++d) {
            const double envelope = std::exp(-2.0 * kPi * kPi * kSigma * kSigma * static_cast<double>(d * d));
            kx_.push_back(envelope * std::polar(1.0, 2.0 * kPi * fx * static_cast<double>(d)));
            ky_.push_back(2.0 * kPi * kSigma * kSigma * envelope * std::polar(1.0, 2.0 * kPi * fy * static_cast<double>(d)));
        }
    }

    // The filtered values on rows [y0, y1) at `columns` of an image given by
    // `pixel` (mirrored at its borders): rows first, then columns.
    template <typename Pixel>
    std::vector<double> rows(long y0, long y1, const std::vector<long>& columns, const Pixel& pixel) const
    {
        const long n = static_cast<long>(columns.size());
        std::vector<std::complex<double>> across(static_cast<std::size_t>((y1 - y0 + 2 * reach_) * n));
        for (long r = y0 - reach_; r < y1 + reach_; ++r)
            for (long i = 0; i < n; ++i) {
                std::complex<double> sum = 0.0;
                for (long d = -reach_; d <= reach_; ++d)
                    sum += kx_[static_cast<std::size_t>(d + reach_)] * pixel(columns[i] - d, r);
                across[static_cast<std::size_t>((r - y0 + reach_) * n + i)] = sum;
            }
        std::vector<double> out;
        for (long y = y0; y < y1; ++y)
            for (long i = 0; i < n; ++i) {
                std::complex<double> sum = 0.0;
                for (long d = -reach_; d <= reach_; ++d)
                    sum += ky_[static_cast<std::size_t>(d + reach_)] *
                           across[static_cast<std::size_t>((y - d - y0 + reach_) * n + i)];
                out.push_back(pixel(columns[i], y) - 2.0 * sum.real());
            }
        return out;
    }

private:
    long reach_;
    std::vector<std::complex<double>> kx_, ky_;
};

}  // namespace

TEST(PhotoMosaic, PatternRemovedWithoutSeams)
{
    const kxio::GreyImage photo = kxio::readImage(KX_PHOTO_PATH);
    ASSERT_EQ(photo.bits, 8);
    const kxPelBuffer<unsigned char>& p = photo.pixels8;
    // The photograph mirrored into a mosaic, scaled to leave room for the
    // pattern without clipping.
    const double fx = kFrequency * std::cos(kAngle), fy = kFrequency * std::sin(kAngle);
    kxPelBuffer<unsigned char> mosaic(kWidth, kHeight);
    for (long y = 0; y < kHeight; ++y)
        for (long x = 0; x < kWidth; ++x) {
            const double v = 20.0 + 0.8 * p(mirror(x, p.width()), mirror(y, p.height())) +
                             kAmplitude * std::cos(2.0 * kPi * (fx * x + fy * y));
            mosaic(x, y) = static_cast<unsigned char>(std::lround(std::min(255.0, std::max(0.0, v))));
        }

    kxGaborRejectDescription reject;
    reject.frequency = kFrequency;
    reject.sigma = kxPair<double>(kSigma, kSigma);
    reject.angle = kAngle;
    kxTileOptions options;
    options.jobs = 2;
    kxPelBuffer<unsigned char> result(kWidth, kHeight);
    kfPelSet<unsigned char>(result, 0);
    const kxTileReport report = kfFilterTiled(kfImageView(mosaic), reject, kfImageView(result), options);
    EXPECT_FALSE(report.single);
    const long core = report.tile - 2 * report.margin;

    // The pattern's amplitude, by projection on the wave, before and after.
    auto amplitude = [&](const kxPelBuffer<unsigned char>& image) {
        std::complex<double> sum = 0.0;
        double n = 0.0;
        for (long y = 0; y < kHeight; y += 3)
            for (long x = 0; x < kWidth; x += 3, n += 1.0)
                sum += static_cast<double>(image(x, y)) * std::polar(1.0, -2.0 * kPi * (fx * x + fy * y));
        return 2.0 * std::abs(sum) / n;
    };
    const double before = amplitude(mosaic), after = amplitude(result);
    EXPECT_NEAR(before, kAmplitude, 1.0);
    EXPECT_LT(after, 0.05 * before);

    // Against the continuous filter: bands of rows at the top and bottom
    // borders and across the first tile border, at columns by the left and
    // right borders and across the first tile border.
    const GaborRejectReference reference;
    auto pixel = [&](long x, long y) { return static_cast<double>(mosaic(mirror(x, kWidth), mirror(y, kHeight))); };
    std::vector<long> columns;
    for (long x = 0; x < 300; ++x)
        for (long start : {0L, core - 150, kWidth - 300})
            columns.push_back(start + x);
    std::vector<double> errors;
    for (long y0 : {0L, core - 16, kHeight - 32}) {
        const std::vector<double> expected = reference.rows(y0, y0 + 32, columns, pixel);
        for (long y = y0; y < y0 + 32; ++y)
            for (std::size_t i = 0; i < columns.size(); ++i)
                errors.push_back(std::fabs(result(columns[i], y) - expected[(y - y0) * columns.size() + i]));
    }
    double squares = 0.0;
    for (double e : errors)
        squares += e * e;
    const double psnr = 10.0 * std::log10(255.0 * 255.0 / (squares / static_cast<double>(errors.size())));
    std::sort(errors.begin(), errors.end());
    const double p9999 = errors[static_cast<std::size_t>(0.9999 * static_cast<double>(errors.size() - 1))];
    // Rounding to 8 bits alone gives about 59 dB and errors up to 0.5.
    EXPECT_GE(psnr, 50.0);
    EXPECT_LE(p9999, 3.0);
    EXPECT_LE(errors.back(), 1.0);
    RecordProperty("psnr", std::to_string(psnr));
    RecordProperty("p9999", std::to_string(p9999));
    std::printf("mosaic %ld x %ld, tile %ld, margin %ld: pattern %.3f -> %.4f, PSNR %.1f dB, 99.99th %.3f, max %.3f\n",
                kWidth, kHeight, report.tile, report.margin, before, after, psnr, p9999, errors.back());
}
