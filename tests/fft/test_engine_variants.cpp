// Every vectorised variant of the engine that this processor can run gives
// the scalar engine's bits: the engine entry points on every power-of-two
// size pair, both directions, the real path and banded inverses, and the
// library's forward and inverse entry points on top of them.
#include "fft/buffer_access.h"
#include "fft/engine/engine.h"
#include "engine_variants.h"
#include "fft/engine/variants.h"
#include "reference_dft.h"

#include <kx/core/attention.h>
#include <kx/fft.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <tuple>
#include <vector>

using Access = kx_FrequencyBufferAccess;

namespace {

using kxtest::randomData;
using kxtest::usableVariants;
using kxtest::vectorVariants;
using Forced = kxtest::ForcedVariant;

const float kNaN = std::numeric_limits<float>::quiet_NaN();

kxPair<long> dims(long w, long h) { return kxPair<long>(w, h); }

// The input of the real engine: W samples per row, the rest of the row NaN
// (never read), the imaginary part of a width-1 row zero.
std::vector<float> realInput(long w, long h, unsigned seed)
{
    std::vector<float> data = randomData(2 * w * h, seed);
    for (long r = 0; r < h; ++r)
        for (long c = w; c < 2 * w; ++c)
            data[2 * w * r + c] = w == 1 ? 0.0f : kNaN;
    return data;
}

// Zeroes the rows of a complex input outside the centred band [lo, hi], as
// a masked spectrum has them.
void zeroOutsideBand(std::vector<float>& data, long w, long h, long lo, long hi)
{
    const long half = h / 2;
    for (long r = 0; r < h; ++r) {
        const long centred = r < half ? r + half : r - half;
        if (centred < lo || centred > hi)
            std::fill(data.begin() + 2 * w * r, data.begin() + 2 * w * (r + 1), 0.0f);
    }
}

bool sameBits(const std::vector<float>& a, const std::vector<float>& b)
{
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0;
}

// The engine run on `input` with the named variant.
std::vector<float> engineRun(const char* variant, const std::vector<float>& input,
                             const std::function<void(float*)>& run)
{
    Forced forced(variant);
    EXPECT_TRUE(forced.ok()) << variant;
    std::vector<float> data = input;
    run(data.data());
    return data;
}

// Compares every vectorised variant with the scalar engine on one input.
void expectSameAsScalar(const std::vector<float>& input, const std::function<void(float*)>& run,
                        const std::string& what)
{
    const std::vector<float> scalar = engineRun("scalar", input, run);
    for (const char* variant : vectorVariants())
        EXPECT_TRUE(sameBits(engineRun(variant, input, run), scalar)) << variant << ": " << what;
}

const long kSides[] = {1, 2, 4, 8, 16, 32, 64, 128, 256, 512, 1024, 2048};

// The transform from a separate source equals the in-place transform of a
// copy, for every variant, and leaves the source as it was.
void expectFromSourceMatches(const std::vector<float>& input, long w, long h, int lo, int hi, const std::string& what)
{
    const std::vector<float> expected =
        engineRun("scalar", input, [&](float* d) { kf_ComplexFFT2D(d, dims(w, h), kf_Direction::Inverse, {lo, hi}); });
    int count = 0;
    const kf_EngineVariant* table = kf_EngineVariants(count);
    for (int i = 0; i < count; ++i) {
        if (!table[i].usable())
            continue;
        Forced forced(table[i].name);
        const std::vector<float> source = input;
        std::vector<float> out(input.size(), kNaN);
        kf_ComplexFFT2DFrom(source.data(), out.data(), dims(w, h), kf_Direction::Inverse, {lo, hi});
        EXPECT_TRUE(sameBits(out, expected)) << table[i].name << ": from a source, " << what;
        EXPECT_TRUE(sameBits(source, input)) << table[i].name << ": source changed, " << what;
    }
}

}  // namespace

TEST(EngineVariants, TheTableEndsWithTheScalarEngineAndTheBestUsableRuns)
{
    int count = 0;
    const kf_EngineVariant* table = kf_EngineVariants(count);
    ASSERT_GE(count, 1);
    EXPECT_STREQ(table[count - 1].name, "scalar");
    EXPECT_EQ(table[count - 1].widths, nullptr);
    const kf_EngineVariant* best = nullptr;
    for (int i = 0; i < count && !best; ++i)
        if (table[i].usable())
            best = &table[i];
    EXPECT_EQ(&kf_ActiveEngineVariant(), best);
    EXPECT_FALSE(kf_ForceEngineVariant("no such variant"));
    EXPECT_EQ(&kf_ActiveEngineVariant(), best);
    {
        Forced scalar("scalar");
        EXPECT_STREQ(kf_ActiveEngineVariant().name, "scalar");
    }
    EXPECT_EQ(&kf_ActiveEngineVariant(), best);
#if defined(__x86_64__)
    // SSE2 is part of x86-64, so at least one vectorised variant runs here.
    EXPECT_FALSE(vectorVariants().empty());
#endif
    for (const char* name : vectorVariants())
        std::printf("vectorised variant usable here: %s\n", name);
}

// Every size pair: the complex forward and inverse and the real forward
// (the largest pairs only some of them). Pairs up to 2^16 elements also run
// banded inverses, with bands of 4 and 8 rows among them, and the inverse
// from a separate source.
TEST(EngineVariants, EverySizePairMatchesTheScalarEngineBitForBit)
{
    unsigned seed = 1;
    for (long w : kSides)
        for (long h : kSides) {
            const std::string size = std::to_string(w) + " x " + std::to_string(h);
            const int H = static_cast<int>(h);
            const bool large = w * h > 65536;
            const std::vector<float> complexInput = randomData(2 * w * h, ++seed);
            expectSameAsScalar(
                complexInput, [&](float* d) { kf_ComplexFFT2D(d, dims(w, h), kf_Direction::Forward, {0, H}); },
                "forward " + size);
            if (!large || ((w + h) % 3 == 0 && w * h <= (1L << 20)))
                expectSameAsScalar(
                    complexInput, [&](float* d) { kf_ComplexFFT2D(d, dims(w, h), kf_Direction::Inverse, {0, H}); },
                    "inverse " + size);
            // The two largest pairs run the complex forward only, to keep the suite quick.
            if (w * h > (1L << 21))
                continue;
            expectSameAsScalar(
                realInput(w, h, ++seed), [&](float* d) { kf_RealFFT2D(d, dims(w, h)); }, "real " + size);
            if (large)
                continue;
            expectFromSourceMatches(complexInput, w, h, 0, H, size);
            const long bands[][2] = {{h / 2 - 2, h / 2 + 1}, {h / 2 - 4, h / 2 + 3}, {1, h / 3}, {h / 2, h / 2}};
            for (const auto& band : bands) {
                std::vector<float> banded = complexInput;
                zeroOutsideBand(banded, w, h, band[0], band[1]);
                const int lo = static_cast<int>(band[0]), hi = static_cast<int>(band[1]);
                const std::string what = size + " band " + std::to_string(lo) + ".." + std::to_string(hi);
                expectSameAsScalar(
                    banded, [&](float* d) { kf_ComplexFFT2D(d, dims(w, h), kf_Direction::Inverse, {lo, hi}); },
                    "banded inverse " + what);
                expectFromSourceMatches(banded, w, h, lo, hi, what);
            }
        }
}

// The polls happen at the same points whichever variant runs.
TEST(EngineVariants, EveryVariantPollsAsTheScalarEngineDoes)
{
    auto polls = [](const char* variant, const std::function<void(float*)>& run, std::size_t floats) {
        Forced forced(variant);
        std::vector<float> data(floats, 0.0f);
        kxAttention::Probe probe;
        run(data.data());
        return probe.count();
    };
    for (long w : {1L, 2L, 4L, 8L, 16L, 64L, 128L})
        for (long h : {1L, 2L, 4L, 8L, 32L, 64L, 256L}) {
            const std::size_t floats = 2 * w * h;
            const int H = static_cast<int>(h);
            const std::vector<std::function<void(float*)>> runs = {
                [&](float* d) { kf_ComplexFFT2D(d, dims(w, h), kf_Direction::Forward, {0, H}); },
                [&](float* d) { kf_ComplexFFT2D(d, dims(w, h), kf_Direction::Inverse, {H / 2 - 3, H / 2 + 4}); },
                [&](float* d) { kf_RealFFT2D(d, dims(w, h)); },
            };
            for (std::size_t i = 0; i < runs.size(); ++i) {
                const unsigned long scalar = polls("scalar", runs[i], floats);
                for (const char* variant : vectorVariants())
                    EXPECT_EQ(polls(variant, runs[i], floats), scalar)
                        << variant << " " << w << " x " << h << " #" << i;
            }
        }
}

namespace {

// An 8-bit, 16-bit or double image of random pixels.
template <typename T>
kxPelBuffer<T> randomImage(long w, long h, unsigned seed, double range)
{
    std::mt19937 generator(seed);
    std::uniform_real_distribution<double> value(0.0, range);
    kxPelBuffer<T> image(w, h);
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x)
            image(x, y) = static_cast<T>(value(generator));
    return image;
}

std::vector<float> storeOf(const kxFrequencyBuffer& b)
{
    const float* data = Access::data(b);
    return std::vector<float>(data, data + 2 * Access::paddedWidth(b) * Access::paddedHeight(b));
}

template <typename T>
std::vector<unsigned char> pixelBytes(const kxPelBuffer_const<T>& image)
{
    std::vector<unsigned char> bytes;
    for (long y = 0; y < image.height(); ++y) {
        const unsigned char* row =
            reinterpret_cast<const unsigned char*>(image.pointToOffset() + y * image.rowUpdate());
        bytes.insert(bytes.end(), row, row + image.width() * sizeof(T));
    }
    return bytes;
}

// A store NaN everywhere, then the given spectrum's values: a destination
// written by the entry point must not keep any of them.
kxFrequencyBuffer nanFilledLike(long w, long h)
{
    kxFrequencyBuffer b(w, h);
    std::fill(Access::data(b), Access::data(b) + 2 * Access::paddedWidth(b) * Access::paddedHeight(b), kNaN);
    return b;
}

// Everything one run through the entry points produces, as bytes.
using Outcome = std::vector<std::vector<unsigned char>>;

template <typename T>
void add(Outcome& o, const kxPelBuffer_const<T>& image)
{
    o.push_back(pixelBytes(image));
}

void add(Outcome& o, const kxFrequencyBuffer& b)
{
    const std::vector<float> s = storeOf(b);
    const unsigned char* p = reinterpret_cast<const unsigned char*>(s.data());
    o.emplace_back(p, p + s.size() * sizeof(float));
}

// A bound image of the given size filled with a marker, to be overwritten.
template <typename T>
kxPelBuffer<T> boundImage(long w, long h, T marker)
{
    kxPelBuffer<T> image(w, h);
    kfPelSet<T>(image, marker);
    return image;
}

template <typename T>
Outcome throughEntryPoints(long w, long h, unsigned seed, double range)
{
    Outcome o;
    const kxPelBuffer<T> image = randomImage<T>(w, h, seed, range);
    const kxPelBuffer<T> second = randomImage<T>(w, h, seed + 1, range);

    // Forward: one image into a fresh buffer and into one of the padded
    // size already holding NaN; two images; buffer to buffer.
    kxFrequencyBuffer one;
    kfForwardFFT<T>(image, one);
    add(o, one);
    kxFrequencyBuffer reused = nanFilledLike(w, h);
    kfForwardFFT<T>(image, reused);
    add(o, reused);
    kxFrequencyBuffer two = nanFilledLike(w, h);
    kfForwardFFT<T>(image, second, two);
    add(o, two);
    kxFrequencyBuffer again = nanFilledLike(w, h);
    kfForwardFFT(two, again);
    add(o, again);

    // A band of rows, as a filter leaves it.
    kxFrequencyBuffer banded = two;
    const long H = Access::paddedHeight(banded), W = Access::paddedWidth(banded);
    const long lo = H / 2 - 4 < 0 ? 0 : H / 2 - 4, hi = H / 2 + 3;
    for (long r = 0; r < H; ++r) {
        const long centred = r < H / 2 ? r + H / 2 : r - H / 2;
        if (centred < lo || centred > hi)
            std::fill(Access::data(banded) + 2 * W * r, Access::data(banded) + 2 * W * (r + 1), 0.0f);
    }
    Access::band(banded, 1, lo, hi);

    // Inverse: const forms, angle and quadrant workers, real and imaginary
    // parts, buffer to buffer, and the in-place forms last.
    for (const kxFrequencyBuffer* spectrum : {&one, &two, &banded}) {
        kxPelBuffer<T> magnitude;
        kfInverseFFT<T>(*spectrum, magnitude, false);
        add(o, magnitude);
        kxPelBuffer<T> stretched = boundImage<T>(w, h, T(7));
        kfInverseFFT<T>(*spectrum, stretched, true);
        add(o, stretched);
        kxPelBuffer<T> withAngle;
        kxPelBuffer<double> angle;
        kfInverseFFTAngle<T>(*spectrum, withAngle, angle, false);
        add(o, withAngle);
        add(o, kxPelBuffer_const<double>(angle));
        kxPelBuffer<T> withQuadrant;
        kxPelBuffer<unsigned char> quadrant;
        kfInverseFFTQuadrant<T>(*spectrum, withQuadrant, quadrant, false);
        add(o, withQuadrant);
        add(o, kxPelBuffer_const<unsigned char>(quadrant));
        kxPelBuffer<double> re = boundImage<double>(w, h, 3.0), im;
        kfInverseFFT(*spectrum, re, im);
        add(o, kxPelBuffer_const<double>(re));
        add(o, kxPelBuffer_const<double>(im));
        kxFrequencyBuffer spatial = nanFilledLike(w, h);
        kfInverseFFT(*spectrum, spatial);
        add(o, spatial);

        kxFrequencyBuffer inPlace = *spectrum;
        kxPelBuffer<T> inPlaceImage;
        kfInverseFFT<T>(inPlace, inPlaceImage, false, true);
        add(o, inPlaceImage);
        add(o, inPlace);
        kxFrequencyBuffer inPlaceBuffer = *spectrum;
        kxFrequencyBuffer out;
        kfInverseFFT(inPlaceBuffer, out, true);
        add(o, out);
    }
    return o;
}

template <typename T>
void expectEntryPointsMatch(double range)
{
    unsigned seed = 100;
    for (auto s : {dims(1, 1), dims(3, 5), dims(16, 16), dims(37, 20), dims(64, 1), dims(1, 64), dims(100, 70),
                   dims(256, 8), dims(8, 256)}) {
        Outcome scalar;
        {
            Forced forced("scalar");
            scalar = throughEntryPoints<T>(s.x(), s.y(), ++seed, range);
        }
        for (const char* variant : vectorVariants()) {
            Forced forced(variant);
            const Outcome vector = throughEntryPoints<T>(s.x(), s.y(), seed, range);
            ASSERT_EQ(vector.size(), scalar.size());
            for (std::size_t i = 0; i < scalar.size(); ++i)
                EXPECT_TRUE(vector[i] == scalar[i]) << variant << " " << s.x() << " x " << s.y() << " output #" << i;
        }
    }
}

}  // namespace

TEST(EngineVariants, EightBitEntryPointsMatchTheScalarEngine) { expectEntryPointsMatch<unsigned char>(256.0); }
TEST(EngineVariants, SixteenBitEntryPointsMatchTheScalarEngine) { expectEntryPointsMatch<unsigned short>(65536.0); }
TEST(EngineVariants, DoubleEntryPointsMatchTheScalarEngine) { expectEntryPointsMatch<double>(1000.0); }

// The pixel conversion of magnitudes at the edges of its range (NaN,
// infinities, values that wrap, values beyond 64 bits, the tail of a row):
// every variant gives the scalar pixels.
TEST(EngineVariants, MagnitudeConversionMatchesAtTheEdges)
{
    const float edges[] = {0.0f, -0.0f, 1e-30f, 0.49f, 0.5f, 0.51f, 1.5f, 254.5f, 255.49f, 255.5f, 256.0f,
                           300.7f, 65535.4f, 65535.5f, 65536.0f, 70000.9f, 4294967296.0f, 1e10f, 9.2e18f, 9.3e18f,
                           1e30f, 3.4e38f, std::numeric_limits<float>::infinity(),
                           -std::numeric_limits<float>::infinity(), kNaN, -kNaN};
    const long count = sizeof edges / sizeof edges[0];
    std::mt19937 generator(5);
    std::uniform_int_distribution<long> pick(0, count - 1);
    for (long w : {1L, 15L, 16L, 17L, 37L, 64L}) {
        const long h = 3;
        kxFrequencyBuffer spatial(w, h);
        const float n = static_cast<float>(Access::paddedWidth(spatial) * Access::paddedHeight(spatial));
        for (long y = 0; y < h; ++y)
            for (long x = 0; x < w; ++x) {
                // Undo the scaling by 1 / (W x H) so that the magnitudes land on the edges.
                const float re = edges[pick(generator)] * n, im = (x + y) % 3 == 0 ? 0.0f : edges[pick(generator)];
                spatial.put(x, y, kxPair<double>(re, im), false);
            }
        Access::inverseComputed(spatial, true);
        auto convert = [&](const char* variant) {
            Forced forced(variant);
            kxPelBuffer<unsigned char> u8;
            kxPelBuffer<unsigned short> u16;
            kxPelBuffer<double> f64;
            kfInverseFFT<unsigned char>(static_cast<const kxFrequencyBuffer&>(spatial), u8, false);
            kfInverseFFT<unsigned short>(static_cast<const kxFrequencyBuffer&>(spatial), u16, false);
            kfInverseFFT<double>(static_cast<const kxFrequencyBuffer&>(spatial), f64, false);
            // Which NaN an operation on two NaNs gives depends on the order the
            // compiler put its operands in, so double pixels are compared with
            // every NaN as one: NaN in the same places, every other value bit
            // for bit.
            for (long y = 0; y < f64.height(); ++y)
                for (long x = 0; x < f64.width(); ++x)
                    if (std::isnan(f64(x, y)))
                        f64(x, y) = std::numeric_limits<double>::quiet_NaN();
            return std::make_tuple(pixelBytes<unsigned char>(u8), pixelBytes<unsigned short>(u16),
                                   pixelBytes<double>(f64));
        };
        const auto scalar = convert("scalar");
        for (const char* variant : vectorVariants())
            EXPECT_TRUE(convert(variant) == scalar) << variant << " width " << w;
    }
}
