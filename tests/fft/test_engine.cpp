// The FFT engine against an independent double-precision DFT, plus its
// exact behaviours: band skipping, the real-input path, polling, and golden
// bit patterns that pin its numerics.
#include "fft/engine/engine.h"
#include "fft/engine/kernel.h"
#include "reference_dft.h"

#include <kx/core/attention.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

using kxtest::randomFloats;
using kxtest::referenceDft;
using kxtest::relativeRms;

namespace {

constexpr double kTolerance = 1e-5;   // relative RMS of a single-precision FFT of these sizes


kxPair<long> dims(long w, long h) { return kxPair<long>(w, h); }

// Packs real samples the way the one-image forward transform lays them out:
// each row's W samples at the start of its 2W floats; the rest of the row is
// filled with NaN to prove the engine never reads it.
std::vector<float> packReal(const std::vector<float>& samples, long w, long h)
{
    std::vector<float> data(2 * w * h, std::numeric_limits<float>::quiet_NaN());
    for (long r = 0; r < h; ++r)
        for (long c = 0; c < w; ++c)
            data[2 * w * r + c] = samples[w * r + c];
    if (w == 1)
        for (long r = 0; r < h; ++r)
            data[2 * r + 1] = 0.0f;   // the forward fill writes the imaginary part of a width-1 row
    return data;
}

std::vector<float> asComplex(const std::vector<float>& samples)
{
    std::vector<float> data(2 * samples.size(), 0.0f);
    for (std::size_t i = 0; i < samples.size(); ++i)
        data[2 * i] = samples[i];
    return data;
}

// FNV-1a over the bit patterns of the floats.
std::uint64_t bitHash(const std::vector<float>& v)
{
    std::uint64_t h = 1469598103934665603ull;
    for (float f : v) {
        std::uint32_t bits;
        std::memcpy(&bits, &f, 4);
        for (int i = 0; i < 4; ++i) {
            h ^= (bits >> (8 * i)) & 0xFF;
            h *= 1099511628211ull;
        }
    }
    return h;
}

const long kSides[] = {1, 2, 4, 8, 16, 32, 64};

// Every pair of sides up to 64, plus long, tall and larger shapes.
std::vector<kxPair<long>> testedSizes()
{
    std::vector<kxPair<long>> sizes;
    for (long w : kSides)
        for (long h : kSides)
            sizes.push_back(dims(w, h));
    for (auto s : {dims(128, 8), dims(8, 2048), dims(2048, 8), dims(256, 256)})
        sizes.push_back(s);
    return sizes;
}

}  // namespace

TEST(Engine, BitReverseTableForEight)
{
    std::vector<std::int32_t> table(16, 99);
    kf_BitReverseTable(table.data(), 8);
    // 1-based: elements 2<->5 and 4<->7 exchange (0-based 1<->4, 3<->6).
    EXPECT_EQ(table[1], -1);
    EXPECT_EQ(table[2], 10);
    EXPECT_EQ(table[3], -1);
    EXPECT_EQ(table[4], 14);
    EXPECT_EQ(table[5], -1);
    EXPECT_EQ(table[6], -1);
    EXPECT_EQ(table[7], -1);
}

TEST(Engine, ComplexMatchesReferenceForEverySizePair)
{
    double worst = 0;
    std::uint32_t seed = 1;
    for (auto s : testedSizes()) {
        const long w = s.x(), h = s.y();
        const std::vector<float> input = randomFloats(2 * w * h, seed++);
        for (bool forward : {true, false}) {
            std::vector<float> data = input;
            kf_ComplexFFT2D(data.data(), s, forward ? kf_Direction::Forward : kf_Direction::Inverse,
                            kf_AllRows(h));
            const double rms = relativeRms(data.data(), referenceDft(input, w, h, forward));
            worst = std::max(worst, rms);
            EXPECT_LT(rms, kTolerance) << w << " x " << h << (forward ? " forward" : " inverse");
        }
    }
    std::cout << "worst relative RMS error, complex path: " << worst << "\n";
}

TEST(Engine, RealMatchesReferenceAndComplexPath)
{
    double worst = 0;
    std::uint32_t seed = 100;
    for (auto s : testedSizes()) {
        const long w = s.x(), h = s.y();
        const std::vector<float> samples = randomFloats(w * h, seed++);
        std::vector<float> real = packReal(samples, w, h);
        kf_RealFFT2D(real.data(), s);
        const std::vector<float> complexInput = asComplex(samples);
        const double rms = relativeRms(real.data(), referenceDft(complexInput, w, h, true));
        worst = std::max(worst, rms);
        EXPECT_LT(rms, kTolerance) << w << " x " << h;

        std::vector<float> viaComplex = complexInput;
        kf_ComplexFFT2D(viaComplex.data(), s, kf_Direction::Forward, {0, static_cast<int>(h)});
        double diff = 0, norm = 0;
        for (long i = 0; i < 2 * w * h; ++i) {
            diff += (real[i] - viaComplex[i]) * static_cast<double>(real[i] - viaComplex[i]);
            norm += viaComplex[i] * static_cast<double>(viaComplex[i]);
        }
        EXPECT_LT(std::sqrt(diff / norm), kTolerance) << w << " x " << h;

        // The rebuilt columns are exactly the conjugates of their partners.
        for (long r = 0; r < h; ++r)
            for (long k = 1; k < w / 2; ++k) {
                const float* e = &real[2 * (r * w + (w - k))];
                const float* p = &real[2 * (((h - r) % h) * w + k)];
                ASSERT_EQ(std::memcmp(&e[0], &p[0], 4), 0);
                ASSERT_EQ(e[1], -p[1]);
                ASSERT_EQ(std::signbit(e[1]), !std::signbit(p[1]));
            }
    }
    std::cout << "worst relative RMS error, real path: " << worst << "\n";
}

TEST(Engine, OneByOneIsUnchanged)
{
    std::vector<float> data{3.5f, -1.25f};
    kf_ComplexFFT2D(data.data(), dims(1, 1), kf_Direction::Forward, {0, 1});
    EXPECT_EQ(data, (std::vector<float>{3.5f, -1.25f}));
    kf_ComplexFFT2D(data.data(), dims(1, 1), kf_Direction::Inverse, {0, 1});
    EXPECT_EQ(data, (std::vector<float>{3.5f, -1.25f}));
    std::vector<float> real{7.0f, 0.0f};
    kf_RealFFT2D(real.data(), dims(1, 1));
    EXPECT_EQ(real, (std::vector<float>{7.0f, 0.0f}));
}

TEST(Engine, SidesOfOneNeedNoScratchAndTransformTheLine)
{
    // A single column of 8 is the same as a single row of 8.
    const std::vector<float> input = randomFloats(16, 7);
    std::vector<float> column = input, row = input;
    kf_ComplexFFT2D(column.data(), dims(1, 8), kf_Direction::Forward, {0, 8});
    kf_ComplexFFT2D(row.data(), dims(8, 1), kf_Direction::Forward, {0, 1});
    EXPECT_EQ(column, row);
    EXPECT_LT(relativeRms(row.data(), referenceDft(input, 8, 1, true)), kTolerance);
}

TEST(Engine, WidthTwoRealRowIsSumAndDifference)
{
    // Rows (a, b): after the row pass element 0 is a + b and element 1 is a - b.
    std::vector<float> data = packReal({1.0f, 2.0f}, 2, 1);
    kf_RealFFT2D(data.data(), dims(2, 1));
    EXPECT_EQ(data, (std::vector<float>{3.0f, 0.0f, -1.0f, 0.0f}));
}

TEST(Engine, ForwardThenInverseScalesByTheElementCount)
{
    for (auto s : {dims(16, 8), dims(32, 32), dims(4, 64)}) {
        const long n = s.x() * s.y();
        const std::vector<float> input = randomFloats(2 * n, 11);
        std::vector<float> data = input;
        kf_ComplexFFT2D(data.data(), s, kf_Direction::Forward, {0, static_cast<int>(s.y())});
        kf_ComplexFFT2D(data.data(), s, kf_Direction::Inverse, {0, static_cast<int>(s.y())});
        for (long i = 0; i < 2 * n; ++i)
            ASSERT_NEAR(data[i], input[i] * n, 1e-4 * n) << i;
    }
}

TEST(Engine, ConstantRealImageHasOnlyTheZeroFrequency)
{
    std::vector<float> data = packReal(std::vector<float>(16 * 8, 2.5f), 16, 8);
    kf_RealFFT2D(data.data(), dims(16, 8));
    EXPECT_EQ(data[0], 2.5f * 128);
    for (std::size_t i = 1; i < data.size(); ++i)
        ASSERT_EQ(data[i], 0.0f) << i;
}

TEST(Engine, BandsCoveringEveryRowTransformEveryRow)
{
    const std::vector<float> input = randomFloats(2 * 16 * 16, 5);
    std::vector<float> full = input, lastRow = input;
    kf_ComplexFFT2D(full.data(), dims(16, 16), kf_Direction::Forward, {0, 16});
    kf_ComplexFFT2D(lastRow.data(), dims(16, 16), kf_Direction::Forward, {0, 15});
    EXPECT_EQ(full, lastRow);
}

namespace {

// Zeroes the rows whose centred index is outside [lo, hi].
void zeroOutsideBand(std::vector<float>& data, long w, long h, long lo, long hi)
{
    for (long r = 0; r < h; ++r) {
        const long centred = r < h / 2 ? r + h / 2 : r - h / 2;
        if (centred < lo || centred > hi)
            std::fill(data.begin() + 2 * w * r, data.begin() + 2 * w * (r + 1), 0.0f);
    }
}

}  // namespace

TEST(Engine, EveryBandOnSmallSquaresGivesTheUnbandedTransform)
{
    for (long n : {4L, 8L}) {
        for (long lo = 0; lo < n; ++lo)
            for (long hi = lo; hi < n; ++hi)
                for (kf_Direction direction : {kf_Direction::Forward, kf_Direction::Inverse}) {
                    std::vector<float> input = randomFloats(2 * n * n, static_cast<std::uint32_t>(lo * 31 + hi));
                    zeroOutsideBand(input, n, n, lo, hi);
                    std::vector<float> banded = input, plain = input;
                    kf_ComplexFFT2D(banded.data(), dims(n, n), direction,
                                    {static_cast<int>(lo), static_cast<int>(hi)});
                    kf_ComplexFFT2D(plain.data(), dims(n, n), direction, {0, static_cast<int>(n)});
                    // Equal as values: a transformed zero row may hold -0 where a
                    // skipped one holds +0.
                    for (long i = 0; i < 2 * n * n; ++i)
                        ASSERT_EQ(banded[i], plain[i]) << n << " band " << lo << ".." << hi << " at " << i;
                }
    }
}

TEST(Engine, BandSkipsRowsAndStillTransformsCorrectlyOnLargerBuffers)
{
    for (auto s : {dims(64, 64), dims(32, 128), dims(256, 16)}) {
        const long w = s.x(), h = s.y();
        for (auto band : {std::pair<long, long>{h / 2 - 3, h / 2 + 5}, {0, 2}, {h - 4, h - 1}}) {
            std::vector<float> input = randomFloats(2 * w * h, 3);
            zeroOutsideBand(input, w, h, band.first, band.second);
            std::vector<float> banded = input, plain = input;
            kf_ComplexFFT2D(banded.data(), s, kf_Direction::Inverse,
                            {static_cast<int>(band.first), static_cast<int>(band.second)});
            kf_ComplexFFT2D(plain.data(), s, kf_Direction::Inverse, {0, static_cast<int>(h)});
            for (long i = 0; i < 2 * w * h; ++i)
                ASSERT_EQ(banded[i], plain[i]) << w << "x" << h << " at " << i;
        }
    }
}

TEST(Engine, RowsOutsideTheBandAreLeftExactlyAsTheyWere)
{
    // With one side 1 there is no transpose, so the skipped row pass is visible
    // directly: a 16 x 1 buffer whose single row lies outside the band.
    const std::vector<float> input = randomFloats(32, 9);
    std::vector<float> data = input;
    kf_ComplexFFT2D(data.data(), dims(16, 1), kf_Direction::Forward, {1, 1});
    EXPECT_EQ(data, input);
}

TEST(Engine, NonSquareGoesThroughScratch)
{
    const std::vector<float> input = randomFloats(2 * 8 * 2048, 21);
    std::vector<float> data = input;
    kf_ComplexFFT2D(data.data(), dims(8, 2048), kf_Direction::Forward, {0, 2048});
    EXPECT_LT(relativeRms(data.data(), referenceDft(input, 8, 2048, true)), kTolerance);
}

TEST(Engine, TransposeRectMovesEveryElement)
{
    for (auto s : {dims(8, 4), dims(2, 16), dims(16, 2)}) {
        const int cols = static_cast<int>(s.x()), rows = static_cast<int>(s.y());
        std::vector<float> src(2 * cols * rows), dst(2 * cols * rows, std::numeric_limits<float>::quiet_NaN());
        for (std::size_t i = 0; i < src.size(); ++i)
            src[i] = static_cast<float>(i);
        kf_TransposeRect(src.data(), dst.data(), cols, rows);
        for (int r = 0; r < rows; ++r)
            for (int c = 0; c < cols; ++c) {
                ASSERT_EQ(dst[2 * (c * rows + r)], src[2 * (r * cols + c)]);
                ASSERT_EQ(dst[2 * (c * rows + r) + 1], src[2 * (r * cols + c) + 1]);
            }
    }
}

TEST(Engine, PollingCounts)
{
    auto polls = [](auto run) {
        kxAttention::Probe probe;
        run();
        return probe.count();
    };
    std::vector<float> data(2 * 64 * 64 + 8, 0.0f);
    auto forward = [&](kxPair<long> size, kf_RowBand band) {
        return polls([&] { kf_ComplexFFT2D(data.data(), size, kf_Direction::Forward, band); });
    };
    // Complex 64 x 64: 4 polls per pass (rows 0, 16, 32, 48), two banded transposes.
    EXPECT_EQ(forward(dims(64, 64), {0, 64}), 4u + 1 + 4 + 1);
    // A band of centred rows 32..40 keeps storage rows 0..8: one poll in the row pass.
    EXPECT_EQ(forward(dims(64, 64), {32, 40}), 1u + 1 + 4 + 1);
    // Complex 32 x 16 through scratch: 1 + transpose + 2 + transpose.
    EXPECT_EQ(forward(dims(32, 16), {0, 16}), 1u + 1 + 2 + 1);
    // Real 64 x 64: 4 row polls, square transpose, rows 0..32 -> 3 polls, transpose, fill.
    EXPECT_EQ(polls([&] { kf_RealFFT2D(data.data(), dims(64, 64)); }), 4u + 1 + 3 + 1 + 1);
    // Real 2 x 2: no poll in the small transposes; 1 + 1 + fill.
    EXPECT_EQ(polls([&] { kf_RealFFT2D(data.data(), dims(2, 2)); }), 1u + 1 + 1);
    // Real 1 x 32: no row pass, no transpose, one line of 32, fill.
    EXPECT_EQ(polls([&] { kf_RealFFT2D(data.data(), dims(1, 32)); }), 1u + 1);
    // Complex 4 x 4: one banded transpose poll each way; 2 x 2: none.
    EXPECT_EQ(forward(dims(4, 4), {0, 4}), 1u + 1 + 1 + 1);
    EXPECT_EQ(forward(dims(2, 2), {0, 2}), 2u);
}

TEST(Engine, AnAttentionStopPropagatesFromAnyPoll)
{
    std::vector<float> data(2 * 64 * 32, 1.0f);
    for (unsigned long n = 1; n <= 5; ++n) {
        kxAttention::Probe probe(n);
        EXPECT_THROW(kf_ComplexFFT2D(data.data(), dims(64, 32), kf_Direction::Forward, {0, 32}), kxAttention::Stopped);
        EXPECT_EQ(probe.count(), n);
    }
    for (unsigned long n = 1; n <= 7; ++n) {
        kxAttention::Probe probe(n);
        EXPECT_THROW(kf_RealFFT2D(data.data(), dims(64, 32)), kxAttention::Stopped);
    }
}

namespace {

// A fixed linear congruential generator: the golden inputs must not depend
// on the standard library's distributions.
std::vector<float> lcgImage(long count, std::uint32_t seed)
{
    std::vector<float> v(count);
    std::uint32_t state = seed;
    for (float& f : v) {
        state = state * 1664525u + 1013904223u;
        f = static_cast<float>(state >> 24);   // 0..255, exact in float
    }
    return v;
}

}  // namespace

// The engine's exact output for fixed inputs. These values were recorded once
// the engine matched the reference DFT and had been checked step by step
// against its algorithm; any change to the order of operations shows here.
TEST(Engine, GoldenBitPatterns)
{
    std::vector<float> ramp(16 * 8);
    for (long i = 0; i < 16 * 8; ++i)
        ramp[i] = static_cast<float>(i % 16 + 3 * (i / 16));
    std::vector<float> rampReal = packReal(ramp, 16, 8);
    std::vector<float> rampComplex = asComplex(ramp);
    kf_RealFFT2D(rampReal.data(), dims(16, 8));
    kf_ComplexFFT2D(rampComplex.data(), dims(16, 8), kf_Direction::Forward, {0, 8});

    std::vector<float> impulse(2 * 8 * 8, 0.0f);
    impulse[2 * (5 * 8 + 3)] = 1.0f;
    kf_ComplexFFT2D(impulse.data(), dims(8, 8), kf_Direction::Forward, {0, 8});

    std::vector<float> noise = packReal(lcgImage(32 * 4, 12345), 32, 4);
    kf_RealFFT2D(noise.data(), dims(32, 4));
    std::vector<float> noiseInverse = asComplex(lcgImage(32 * 4, 999));
    kf_ComplexFFT2D(noiseInverse.data(), dims(32, 4), kf_Direction::Inverse, {0, 4});

    std::vector<float> wide = asComplex(lcgImage(2048 * 2, 7));
    kf_ComplexFFT2D(wide.data(), dims(2048, 2), kf_Direction::Forward, {0, 2});
    std::vector<float> wideReal = packReal(lcgImage(2048 * 2, 7), 2048, 2);
    kf_RealFFT2D(wideReal.data(), dims(2048, 2));

    EXPECT_EQ(bitHash(rampReal), 0x6aa000b403b6fbd3ull);
    EXPECT_EQ(bitHash(rampComplex), 0x693f362c3884aed3ull);
    EXPECT_EQ(bitHash(impulse), 0x39b830d147a6bb43ull);
    EXPECT_EQ(bitHash(noise), 0xa3c03642517fbddaull);
    EXPECT_EQ(bitHash(noiseInverse), 0x4265488b864c1bc3ull);
    EXPECT_EQ(bitHash(wide), 0x483e577aa38a18a8ull);
    EXPECT_EQ(bitHash(wideReal), 0x29cce2df4f60fb48ull);
}

// The row kernel's depth-first order against the published stage-by-stage order.
namespace {

std::vector<float> randomKernelRow(int n, unsigned seed)
{
    std::mt19937 generator(seed);
    std::uniform_real_distribution<float> value(-100.0f, 100.0f);
    std::vector<float> row(2 * static_cast<std::size_t>(n));
    for (float& f : row)
        f = value(generator);
    return row;
}

}  // namespace

TEST(Engine, DepthFirstMatchesStageByStageBitForBit)
{
    for (kf_Direction direction : {kf_Direction::Forward, kf_Direction::Inverse}) {
        const kf_RotationTable rotation(1);
        for (int n = 1; n <= 2048; n *= 2) {
            std::vector<std::int32_t> bitReverse(2 * static_cast<std::size_t>(n));
            kf_BitReverseTable(bitReverse.data(), n);
            const std::vector<float> input = randomKernelRow(n, static_cast<unsigned>(n));
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

TEST(Engine, DepthFirstComputesTheTransform)
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
