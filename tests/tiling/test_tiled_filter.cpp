// Tiled filtering: the one-transform path, seams against a double-precision
// reference, jobs, streaming, strides, outputs, options and cancellation.
#include <kx/core/attention.h>
#include <kx/tiling.h>

#include "test_helpers.h"
#include "tiling_reference.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdio>
#include <cstring>
#include <limits>

using namespace kxtest;

namespace {

kxBandRejectDescription bandReject(double frequency = 0.1, double sigma = 0.01)
{
    kxBandRejectDescription d;
    d.frequency = frequency;
    d.sigma = sigma;
    return d;
}

kxPelBuffer<unsigned char> scene8(long w, long h, double frequency = 0.1, double angle = 0.5236)
{
    return imageFrom<unsigned char>(w, h, [&](long x, long y) {
        return static_cast<unsigned char>(std::lround(std::min(255.0, std::max(0.0, sceneValue(x, y, frequency, angle, 30.0)))));
    });
}

// The plain path: mirror padding as the tool's --pad mirror, forward, the
// filter, inverse, the real part rounded and clamped.
template <typename T>
kxPelBuffer<T> plainPath(const kxPelBuffer<T>& image, const kxFrequencyFilter& filter, double scale)
{
    const long w = image.width(), h = image.height();
    const long pw = kfPaddedSize(w), ph = kfPaddedSize(h);
    auto mirrored = [](long p, long n, long padded) {
        if (p < n)
            return p;
        const long fill = padded - n, j = p - n;
        const long i = j < (fill + 1) / 2 ? n - 1 - j : padded - p - 1;
        return std::min(n - 1, std::max(0L, i));
    };
    kxPelBuffer<T> grid(pw, ph);
    for (long y = 0; y < ph; ++y)
        for (long x = 0; x < pw; ++x)
            grid(x, y) = image(mirrored(x, w, pw), mirrored(y, h, ph));
    kxFrequencyBuffer spectrum;
    kfForwardFFT<T>(grid, spectrum);
    filter.apply(spectrum);
    kxPelBuffer<double> real, imag;
    kfInverseFFT(spectrum, real, imag);
    const double top = sizeof(T) == 1 ? 255.0 : 65535.0;
    return imageFrom<T>(w, h, [&](long x, long y) {
        const double v = scale == 1.0 ? real(x, y) : real(x, y) * scale;
        return static_cast<T>(std::min(top, std::max(0.0, std::round(v))));
    });
}

template <typename T>
bool samePixels(const kxPelBuffer<T>& a, const kxPelBuffer<T>& b)
{
    if (a.width() != b.width() || a.height() != b.height())
        return false;
    for (long y = 0; y < a.height(); ++y)
        for (long x = 0; x < a.width(); ++x)
            if (std::memcmp(&a(x, y), &b(x, y), sizeof(T)) != 0)
                return false;
    return true;
}

template <typename T>
kxPelBuffer<T> nanFilled(long w, long h)
{
    kxPelBuffer<T> image(w, h);
    kfPelSet<T>(image, std::numeric_limits<T>::quiet_NaN());
    return image;
}

}  // namespace

TEST(TiledFilter, ImageThatFitsOneTransformTakesThePlainPath)
{
    const kxPelBuffer<unsigned char> image = scene8(300, 200);
    kxGaborDescription gabor;
    gabor.angle = 0.5236;
    kxGaborRejectDescription gaborReject;
    gaborReject.angle = 0.5236;
    gaborReject.dcRadius = 1;
    kxBandPassDescription bandPass;
    bandPass.dcRadius = 2;
    const kxFilterDescription* descriptions[] = {&gabor, &gaborReject, &bandPass};
    for (const kxFilterDescription* d : descriptions) {
        kxTileReport report;
        kxTileOptions options;
        options.progress = [&](long done, long total) { report.tiles = done * 100 + total; };
        const kxPelBuffer<unsigned char> tiled = kfFilterTiled<unsigned char>(image, *d, options);
        const kxPelBuffer<unsigned char> plain =
            plainPath(image, *d->makeFilter(kxPair<long>(512, 256)), d->resultScale());
        EXPECT_TRUE(samePixels(tiled, plain));
        EXPECT_EQ(report.tiles, 101);
    }
    const kxPelBuffer<unsigned short> image16 =
        imageFrom<unsigned short>(100, 70, [](long x, long y) { return static_cast<unsigned short>(x * 600 + y * 7); });
    const kxBandRejectDescription reject = bandReject(0.2, 0.02);
    EXPECT_TRUE(samePixels(kfFilterTiled<unsigned short>(image16, reject),
                           plainPath(image16, *reject.makeFilter(kxPair<long>(128, 128)), 1.0)));
}

TEST(TiledFilter, ReportsTheOneTransform)
{
    const kxPelBuffer<unsigned char> image = scene8(300, 200);
    kxPelBuffer<double> result = nanFilled<double>(300, 200);
    const kxTileReport report =
        kfFilterTiled<unsigned char, double>(kfImageView<unsigned char>(image), bandReject(), kfImageView(result));
    EXPECT_TRUE(report.single);
    EXPECT_EQ(report.tiles, 1);
    EXPECT_EQ(report.tile, 512);
    EXPECT_EQ(report.margin, 0);
}

namespace {

// The largest difference between a tiled band-reject result and the
// continuous filter's at pixels along and beside every tile border and at
// the image's borders.
double worstAtBorders(const kxPelBuffer<unsigned char>& image, const kxTileOptions& options, kxTileReport& report)
{
    const long w = image.width(), h = image.height();
    const kxBandRejectDescription reject = bandReject(0.1, 0.012);
    kxPelBuffer<double> result = nanFilled<double>(w, h);
    report = kfFilterTiled<unsigned char, double>(kfImageView<unsigned char>(image), reject, kfImageView(result),
                                                  options);
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x)
            if (std::isnan(result(x, y)))
                return HUGE_VAL;
    const long core = options.tile - 2 * report.margin;
    std::vector<long> xs = {0, 1, 2, w / 2, w - 2, w - 1}, ys = {0, 1, h / 3, h - 2, h - 1};
    for (long b = core; b < w; b += core)
        for (long d : {-1L, 0L})
            xs.push_back(b + d);
    for (long b = core; b < h; b += core)
        for (long d : {-1L, 0L})
            ys.push_back(b + d);
    const RingReference reference(0.012, 0.1);
    auto pixel = [&](long x, long y) { return static_cast<double>(image(x, y)); };
    double worst = 0.0;
    for (long y : ys)
        for (long x : xs)
            worst = std::max(worst, std::fabs(result(x, y) - reference.at(x, y, w, h, pixel)));
    return worst;
}

}  // namespace

// Tiles of 256 put many tile borders across a 1400 x 700 image; there the
// result must be the continuous filter's.
TEST(TiledFilter, NoSeamsAgainstContinuousReference)
{
    const kxPelBuffer<unsigned char> image = scene8(1400, 700);   // 13 tiles a band: one unpaired
    kxTileOptions options;
    options.tile = 256;
    kxTileReport report;
    const double worst = worstAtBorders(image, options, report);
    EXPECT_FALSE(report.single);
    EXPECT_EQ(report.margin, bandReject(0.1, 0.012).margin(65535.0));
    const long core = 256 - 2 * report.margin;
    EXPECT_EQ(report.tiles, ((1400 + core - 1) / core) * ((700 + core - 1) / core));
    // The band-reject filter reads its radial profile at 1/32 of a grid step,
    // truncated: on a 256 grid its gain sits up to 1/8192 cycle per pixel off
    // the continuous one, a few hundredths of a grey level here (a quarter
    // of that on 1024 tiles). Float transforms add far less.
    EXPECT_LT(worst, 0.1);
    std::printf("band-reject on 256 tiles: largest error %.4f\n", worst);
    // A margin far below the kernel's reach shows at the borders.
    options.margin = 8;
    EXPECT_GT(worstAtBorders(image, options, report), 1.0);
}

TEST(TiledFilter, SameResultForAnyNumberOfJobs)
{
    const long w = 900, h = 600;
    const kxPelBuffer<unsigned char> image = scene8(w, h);
    kxGaborRejectDescription reject;
    reject.angle = 0.5236;
    reject.sigma = kxPair<double>(0.02, 0.02);
    kxTileOptions options;
    options.tile = 256;
    options.output = kxTileOptions::eMagnitude;
    std::vector<kxPelBuffer<float>> results;
    for (unsigned jobs : {1u, 2u, 3u}) {
        options.jobs = jobs;
        std::vector<long> progress;
        options.progress = [&](long done, long total) { progress.push_back(done * 1000 + total); };
        results.push_back(nanFilled<float>(w, h));
        const kxTileReport report = kfFilterTiled<unsigned char, float>(
            kfImageView<unsigned char>(image), reject, kfImageView(results.back()), options);
        // Progress never goes back and ends with every tile.
        ASSERT_FALSE(progress.empty());
        EXPECT_TRUE(std::is_sorted(progress.begin(), progress.end()));
        EXPECT_EQ(progress.back(), report.tiles * 1001);
    }
    EXPECT_TRUE(samePixels(results[0], results[1]));
    EXPECT_TRUE(samePixels(results[0], results[2]));
}

namespace {

// Rows given in uneven strips, as a file reader would.
class StripSource : public kxRowSource {
public:
    explicit StripSource(const kxPelBuffer<unsigned short>& image) : image_(image) {}
    long width() const override { return image_.width(); }
    long height() const override { return image_.height(); }
    kxSampleType type() const override { return eSampleU16; }
    using kxRowSource::read;
    void read(unsigned short* rows, long count) override
    {
        maxCount = std::max(maxCount, count);
        for (long i = 0; i < count; ++i, ++next_)
            for (long x = 0; x < image_.width(); ++x)
                *rows++ = image_(x, next_);
    }
    long maxCount = 0;

private:
    kxPelBuffer<unsigned short> image_;
    long next_ = 0;
};

class CollectingSink : public kxRowSink {
public:
    using kxRowSink::write;
    void write(const unsigned short* rows, long count) override
    {
        samples.insert(samples.end(), rows, rows + count * width);
        ++writes;
    }
    long width = 0;
    long writes = 0;
    std::vector<unsigned short> samples;
};

}  // namespace

TEST(TiledFilter, StreamedIsTheInMemoryResult)
{
    const long w = 700, h = 2500;
    const kxPelBuffer<unsigned short> image = imageFrom<unsigned short>(
        w, h, [](long x, long y) { return static_cast<unsigned short>(200.0 * sceneValue(x, y, 0.15, 1.2, 20.0)); });
    kxBandPassDescription pass;
    pass.frequency = 0.15;
    pass.sigma = 0.03;
    kxTileOptions options;
    options.tile = 256;
    options.output = kxTileOptions::eSigned;
    StripSource source(image);
    CollectingSink sink;
    sink.width = w;
    const kxTileReport report = kfFilterTiled(source, pass, sink, eSampleU16, options);
    EXPECT_GT(sink.writes, 10);
    // Memory follows the tile, not the height: no read spans more than a band.
    EXPECT_LE(source.maxCount, 256);
    const kxPelBuffer<unsigned short> inMemory = kfFilterTiled<unsigned short>(image, pass, options);
    ASSERT_EQ(sink.samples.size(), static_cast<std::size_t>(w * h));
    long differences = 0;
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x)
            differences += sink.samples[static_cast<std::size_t>(y * w + x)] != inMemory(x, y);
    EXPECT_EQ(differences, 0);
    EXPECT_FALSE(report.single);
}

TEST(TiledFilter, AnyStridesGiveTheSameResult)
{
    const long w = 600, h = 400;
    const kxPelBuffer<unsigned char> image = scene8(w, h);
    // The same pixels column by column (a Fortran-ordered array) as floats.
    std::vector<float> columnMajor(static_cast<std::size_t>(w * h));
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x)
            columnMajor[static_cast<std::size_t>(x * h + y)] = image(x, y);
    const kxImageView<const float> view{columnMajor.data(), w, h, sizeof(float),
                                        static_cast<std::ptrdiff_t>(h * sizeof(float))};
    std::vector<double> out(static_cast<std::size_t>(w * h), std::nan(""));
    const kxImageView<double> outView{out.data(), w, h, sizeof(double), static_cast<std::ptrdiff_t>(h * sizeof(double))};
    kxTileOptions options;
    options.tile = 128;
    kfFilterTiled(view, bandReject(0.2, 0.03), outView, options);
    kxPelBuffer<double> rowMajor = nanFilled<double>(w, h);
    kfFilterTiled<unsigned char, double>(kfImageView<unsigned char>(image), bandReject(0.2, 0.03),
                                         kfImageView(rowMajor), options);
    long differences = 0;
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x)
            differences += out[static_cast<std::size_t>(x * h + y)] != rowMajor(x, y);
    EXPECT_EQ(differences, 0);
}

TEST(TiledFilter, IntegerOutputsAreTheRoundedAndClampedDoubleResult)
{
    const long w = 500, h = 300;
    const kxPelBuffer<unsigned char> image = scene8(w, h);
    kxGaborDescription gabor;
    gabor.frequency = 0.1;
    gabor.angle = 0.5236;
    kxTileOptions options;
    options.tile = 128;
    options.margin = 40;
    for (auto mode : {kxTileOptions::eReal, kxTileOptions::eSigned, kxTileOptions::eMagnitude}) {
        options.output = kxTileOptions::eReal;
        kxPelBuffer<double> re = nanFilled<double>(w, h), mag = nanFilled<double>(w, h);
        kfFilterTiled<unsigned char, double>(kfImageView<unsigned char>(image), gabor, kfImageView(re), options);
        options.output = kxTileOptions::eMagnitude;
        kfFilterTiled<unsigned char, double>(kfImageView<unsigned char>(image), gabor, kfImageView(mag), options);
        options.output = mode;
        kxPelBuffer<unsigned char> bytes(w, h);
        kfFilterTiled<unsigned char, unsigned char>(kfImageView<unsigned char>(image), gabor, kfImageView(bytes),
                                                    options);
        long wrong = 0;
        for (long y = 0; y < h; ++y)
            for (long x = 0; x < w; ++x) {
                const double v = mode == kxTileOptions::eMagnitude ? mag(x, y)
                                 : mode == kxTileOptions::eSigned  ? re(x, y) + 128.0
                                                                   : re(x, y);
                wrong += bytes(x, y) != static_cast<unsigned char>(std::min(255.0, std::max(0.0, std::round(v))));
            }
        EXPECT_EQ(wrong, 0) << mode;
    }
}

TEST(TiledFilter, RefusesBadOptionsWithClearMessages)
{
    const kxPelBuffer<unsigned char> image = scene8(300, 200);
    kxTileOptions options;
    for (long tile : {0L, 32L, 100L, 4096L}) {
        options.tile = tile;
        expectError<kxFrequencyDefs::InvalidArgument>(
            [&] { kfFilterTiled<unsigned char>(image, bandReject(), options); },
            ("Tile must be a power of two from 64 to 2048, not " + std::to_string(tile) + ".").c_str());
    }
    options.tile = 128;
    options.margin = 64;
    expectError<kxFrequencyDefs::InvalidArgument>([&] { kfFilterTiled<unsigned char>(image, bandReject(), options); },
                                                  "A margin of 64 pixels leaves no room in a tile of 128: at most 63 fits.");
    // Also where the image takes one transform.
    expectError<kxFrequencyDefs::InvalidArgument>(
        [&] {
            kxTileOptions big;
            big.margin = 1024;
            kfFilterTiled<unsigned char>(image, bandReject(), big);
        },
        "A margin of 1024 pixels leaves no room in a tile of 2048: at most 1023 fits.");
    options.margin = -1;
    // The description's own margin for a narrow ring does not fit a small tile.
    const kxBandRejectDescription narrow = bandReject(0.1, 0.002);
    expectError<kxFrequencyDefs::InvalidArgument>(
        [&] { kfFilterTiled<unsigned char>(image, narrow, options); },
        ("A margin of " + std::to_string(narrow.margin(255.0)) +
         " pixels leaves no room in a tile of 128: at most 63 fits.")
            .c_str());
    options.jobs = 0;
    expectError<kxFrequencyDefs::InvalidArgument>([&] { kfFilterTiled<unsigned char>(image, bandReject(), options); },
                                                  "Jobs must be from 1 to 256.");
    options.jobs = 1;
    kxPelBuffer<unsigned char> wrongSize(300, 199);
    expectError<kxFrequencyDefs::InvalidSize>(
        [&] {
            kfFilterTiled<unsigned char, unsigned char>(kfImageView<unsigned char>(image), bandReject(),
                                                        kfImageView(wrongSize), options);
        },
        "The result must have the image's size.");
    // Bad filter parameters come with the filter's own message.
    expectError<kxFrequencyDefs::InvalidArgument>(
        [&] { kfFilterTiled<unsigned char>(image, bandReject(0.7), kxTileOptions()); },
        "Frequency must be between 0.0 and 0.5.");
}

TEST(TiledFilter, FixedSizeFilterOnlyForOneTransform)
{
    const kxFrequencyFilterImage gains(onesBuffer(512, 256));
    const kxFixedFilterDescription fixed(gains, kxPair<long>(512, 256));
    const kxPelBuffer<unsigned char> image = scene8(300, 200);
    EXPECT_TRUE(samePixels(kfFilterTiled<unsigned char>(image, fixed), plainPath(image, gains, 1.0)));
    kxTileOptions options;
    options.tile = 256;
    expectError<kxFrequencyDefs::InvalidArgument>(
        [&] { kfFilterTiled<unsigned char>(image, fixed, options); },
        "A filter of one fixed size cannot be tiled: the image is 300 x 200, larger than one tile of 256; "
        "describe the filter by its parameters instead.");
    expectError<kxFrequencyDefs::InvalidSize>([&] { kfFilterTiled<unsigned char>(scene8(100, 100), fixed); },
                                              "Size of frequency buffer does not match size of filter.");
}

TEST(TiledFilter, CancellationStopsEveryJob)
{
    const kxPelBuffer<unsigned char> image = scene8(1000, 700);
    kxTileOptions options;
    options.tile = 128;
    for (unsigned jobs : {1u, 2u}) {
        options.jobs = jobs;
        long calls = 0;
        options.progress = [&](long, long) {
            if (++calls == 3)
                kxAttention::request();
        };
        EXPECT_THROW(kfFilterTiled<unsigned char>(image, bandReject(0.2, 0.03), options), kxAttention::Stopped);
        kxAttention::clear();
        // One job stops at its next tile; with two, the other job may end
        // the group of bands first, which is reported once more.
        EXPECT_GE(calls, 3);
        EXPECT_LE(calls, jobs == 1 ? 3 : 4);
    }
}

TEST(TiledFilter, MarginFollowsTheNarrowestWidthAndTheOutput)
{
    kxBandRejectDescription reject = bandReject(0.1, 0.01);
    EXPECT_NEAR(reject.kernelWidth(), 1.0 / (2.0 * kPi * 0.01), 1e-12);
    const long m8 = reject.margin(255.0), m16 = reject.margin(65535.0);
    EXPECT_GT(m16, m8);
    EXPECT_GT(m8, 3.0 * reject.kernelWidth());
    reject.sigma = 0.02;
    EXPECT_LT(reject.margin(255.0), m8);
    kxGaborDescription gabor;
    gabor.sigma = kxPair<double>(0.05, 0.01);
    EXPECT_NEAR(gabor.kernelWidth(), 1.0 / (2.0 * kPi * 0.01), 1e-12);
    const long before = gabor.margin(255.0);
    gabor.plateau = kxPair<double>(0.02, 0.02);
    EXPECT_GT(gabor.margin(255.0), before);
}

// The Gabor pass filter has a complex result (one lobe) and takes one tile
// per transform: its real part and magnitude against the continuous lobe,
// whose kernel is analytic:
//     k(x, y) = 2 pi sigma^2 exp(-2 pi^2 sigma^2 (x^2 + y^2)) e^(2 pi i (fx x + fy y)),
// the result being 2 (k * image).
TEST(TiledFilter, GaborAgainstContinuousLobe)
{
    const long w = 1000, h = 600;
    const double sigma = 0.02, frequency = 0.15, angle = kPi / 6.0;
    const kxPelBuffer<unsigned char> image = scene8(w, h, frequency, angle);
    kxGaborDescription gabor;
    gabor.sigma = kxPair<double>(sigma, sigma);
    gabor.frequency = frequency;
    gabor.angle = angle;
    kxTileOptions options;
    options.tile = 256;
    kxPelBuffer<double> real = nanFilled<double>(w, h), magnitude = nanFilled<double>(w, h);
    const kxTileReport report =
        kfFilterTiled<unsigned char, double>(kfImageView<unsigned char>(image), gabor, kfImageView(real), options);
    options.output = kxTileOptions::eMagnitude;
    kfFilterTiled<unsigned char, double>(kfImageView<unsigned char>(image), gabor, kfImageView(magnitude), options);

    const long reach = static_cast<long>(std::ceil(std::sqrt(2.0 * std::log(1e10)) / (2.0 * kPi * sigma)));
    const double fx = frequency * std::cos(angle), fy = frequency * std::sin(angle);
    auto expected = [&](long x, long y) {
        std::complex<double> sum = 0.0;
        for (long dy = -reach; dy <= reach; ++dy)
            for (long dx = -reach; dx <= reach; ++dx) {
                const double envelope = std::exp(-2.0 * kPi * kPi * sigma * sigma * static_cast<double>(dx * dx + dy * dy));
                sum += 2.0 * kPi * sigma * sigma * envelope * std::polar(1.0, 2.0 * kPi * (fx * dx + fy * dy)) *
                       static_cast<double>(image(RingReference::mirror(x - dx, w), RingReference::mirror(y - dy, h)));
            }
        return 2.0 * sum;
    };
    const long core = 256 - 2 * report.margin;
    double worstReal = 0.0, worstMagnitude = 0.0;
    for (long y : {0L, core - 1, core, h / 2, h - 1})
        for (long x : {0L, 1L, core - 1, core, 2 * core, w / 2, w - 1}) {
            const std::complex<double> e = expected(x, y);
            worstReal = std::max(worstReal, std::fabs(real(x, y) - e.real()));
            worstMagnitude = std::max(worstMagnitude, std::fabs(magnitude(x, y) - std::abs(e)));
        }
    // Float transforms and the lobe's table, sampled exactly on the 256 grid
    // and cut where its gain is below 1e-6: about 1e-4 here.
    EXPECT_LT(worstReal, 0.005);
    EXPECT_LT(worstMagnitude, 0.005);
    EXPECT_GT(std::fabs(real(w / 2, h / 2)), 1.0);   // the pattern passes
    std::printf("Gabor on 256 tiles: largest error %.4f (real), %.4f (magnitude)\n", worstReal, worstMagnitude);
}

namespace {

// A source that claims a size and gives nothing.
class ClaimingSource : public kxRowSource {
public:
    ClaimingSource(long w, long h, kxSampleType type) : w_(w), h_(h), type_(type) {}
    long width() const override { return w_; }
    long height() const override { return h_; }
    kxSampleType type() const override { return type_; }

private:
    long w_, h_;
    kxSampleType type_;
};

}  // namespace

TEST(TiledFilter, RefusesBadSourcesAndSinksBeforeAnyWork)
{
    CollectingSink sink;
    ClaimingSource empty(0, 10, eSampleU8), huge(10, 1L << 40, eSampleU8);
    expectError<kxFrequencyDefs::InvalidSize>([&] { kfFilterTiled(empty, bandReject(), sink, eSampleU16); },
                                              "The image is empty.");
    expectError<kxFrequencyDefs::InvalidSize>([&] { kfFilterTiled(huge, bandReject(), sink, eSampleU16); },
                                              "The image is larger than 2^31 - 1 in a side.");
    // A source whose read() does not give the type it says, a sink that does
    // not take the type asked for.
    ClaimingSource liar(100, 100, eSampleF32);
    expectError<kxFrequencyDefs::InvalidArgument>([&] { kfFilterTiled(liar, bandReject(), sink, eSampleU16); },
                                                  "The source does not give this sample type.");
    const kxPelBuffer<unsigned short> image(100, 100);
    StripSource source(image);
    expectError<kxFrequencyDefs::InvalidArgument>([&] { kfFilterTiled(source, bandReject(), sink, eSampleF64); },
                                                  "The sink does not take this sample type.");
}
