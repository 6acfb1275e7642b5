// Out-of-range parameters and cancellation: a filter refuses what it cannot
// do before it changes anything, and a cancelled filter leaves no result
// that looks valid.
#include "fft/buffer_access.h"
#include "test_helpers.h"

#include <kx/freqfilt.h>

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <memory>

using Access = kx_FrequencyBufferAccess;
using Defs = kxFrequencyDefs;
using kxtest::expectError;

namespace {

const char* const kOutOfBounds = "Coordinates are out of bounds";

// One filter of each kind with DC radius `radius` for a 64 x 32 buffer.
std::vector<std::unique_ptr<kxFrequencyFilter>> everyKind(long radius)
{
    std::vector<std::unique_ptr<kxFrequencyFilter>> filters;
    filters.emplace_back(new kxFrequencyFilterGabor({0.05, 0.05}, {0, 0}, kxRadian(0.3), 0.2, {64, 32}, radius));
    filters.emplace_back(
        new kxFrequencyFilterGaborReject({0.05, 0.05}, {0, 0}, kxRadian(0.3), 0.2, {64, 32}, radius));
    filters.emplace_back(new kxFrequencyFilterBandPass(0.02, 0.01, 0.2, {64, 32}, radius));
    filters.emplace_back(new kxFrequencyFilterBandReject(0.02, 0.01, 0.2, {64, 32}, radius));
    return filters;
}

bool notInitialized(const kxFrequencyBuffer& b) { return Access::data(b) == nullptr; }

}  // namespace

TEST(FilterLimits, OversizedDcRadiusIsRefusedBeforeAnythingChanges)
{
    // 17 is the first radius whose square leaves a 64 x 32 buffer; the larger
    // ones once made the reject filters reserve radius^2 elements first.
    for (long radius : {17L, 10000L, 100000L, 2147483648L}) {
        for (const auto& filter : everyKind(radius)) {
            kxFrequencyBuffer inPlace = kxtest::knownBuffer(64, 32);
            expectError<Defs::BadCoord>([&] { filter->apply(inPlace); }, kOutOfBounds);
            EXPECT_TRUE(inPlace == kxtest::knownBuffer(64, 32));
            kxFrequencyBuffer dst;
            expectError<Defs::BadCoord>([&] { filter->apply(kxtest::knownBuffer(64, 32), dst); }, kOutOfBounds);
            EXPECT_TRUE(notInitialized(dst));
        }
    }
    // The largest square that fits is accepted.
    for (const auto& filter : everyKind(16)) {
        kxFrequencyBuffer b = kxtest::knownBuffer(64, 32);
        EXPECT_NO_THROW(filter->apply(b));
    }
}

TEST(FilterLimits, SizesBeyondAnyPowerOfTwoAreRefusedPromptly)
{
    // Once an endless loop in the padded-size computation.
    const long huge = std::numeric_limits<long>::max();
    for (long side : {(1L << 62) + 1, huge}) {
        expectError<Defs::InvalidSize>(
            [&] { kxFrequencyFilterGabor({0.1, 0.1}, {0, 0}, kxRadian(0), 0.1, {side, 64}, 0); },
            "Size must be a power of 2.");
        expectError<Defs::InvalidSize>([&] { kxFrequencyFilterBandReject(0.1, 0, 0.1, {64, side}, 0); },
                                       "Size must be a power of 2.");
    }
}

// Every poll of an apply() stops it in turn: the buffer it was writing is
// left not initialized, the source of the out-of-place form is untouched.
TEST(FilterLimits, CancelledApplyLeavesNoBufferThatLooksFiltered)
{
    for (const auto& filter : everyKind(2)) {
        unsigned long polls = 0;
        {
            kxAttention::Probe count;
            kxFrequencyBuffer b = kxtest::knownBuffer(64, 32);
            filter->apply(b);
            polls = count.count();
        }
        ASSERT_GE(polls, 2u);
        for (unsigned long at = 1; at <= polls; ++at) {
            kxFrequencyBuffer inPlace = kxtest::knownBuffer(64, 32);
            {
                kxAttention::Probe stop(at);
                EXPECT_THROW(filter->apply(inPlace), kxAttention::Stopped);
            }
            EXPECT_TRUE(notInitialized(inPlace));
            expectError<Defs::Uninitialized>([&] { inPlace.get(0, 0, false); },
                                             "FrequencyBuffer has not been initialized");

            const kxFrequencyBuffer src = kxtest::knownBuffer(64, 32);
            kxFrequencyBuffer dst = kxtest::knownBuffer(64, 32);
            {
                kxAttention::Probe stop(at);
                EXPECT_THROW(filter->apply(src, dst), kxAttention::Stopped);
            }
            EXPECT_TRUE(src == kxtest::knownBuffer(64, 32));
            EXPECT_TRUE(notInitialized(dst));
        }
    }
}

// Building a large table polls too; a cancelled set() leaves the filter with
// its previous table and parameters.
TEST(FilterLimits, CancelledConstructionLeavesTheFilterAsItWas)
{
    kxFrequencyFilterGabor g({0.01, 0.01}, {0, 0}, kxRadian(0), 0.1, {1024, 1024}, 0);
    const kxFrequencyFilterGabor before = g;
    unsigned long polls = 0;
    {
        kxAttention::Probe count;
        kxFrequencyFilterGabor({0.1, 0.1}, {0, 0}, kxRadian(0), 0.1, {1024, 1024}, 0);
        polls = count.count();
    }
    ASSERT_GE(polls, 8u);
    {
        kxAttention::Probe stop(polls / 2);
        EXPECT_THROW(g.set({0.1, 0.1}, {0, 0}, kxRadian(0), 0.1, {1024, 1024}, 0), kxAttention::Stopped);
    }
    EXPECT_TRUE(g == before);

    kxFrequencyFilterBandPass b(0.01, 0, 0.1, {1024, 1024}, 0);
    const kxFrequencyFilterBandPass bandBefore = b;
    {
        kxAttention::Probe stop(2);
        EXPECT_THROW(b.sigma(0.2), kxAttention::Stopped);
    }
    EXPECT_TRUE(b == bandBefore);
}
