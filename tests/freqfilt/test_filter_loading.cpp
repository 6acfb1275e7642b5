// Loading filters from untrusted archives: a loaded filter satisfies the
// invariants of a constructed one, or the load fails with kxArchive::Error
// and the filter stays as it was.
#include "fft/buffer_access.h"
#include "test_helpers.h"

#include <kx/freqfilt.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>

using kxtest::expectError;
using Gabor = kxFrequencyFilterGabor;
using GaborReject = kxFrequencyFilterGaborReject;
using BandPass = kxFrequencyFilterBandPass;
using BandReject = kxFrequencyFilterBandReject;
using Bytes = std::vector<unsigned char>;

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();

Bytes bytesOf(kxPersistent& filter)
{
    kxMemoryArchive out;
    filter.dispatchSerialize(out);
    return out.bytes();
}

void loadInto(kxPersistent& filter, const Bytes& bytes)
{
    kxMemoryArchive in(bytes);
    filter.dispatchSerialize(in);
}

// Replaces the one occurrence of `from`'s bytes in the stream by `to`'s.
template <typename T>
Bytes patched(Bytes bytes, T from, T to)
{
    unsigned char a[sizeof(T)], b[sizeof(T)];
    std::memcpy(a, &from, sizeof(T));
    std::memcpy(b, &to, sizeof(T));
    std::size_t found = 0, at = 0;
    for (std::size_t i = 0; i + sizeof(T) <= bytes.size(); ++i)
        if (std::memcmp(&bytes[i], a, sizeof(T)) == 0) {
            ++found;
            at = i;
        }
    EXPECT_EQ(found, 1u) << "the patched value must occur exactly once";
    std::memcpy(&bytes[at], b, sizeof(T));
    return bytes;
}

// A field that the stored filter holds, replaced by a hostile value: the load
// is refused with `message` and the target filter keeps its state.
template <typename F, typename T>
void expectRefused(F original, T field, T hostile, const std::string& message)
{
    const Bytes bytes = patched(bytesOf(original), field, hostile);
    F target = original;
    const F before = target;
    expectError<kxArchive::Error>([&] { loadInto(target, bytes); }, message.c_str());
    EXPECT_TRUE(target == before);
    EXPECT_TRUE(target.isInitialized());
}

const std::string kInvalid = "kxFrequencyFilter: stored parameters are not valid: ";

}  // namespace

TEST(LoadedFilters, RadialFrequencyOutsideItsRangeIsRefused)
{
    // A negative frequency once made apply() read far before the profile.
    expectRefused(BandPass(0.01, 0.0, 0.1234375, {64, 64}, 0), 0.1234375, -0.3,
                  kInvalid + "Frequency must be between 0.0 and 0.5.");
    expectRefused(BandReject(0.01, 0.0, 0.1234375, {64, 64}, 0), 0.1234375, -0.3,
                  kInvalid + "Frequency must be between 0.0 and 0.5.");
    expectRefused(BandPass(0.01, 0.0, 0.1234375, {64, 64}, 0), 0.1234375, kInf,
                  kInvalid + "Frequency must be between 0.0 and 0.5.");
}

TEST(LoadedFilters, GaborFrequencyOutsideItsRangeIsRefused)
{
    const Gabor g({0.02, 0.03}, {0, 0}, kxRadian(0.5), 0.1234375, {64, 64}, 0);
    expectRefused(g, 0.1234375, 1e60, kInvalid + "Frequency must be between 0.0 and 0.5.");
    const GaborReject r({0.02, 0.03}, {0, 0}, kxRadian(0.5), 0.1234375, {64, 64}, 0);
    expectRefused(r, 0.1234375, std::numeric_limits<double>::quiet_NaN(),
                  kInvalid + "Frequency must be between 0.0 and 0.5.");
}

TEST(LoadedFilters, NonFiniteAngleIsRefused)
{
    const Gabor g({0.02, 0.03}, {0, 0}, kxRadian(0.4375), 0.1, {64, 64}, 0);
    expectRefused(g, 0.4375, kInf, kInvalid + "Sigma and plateau values are too large for the filter size.");
}

TEST(LoadedFilters, NegativeDcRadiusIsRefused)
{
    const std::int32_t radius = 12345;
    expectRefused(GaborReject({0.02, 0.03}, {0, 0}, kxRadian(0), 0.1, {64, 64}, radius), radius, std::int32_t(-7),
                  kInvalid + "DC Protection Radius cannot be negative.");
    expectRefused(BandReject(0.01, 0.0, 0.1, {64, 64}, radius), radius, std::int32_t(-2147483647 - 1),
                  kInvalid + "DC Protection Radius cannot be negative.");
    expectRefused(BandPass(0.01, 0.0, 0.1, {64, 64}, radius), radius, std::int32_t(-1),
                  kInvalid + "DC Removal Radius cannot be negative.");
}

TEST(LoadedFilters, SizeThatIsNotAPowerOfTwoIsRefused)
{
    const std::int32_t width = 4096;
    expectRefused(Gabor({0.02, 0.03}, {0, 0}, kxRadian(0), 0.1, {width, 64}, 0), width, std::int32_t(4095),
                  kInvalid + "Size must be a power of 2.");
}

TEST(LoadedFilters, SupportThatDoesNotMatchTheParametersIsRefused)
{
    const Gabor g({0.02, 0.03}, {0, 0}, kxRadian(0), 0.1, {256, 256}, 0);
    const std::int32_t height = static_cast<std::int32_t>(g.supportHeight());
    ASSERT_NE(g.supportWidth(), g.supportHeight());
    expectRefused(g, height, height + 2, "kxFrequencyFilter: stored support size does not match the stored parameters");

    const BandPass b(0.0123, 0.0, 0.1, {512, 512}, 0);
    const std::int32_t width = static_cast<std::int32_t>(b.supportWidth());
    expectRefused(b, width, width - 2, "kxFrequencyFilter: stored profile size does not match the stored parameters");
}

TEST(LoadedFilters, LoadedFiltersApplyLikeTheirOriginals)
{
    const GaborReject r({0.02, 0.03}, {0.01, 0}, kxRadian(0.3), 0.2, {64, 32}, 2);
    GaborReject loaded;
    Bytes bytes = bytesOf(const_cast<GaborReject&>(r));
    loadInto(loaded, bytes);
    ASSERT_TRUE(loaded == r);
    kxFrequencyBuffer a = kxtest::knownBuffer(64, 32), b = kxtest::knownBuffer(64, 32);
    r.apply(a);
    loaded.apply(b);
    EXPECT_TRUE(a == b);
}

// The base's share (version, persistent part, initialised flag) comes first;
// a stream that ends right after it must not leave the flag changed.
template <typename F>
void expectFailedLoadChangesNothing(F filter)
{
    ASSERT_TRUE(filter.isInitialized());
    const F before = filter;
    EXPECT_THROW(loadInto(filter, Bytes{0, 0, 0, 0}), kxArchive::Error);
    EXPECT_TRUE(filter.isInitialized());
    EXPECT_TRUE(filter == before);
}

TEST(LoadedFilters, FailedLoadLeavesEveryClassAsItWas)
{
    expectFailedLoadChangesNothing(Gabor({0.02, 0.03}, {0, 0}, kxRadian(0), 0.1, {64, 64}, 0));
    expectFailedLoadChangesNothing(GaborReject({0.02, 0.03}, {0, 0}, kxRadian(0), 0.1, {64, 64}, 0));
    expectFailedLoadChangesNothing(BandPass(0.01, 0.0, 0.1, {64, 64}, 0));
    expectFailedLoadChangesNothing(BandReject(0.01, 0.0, 0.1, {64, 64}, 0));
    expectFailedLoadChangesNothing(kxFrequencyFilterImage(kxtest::knownBuffer(8, 8)));
}
