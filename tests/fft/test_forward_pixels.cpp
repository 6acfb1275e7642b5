// The forward transforms that read pixels in their first pass (one image
// into the real engine, two as real and imaginary parts into the complex
// one) give, for every variant and thread count, the bits of the scalar
// engine run on the same pixels converted to floats beforehand: 8-bit,
// 16-bit and double images, windows onto wider rows, offsets, every element
// written.
#include "fft/buffer_access.h"
#include "fft/engine/engine.h"
#include "fft/engine/pixels.h"
#include "engine_variants.h"
#include "fft/engine/variants.h"

#include <kx/core/attention.h>
#include <kx/fft.h>
#include <kx/fft_threads.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

using Access = kx_FrequencyBufferAccess;

namespace {

using kxtest::randomData;
using kxtest::usableVariants;
using kxtest::vectorVariants;
using Forced = kxtest::ForcedVariant;

const float kNaN = std::numeric_limits<float>::quiet_NaN();

// Sanitizer builds run many times slower: they skip the large sizes.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

long paddedSide(long side)
{
    long p = 1;
    while (p < side)
        p *= 2;
    return p;
}

// A w x h image inside a larger array: `lead` pixels before its first pixel
// and rows `stride` pixels apart. Everything around it holds `poison`, so a
// read outside the image changes the result; the array ends with the last
// row's last pixel, so a read past it is out of bounds.
template <typename T>
struct Window {
    std::vector<T> store;
    long lead, stride, width, height;

    kf_PixelRows rows() const { return kf_PixelRowsOf(store.data() + lead, stride, width, height); }
    T pixel(long x, long y) const { return store[static_cast<std::size_t>(lead + y * stride + x)]; }
};

template <typename T>
Window<T> makeWindow(long w, long h, long extra, T poison, const std::function<T()>& next)
{
    Window<T> image{{}, 5 + extra, w + extra, w, h};
    image.store.assign(static_cast<std::size_t>(image.lead + (h - 1) * image.stride + w), poison);
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x)
            image.store[static_cast<std::size_t>(image.lead + y * image.stride + x)] = next();
    return image;
}

// The samples written one by one as the forward transform always has (the
// pixels, then zeros up to W floats, 2 for W = 1), then the real engine,
// with the named variant, into a store first filled with NaN.
// The samples written one by one as the forward transforms always have,
// then the engine, with the named variant, into a store first filled with
// NaN. One image: the pixels, then zeros up to W floats (2 for W = 1), and
// the real engine. With a second image: (real, imaginary) pairs, then
// zeros, and the complex engine.
template <typename T>
std::vector<float> convertedFirst(const char* variant, const Window<T>& image, const Window<T>* imag, long W, long H)
{
    Forced forced(variant);
    EXPECT_TRUE(forced.ok()) << variant;
    std::vector<float> data(static_cast<std::size_t>(2 * W * H), kNaN);
    auto sample = [&](const Window<T>& from, long x, long y) {
        return x < from.width && y < from.height ? static_cast<float>(from.pixel(x, y)) : 0.0f;
    };
    for (long y = 0; y < H; ++y) {
        float* row = data.data() + 2 * W * y;
        if (imag) {
            for (long x = 0; x < W; ++x) {
                row[2 * x] = sample(image, x, y);
                row[2 * x + 1] = sample(*imag, x, y);
            }
        } else {
            for (long x = 0; x < (W == 1 ? 2 : W); ++x)
                row[x] = sample(image, x, y);
        }
    }
    if (imag)
        kf_ComplexFFT2D(data.data(), kxPair<long>(W, H), kf_Direction::Forward, kf_AllRows(H));
    else
        kf_RealFFT2D(data.data(), kxPair<long>(W, H));
    return data;
}

template <typename T>
std::vector<float> fromPixels(const char* variant, const Window<T>& image, const Window<T>* imag, long W, long H,
                              int threads)
{
    Forced forced(variant);
    EXPECT_TRUE(forced.ok()) << variant;
    std::vector<float> data(static_cast<std::size_t>(2 * W * H), kNaN);
    if (imag)
        kf_ComplexFFT2DFromPixels(image.rows(), imag->rows(), data.data(), kxPair<long>(W, H), threads);
    else
        kf_RealFFT2DFromPixels(image.rows(), data.data(), kxPair<long>(W, H), threads);
    return data;
}

// The image turned by half a turn, in rows of another stride: a second
// image of the same size and kind of values.
template <typename T>
Window<T> turned(const Window<T>& image)
{
    long i = 0;
    return makeWindow<T>(image.width, image.height, image.stride - image.width + 1, image.store[0], [&] {
        const long x = i % image.width, y = i / image.width;
        ++i;
        return image.pixel(image.width - 1 - x, image.height - 1 - y);
    });
}

bool sameBits(const std::vector<float>& a, const std::vector<float>& b)
{
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0;
}

// The same bits, except that a NaN may be another NaN: the engines' NaNs
// (overflow, infinities, NaN among the samples) need not share sign and
// payload, since the variants' operations may take their operands in
// another order.
bool sameBitsUpToNaNs(const std::vector<float>& a, const std::vector<float>& b)
{
    if (a.size() != b.size())
        return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (std::isnan(a[i]) != std::isnan(b[i]))
            return false;
        if (!std::isnan(a[i]) && std::memcmp(&a[i], &b[i], sizeof(float)) != 0)
            return false;
    }
    return true;
}

// Every variant at each thread count against its own transform of the
// samples converted beforehand (the pixels reach the butterflies as the same
// floats) and against the scalar engine's, up to NaNs for `nonFinite`: the
// image alone, and as the real part with its half-turned copy.
template <typename T>
void expectMatches(const Window<T>& image, const std::vector<int>& threadCounts, const std::string& what,
                   bool nonFinite = false)
{
    const long W = paddedSide(image.width), H = paddedSide(image.height);
    const Window<T> second = turned(image);
    for (const Window<T>* imag : {static_cast<const Window<T>*>(nullptr), &second}) {
        const std::string kind = imag ? "two images, " : "one image, ";
        const std::vector<float> scalar = convertedFirst("scalar", image, imag, W, H);
        for (const char* variant : usableVariants()) {
            const std::vector<float> own = convertedFirst(variant, image, imag, W, H);
            for (int threads : threadCounts) {
                const std::vector<float> fused = fromPixels(variant, image, imag, W, H, threads);
                EXPECT_TRUE(sameBits(fused, own)) << variant << " " << threads << " threads: " << kind << what;
                EXPECT_TRUE(nonFinite ? sameBitsUpToNaNs(fused, scalar) : sameBits(fused, scalar))
                    << variant << " " << threads << " threads, against scalar: " << kind << what;
            }
        }
    }
}

const long kSides[] = {1, 2, 3, 5, 8, 13, 16, 17, 31, 33, 64, 100, 255};

template <typename T>
std::function<T()> uniformPixels(unsigned seed, double low, double high)
{
    auto generator = std::make_shared<std::mt19937>(seed);
    return [=] { return static_cast<T>(std::uniform_real_distribution<double>(low, high)(*generator)); };
}

// Doubles that are not floats: they round when narrowed, some to zero or a
// subnormal float; negatives among them. With `withNonFinite`, also values
// whose spectrum overflows, beyond the float range, infinities and NaN.
std::function<double()> awkwardDoubles(unsigned seed, bool withNonFinite)
{
    static const double finite[] = {0.1, -1.0 / 3.0, 16777217.0, 1.0 + std::ldexp(1.0, -25), -2.5e7 - 0.3,
                                    -0.0, 1e-310, 1e-45, 255.5, -65535.75};
    static const double nonFinite[] = {1e30, 3.4028235e38, 1e39, -1e300, std::numeric_limits<double>::infinity(),
                                       -std::numeric_limits<double>::infinity(),
                                       std::numeric_limits<double>::quiet_NaN()};
    auto generator = std::make_shared<std::mt19937>(seed);
    return [=] {
        std::uniform_int_distribution<int> pick(0, 99);
        const int k = pick(*generator);
        if (withNonFinite && k < 7)
            return nonFinite[k];
        if (k < 40)
            return finite[k % (sizeof finite / sizeof finite[0])];
        return std::uniform_real_distribution<double>(-1e4, 1e4)(*generator);
    };
}

}  // namespace

TEST(ForwardPixels, EverySmallSizeAndPixelTypeMatchesTheScalarEngine)
{
    unsigned seed = 1;
    for (long w : kSides)
        for (long h : kSides) {
            const std::string size = std::to_string(w) + " x " + std::to_string(h);
            const long extra = (w + h) % 3 == 0 ? 0 : (w + h) % 3 == 1 ? 3 : 64;
            expectMatches(makeWindow<unsigned char>(w, h, extra, 255, uniformPixels<unsigned char>(++seed, 0, 256)),
                          {1, 3}, "8-bit " + size);
            expectMatches(makeWindow<unsigned short>(w, h, extra, 65535,
                                                     uniformPixels<unsigned short>(++seed, 0, 65536)),
                          {1, 3}, "16-bit " + size);
            expectMatches(makeWindow<double>(w, h, extra, std::nan(""), awkwardDoubles(++seed, false)), {1, 3},
                          "double " + size);
        }
}

// Infinities, NaN and doubles beyond the float range: each variant gives
// the bits it gives for the converted samples, and the scalar engine's
// results up to the NaNs' bits.
TEST(ForwardPixels, NonFiniteDoublesMatchTheScalarEngine)
{
    unsigned seed = 500;
    for (long w : {1L, 3L, 16L, 33L, 100L})
        for (long h : {1L, 5L, 17L, 64L})
            expectMatches(makeWindow<double>(w, h, 2, 0.5, awkwardDoubles(++seed, true)), {1, 2},
                          "non-finite doubles " + std::to_string(w) + " x " + std::to_string(h), true);
}

TEST(ForwardPixels, LargeSizesAndEveryThreadCountMatchTheScalarEngine)
{
    const std::vector<std::pair<long, long>> sizes =
        kSanitized ? std::vector<std::pair<long, long>>{{512, 256}, {16, 2048}}
                   : std::vector<std::pair<long, long>>{{512, 512}, {2048, 16}, {16, 2048}, {1000, 750}};
    unsigned seed = 900;
    for (const auto& s : sizes) {
        const std::string size = std::to_string(s.first) + " x " + std::to_string(s.second);
        expectMatches(makeWindow<unsigned char>(s.first, s.second, 24, 255,
                                                uniformPixels<unsigned char>(++seed, 0, 256)),
                      {1, 2, 3, 4}, "8-bit " + size);
        if (s.first * s.second > 300000)
            continue;
        expectMatches(makeWindow<unsigned short>(s.first, s.second, 0, 65535,
                                                 uniformPixels<unsigned short>(++seed, 0, 65536)),
                      {1, 4}, "16-bit " + size);
        expectMatches(makeWindow<double>(s.first, s.second, 7, std::nan(""), awkwardDoubles(++seed, false)), {1, 4},
                      "double " + size);
    }
}

// The fused first passes poll where the separate conversions and the row
// passes did together: the conversions never polled.
TEST(ForwardPixels, PollsAsTheEnginesDo)
{
    auto polls = [](const char* variant, const std::function<void(float*)>& run, std::size_t floats) {
        Forced forced(variant);
        std::vector<float> data(floats, kNaN);
        kxAttention::Probe probe;
        run(data.data());
        return probe.count();
    };
    for (long w : {1L, 3L, 8L, 64L, 100L})
        for (long h : {1L, 4L, 17L, 64L, 256L}) {
            const unsigned seed = static_cast<unsigned>(w * h);
            const Window<unsigned char> image =
                makeWindow<unsigned char>(w, h, 1, 255, uniformPixels<unsigned char>(seed, 0, 256));
            const Window<unsigned char> second = turned(image);
            const long W = paddedSide(w), H = paddedSide(h);
            const kxPair<long> size(W, H);
            const std::size_t floats = static_cast<std::size_t>(2 * W * H);
            const unsigned long real = polls("scalar", [&](float* d) { kf_RealFFT2D(d, size); }, floats);
            const unsigned long complex = polls(
                "scalar", [&](float* d) { kf_ComplexFFT2D(d, size, kf_Direction::Forward, kf_AllRows(H)); }, floats);
            for (const char* variant : usableVariants()) {
                EXPECT_EQ(polls(variant, [&](float* d) { kf_RealFFT2DFromPixels(image.rows(), d, size); }, floats),
                          real)
                    << variant << " " << w << " x " << h;
                EXPECT_EQ(polls(
                              variant,
                              [&](float* d) { kf_ComplexFFT2DFromPixels(image.rows(), second.rows(), d, size); },
                              floats),
                          complex)
                    << variant << " two images " << w << " x " << h;
            }
        }
}

namespace {

std::vector<float> storeOf(const kxFrequencyBuffer& b)
{
    const float* data = Access::data(b);
    return std::vector<float>(data, data + 2 * Access::paddedWidth(b) * Access::paddedHeight(b));
}

// The library's forward from an image whose rows are wider than it (a
// large row alignment) and, for `offset`, placed away from the origin,
// into a buffer of the padded size already holding NaN.
// With `imag`, the forward of the two images as real and imaginary parts.
template <typename T>
std::vector<float> forwardOf(const char* variant, const kxPelBuffer<T>& image, const kxPelBuffer<T>* imag,
                             int threads)
{
    Forced forced(variant);
    EXPECT_TRUE(forced.ok()) << variant;
    kxFrequencyBuffer result(image.width(), image.height());
    std::fill(Access::data(result),
              Access::data(result) + 2 * Access::paddedWidth(result) * Access::paddedHeight(result), kNaN);
    if (imag)
        kfForwardFFT<T>(image, *imag, result, kxTransformThreads(threads));
    else
        kfForwardFFT<T>(image, result, kxTransformThreads(threads));
    return storeOf(result);
}

template <typename T>
kxPelBuffer<T> randomImage(long w, long h, long alignment, unsigned seed, double low, double high)
{
    kxPelBuffer<T> image(w, h, alignment);
    const auto next = uniformPixels<T>(seed, low, high);
    for (long y = 0; y < image.height(); ++y)
        for (long x = 0; x < image.width(); ++x)
            image(x, y) = next();
    return image;
}

template <typename T>
void expectEntryPointMatches(double low, double high)
{
    unsigned seed = 40;
    for (auto s : {std::pair<long, long>{1, 1}, {5, 3}, {37, 20}, {64, 1}, {1, 64}, {100, 70}, {300, 129}})
        for (bool offset : {false, true}) {
            kxPelBuffer<T> image = randomImage<T>(s.first, s.second, 1024, ++seed, low, high);
            kxPelBuffer<T> imag = randomImage<T>(s.first, s.second, 512, ++seed, low, high);
            ASSERT_GT(image.rowUpdate(), image.width());
            if (offset) {
                image.offset(kxPair<long>(-3, 11));
                imag.offset(kxPair<long>(-3, 11));
            }
            const kxPelBuffer<T>* const both = &imag;
            for (const kxPelBuffer<T>* second : {static_cast<const kxPelBuffer<T>*>(nullptr), both}) {
                const std::vector<float> scalar = forwardOf("scalar", image, second, 1);
                for (const char* variant : usableVariants())
                    for (int threads : {1, 2, 4})
                        EXPECT_TRUE(sameBits(forwardOf(variant, image, second, threads), scalar))
                            << variant << " " << threads << " threads, " << s.first << " x " << s.second
                            << (offset ? " with an offset" : "") << (second ? ", two images" : "");
            }
        }
}

}  // namespace

TEST(ForwardPixels, TheLibraryForwardMatchesTheScalarEngineOnWindowsAndOffsets)
{
    expectEntryPointMatches<unsigned char>(0, 256);
    expectEntryPointMatches<unsigned short>(0, 65536);
    expectEntryPointMatches<double>(-1e6, 1e6);
}
