// The conversions between storage indices and signed frequencies, on every
// side the library handles, against the definitions written out directly.
#include "fft/frequency_index.h"

#include <kx/fft.h>

#include <gtest/gtest.h>

#include <vector>

TEST(FrequencyIndex, EverySideFrom1To2048)
{
    for (long n = 1; n <= kfMaxTransformSide; ++n) {
        // The lowest frequency is -(n/2), the highest (n+1)/2 - 1: n in all.
        const long lowest = -(n / 2), highest = (n + 1) / 2 - 1;
        ASSERT_EQ(highest - lowest + 1, n);
        ASSERT_FALSE(kf_IsAxisFrequency(lowest - 1, n)) << n;
        ASSERT_FALSE(kf_IsAxisFrequency(highest + 1, n)) << n;
        std::vector<int> centredSeen(static_cast<std::size_t>(n), 0);
        for (long k = 0; k < n; ++k) {
            // Frequency k up to the middle, k - n from there on.
            const long expected = k <= highest ? k : k - n;
            const long f = kf_SignedFrequency(k, n);
            ASSERT_EQ(f, expected) << "n " << n << " k " << k;
            ASSERT_TRUE(kf_IsAxisFrequency(f, n)) << "n " << n << " k " << k;
            // Back to the same index, also from any period away.
            for (long period = -2; period <= 2; ++period)
                ASSERT_EQ(kf_StorageIndex(f + period * n, n), k) << "n " << n << " k " << k << " period " << period;
            // Centred: the quadrant swap, zero frequency at n / 2.
            const long c = kf_CentredIndex(k, n);
            ASSERT_EQ(c, (k + n / 2) % n) << "n " << n << " k " << k;
            ++centredSeen[static_cast<std::size_t>(c)];
        }
        for (long c = 0; c < n; ++c)
            ASSERT_EQ(centredSeen[static_cast<std::size_t>(c)], 1) << "n " << n << " c " << c;
    }
}

TEST(FrequencyIndex, SideOfOneHoldsOnlyTheZeroFrequency)
{
    EXPECT_EQ(kf_SignedFrequency(0, 1), 0);
    EXPECT_EQ(kf_CentredIndex(0, 1), 0);
    EXPECT_EQ(kf_StorageIndex(0, 1), 0);
    EXPECT_EQ(kf_StorageIndex(-1, 1), 0);
    EXPECT_TRUE(kf_IsAxisFrequency(0, 1));
    EXPECT_FALSE(kf_IsAxisFrequency(-1, 1));
    EXPECT_FALSE(kf_IsAxisFrequency(1, 1));
}

TEST(FrequencyIndex, EvenSideEightAsDocumented)
{
    const long frequency[8] = {0, 1, 2, 3, -4, -3, -2, -1};
    const long centred[8] = {4, 5, 6, 7, 0, 1, 2, 3};
    for (long k = 0; k < 8; ++k) {
        EXPECT_EQ(kf_SignedFrequency(k, 8), frequency[k]) << k;
        EXPECT_EQ(kf_CentredIndex(k, 8), centred[k]) << k;
    }
}

// The band filters' ring walk differs from the signed frequency on one side
// only: an axis of one element, whose index 0 it counts as frequency -1.
TEST(FrequencyIndex, RingFrequencyDiffersOnlyOnASideOfOne)
{
    EXPECT_EQ(kf_RingFrequency(0, 1), -1);
    for (long n = 2; n <= kfMaxTransformSide; n *= 2)
        for (long k = 0; k < n; ++k)
            ASSERT_EQ(kf_RingFrequency(k, n), kf_SignedFrequency(k, n)) << "n " << n << " k " << k;
}
