// Phase correlation: integer and sub-pixel shifts on natural-looking
// content of sizes that are not powers of two, confidence, the correlation
// surface, every pixel type, and bad input.
#include "synthetic.h"
#include "test_helpers.h"

#include <kx/analysis.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

namespace {

using kxsynth::Field;

struct Size {
    long w, h;
};

// reference = canvas window at (m, m); moving = the window at (m - dx, m - dy),
// so that moving(x + dx, y + dy) = reference(x, y).
struct Pair {
    Field reference, moving;
};

Pair shiftedPair(const Field& canvas, long m, long w, long h, long dx, long dy)
{
    return Pair{kxsynth::crop(canvas, m, m, w, h), kxsynth::crop(canvas, m - dx, m - dy, w, h)};
}

// Shifts up to +-60 px in each direction, drawn with a fixed seed, plus the
// extreme corners. Along a side shorter than 150 px the limit is 40 % of
// the side: beyond half the side the two views share less than half their
// content, and the window leaves little of that.
std::vector<std::pair<long, long>> testShifts(unsigned seed, long count, long w, long h)
{
    const long lx = std::min(60L, w * 2 / 5), ly = std::min(60L, h * 2 / 5);
    std::mt19937 rng(seed);
    std::uniform_int_distribution<long> dx(-lx, lx), dy(-ly, ly);
    std::vector<std::pair<long, long>> shifts = {{lx, -ly}, {-lx, ly}, {0, 0}, {24, -16}};
    while (static_cast<long>(shifts.size()) < count)
        shifts.emplace_back(dx(rng), dy(rng));
    return shifts;
}

class IntegerShifts : public ::testing::TestWithParam<Size> {};

// Integer shifts with noise (sigma 4 grey levels) and a brightness and
// contrast change on the moving image: every shift within half a pixel.
TEST_P(IntegerShifts, FoundWithinHalfAPixel)
{
    const Size s = GetParam();
    const long m = 64;
    const Field canvas = kxsynth::naturalImage(s.w + 2 * m, s.h + 2 * m, 1234u + static_cast<unsigned>(s.w));
    unsigned seed = 77;
    for (const auto& shift : testShifts(static_cast<unsigned>(s.h), 16, s.w, s.h)) {
        const Pair p = shiftedPair(canvas, m, s.w, s.h, shift.first, shift.second);
        const auto ref = kxsynth::toPixels(kxsynth::degrade(p.reference, 1.0, 0.0, 4.0, seed++));
        const auto mov = kxsynth::toPixels(kxsynth::degrade(p.moving, 0.8, 30.0, 4.0, seed++));
        const kxPhaseCorrelation r = kfPhaseCorrelate<unsigned char>(ref, mov);
        EXPECT_NEAR(r.dx, static_cast<double>(shift.first), 0.5) << s.w << "x" << s.h << " dy " << shift.second;
        EXPECT_NEAR(r.dy, static_cast<double>(shift.second), 0.5) << s.w << "x" << s.h << " dx " << shift.first;
        EXPECT_GT(r.confidence, 0.045);
    }
}

INSTANTIATE_TEST_SUITE_P(NonPowerOfTwo, IntegerShifts,
                         ::testing::Values(Size{200, 180}, Size{300, 250}, Size{333, 97}),
                         [](const auto& info) {
                             return std::to_string(info.param.w) + "x" + std::to_string(info.param.h);
                         });

class SubPixelShifts : public ::testing::TestWithParam<Size> {};

// Half-pixel shifts: a twice larger image shifted by an odd number of
// pixels, then both halved by averaging 2 x 2 blocks.
TEST_P(SubPixelShifts, HalfPixelByBlockAveraging)
{
    const Size s = GetParam();
    const long m = 2 * 64;
    const Field canvas = kxsynth::naturalImage(2 * s.w + 2 * m, 2 * s.h + 2 * m, 99u);
    const std::pair<long, long> fine[] = {{1, 1}, {7, -13}, {-21, 5}, {-3, -1}, {45, 31}, {-61, 9}};
    unsigned seed = 5;
    for (const auto& f : fine) {
        const Pair p = shiftedPair(canvas, m, 2 * s.w, 2 * s.h, f.first, f.second);
        const auto ref = kxsynth::toPixels(kxsynth::degrade(kxsynth::halve(p.reference), 1.0, 0.0, 1.0, seed++));
        const auto mov = kxsynth::toPixels(kxsynth::degrade(kxsynth::halve(p.moving), 1.0, 0.0, 1.0, seed++));
        const kxPhaseCorrelation r = kfPhaseCorrelate<unsigned char>(ref, mov);
        EXPECT_NEAR(r.dx, f.first / 2.0, 0.2) << s.w << "x" << s.h;
        EXPECT_NEAR(r.dy, f.second / 2.0, 0.2) << s.w << "x" << s.h;
    }
}

// Fractional shifts through the spectrum of a larger canvas, then cropped.
TEST_P(SubPixelShifts, FourierShifted)
{
    const Size s = GetParam();
    const long m = 24;
    const Field canvas = kxsynth::naturalImage(s.w + 2 * m, s.h + 2 * m, 4242u);
    const std::pair<double, double> shifts[] = {{0.5, -0.5}, {3.3, -7.6}, {-12.25, 4.75}, {0.1, 0.9}, {-6.8, -2.4}};
    for (const auto& d : shifts) {
        const Field moved = kxsynth::fourierShift(canvas, d.first, d.second);
        const auto ref = kxsynth::toDoubles(kxsynth::crop(canvas, m, m, s.w, s.h));
        const auto mov = kxsynth::toDoubles(kxsynth::crop(moved, m, m, s.w, s.h));
        const kxPhaseCorrelation r = kfPhaseCorrelate<double>(ref, mov);
        EXPECT_NEAR(r.dx, d.first, 0.2) << s.w << "x" << s.h;
        EXPECT_NEAR(r.dy, d.second, 0.2) << s.w << "x" << s.h;
    }
}

INSTANTIATE_TEST_SUITE_P(NonPowerOfTwo, SubPixelShifts,
                         ::testing::Values(Size{200, 180}, Size{300, 250}, Size{333, 97}),
                         [](const auto& info) {
                             return std::to_string(info.param.w) + "x" + std::to_string(info.param.h);
                         });

// The confidence separates a true pair from two unrelated images.
TEST(PhaseCorrelate, ConfidenceHighForATruePairLowForUnrelatedImages)
{
    const long w = 200, h = 180, m = 64;
    const Field a = kxsynth::naturalImage(w + 2 * m, h + 2 * m, 1u);
    const Field b = kxsynth::naturalImage(w, h, 2u);
    const Pair p = shiftedPair(a, m, w, h, 17, -9);
    const auto ref = kxsynth::toPixels(kxsynth::degrade(p.reference, 1.0, 0.0, 4.0, 3u));
    const auto mov = kxsynth::toPixels(kxsynth::degrade(p.moving, 0.8, 30.0, 4.0, 4u));
    const auto other = kxsynth::toPixels(b);
    const double truePair = kfPhaseCorrelate<unsigned char>(ref, mov).confidence;
    const double unrelated = kfPhaseCorrelate<unsigned char>(ref, other).confidence;
    const double self = kfPhaseCorrelate<unsigned char>(ref, ref).confidence;
    EXPECT_GT(truePair, 0.15);
    EXPECT_LT(unrelated, 0.06);
    EXPECT_GT(truePair, 3.0 * unrelated);
    EXPECT_GT(self, 0.99);
    EXPECT_LE(self, 1.0);
    EXPECT_GE(unrelated, 0.0);
}

// The surface has the padded size, the zero shift in its middle, and its
// highest sample at the integer shift found.
TEST(PhaseCorrelate, SurfaceIsCentredOnThePaddedGrid)
{
    const long w = 200, h = 180, m = 64;
    const Field canvas = kxsynth::naturalImage(w + 2 * m, h + 2 * m, 8u);
    const Pair p = shiftedPair(canvas, m, w, h, -31, 22);
    kxPelBuffer<double> surface;
    const kxPhaseCorrelation r =
        kfPhaseCorrelate<unsigned char>(kxsynth::toPixels(p.reference), kxsynth::toPixels(p.moving),
                                        kxPhaseCorrelationOptions(), &surface);
    ASSERT_EQ(surface.width(), 256);
    ASSERT_EQ(surface.height(), 256);
    long bx = 0, by = 0;
    for (long y = 0; y < 256; ++y)
        for (long x = 0; x < 256; ++x)
            if (surface(x, y) > surface(bx, by)) {
                bx = x;
                by = y;
            }
    EXPECT_EQ(bx, 128 - 31);
    EXPECT_EQ(by, 128 + 22);
    EXPECT_NEAR(r.dx, -31.0, 0.01);
    EXPECT_NEAR(r.dy, 22.0, 0.01);
    EXPECT_LE(surface(bx, by), 1.0);
}

// 8-bit, 16-bit and double images of the same content agree; so do the
// windows, each within half a pixel.
TEST(PhaseCorrelate, EveryPixelTypeAndWindow)
{
    const long w = 160, h = 120, m = 40;
    const Field canvas = kxsynth::naturalImage(w + 2 * m, h + 2 * m, 21u);
    const Pair p = shiftedPair(canvas, m, w, h, 13, -27);
    const auto ref8 = kxsynth::toPixels(p.reference), mov8 = kxsynth::toPixels(p.moving);
    kxPelBuffer<unsigned short> ref16(w, h), mov16(w, h);
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x) {
            ref16(x, y) = static_cast<unsigned short>(ref8(x, y) * 257);
            mov16(x, y) = static_cast<unsigned short>(mov8(x, y) * 257);
        }
    const kxPhaseCorrelation r8 = kfPhaseCorrelate<unsigned char>(ref8, mov8);
    const kxPhaseCorrelation r16 = kfPhaseCorrelate<unsigned short>(ref16, mov16);
    const kxPhaseCorrelation rd = kfPhaseCorrelate<double>(kxsynth::toDoubles(p.reference), kxsynth::toDoubles(p.moving));
    for (const auto& r : {r8, r16, rd}) {
        EXPECT_NEAR(r.dx, 13.0, 0.05);
        EXPECT_NEAR(r.dy, -27.0, 0.05);
    }
    EXPECT_NEAR(r16.confidence, r8.confidence, 1e-3);
    for (const kxWindow& window : {kxWindow::none(), kxWindow::tukey(0.25), kxWindow::tukey(1.0)}) {
        kxPhaseCorrelationOptions options;
        options.window = window;
        const kxPhaseCorrelation r = kfPhaseCorrelate<unsigned char>(ref8, mov8, options);
        EXPECT_NEAR(r.dx, 13.0, 0.5) << window.type << " " << window.taper;
        EXPECT_NEAR(r.dy, -27.0, 0.5) << window.type << " " << window.taper;
    }
}

// Without mean removal or window, zero padding a bright image puts a peak
// at zero shift: the reason both are on by default.
TEST(PhaseCorrelate, PaddingStepWithoutMeanRemovalPullsTowardsZero)
{
    const long w = 200, h = 180, m = 64;
    const Field canvas = kxsynth::naturalImage(w + 2 * m, h + 2 * m, 31u);
    const Pair p = shiftedPair(canvas, m, w, h, 40, -35);
    const auto ref = kxsynth::toPixels(kxsynth::degrade(p.reference, 0.5, 120.0, 0.0, 1u));
    const auto mov = kxsynth::toPixels(kxsynth::degrade(p.moving, 0.5, 120.0, 0.0, 1u));
    kxPhaseCorrelationOptions raw;
    raw.window = kxWindow::none();
    raw.removeMean = false;
    kxPelBuffer<double> surface;
    kfPhaseCorrelate<unsigned char>(ref, mov, raw, &surface);
    EXPECT_GT(surface(128, 128), 0.02);   // the padding's own peak at zero shift
    const kxPhaseCorrelation r = kfPhaseCorrelate<unsigned char>(ref, mov);
    EXPECT_NEAR(r.dx, 40.0, 0.5);
    EXPECT_NEAR(r.dy, -35.0, 0.5);
}

TEST(PhaseCorrelate, BadInput)
{
    using kxtest::expectError;
    using Size_ = kxFrequencyDefs::InvalidSize;
    const kxPelBuffer<unsigned char> a(20, 10), b(20, 11), unbound, empty(0, 5), wide(2049, 4);
    expectError<kxFrequencyDefs::UnboundWindow>([&] { kfPhaseCorrelate<unsigned char>(unbound, a); },
                                                "Image is not bound.");
    expectError<kxFrequencyDefs::UnboundWindow>([&] { kfPhaseCorrelate<unsigned char>(a, unbound); },
                                                "Image is not bound.");
    expectError<Size_>([&] { kfPhaseCorrelate<unsigned char>(empty, empty); }, "Image must not be empty.");
    expectError<Size_>([&] { kfPhaseCorrelate<unsigned char>(wide, wide); },
                       "Width and Height must be no larger than 2048.");
    expectError<Size_>([&] { kfPhaseCorrelate<unsigned char>(a, b); },
                       "Reference and moving images must have the same size.");
    kxPhaseCorrelationOptions nan;
    nan.window = kxWindow::tukey(std::nan(""));
    expectError<kxFrequencyDefs::InvalidArgument>([&] { kfPhaseCorrelate<unsigned char>(a, a, nan); },
                                                  "Tukey taper must be between 0.0 and 1.0.");
    kxPhaseCorrelationOptions unknown;
    unknown.window.type = static_cast<kxWindow::Type>(7);
    expectError<kxFrequencyDefs::InvalidArgument>([&] { kfPhaseCorrelate<unsigned char>(a, a, unknown); },
                                                  "Unknown window type.");
    const kxPelBuffer<double> d(3, 3), dUnbound;
    expectError<kxFrequencyDefs::UnboundWindow>([&] { kfPhaseCorrelate<double>(d, dUnbound); }, "Image is not bound.");
}

// A 1 x 1 pair has nothing to correlate after mean removal: no shift, no
// confidence, and no failure.
TEST(PhaseCorrelate, TinyImages)
{
    kxPelBuffer<unsigned char> one(1, 1);
    one(0, 0) = 7;
    const kxPhaseCorrelation r = kfPhaseCorrelate<unsigned char>(one, one);
    EXPECT_EQ(r.dx, 0.0);
    EXPECT_EQ(r.dy, 0.0);
    EXPECT_EQ(r.confidence, 0.0);

    // One row: the shift along it, none across.
    const Field line = kxsynth::naturalImage(200, 1, 9u);
    const auto ref = kxsynth::toDoubles(kxsynth::crop(line, 40, 0, 120, 1));
    const auto mov = kxsynth::toDoubles(kxsynth::crop(line, 33, 0, 120, 1));
    const kxPhaseCorrelation row = kfPhaseCorrelate<double>(ref, mov);
    EXPECT_NEAR(row.dx, 7.0, 0.1);
    EXPECT_EQ(row.dy, 0.0);
}

}  // namespace
