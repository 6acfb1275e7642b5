// The band filters' ring rows: every usable engine variant writes the bits of
// the scalar row, through the filters and row by row.
#include "engine_variants.h"
#include "fft/engine/variants.h"
#include "freqfilt/ring_row.h"

#include <kx/freqfilt.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace {

using kxtest::ForcedVariant;

// The usable variants with a ring row of their own.
std::vector<const kf_EngineVariant*> variantsWithRingRows()
{
    return kxtest::usableVariantsWhere([](const kf_EngineVariant& v) { return v.ringRow != nullptr; });
}

// A spectrum of awkward values: ordinary ones of both signs, zeros of both
// signs, NaN, infinities and huge values.
kxFrequencyBuffer awkwardSpectrum(long w, long h, unsigned seed)
{
    kxFrequencyBuffer buffer(w, h);
    auto view = buffer.elements();
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> value(-1000.0f, 1000.0f);
    const float specials[] = {0.0f, -0.0f, std::numeric_limits<float>::quiet_NaN(),
                              std::numeric_limits<float>::infinity(), -std::numeric_limits<float>::infinity(), 3e38f};
    for (long y = 0; y < view.height; ++y)
        for (long f = 0; f < 2 * view.width; ++f)
            view.data[y * view.rowStride + f] = random() % 29 == 0 ? specials[random() % 6] : value(random);
    return buffer;
}

std::vector<float> floatsOf(const kxFrequencyBuffer& buffer)
{
    const auto view = buffer.elements();
    return std::vector<float>(view.data, view.data + view.height * view.rowStride);
}

struct Band {
    double sigma, plateau, frequency;
    long dcRadius;
};

// Out of place into a NaN-filled destination, and in place.
template <typename Filter>
std::vector<float> filtered(const Filter& filter, const kxFrequencyBuffer& source, bool inPlace)
{
    if (inPlace) {
        kxFrequencyBuffer work = source;
        filter.apply(work);
        return floatsOf(work);
    }
    kxFrequencyBuffer destination = source;
    auto view = destination.elements();
    std::fill(view.data, view.data + view.height * view.rowStride, std::numeric_limits<float>::quiet_NaN());
    filter.apply(source, destination);
    return floatsOf(destination);
}

template <typename Filter>
void expectSameBitsOnEveryVariant(const char* kind)
{
    const long sizes[][2] = {{1, 1},  {2, 1},    {1, 16},   {16, 1},  {16, 16},  {32, 8},
                             {8, 32}, {64, 64}, {256, 128}, {128, 256}, {1024, 16}, {2048, 2}};
    const Band bands[] = {{0.02, 0.01, 0.2, 0},  {0.005, 0.0, 0.05, 1}, {0.1, 0.3, 0.0, 0},
                          {0.01, 0.0, 0.5, 2},   {0.001, 0.0, 0.25, 0}, {0.05, 0.0, 0.11, 3}};
    const auto variants = variantsWithRingRows();
    if (variants.empty())
        GTEST_SKIP() << "no variant with a ring row of its own runs here";
    unsigned seed = 1;
    for (const auto& size : sizes)
        for (const Band& band : bands) {
            const kxPair<long> grid(size[0], size[1]);
            // A DC square that fits the grid.
            const long dcRadius = std::min(band.dcRadius, std::min(size[0], size[1]) / 4);
            const Filter filter(band.sigma, band.plateau, band.frequency, grid, dcRadius);
            const kxFrequencyBuffer source = awkwardSpectrum(size[0], size[1], seed++);
            for (bool inPlace : {false, true}) {
                std::vector<float> reference;
                {
                    ForcedVariant scalar("scalar");
                    ASSERT_TRUE(scalar.ok());
                    reference = filtered(filter, source, inPlace);
                }
                for (const kf_EngineVariant* variant : variants) {
                    ForcedVariant forced(variant->name);
                    ASSERT_TRUE(forced.ok());
                    const std::vector<float> result = filtered(filter, source, inPlace);
                    ASSERT_EQ(result.size(), reference.size());
                    EXPECT_EQ(std::memcmp(result.data(), reference.data(), result.size() * sizeof(float)), 0)
                        << kind << " on " << variant->name << ", " << size[0] << " x " << size[1] << ", frequency "
                        << band.frequency << ", sigma " << band.sigma << ", plateau " << band.plateau
                        << (inPlace ? ", in place" : ", out of place");
                }
            }
        }
}

}  // namespace

TEST(RingRowVariants, BandPassGivesTheScalarBitsOnEveryVariant)
{
    expectSameBitsOnEveryVariant<kxFrequencyFilterBandPass>("band-pass");
}

TEST(RingRowVariants, BandRejectGivesTheScalarBitsOnEveryVariant)
{
    expectSameBitsOnEveryVariant<kxFrequencyFilterBandReject>("band-reject");
}

// Rows built directly, with bounds the filters rarely reach: the ring at the
// zero frequency (inner -1), an outer bound at the top of the int32 range, a
// ring beyond the row, vertical terms up to width^2 / 4.
TEST(RingRowVariants, RowsWithExtremeBoundsGiveTheScalarBits)
{
    const auto variants = variantsWithRingRows();
    if (variants.empty())
        GTEST_SKIP() << "no variant with a ring row of its own runs here";
    std::mt19937 random(7);
    for (long width : {1L, 2L, 4L, 8L, 16L, 32L, 64L, 512L, 2048L}) {
        const long maxYterm = width * width / 4;
        const double farthest = std::sqrt(static_cast<double>(width * width / 4 + maxYterm));
        for (int trial = 0; trial < 40; ++trial) {
            const float f0 = static_cast<float>(std::uniform_real_distribution<double>(0.0, farthest)(random));
            // A profile long enough for every distance from the ring.
            std::vector<float> profile(static_cast<std::size_t>(32 * (farthest + f0 + 2)));
            for (float& g : profile)
                g = std::uniform_real_distribution<float>(-2.0f, 2.0f)(random);
            std::vector<float> src(static_cast<std::size_t>(2 * width));
            for (float& v : src)
                v = std::uniform_real_distribution<float>(-1e6f, 1e6f)(random);
            const std::int32_t yterm = static_cast<std::int32_t>(random() % (maxYterm + 1));
            const std::int32_t bounds[][2] = {{-1, std::numeric_limits<std::int32_t>::max()},
                                              {-1, static_cast<std::int32_t>(random() % (2 * maxYterm + 2))},
                                              {static_cast<std::int32_t>(random() % (maxYterm + 1)),
                                               static_cast<std::int32_t>(maxYterm + random() % (maxYterm + 2))}};
            for (const auto& bound : bounds)
                for (bool clear : {false, true}) {
                    std::vector<float> expected(src.size(), std::numeric_limits<float>::quiet_NaN());
                    kf_RingRow row{src.data(), expected.data(), width, yterm, bound[0], bound[1],
                                   f0,         profile.data(),  clear};
                    kf_RingRowScalar(row, 0, width);
                    for (const kf_EngineVariant* variant : variants) {
                        std::vector<float> got(src.size(), std::numeric_limits<float>::quiet_NaN());
                        row.dst = got.data();
                        variant->ringRow(row);
                        EXPECT_EQ(std::memcmp(got.data(), expected.data(), got.size() * sizeof(float)), 0)
                            << variant->name << ", width " << width << ", yterm " << yterm << ", bounds " << bound[0]
                            << " .. " << bound[1] << ", f0 " << f0 << (clear ? ", clearing" : ", copying");
                    }
                }
        }
    }
}
