#include "fft/buffer_access.h"
#include "test_helpers.h"

#include <kx/freqfilt.h>

#include <gtest/gtest.h>

#include <memory>

using Access = kx_FrequencyBufferAccess;
using Defs = kxFrequencyDefs;
using kxtest::expectError;

namespace {

using kxtest::kNotInit;

kxFrequencyBuffer ramp(long w, long h, double scale)
{
    kxFrequencyBuffer b(w, h);
    for (long y = 0; y < b.height(); ++y)
        for (long x = 0; x < b.width(); ++x)
            b.put(x, y, kxPair<double>(scale * (x + 1), scale * (y - x)), false);
    return b;
}

}  // namespace

TEST(ImageFilter, SupportIsThePaddedSizeAndAnyRequestedSizeApplies)
{
    kxFrequencyFilterImage filter(ramp(100, 50, 0.5));
    EXPECT_EQ(filter.supportWidth(), 128);
    EXPECT_EQ(filter.supportHeight(), 64);
    kxFrequencyBuffer b = ramp(128, 64, 1);
    Access::setAndAllocate(b, 120, 40);
    const kxFrequencyBuffer before = b;
    filter.apply(b);
    kxFrequencyBuffer expected = before;
    kfFrequencyMultiply(ramp(100, 50, 0.5), expected);
    EXPECT_TRUE(b == expected);
}

TEST(ImageFilter, RefusesWrongSizesAndEmptyFilters)
{
    kxFrequencyFilterImage filter(ramp(100, 50, 1));
    kxFrequencyBuffer other(256, 64);
    expectError<Defs::InvalidSize>([&] { filter.apply(other); },
                                   "Size of frequency buffer does not match size of filter.");
    kxFrequencyFilterImage empty;
    kxFrequencyBuffer b(8, 8);
    expectError<Defs::Uninitialized>([&] { empty.apply(b); }, kNotInit);
    expectError<Defs::Uninitialized>([&] { empty.supportWidth(); }, kNotInit);
    expectError<Defs::Uninitialized>([&] { empty.supportHeight(); }, kNotInit);
    kxFrequencyBuffer none;
    expectError<Defs::Uninitialized>([&] { filter.apply(none); }, kNotInit);
    expectError<Defs::Uninitialized>([&] { kxFrequencyFilterImage{kxFrequencyBuffer()}; }, kNotInit);
    expectError<Defs::Uninitialized>([&] { empty.setImage(none); }, kNotInit);
    EXPECT_FALSE(empty.isInitialized());
}

TEST(ImageFilter, ApplyClearsTheMaskAndOutOfPlaceCopiesSourceFields)
{
    kxFrequencyFilterImage filter(ramp(16, 16, 1));
    kxFrequencyBuffer b = ramp(16, 16, 2);
    Access::band(b, 1, 2, 5);
    filter.apply(b);
    EXPECT_EQ(Access::masked(b), 0);

    kxFrequencyBuffer src = ramp(16, 16, 3);
    Access::offset(src, kxPair<long>(4, 5));
    kx2XformCache t;
    t.xform(kx2XformLinear(kxXform<2>(kxMatrix<2>(2, 0, 0, 2), kxVector<2>(0, 1))));
    Access::transform(src, t);
    const kxFrequencyBuffer before = src;
    kxFrequencyBuffer dst(4, 4);
    filter.apply(src, dst);
    EXPECT_EQ(Access::offset(dst), kxPair<long>(4, 5));
    EXPECT_EQ(Access::transform(dst), t);
    EXPECT_TRUE(src == before);
}

TEST(ImageFilter, EqualityCloneAndPersistence)
{
    kxFrequencyFilterImage a(ramp(32, 8, 1)), b(ramp(32, 8, 1)), empty;
    EXPECT_TRUE(a == b);
    EXPECT_FALSE(a == empty);
    std::unique_ptr<kxFrequencyFilter> clone(a.clone());
    auto* copy = dynamic_cast<kxFrequencyFilterImage*>(clone.get());
    ASSERT_NE(copy, nullptr);
    copy->setImage(ramp(32, 8, 7));
    EXPECT_TRUE(a == b);
    EXPECT_FALSE(*copy == a);

    kxMemoryArchive out;
    out.storeObject(&a);
    kxMemoryArchive in(out.bytes());
    auto loaded = in.loadObjectAs<kxFrequencyFilterImage>();
    ASSERT_TRUE(loaded);
    EXPECT_TRUE(*loaded == a);

    // Version byte 1 is refused with the class's source name and line.
    std::vector<unsigned char> bytes;
    {
        kxMemoryArchive plain;
        static_cast<kxPersistent&>(a).dispatchSerialize(plain);
        bytes = plain.bytes();
    }
    bytes[0] = 1;
    kxMemoryArchive bad(bytes);
    kxFrequencyFilterImage target;
    try {
        static_cast<kxPersistent&>(target).dispatchSerialize(bad);
        FAIL();
    } catch (const kxArchive::UnknownVersion& e) {
        EXPECT_EQ(e.source(), "filt/freqfilt");
        EXPECT_EQ(e.line(), 2853);
    }
}
