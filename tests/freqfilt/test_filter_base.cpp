#include "fft/buffer_access.h"
#include "test_helpers.h"

#include <kx/freqfilt.h>

#include <gtest/gtest.h>

#include <memory>

using Access = kx_FrequencyBufferAccess;

namespace {

// A minimal concrete filter to reach the base's protected operations.
class Probe : public kxFrequencyFilter {
public:
    kxFrequencyFilter* clone() const override { return new Probe(*this); }
    void apply(const kxFrequencyBuffer&, kxFrequencyBuffer&) const override {}
    void apply(kxFrequencyBuffer&) const override {}
    using kxFrequencyFilter::getFrequencyBufferData;
    using kxFrequencyFilter::maskFrequencyBuffer;
    using kxFrequencyFilter::setAndAllocateFrequencyBuffer;
    using kxFrequencyFilter::setInitialized;
    void streamBase(kxArchive& archive) { kxFrequencyFilter::dispatchSerialize(archive); }
};

}  // namespace

TEST(FilterBase, DefaultFiltersAreUninitialized)
{
    EXPECT_FALSE(Probe().isInitialized());
    EXPECT_FALSE(kxFrequencyFilterGabor().isInitialized());
    EXPECT_FALSE(kxFrequencyFilterGaborReject().isInitialized());
    EXPECT_FALSE(kxFrequencyFilterImage().isInitialized());
    EXPECT_TRUE(kxFrequencyFilterGabor({0.01, 0.01}, {0, 0}, kxRadian(0), 0.1, {64, 64}, 0).isInitialized());
}

TEST(FilterBase, MaskingAndBufferAccess)
{
    kxFrequencyBuffer b(16, 16);
    Probe::maskFrequencyBuffer(b, true, 3, 9);
    EXPECT_EQ(Access::masked(b), 1);
    EXPECT_EQ(Access::maskedMiny(b), 3);
    EXPECT_EQ(Access::maskedMaxy(b), 9);
    Probe::maskFrequencyBuffer(b, false, 0, 0);
    EXPECT_EQ(Access::masked(b), 0);
    EXPECT_EQ(Probe::getFrequencyBufferData(b), Access::data(b));
    EXPECT_EQ(Probe::getFrequencyBufferData(kxFrequencyBuffer()), nullptr);
    kxFrequencyBuffer d;
    Probe::setAndAllocateFrequencyBuffer(d, 100, 30);
    EXPECT_EQ(d.width(), 128);
    kxtest::expectError<kxFrequencyDefs::InvalidSize>([&] { Probe::setAndAllocateFrequencyBuffer(d, 4096, 1); },
                                                      "Width and Height must be no larger than 2048.");
}

TEST(FilterBase, MaskedBandMakesTheInverseSkipRows)
{
    // Rows outside the band are taken as zero: the inverse transform skips
    // them (fewer polls, one per 16 rows transformed) and, when they are zero,
    // gives the same result.
    kxFrequencyBuffer b(64, 64);
    for (long y = -4; y <= 4; ++y)
        for (long x = -32; x < 32; ++x)
            b.put(x, y, kxPair<double>(x + y, x - y), true);
    kxFrequencyBuffer banded = b;
    Probe::maskFrequencyBuffer(banded, true, 28, 36);
    kxPelBuffer<double> plain, skipped;
    unsigned long plainPolls, skippedPolls;
    {
        kxAttention::Probe probe;
        kfInverseFFT<double>(b, plain, false);
        plainPolls = probe.count();
    }
    {
        kxAttention::Probe probe;
        kfInverseFFT<double>(banded, skipped, false);
        skippedPolls = probe.count();
    }
    EXPECT_EQ(plainPolls - skippedPolls, 3u);   // rows 16, 32, 48 skipped
    for (long y = 0; y < 64; ++y)
        for (long x = 0; x < 64; ++x)
            ASSERT_EQ(plain(x, y), skipped(x, y));
}

TEST(FilterBase, BaseShareIsVersionPersistentPartAndFlag)
{
    Probe p;
    p.setInitialized(true);
    kxMemoryArchive out;
    p.streamBase(out);
    EXPECT_EQ(out.bytes(), (std::vector<unsigned char>{0, 0, 1}));
    p.streamBase(out);   // visited: written once per archive
    EXPECT_EQ(out.bytes().size(), 3u);

    Probe loaded;
    kxMemoryArchive in(out.bytes());
    loaded.streamBase(in);
    EXPECT_TRUE(loaded.isInitialized());

    kxMemoryArchive bad(std::vector<unsigned char>{1, 0, 1});
    Probe other;
    try {
        other.streamBase(bad);
        FAIL();
    } catch (const kxArchive::UnknownVersion& e) {
        EXPECT_EQ(e.source(), "filt/freqfilt");
    }
}

TEST(FilterBase, CopiesAreNewUninitializedObjects)
{
    Probe p;
    p.setInitialized(true);
    Probe copy(p);
    EXPECT_FALSE(copy.isInitialized());
    Probe assigned;
    assigned = p;
    EXPECT_TRUE(assigned.isInitialized());
}
