// The row kernel's depth-first order gives the bits of the published
// stage-by-stage order for every length and every block size at which it
// switches to stages, in both directions.
#include "fft/engine/engine.h"
#include "fft/engine/kernel.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

namespace {

std::vector<float> randomRow(int n, unsigned seed)
{
    std::mt19937 generator(seed);
    std::uniform_real_distribution<float> value(-100.0f, 100.0f);
    std::vector<float> row(2 * static_cast<std::size_t>(n));
    for (float& f : row)
        f = value(generator);
    return row;
}

}  // namespace

TEST(EngineKernelOrder, DepthFirstMatchesStageByStageBitForBit)
{
    for (kf_Direction direction : {kf_Direction::Forward, kf_Direction::Inverse}) {
        const kf_RotationTable rotation(1);
        for (int n = 1; n <= 2048; n *= 2) {
            std::vector<std::int32_t> bitReverse(2 * static_cast<std::size_t>(n));
            kf_BitReverseTable(bitReverse.data(), n);
            const std::vector<float> input = randomRow(n, static_cast<unsigned>(n));
            std::vector<float> byStage = input;
            kf_SplitRadixRow<float>(byStage.data(), n, direction, rotation, bitReverse.data());
            for (int fit = 1; fit <= n; fit *= 2) {
                std::vector<float> byBlock = input;
                kf_SplitRadixRow<float>(byBlock.data(), n, direction, rotation, bitReverse.data(), fit);
                ASSERT_EQ(0, std::memcmp(byStage.data(), byBlock.data(), byStage.size() * sizeof(float)))
                    << "n " << n << ", blocks of " << fit;
            }
        }
    }
}

TEST(EngineKernelOrder, DepthFirstComputesTheTransform)
{
    // A guard against both orders being wrong alike: an impulse at element 1
    // has the spectrum e^(-2 pi i k / n), within single-precision rounding.
    const int n = 1024;
    const kf_RotationTable rotation(1);
    std::vector<std::int32_t> bitReverse(2 * n);
    kf_BitReverseTable(bitReverse.data(), n);
    std::vector<float> row(2 * n, 0.0f);
    row[2] = 1.0f;
    kf_SplitRadixRow<float>(row.data(), n, kf_Direction::Forward, rotation, bitReverse.data(), 16);
    for (int k = 0; k < n; ++k) {
        const double angle = -2.0 * 3.141592653589793 * k / n;
        EXPECT_NEAR(row[2 * k], std::cos(angle), 1e-5) << k;
        EXPECT_NEAR(row[2 * k + 1], std::sin(angle), 1e-5) << k;
    }
}
