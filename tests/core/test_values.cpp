#include <kx/core/core.h>

#include <gtest/gtest.h>

#include <cmath>

namespace {
constexpr double kPi = 3.141592653589793;
}

TEST(Pair, DefaultsToZeroAndReadsAndWrites)
{
    kxPair<long> p;
    EXPECT_EQ(p.x(), 0);
    EXPECT_EQ(p.y(), 0);
    p.x(3);
    p.y(-4);
    EXPECT_EQ(p, kxPair<long>(3, -4));
    EXPECT_NE(p, kxPair<long>(3, 4));
    kxPair<double> d;
    EXPECT_EQ(d.x(), 0.0);
}

TEST(Radian, NormBringsAnglesIntoMinusPiToPi)
{
    EXPECT_EQ(kxRadian(0.5).norm().toDouble(), 0.5);
    EXPECT_EQ(kxRadian(kPi).norm().toDouble(), kPi);             // pi stays
    EXPECT_NEAR(kxRadian(-kPi).norm().toDouble(), kPi, 1e-15);    // -pi becomes pi
    EXPECT_NEAR(kxRadian(3 * kPi / 2).norm().toDouble(), -kPi / 2, 1e-15);
    EXPECT_NEAR(kxRadian(-7.0).norm().toDouble(), -7.0 + 2 * kPi, 1e-15);
    EXPECT_NEAR(kxRadian(100.0).norm().toDouble(), std::remainder(100.0, 2 * kPi), 1e-12);
    EXPECT_TRUE(std::isnan(kxRadian(INFINITY).norm().toDouble()));
    EXPECT_EQ((-kxRadian(1.25)).toDouble(), -1.25);
    EXPECT_EQ(kxRadian(), kxRadian(0.0));
    EXPECT_NE(kxRadian(1.0), kxRadian(2.0));
}

TEST(Geometry, ZeroAnglesGiveAPureScale)
{
    kxMatrix<2> m(kxRadian(0), kxRadian(0), 2.0, 3.0);
    EXPECT_EQ(m, kxMatrix<2>(2.0, 0.0, 0.0, 3.0));
}

TEST(Geometry, XformWithZeroSkewAndUnitScaleIsARotation)
{
    const double a = 0.7;
    kxXform<2> t(kxVector<2>(0, 0), 1.0, 1.0, kxRadian(0.0), kxRadian(-a));
    kxVector<2> v = t * kxVector<2>(1.0, 0.0);
    EXPECT_DOUBLE_EQ(v.x(), std::cos(a));
    EXPECT_DOUBLE_EQ(v.y(), -std::sin(a));
    kxVector<2> w = t * kxVector<2>(std::cos(a), std::sin(a));   // back onto the x axis
    EXPECT_NEAR(w.x(), 1.0, 1e-15);
    EXPECT_NEAR(w.y(), 0.0, 1e-15);
}

TEST(Geometry, CompositionAppliesTheRightOperandFirst)
{
    kxXform<2> scale(kxMatrix<2>(2.0, 0.0, 0.0, 2.0), kxVector<2>(0, 0));
    kxXform<2> shift(kxMatrix<2>(), kxVector<2>(1.0, -1.0));
    kxVector<2> p(3.0, 4.0);
    EXPECT_EQ((scale * shift) * p, scale * (shift * p));
    EXPECT_EQ((scale * shift) * p, kxVector<2>(8.0, 6.0));
    EXPECT_EQ((shift * scale) * p, kxVector<2>(7.0, 7.0));
}

TEST(XformCache, IdentityByDefaultAndCopiesIndependently)
{
    kx2XformCache cache;
    ASSERT_TRUE(cache.isLinear());
    EXPECT_EQ(cache.linearXform(), kxXform<2>());
    kxXform<2> shift(kxMatrix<2>(), kxVector<2>(5.0, 6.0));
    cache.xform(kx2XformLinear(shift));
    kx2XformCache copy = cache;
    EXPECT_EQ(copy, cache);
    cache.xform(kx2XformLinear(kxXform<2>()));
    EXPECT_EQ(copy.linearXform(), shift);
    EXPECT_NE(copy, cache);
    kx2XformCache moved = std::move(copy);
    EXPECT_EQ(moved.linearXform(), shift);
    EXPECT_EQ(copy.linearXform(), kxXform<2>());   // a moved-from cache is the identity again
}
