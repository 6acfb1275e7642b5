// The const inverse's last pass writing pixels: with every vectorised
// variant the pixels are the scalar engine's (whose separate conversion is
// the reference), for every pixel type, size, thread count and band, and
// for magnitudes that wrap or are not numbers. A double pixel that is not a
// number is compared as such: which operand's sign a NaN takes is not fixed
// (the variants' spatial data already differ there from the scalar
// engine's), every other bit is.
#include "fft/buffer_access.h"
#include "fft/engine/engine.h"
#include "fft/engine/pixel_target.h"
#include "fft/engine/variants.h"

#include <kx/fft.h>
#include <kx/fft_threads.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

using Access = kx_FrequencyBufferAccess;

namespace {

class Forced {
public:
    explicit Forced(const char* name) { ok_ = kf_ForceEngineVariant(name); }
    ~Forced() { kf_ForceEngineVariant(nullptr); }
    bool ok() const { return ok_; }

private:
    bool ok_;
};

std::vector<const char*> vectorVariants()
{
    int count = 0;
    const kf_EngineVariant* table = kf_EngineVariants(count);
    std::vector<const char*> names;
    for (int i = 0; i < count; ++i)
        if (table[i].widths && table[i].usable())
            names.push_back(table[i].name);
    return names;
}

// How a test spectrum's values are chosen.
enum class Values {
    Moderate,   // pixels mostly within the 8-bit range
    Large,      // magnitudes that wrap the integer pixels
    WithNaN,    // one element not a number: every pixel NaN
    Huge,       // magnitudes beyond 64-bit integers and infinities
};

// A w x h spectrum of random elements, optionally with only a band of rows
// (centred indices lo .. hi) holding data, as a filter leaves it.
kxFrequencyBuffer spectrum(long w, long h, Values values, unsigned seed, bool banded)
{
    kxFrequencyBuffer b(w, h);
    const long W = Access::paddedWidth(b), H = Access::paddedHeight(b);
    const double amplitude = values == Values::Moderate ? 40.0 * std::sqrt(static_cast<double>(W * H))
                             : values == Values::Large  ? 3e5 * std::sqrt(static_cast<double>(W * H))
                                                        : 1e37;
    std::mt19937 generator(seed);
    std::uniform_real_distribution<double> value(-amplitude, amplitude);
    float* data = Access::data(b);
    for (long i = 0; i < 2 * W * H; ++i)
        data[i] = static_cast<float>(value(generator));
    if (values == Values::WithNaN)
        data[2 * (W * (H / 2) + W / 3) + 1] = std::numeric_limits<float>::quiet_NaN();
    if (banded) {
        const long lo = H / 2 - 2 < 0 ? 0 : H / 2 - 2, hi = H / 2 + 1;
        for (long r = 0; r < H; ++r) {
            const long centred = r < H / 2 ? r + H / 2 : r - H / 2;
            if (centred < lo || centred > hi)
                std::fill(data + 2 * W * r, data + 2 * W * (r + 1), 0.0f);
        }
        Access::band(b, 1, lo, hi);
    }
    return b;
}

template <typename T>
std::vector<unsigned char> pixelBytes(const kxPelBuffer<T>& image)
{
    std::vector<unsigned char> bytes;
    for (long y = 0; y < image.height(); ++y) {
        const unsigned char* row = reinterpret_cast<const unsigned char*>(&image(0, y));
        bytes.insert(bytes.end(), row, row + sizeof(T) * image.width());
    }
    return bytes;
}

// Equal bytes, or both pixels doubles that are not numbers.
template <typename T>
::testing::AssertionResult samePixels(const std::vector<unsigned char>& a, const std::vector<unsigned char>& b)
{
    if (a.size() != b.size())
        return ::testing::AssertionFailure() << "sizes " << a.size() << " and " << b.size();
    for (std::size_t i = 0; i < a.size(); i += sizeof(T)) {
        if (std::memcmp(&a[i], &b[i], sizeof(T)) == 0)
            continue;
        T x, y;
        std::memcpy(&x, &a[i], sizeof(T));
        std::memcpy(&y, &b[i], sizeof(T));
        if (!(std::is_same<T, double>::value && std::isnan(static_cast<double>(x)) &&
              std::isnan(static_cast<double>(y))))
            return ::testing::AssertionFailure() << "pixel " << i / sizeof(T) << ": " << +x << " and " << +y;
    }
    return ::testing::AssertionSuccess();
}

// The const inverse into a new image, with the named variant.
template <typename T>
std::vector<unsigned char> inverse(const char* variant, const kxFrequencyBuffer& b, int threads)
{
    Forced forced(variant);
    EXPECT_TRUE(forced.ok()) << variant;
    kxPelBuffer<T> image;
    if (threads == 0)
        kfInverseFFT<T>(b, image, false);
    else
        kfInverseFFT<T>(b, image, false, kxTransformThreads(threads));
    EXPECT_EQ(image.width(), Access::requestedWidth(b));
    return pixelBytes(image);
}

template <typename T>
void expectVariantsMatch(long w, long h, Values values, bool banded, const std::vector<int>& threadCounts,
                         unsigned seed)
{
    const kxFrequencyBuffer b = spectrum(w, h, values, seed, banded);
    const std::vector<unsigned char> scalar = inverse<T>("scalar", b, 0);
    for (const char* variant : vectorVariants())
        for (int threads : threadCounts)
            EXPECT_TRUE(samePixels<T>(inverse<T>(variant, b, threads), scalar))
                << variant << " " << w << " x " << h << " values " << static_cast<int>(values)
                << (banded ? " banded" : "") << " threads " << threads << " pixel bytes " << sizeof(T);
}

template <typename T>
void smallSizes()
{
    const long sides[] = {1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 31, 32, 33, 63, 64};
    unsigned seed = 1;
    for (long w : sides)
        for (long h : sides) {
            ++seed;
            expectVariantsMatch<T>(w, h, static_cast<Values>(seed % 4), seed % 3 == 0, {0}, seed);
        }
}

template <typename T>
void largeSizes()
{
    unsigned seed = 50;
    for (auto size : {std::make_pair(512L, 512L), std::make_pair(2048L, 16L), std::make_pair(16L, 2048L),
                      std::make_pair(1000L, 750L)})
        for (Values values : {Values::Large, Values::WithNaN}) {
            ++seed;
            expectVariantsMatch<T>(size.first, size.second, values, values == Values::WithNaN, {1, 2, 3, 4}, seed);
        }
}

}   // namespace

TEST(InverseLastPass, EightBitPixelsMatchTheScalarEngine)
{
    smallSizes<unsigned char>();
    largeSizes<unsigned char>();
}

TEST(InverseLastPass, SixteenBitPixelsMatchTheScalarEngine)
{
    smallSizes<unsigned short>();
    largeSizes<unsigned short>();
}

TEST(InverseLastPass, DoublePixelsMatchTheScalarEngine)
{
    smallSizes<double>();
    largeSizes<double>();
}

// The pass itself: the vectorised variants take it, the scalar engine does
// not (and writes nothing); it writes exactly the w x h pixels, rows of
// rowPixels apart, and leaves the source as it was.
TEST(InverseLastPass, WritesExactlyTheResultPixels)
{
    const long w = 37, h = 21, rowPixels = 45;
    const kxFrequencyBuffer b = spectrum(w, h, Values::Large, 7, false);
    const long W = Access::paddedWidth(b), H = Access::paddedHeight(b);
    const std::vector<float> source(Access::data(b), Access::data(b) + 2 * W * H);
    std::vector<float> work(2 * W * H);
    const unsigned char kSentinel = 0xA5;
    for (const char* variant : {"scalar", "avx512", "avx2", "sse2"}) {
        Forced forced(variant);
        if (!forced.ok())
            continue;
        std::vector<unsigned char> pixels(rowPixels * (h + 1), kSentinel);
        const kf_PixelTarget target{pixels.data(),     rowPixels, w, h, 1.0f / static_cast<float>(W * H),
                                    kf_PixelType::Byte};
        const bool taken =
            kf_InverseFFT2DToPixels(source.data(), work.data(), kxPair<long>(W, H), kf_AllRows(H), target);
        EXPECT_EQ(taken, std::string(variant) != "scalar") << variant;
        long written = 0;
        for (long y = 0; y <= h; ++y)
            for (long x = 0; x < rowPixels; ++x) {
                const bool inside = x < w && y < h;
                if (!inside) {
                    EXPECT_EQ(pixels[y * rowPixels + x], kSentinel) << variant << " " << x << ", " << y;
                }
                written += pixels[y * rowPixels + x] != kSentinel;
            }
        if (taken) {
            EXPECT_GT(written, w * h / 2) << variant;
        }
        EXPECT_EQ(std::memcmp(source.data(), Access::data(b), source.size() * sizeof(float)), 0) << variant;
    }
}
