#include "fft/buffer_access.h"

#include <kx/fft.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>

using Access = kx_FrequencyBufferAccess;
using Bytes = std::vector<unsigned char>;

namespace {

kxFrequencyBuffer sampleBuffer()
{
    kxFrequencyBuffer b(100, 50);
    for (long y = 0; y < b.height(); ++y)
        for (long x = 0; x < b.width(); ++x)
            b.put(x, y, kxPair<double>(x * 0.5 - y, y * 0.25 + x), false);
    Access::band(b, 1, 10, 40);
    Access::offset(b, kxPair<long>(-3, 7));
    kx2XformCache t;
    t.xform(kx2XformLinear(kxXform<2>(kxMatrix<2>(1, 2, 3, 4), kxVector<2>(5, 6))));
    Access::transform(b, t);
    return b;
}

Bytes store(kxFrequencyBuffer& b)
{
    kxMemoryArchive out;
    out || b;
    return out.bytes();
}

// Header of a stored buffer: version, 7 longs, the inverse flag.
Bytes header(unsigned char version, long pw, long ph, long rw, long rh, long masked = 0, long miny = 0,
             long maxy = 0)
{
    kxMemoryArchive out;
    bool inverse = false;
    out || version || pw || ph || rw || rh || masked || miny || maxy || inverse;
    return out.bytes();
}

void append(Bytes& to, const Bytes& more) { to.insert(to.end(), more.begin(), more.end()); }

// The rest after the header: transform (version 1), offset, hasData, float array.
Bytes tail(bool hasData, unsigned long count, unsigned long floatsPresent)
{
    kxMemoryArchive out;
    kx2XformCache t;
    kxPair<long> offset;
    unsigned char version = 0;
    out || t || offset || hasData || version || count;
    for (unsigned long i = 0; i < floatsPresent; ++i) {
        float f = static_cast<float>(i);
        out || f;
    }
    return out.bytes();
}

// Loads header + rest into `target`: true when it loaded, false when the
// load was refused with kxArchive::Error (any other exception fails the test).
bool loads(Bytes bytes, const Bytes& rest, kxFrequencyBuffer& target)
{
    append(bytes, rest);
    kxMemoryArchive in(bytes);
    try {
        in || target;
        return true;
    } catch (const kxArchive::Error&) {
        return false;
    }
}

}  // namespace

TEST(Persistence, RoundTripThroughMemoryKeepsEverything)
{
    kxFrequencyBuffer b = sampleBuffer();
    Access::inverseComputed(b, true);
    Bytes bytes = store(b);
    EXPECT_EQ(bytes.size(), 1 + 7 * 4 + 1 + (1 + 48) + (1 + 8) + 1 + (1 + 4) + 128 * 64 * 2 * 4);
    EXPECT_EQ(bytes[0], 1);
    kxMemoryArchive in(bytes);
    kxFrequencyBuffer loaded(4, 4);
    in || loaded;
    EXPECT_TRUE(loaded == b);
    EXPECT_TRUE(Access::inverseComputed(loaded));
    EXPECT_EQ(Access::maskedMiny(loaded), 10);
    EXPECT_EQ(Access::maskedMaxy(loaded), 40);
    EXPECT_EQ(Access::transform(loaded), Access::transform(b));
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(Access::data(loaded)) % 16, 0u);
    EXPECT_EQ(in.remaining(), 0u);
}

TEST(Persistence, RoundTripThroughAFile)
{
    kxFrequencyBuffer b = sampleBuffer();
    const std::string path = ::testing::TempDir() + "kxfreq_buffer.bin";
    {
        std::ofstream file(path, std::ios::binary);
        kxStreamArchive out(file);
        out || b;
    }
    std::ifstream file(path, std::ios::binary);
    kxStreamArchive in(file);
    kxFrequencyBuffer loaded;
    in || loaded;
    EXPECT_TRUE(loaded == b);
    std::remove(path.c_str());
}

TEST(Persistence, UninitializedBufferStoresNoData)
{
    kxFrequencyBuffer b;
    Bytes bytes = store(b);
    // ... hasData false, then an empty array: version 0, count 0.
    const Bytes end{0, 0, 0, 0, 0, 0};
    EXPECT_TRUE(std::equal(end.begin(), end.end(), bytes.end() - 6));
    kxMemoryArchive in(bytes);
    kxFrequencyBuffer loaded(8, 8);
    in || loaded;
    EXPECT_THROW(loaded.width(), kxFrequencyDefs::Uninitialized);
    EXPECT_TRUE(loaded == b);
}

TEST(Persistence, LoadingReplacesSizesAndDataEntirely)
{
    kxFrequencyBuffer small(2, 2);
    small.put(1, 1, kxPair<double>(3, 4), false);
    Bytes bytes = store(small);
    kxFrequencyBuffer target = sampleBuffer();
    kxMemoryArchive in(bytes);
    in || target;
    EXPECT_EQ(target.width(), 2);
    EXPECT_EQ(Access::requestedWidth(target), 2);
    EXPECT_EQ(Access::masked(target), 0);
    EXPECT_EQ(target.get(1, 1, false), kxPair<double>(3, 4));
    EXPECT_TRUE(target == small);
}

TEST(Persistence, VersionZeroReadsAPlainXform)
{
    Bytes bytes = header(0, 2, 1, 2, 1);
    kxMemoryArchive x;
    kxXform<2> xf(kxMatrix<2>(2, 0, 0, 2), kxVector<2>(1, 2));
    kxPair<long> offset(5, 6);
    bool hasData = true;
    unsigned char v = 0;
    unsigned long count = 4;
    x || xf || offset || hasData || v || count;
    for (float f : {1.0f, 2.0f, 3.0f, 4.0f})
        x || f;
    append(bytes, x.bytes());
    kxMemoryArchive in(bytes);
    kxFrequencyBuffer b;
    in || b;
    EXPECT_EQ(Access::transform(b).linearXform(), xf);
    EXPECT_EQ(Access::offset(b), kxPair<long>(5, 6));
    EXPECT_EQ(b.get(1, 0, false), kxPair<double>(3, 4));
}

TEST(Persistence, UnknownVersionsAreRefused)
{
    kxFrequencyBuffer target(4, 4);
    {
        kxMemoryArchive in(Bytes{2});
        try {
            in || target;
            FAIL();
        } catch (const kxArchive::UnknownVersion& e) {
            EXPECT_EQ(e.source(), "filt/fft");
            EXPECT_EQ(e.line(), 572);
        }
        EXPECT_EQ(target.width(), 4);
    }
    kxFrequencyBuffer b(2, 2);
    Bytes good = store(b);
    const std::size_t offsetVersion = 1 + 28 + 1 + 49;
    const std::size_t arrayVersion = offsetVersion + 9 + 1;
    for (std::size_t at : {offsetVersion, arrayVersion}) {
        Bytes bad = good;
        bad[at] = 1;
        kxMemoryArchive in(bad);
        try {
            in || target;
            FAIL();
        } catch (const kxArchive::UnknownVersion& e) {
            EXPECT_EQ(e.source(), "");
            EXPECT_EQ(e.line(), 0);
        }
        EXPECT_EQ(target.width(), 4);   // a failed load changes nothing
    }
}

TEST(Persistence, EveryTruncationEndsInAClearError)
{
    kxFrequencyBuffer b(3, 2);
    b.putReal(1, 1, 5, false);
    Bytes full = store(b);
    for (std::size_t cut = 0; cut < full.size(); ++cut) {
        kxMemoryArchive in(Bytes(full.begin(), full.begin() + cut));
        kxFrequencyBuffer target(8, 8);
        EXPECT_THROW(in || target, kxArchive::Error) << cut;
        EXPECT_EQ(target.width(), 8);
    }
}

TEST(Persistence, FlippedHasDataFlagIsRefused)
{
    kxFrequencyBuffer b(2, 2);
    Bytes bytes = store(b);
    const std::size_t flag = 1 + 28 + 1 + 49 + 9;
    ASSERT_EQ(bytes[flag], 1);
    bytes[flag] = 0;   // no data, but floats follow
    kxMemoryArchive in(bytes);
    kxFrequencyBuffer target;
    EXPECT_THROW(in || target, kxArchive::Error);

    kxFrequencyBuffer empty;
    Bytes none = store(empty);
    none[none.size() - 6] = 1;   // data announced, count 0
    kxMemoryArchive in2(none);
    EXPECT_THROW(in2 || target, kxArchive::Error);
}

TEST(Persistence, FloatCountsThatDisagreeAreRefused)
{
    // A 4 x 2 buffer holds 16 floats.
    for (unsigned long count : {0ul, 15ul, 17ul}) {
        kxFrequencyBuffer target;
        EXPECT_FALSE(loads(header(1, 4, 2, 4, 2), tail(true, count, count), target)) << count;
    }
    Bytes bytes = header(1, 4, 2, 4, 2);
    append(bytes, tail(true, 16, 16));
    kxMemoryArchive in(bytes);
    kxFrequencyBuffer target;
    EXPECT_NO_THROW(in || target);
    EXPECT_EQ(target.get(3, 1, false), kxPair<double>(14, 15));
}

TEST(Persistence, HostileSizesAndCountsNeverAllocateBeyondTheData)
{
    {
        kxFrequencyBuffer target;
        EXPECT_FALSE(loads(header(1, 4, 2, 4, 2), tail(true, 0xFFFFFFFFul, 3), target));
    }
    {
        // 100000 x 100000 claimed, with a matching count but no data.
        kxFrequencyBuffer target;
        EXPECT_FALSE(loads(header(1, 131072, 131072, 100000, 100000), tail(true, 0u, 0), target));
    }
    for (long size : {0L, -4L, 6L}) {
        kxFrequencyBuffer target;
        EXPECT_FALSE(loads(header(1, size, 2, 1, 1), tail(true, 4, 4), target)) << size;
    }
    {
        // Requested larger than padded would make the inverse read past the data.
        kxFrequencyBuffer target;
        EXPECT_FALSE(loads(header(1, 2, 1, 3, 1), tail(true, 4, 4), target));
    }
    {
        // Without data, sizes are taken as they stand.
        Bytes bytes = header(1, 0, -5, 100000, 7);
        append(bytes, tail(false, 0, 0));
        kxMemoryArchive in(bytes);
        kxFrequencyBuffer target(2, 2);
        EXPECT_NO_THROW(in || target);
        EXPECT_THROW(target.width(), kxFrequencyDefs::Uninitialized);
    }
    {
        // Padded sizes above 2048 load when the data is present.
        Bytes bytes = header(1, 4096, 1, 4096, 1);
        append(bytes, tail(true, 8192, 8192));
        kxMemoryArchive in(bytes);
        kxFrequencyBuffer target;
        EXPECT_NO_THROW(in || target);
        EXPECT_EQ(target.width(), 4096);
    }
}

// A band near the ends of the 32-bit range once overflowed the engine's band
// test and the banded transpose; a constructed buffer's band never leaves
// +-2^30, nor is its masked flag other than 0 or 1.
TEST(Persistence, BandsAndFlagsNoConstructedBufferHasAreRefused)
{
    const long intMin = -2147483647L - 1, intMax = 2147483647L;
    struct Case {
        long masked, miny, maxy;
    };
    for (const Case& c : {Case{1, intMin, intMax}, Case{1, 0, intMax}, Case{0, intMin, 0}, Case{1, -(1L << 30) - 1, 3},
                          Case{2, 0, 3}, Case{-1, 0, 3}}) {
        Bytes bytes = header(1, 8, 8, 8, 8, c.masked, c.miny, c.maxy);
        append(bytes, tail(true, 128, 128));
        kxMemoryArchive in(bytes);
        kxFrequencyBuffer target(4, 4);
        const kxFrequencyBuffer before = target;
        EXPECT_THROW(in || target, kxArchive::Error) << c.masked << " " << c.miny << " " << c.maxy;
        EXPECT_TRUE(target == before);
    }
    // The widest band a filter can record still loads, and inverts.
    Bytes bytes = header(1, 8, 8, 8, 8, 1, -(1L << 30), 1L << 30);
    append(bytes, tail(true, 128, 128));
    kxMemoryArchive in(bytes);
    kxFrequencyBuffer target;
    ASSERT_NO_THROW(in || target);
    kxPelBuffer<double> out;
    EXPECT_NO_THROW(kfInverseFFT<double>(target, out, false, false));
}

TEST(Persistence, NegativeRequestedSizesAreRefused)
{
    kxFrequencyBuffer target;
    EXPECT_FALSE(loads(header(1, 8, 8, -3, 8), tail(true, 128, 128), target));
}
