#include "fft/buffer_access.h"
#include "test_helpers.h"

#include <kx/fft.h>

#include <gtest/gtest.h>

using Access = kx_FrequencyBufferAccess;
using Defs = kxFrequencyDefs;
using kxtest::expectError;

namespace {

using kxtest::kNotInit;
const char* const kInverse = "Cannot access frequency data once inverse has been computed.";

// Element (x, y) = (seed + x - y, seed * 0.5 + x * y), over the padded size.
kxFrequencyBuffer filled(long w, long h, double seed)
{
    kxFrequencyBuffer b(w, h);
    for (long y = 0; y < b.height(); ++y)
        for (long x = 0; x < b.width(); ++x)
            b.put(x, y, kxPair<double>(seed + x - y, seed * 0.5 + x * y), false);
    return b;
}

kxFrequencyBuffer flagged(long w, long h)
{
    kxFrequencyBuffer b = filled(w, h, 1);
    Access::inverseComputed(b, true);
    return b;
}

// The expected value of op on every element, computed in float as the library does.
template <typename Op>
void expectElementwise(const kxFrequencyBuffer& result, const kxFrequencyBuffer& a, const kxFrequencyBuffer& b, Op op)
{
    for (long y = 0; y < result.height(); ++y)
        for (long x = 0; x < result.width(); ++x) {
            const kxPair<double> ea = a.get(x, y, false), eb = b.get(x, y, false);
            const kxPair<float> expected = op(static_cast<float>(ea.x()), static_cast<float>(ea.y()),
                                              static_cast<float>(eb.x()), static_cast<float>(eb.y()));
            ASSERT_EQ(result.get(x, y, false), kxPair<double>(expected.x(), expected.y())) << x << "," << y;
        }
}

kxPair<float> product(float ar, float ai, float br, float bi) { return {ar * br - ai * bi, ai * br + ar * bi}; }
kxPair<float> sum(float ar, float ai, float br, float bi) { return {ar + br, ai + bi}; }
kxPair<float> difference(float ar, float ai, float br, float bi) { return {ar - br, ai - bi}; }

}  // namespace

TEST(Arithmetic, InPlaceFormsComputeEveryElementIncludingPadding)
{
    const kxFrequencyBuffer a = filled(5, 3, 2), b = filled(5, 3, -7);
    kxFrequencyBuffer r = a;
    kfFrequencyMultiply(b, r);
    expectElementwise(r, a, b, product);
    r = a;
    kfFrequencyAdd(b, r);
    expectElementwise(r, a, b, sum);
    r = a;
    kfFrequencySubtract(b, r);
    expectElementwise(r, a, b, difference);
    r = a;
    kfFrequencyConjugate(r);
    for (long y = 0; y < 4; ++y)
        for (long x = 0; x < 8; ++x)
            ASSERT_EQ(r.get(x, y, false), kxPair<double>(a.getReal(x, y, false), -a.getImaginary(x, y, false)));
}

TEST(Arithmetic, DestinationKeepsItsFields)
{
    kxFrequencyBuffer dst = filled(100, 100, 1);
    Access::band(dst, 1, 60, 70);
    Access::offset(dst, kxPair<long>(3, 3));
    const kxFrequencyBuffer src = filled(128, 128, 5);   // pads alike
    kfFrequencyAdd(src, dst);
    EXPECT_EQ(Access::requestedWidth(dst), 100);
    EXPECT_EQ(Access::masked(dst), 1);
    EXPECT_EQ(Access::maskedMiny(dst), 60);
    EXPECT_EQ(Access::offset(dst), kxPair<long>(3, 3));
    kxFrequencyBuffer result;
    kfFrequencyMultiply(dst, src, result);
    EXPECT_EQ(Access::requestedWidth(result), 100);   // a's fields
}

TEST(Arithmetic, ResultFormsAndAliasing)
{
    const kxFrequencyBuffer a0 = filled(8, 8, 3), b0 = filled(8, 8, -2);
    {
        kxFrequencyBuffer a = a0, b = b0;
        kfFrequencySubtract(a, b, b);   // a - b, not b - a
        expectElementwise(b, a0, b0, difference);
    }
    {
        kxFrequencyBuffer a = a0;
        kfFrequencyAdd(a, a, a);
        expectElementwise(a, a0, a0, sum);
    }
    {
        kxFrequencyBuffer a = a0;
        kfFrequencyMultiply(a, a, a);
        expectElementwise(a, a0, a0, product);
    }
    {
        kxFrequencyBuffer a = a0, b = b0, r;
        kfFrequencyMultiply(a, b, r);
        expectElementwise(r, a0, b0, product);
        kfFrequencyAdd(a, b, r);
        expectElementwise(r, a0, b0, sum);
        kfFrequencySubtract(a, b, r);
        expectElementwise(r, a0, b0, difference);
        kfFrequencySubtract(a, b, a);
        expectElementwise(a, a0, b0, difference);
    }
}

TEST(Arithmetic, ResultIsBKeepsBsFieldsForMultiplyAndAddButNotSubtract)
{
    kxFrequencyBuffer a = filled(100, 100, 1), b = filled(128, 128, 2);
    Access::offset(a, kxPair<long>(1, 1));
    Access::offset(b, kxPair<long>(9, 9));
    kxFrequencyBuffer m = b, s = b;
    kfFrequencyMultiply(a, m, m);
    EXPECT_EQ(Access::requestedWidth(m), 128);
    EXPECT_EQ(Access::offset(m), kxPair<long>(9, 9));
    kfFrequencySubtract(a, s, s);
    EXPECT_EQ(Access::requestedWidth(s), 100);
    EXPECT_EQ(Access::offset(s), kxPair<long>(1, 1));
}

TEST(Arithmetic, ConjugatingTwiceRestoresExactly)
{
    const kxFrequencyBuffer a = filled(16, 4, 1.5);
    kxFrequencyBuffer c;
    kfFrequencyConjugate(a, c);
    kfFrequencyConjugate(c);
    EXPECT_TRUE(c == a);
    kxFrequencyBuffer same = a;
    kfFrequencyConjugate(same, same);
    EXPECT_EQ(same.getImaginary(3, 2, false), -a.getImaginary(3, 2, false));
}

TEST(Arithmetic, CheckOrderOfEachFunction)
{
    const kxFrequencyBuffer none, good = filled(8, 8, 1), other = filled(16, 8, 1), inv = flagged(8, 8),
                                  invOther = flagged(16, 8);
    using U = Defs::Uninitialized;
    using B = Defs::InvalidBuffer;
    using S = Defs::InvalidSize;
    auto copy = [](const kxFrequencyBuffer& b) { return b; };

    // Multiply (src, dst): dst data, src data, size, src flag, dst flag.
    expectError<U>([&] { kxFrequencyBuffer d; kfFrequencyMultiply(none, d); }, kNotInit);
    expectError<U>([&] { kxFrequencyBuffer d = copy(inv); kfFrequencyMultiply(none, d); }, kNotInit);
    expectError<S>([&] { kxFrequencyBuffer d = copy(inv); kfFrequencyMultiply(invOther, d); },
                   "Can only multiply equal-sized frequency buffers.");
    expectError<B>([&] { kxFrequencyBuffer d = copy(inv); kfFrequencyMultiply(inv, d); }, kInverse);
    expectError<B>([&] { kxFrequencyBuffer d = copy(inv); kfFrequencyMultiply(good, d); }, kInverse);

    // Add and subtract (src, dst): dst data, src data, src flag, dst flag, size.
    expectError<B>([&] { kxFrequencyBuffer d = copy(other); kfFrequencyAdd(inv, d); }, kInverse);
    expectError<B>([&] { kxFrequencyBuffer d = copy(invOther); kfFrequencyAdd(good, d); }, kInverse);
    expectError<S>([&] { kxFrequencyBuffer d = copy(other); kfFrequencyAdd(good, d); },
                   "Can only add equal-sized frequency buffers.");
    expectError<B>([&] { kxFrequencyBuffer d = copy(other); kfFrequencySubtract(inv, d); }, kInverse);
    expectError<S>([&] { kxFrequencyBuffer d = copy(other); kfFrequencySubtract(good, d); },
                   "Can only subtract equal-sized frequency buffers.");
    expectError<U>([&] { kxFrequencyBuffer d; kfFrequencySubtract(good, d); }, kNotInit);

    // Multiply and add (a, b, result): a data, b data, a flag, b flag, size.
    kxFrequencyBuffer r;
    expectError<U>([&] { kfFrequencyMultiply(none, inv, r); }, kNotInit);
    expectError<U>([&] { kfFrequencyAdd(inv, none, r); }, kNotInit);
    expectError<B>([&] { kfFrequencyMultiply(inv, other, r); }, kInverse);
    expectError<B>([&] { kfFrequencyAdd(good, invOther, r); }, kInverse);
    expectError<S>([&] { kfFrequencyAdd(good, other, r); }, "Can only add equal-sized frequency buffers.");

    // Subtract (a, b, result): a data, b data, size, a flag, b flag.
    expectError<S>([&] { kfFrequencySubtract(inv, invOther, r); }, "Can only subtract equal-sized frequency buffers.");
    expectError<B>([&] { kfFrequencySubtract(inv, inv, r); }, kInverse);
    expectError<B>([&] { kfFrequencySubtract(good, inv, r); }, kInverse);

    // Conjugate: data, flag; (src, dst): src data, src flag, then dst's.
    expectError<U>([&] { kxFrequencyBuffer d; kfFrequencyConjugate(d); }, kNotInit);
    expectError<B>([&] { kxFrequencyBuffer d = copy(inv); kfFrequencyConjugate(d); }, kInverse);
    expectError<U>([&] { kxFrequencyBuffer d; kfFrequencyConjugate(none, d); }, kNotInit);
    expectError<B>([&] { kxFrequencyBuffer d; kfFrequencyConjugate(inv, d); }, kInverse);
    EXPECT_THROW(r.width(), U);   // no failed call changed the result
}

TEST(Arithmetic, AFlaggedResultIsSimplyReplaced)
{
    kxFrequencyBuffer r = flagged(8, 8);
    const kxFrequencyBuffer a = filled(8, 8, 1), b = filled(8, 8, 2);
    kfFrequencyAdd(a, b, r);
    EXPECT_FALSE(Access::inverseComputed(r));
    expectElementwise(r, a, b, sum);
}

// Registration, a real use: the spectrum of one image times the conjugate of
// the other's is the spectrum of their circular cross-correlation, which
// peaks at the shift between them.
TEST(Arithmetic, CrossCorrelationPeaksAtTheShift)
{
    const long w = 64, h = 32, dx = 11, dy = 5;
    auto pattern = [](long x, long y) {
        return static_cast<unsigned char>((x * x * 7 + y * 13 + ((x * y) % 5) * 40) % 256);
    };
    auto a = kxtest::imageFrom<unsigned char>(w, h, [&](long x, long y) { return pattern(x, y); });
    auto b = kxtest::imageFrom<unsigned char>(w, h, [&](long x, long y) {
        return pattern((x - dx + w) % w, (y - dy + h) % h);
    });
    kxFrequencyBuffer fa, fb;
    kfForwardFFT<unsigned char>(a, fa);
    kfForwardFFT<unsigned char>(b, fb);
    kfFrequencyConjugate(fa);
    kxFrequencyBuffer cross;
    kfFrequencyMultiply(fb, fa, cross);
    kxPelBuffer<double> re, im;
    kfInverseFFT(cross, re, im);
    long bx = -1, by = -1;
    double best = -1e300;
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x)
            if (re(x, y) > best) {
                best = re(x, y);
                bx = x;
                by = y;
            }
    EXPECT_EQ(bx, dx);
    EXPECT_EQ(by, dy);
}
