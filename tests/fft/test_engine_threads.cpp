// One transform shared among threads: every thread count gives the bits of
// the single-threaded scalar engine, with every variant this processor runs,
// through the engine and through the public overloads; a stop on the
// calling thread stops the call.
#include "fft/buffer_access.h"
#include "fft/engine/engine.h"
#include "engine_variants.h"
#include "fft/engine/variants.h"

#include <kx/core/attention.h>
#include <kx/fft.h>
#include <kx/fft_threads.h>

#include <gtest/gtest.h>

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

// The engine run on a copy of `input` with the named variant; the output
// starts as NaN where `run` writes into a separate area.
std::vector<float> engineRun(const char* variant, const std::vector<float>& input,
                             const std::function<void(float*)>& run)
{
    Forced forced(variant);
    EXPECT_TRUE(forced.ok()) << variant;
    std::vector<float> data = input;
    run(data.data());
    return data;
}

bool sameBits(const std::vector<float>& a, const std::vector<float>& b)
{
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0;
}

// Sanitizer builds run many times slower: they take fewer sizes.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

// Sizes large enough that four threads are used (2^17 elements and more),
// square and thin.
const std::vector<std::pair<long, long>> kSizes =
    kSanitized ? std::vector<std::pair<long, long>>{{512, 256}, {64, 2048}}
               : std::vector<std::pair<long, long>>{{512, 512}, {1024, 128}, {128, 1024}, {64, 2048}, {2048, 64}};

TEST(EngineThreads, EveryThreadCountAndVariantGivesTheScalarBits)
{
    unsigned seed = 7;
    for (const auto& size : kSizes) {
        const long w = size.first, h = size.second;
        const kxPair<long> dims(w, h);
        const int H = static_cast<int>(h);
        const std::vector<float> complexInput = randomData(2 * w * h, ++seed);
        std::vector<float> realInput = randomData(2 * w * h, ++seed);
        for (long r = 0; r < h; ++r)
            std::fill(realInput.begin() + 2 * w * r + w, realInput.begin() + 2 * w * (r + 1), kNaN);
        const kf_RowBand band{H / 2 - 5, H / 2 + 9};
        std::vector<float> bandedInput = complexInput;
        for (long r = 0; r < h; ++r) {
            const long centred = r < h / 2 ? r + h / 2 : r - h / 2;
            if (centred < band.lo || centred > band.hi)
                std::fill(bandedInput.begin() + 2 * w * r, bandedInput.begin() + 2 * w * (r + 1), 0.0f);
        }

        struct Case {
            const char* name;
            const std::vector<float>* input;
            std::function<void(float*, int)> run;
        };
        const Case cases[] = {
            {"forward", &complexInput,
             [&](float* d, int t) { kf_ComplexFFT2D(d, dims, kf_Direction::Forward, kf_AllRows(h), t); }},
            {"inverse", &complexInput,
             [&](float* d, int t) { kf_ComplexFFT2D(d, dims, kf_Direction::Inverse, kf_AllRows(h), t); }},
            {"banded inverse", &bandedInput,
             [&](float* d, int t) { kf_ComplexFFT2D(d, dims, kf_Direction::Inverse, band, t); }},
            {"banded inverse from a source", &bandedInput,
             [&](float* d, int t) {
                 const std::vector<float> source(d, d + 2 * w * h);
                 std::fill(d, d + 2 * w * h, kNaN);
                 kf_ComplexFFT2DFrom(source.data(), d, dims, kf_Direction::Inverse, band, t);
             }},
            {"real", &realInput, [&](float* d, int t) { kf_RealFFT2D(d, dims, t); }},
        };
        for (const Case& c : cases) {
            const std::vector<float> expected = engineRun("scalar", *c.input, [&](float* d) { c.run(d, 1); });
            for (const char* variant : usableVariants())
                for (int threads = 1; threads <= 4; ++threads)
                    EXPECT_TRUE(sameBits(engineRun(variant, *c.input, [&](float* d) { c.run(d, threads); }),
                                         expected))
                        << c.name << " " << w << " x " << h << ", " << variant << ", " << threads << " threads";
        }
    }
}

kxPelBuffer<unsigned char> testImage(long w, long h, int salt)
{
    kxPelBuffer<unsigned char> image(w, h);
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x)
            image(x, y) = static_cast<unsigned char>((x * 7 + y * 13 + x * y * salt) % 256);
    return image;
}

bool sameSpectrum(const kxFrequencyBuffer& a, const kxFrequencyBuffer& b)
{
    const std::size_t floats = 2 * static_cast<std::size_t>(Access::paddedWidth(a)) * Access::paddedHeight(a);
    return Access::paddedWidth(a) == Access::paddedWidth(b) && Access::paddedHeight(a) == Access::paddedHeight(b) &&
           std::memcmp(Access::data(a), Access::data(b), floats * sizeof(float)) == 0;
}

template <typename T>
bool samePixels(const kxPelBuffer<T>& a, const kxPelBuffer<T>& b)
{
    if (a.width() != b.width() || a.height() != b.height() || a.offset() != b.offset())
        return false;
    for (long y = 0; y < a.height(); ++y)
        if (std::memcmp(a.pointToOffset() + y * a.rowUpdate(), b.pointToOffset() + y * b.rowUpdate(),
                        sizeof(T) * static_cast<std::size_t>(a.width())) != 0)
            return false;
    return true;
}

TEST(EngineThreads, ThePublicOverloadsGiveTheSingleThreadedResults)
{
    // Padded to 1024 x 512 (512 x 256 under a sanitizer): four threads.
    const long w = kSanitized ? 300 : 700, h = kSanitized ? 200 : 450;
    const auto re = testImage(w, h, 3);
    const auto im = testImage(w, h, 5);
    // The single-threaded scalar engine's results.
    std::unique_ptr<Forced> scalar = std::make_unique<Forced>("scalar");
    kxFrequencyBuffer one, two;
    kfForwardFFT<unsigned char>(re, one);
    kfForwardFFT<unsigned char>(re, im, two);
    kxPelBuffer<unsigned char> image8;
    kfInverseFFT<unsigned char>(static_cast<const kxFrequencyBuffer&>(two), image8, false);
    kxPelBuffer<double> imageDouble;
    kfInverseFFT<double>(static_cast<const kxFrequencyBuffer&>(two), imageDouble, false);
    kxPelBuffer<unsigned short> image16;
    kxFrequencyBuffer inPlace = two;
    kfInverseFFT<unsigned short>(inPlace, image16, true, true);

    scalar.reset();

    for (const char* variant : usableVariants()) {
        for (int threads = 0; threads <= 4; ++threads) {
            Forced forced(variant);
            const kxTransformThreads t(threads);
            kxFrequencyBuffer oneThreaded, twoThreaded;
            kfForwardFFT<unsigned char>(re, oneThreaded, t);
            kfForwardFFT<unsigned char>(re, im, twoThreaded, t);
            EXPECT_TRUE(sameSpectrum(oneThreaded, one)) << variant << " " << threads;
            EXPECT_TRUE(sameSpectrum(twoThreaded, two)) << variant << " " << threads;

            kxPelBuffer<unsigned char> threaded8;
            kfInverseFFT<unsigned char>(static_cast<const kxFrequencyBuffer&>(twoThreaded), threaded8, false, t);
            EXPECT_TRUE(samePixels(threaded8, image8)) << variant << " " << threads;
            kxPelBuffer<double> threadedDouble;
            kfInverseFFT<double>(static_cast<const kxFrequencyBuffer&>(twoThreaded), threadedDouble, false, t);
            EXPECT_TRUE(samePixels(threadedDouble, imageDouble)) << variant << " " << threads;
            kxPelBuffer<unsigned short> threaded16;
            kfInverseFFT<unsigned short>(twoThreaded, threaded16, true, true, t);
            EXPECT_TRUE(samePixels(threaded16, image16)) << variant << " " << threads;
            // The in-place form leaves the spatial result in the buffer.
            EXPECT_TRUE(sameSpectrum(twoThreaded, inPlace)) << variant << " " << threads;
        }
    }
}

TEST(EngineThreads, AStopOnTheCallingThreadStopsTheCall)
{
    const auto image = testImage(1024, 512, 1);
    for (const char* variant : usableVariants()) {
        Forced forced(variant);
        for (unsigned long throwAt : {1ul, 2ul, 3ul, 4ul}) {
            kxFrequencyBuffer result;
            kxAttention::Probe probe(throwAt);
            EXPECT_THROW(kfForwardFFT<unsigned char>(image, result, kxTransformThreads(3)), kxAttention::Stopped)
                << variant << " " << throwAt;
            EXPECT_EQ(probe.count(), throwAt);
            EXPECT_EQ(Access::data(result), nullptr);   // left not initialized
        }
        // The calling thread polls before each group of lines it takes, and
        // at the engine's fixed points between the passes.
        kxFrequencyBuffer result;
        kxAttention::Probe probe;
        kfForwardFFT<unsigned char>(image, result, kxTransformThreads(3));
        EXPECT_GE(probe.count(), 4u) << variant;
    }
    // A request made before the call stops it at the first poll.
    kxAttention::request();
    kxFrequencyBuffer result;
    EXPECT_THROW(kfForwardFFT<unsigned char>(image, result, kxTransformThreads(2)), kxAttention::Stopped);
    kxAttention::clear();
    kfForwardFFT<unsigned char>(image, result, kxTransformThreads(2));
    EXPECT_NE(Access::data(result), nullptr);
}

}  // namespace
