#include "fft/buffer_access.h"

#include <kx/fft.h>

#include <gtest/gtest.h>

#include "test_helpers.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>

using Defs = kxFrequencyDefs;
using Access = kx_FrequencyBufferAccess;
using kxtest::expectError;

namespace {

using kxtest::kNotInit;

// Element (x, y) holds (100 y + x, -(100 y + x)).
void fillIndexed(kxFrequencyBuffer& b)
{
    for (long y = 0; y < b.height(); ++y)
        for (long x = 0; x < b.width(); ++x)
            b.put(x, y, kxPair<double>(100.0 * y + x, -(100.0 * y + x)), false);
}

}  // namespace

TEST(Buffer, SizeLimits)
{
    kxFrequencyBuffer big(2048, 2048);
    EXPECT_EQ(big.width(), 2048);
    expectError<Defs::InvalidSize>([] { kxFrequencyBuffer(2049, 1); },
                                   "Width and Height must be no larger than 2048.");
    expectError<Defs::InvalidSize>([] { kxFrequencyBuffer(1, 2049); },
                                   "Width and Height must be no larger than 2048.");
    kxFrequencyBuffer zero(0, 0);
    EXPECT_EQ(zero.width(), 1);
    EXPECT_EQ(zero.height(), 1);
    EXPECT_EQ(Access::requestedWidth(zero), 0);
    kxFrequencyBuffer negative(-5, -3);
    EXPECT_EQ(negative.width(), 1);
    EXPECT_EQ(Access::requestedWidth(negative), -5);
    EXPECT_EQ(Access::requestedHeight(negative), -3);
}

TEST(Buffer, PublicSizeHelpersAgreeWithTheBuffer)
{
    EXPECT_EQ(kfMaxTransformSide, 2048);
    EXPECT_EQ(kfPaddedSize(-3), 1);
    EXPECT_EQ(kfPaddedSize(0), 1);
    EXPECT_EQ(kfPaddedSize(4096), 4096);
    EXPECT_EQ(kfPaddedSize(4097), 8192);
    for (long side = 1; side <= kfMaxTransformSide; ++side) {
        long power = 1;
        while (power < side)
            power *= 2;
        ASSERT_EQ(kfPaddedSize(side), power) << side;
    }
    for (long side : {1L, 3L, 100L, 1025L, 2048L})
        EXPECT_EQ(kxFrequencyBuffer(side, 1).width(), kfPaddedSize(side));
}

TEST(Buffer, PaddedSizeAndAlignedStore)
{
    kxFrequencyBuffer b(100, 50);
    EXPECT_EQ(b.width(), 128);
    EXPECT_EQ(b.height(), 64);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(Access::data(b)) % 16, 0u);
    for (long y = 0; y < 64; ++y)
        for (long x = 0; x < 128; ++x)
            ASSERT_EQ(b.get(x, y, false), kxPair<double>(0, 0));
    EXPECT_EQ(Access::offset(b), kxPair<long>(0, 0));
    EXPECT_EQ(Access::transform(b).linearXform(), kxXform<2>());
}

TEST(Buffer, CenteredAndStorageAddressing)
{
    kxFrequencyBuffer b(100, 50);
    b.put(64, 32, kxPair<double>(1.5, -2.5), false);
    EXPECT_EQ(b.get(-64, -32, true), kxPair<double>(1.5, -2.5));
    expectError<Defs::BadCoord>([&] { b.get(64, 0, true); }, "Coordinates are out of bounds");
    expectError<Defs::BadCoord>([&] { b.get(0, 32, true); }, "Coordinates are out of bounds");
    expectError<Defs::BadCoord>([&] { b.get(-65, 0, true); }, "Coordinates are out of bounds");
    expectError<Defs::BadCoord>([&] { b.get(128, 0, false); }, "Coordinates are out of bounds");
    expectError<Defs::BadCoord>([&] { b.get(-1, 0, false); }, "Coordinates are out of bounds");
    EXPECT_NO_THROW(b.get(127, 63, false));
    EXPECT_NO_THROW(b.get(63, 31, true));
    b.put(3, -1, kxPair<double>(7, 8), true);
    EXPECT_EQ(b.get(3, 63, false), kxPair<double>(7, 8));

    kxFrequencyBuffer one(1, 1);
    EXPECT_NO_THROW(one.get(0, 0, true));
    expectError<Defs::BadCoord>([&] { one.get(-1, 0, true); }, "Coordinates are out of bounds");
    expectError<Defs::BadCoord>([&] { one.get(1, 0, true); }, "Coordinates are out of bounds");
}

TEST(Buffer, HalfWritersLeaveTheOtherHalfAndNarrowToFloat)
{
    kxFrequencyBuffer b(4, 4);
    b.put(1, 1, kxPair<double>(1, 2), false);
    b.putReal(1, 1, 5.0, false);
    EXPECT_EQ(b.get(1, 1, false), kxPair<double>(5, 2));
    b.putImaginary(1, 1, 0.1, false);
    EXPECT_EQ(b.getImaginary(1, 1, false), static_cast<double>(0.1f));
    EXPECT_EQ(b.getReal(1, 1, false), 5.0);
}

TEST(Buffer, UninitializedBuffer)
{
    kxFrequencyBuffer b;
    expectError<Defs::Uninitialized>([&] { b.width(); }, kNotInit);
    expectError<Defs::Uninitialized>([&] { b.height(); }, kNotInit);
    expectError<Defs::Uninitialized>([&] { b.get(0, 0, false); }, kNotInit);
    expectError<Defs::Uninitialized>([&] { b.putReal(0, 0, 1, false); }, kNotInit);
    // The data check comes before the coordinate check.
    expectError<Defs::Uninitialized>([&] { b.get(999, 999, false); }, kNotInit);
    EXPECT_TRUE(kxFrequencyBuffer() == kxFrequencyBuffer());
    EXPECT_FALSE(kxFrequencyBuffer() == kxFrequencyBuffer(2, 2));
}

TEST(Buffer, InverseComputedRefusesAccessAndAssignmentCarriesTheFlag)
{
    kxFrequencyBuffer b(8, 8);
    Access::inverseComputed(b, true);
    const char* msg = "Cannot access frequency data once inverse has been computed.";
    expectError<Defs::InvalidBuffer>([&] { b.getReal(0, 0, false); }, msg);
    // The flag check comes before the coordinate check.
    expectError<Defs::InvalidBuffer>([&] { b.putImaginary(100, 0, 1, false); }, msg);
    EXPECT_EQ(b.width(), 8);
    kxFrequencyBuffer other;
    other = b;
    expectError<Defs::InvalidBuffer>([&] { other.get(0, 0, true); }, msg);
    kxFrequencyBuffer copy(b);
    expectError<Defs::InvalidBuffer>([&] { copy.get(0, 0, true); }, msg);
}

TEST(Buffer, AssignmentDeepCopiesEverything)
{
    kxFrequencyBuffer a(5, 3);
    fillIndexed(a);
    Access::offset(a, kxPair<long>(4, -2));
    kx2XformCache t;
    t.xform(kx2XformLinear(kxXform<2>(kxMatrix<2>(2, 0, 0, 2), kxVector<2>(1, 1))));
    Access::transform(a, t);
    Access::masked(a, 1);
    kxFrequencyBuffer b(100, 100);
    b = a;
    EXPECT_TRUE(b == a);
    EXPECT_EQ(Access::requestedWidth(b), 5);
    EXPECT_EQ(Access::offset(b), kxPair<long>(4, -2));
    EXPECT_EQ(Access::transform(b), t);
    EXPECT_EQ(Access::masked(b), 1);
    a.putReal(0, 0, 42, false);
    EXPECT_EQ(b.getReal(0, 0, false), 0.0);
    b = b;   // self-assignment changes nothing
    EXPECT_EQ(b.getReal(1, 0, false), 1.0);
}

TEST(Buffer, AssigningAnUninitializedBufferEmptiesTheTarget)
{
    kxFrequencyBuffer target(16, 16);
    target = kxFrequencyBuffer();
    expectError<Defs::Uninitialized>([&] { target.width(); }, kNotInit);
}

TEST(Buffer, ResizeToTheSamePaddedSizeKeepsTheStoreAndItsData)
{
    kxFrequencyBuffer b(100, 50);
    b.putReal(3, 3, 9.0, false);
    float* before = Access::data(b);
    Access::setAndAllocate(b, 120, 60);
    EXPECT_EQ(Access::data(b), before);
    EXPECT_EQ(b.getReal(3, 3, false), 9.0);
    EXPECT_EQ(Access::requestedWidth(b), 120);
    Access::setAndAllocate(b, 200, 60);
    EXPECT_EQ(b.width(), 256);
    // A failing resize changes nothing.
    expectError<Defs::InvalidSize>([&] { Access::setAndAllocate(b, 4000, 1); },
                                   "Width and Height must be no larger than 2048.");
    EXPECT_EQ(Access::requestedWidth(b), 200);
}

TEST(Buffer, EqualityRules)
{
    kxFrequencyBuffer a(8, 8), b(8, 8);
    fillIndexed(a);
    fillIndexed(b);
    EXPECT_TRUE(a == b);
    kxFrequencyBuffer c = a;
    kxFrequencyBuffer d = a;
    EXPECT_TRUE(c == d);
    // The band only counts while masked is set.
    Access::band(c, 0, 1, 5);
    Access::band(d, 0, 2, 5);
    EXPECT_TRUE(c == d);
    Access::band(c, 1, 1, 5);
    Access::band(d, 1, 2, 5);
    EXPECT_FALSE(c == d);
    Access::band(d, 1, 1, 6);
    EXPECT_FALSE(c == d);
    Access::band(d, 1, 1, 5);
    EXPECT_TRUE(c == d);

    // Transform is ignored.
    kx2XformCache t;
    t.xform(kx2XformLinear(kxXform<2>(kxMatrix<2>(), kxVector<2>(3, 3))));
    Access::transform(d, t);
    EXPECT_TRUE(c == d);
    // +0 equals -0; NaN equals anything.
    c.putReal(1, 1, 0.0, false);
    d.putReal(1, 1, -0.0, false);
    EXPECT_TRUE(c == d);
    c.putReal(2, 2, std::numeric_limits<double>::quiet_NaN(), false);
    d.putReal(2, 2, 123.0, false);
    EXPECT_TRUE(c == d);
    d.putReal(3, 3, 1.0, false);
    EXPECT_FALSE(c == d);
    // Offset and requested size count.
    kxFrequencyBuffer e = a;
    Access::offset(e, kxPair<long>(1, 0));
    EXPECT_FALSE(a == e);
    kxFrequencyBuffer f = a;
    Access::setAndAllocate(f, 7, 8);
    EXPECT_FALSE(a == f);
}

TEST(Buffer, CropCopyChecksInOrder)
{
    kxFrequencyBuffer src(128, 64);
    using S = Defs::InvalidSize;
    expectError<S>([&] { kxFrequencyBuffer(src, 1, 64); }, "Copied width must be > 1");
    expectError<S>([&] { kxFrequencyBuffer(src, 1, 1); }, "Copied width must be > 1");
    expectError<S>([&] { kxFrequencyBuffer(src, 64, 1); }, "Copied height must be > 1");
    expectError<S>([&] { kxFrequencyBuffer(src, 256, 64); }, "Copied width cannot be greater than source width");
    expectError<S>([&] { kxFrequencyBuffer(src, 256, 128); }, "Copied width cannot be greater than source width");
    expectError<S>([&] { kxFrequencyBuffer(src, 64, 128); }, "Copied height cannot be greater than source height");
    expectError<S>([&] { kxFrequencyBuffer(src, 96, 64); }, "Unsupported width");
    expectError<S>([&] { kxFrequencyBuffer(src, 96, 48); }, "Unsupported width");
    expectError<S>([&] { kxFrequencyBuffer(src, 64, 48); }, "Unsupported height");
    expectError<Defs::Uninitialized>([] { kxFrequencyBuffer(kxFrequencyBuffer(), 4, 4); }, kNotInit);
}

TEST(Buffer, CropCopyKeepsTheLowFrequencies)
{
    // A 256 x 256 grid standing for a 200 x 100 image: only an archive can say
    // that (a resize would pad 100 to 128), so the requested height is patched
    // in a stored buffer.
    kxFrequencyBuffer grid(200, 256);
    kxMemoryArchive out;
    out || grid;
    std::vector<unsigned char> bytes = out.bytes();
    // The requested height is the fourth long after the version byte: 256
    // (00 01 00 00) becomes 100 (64 00 00 00).
    ASSERT_EQ(bytes[14], 1);
    bytes[13] = 100;
    bytes[14] = 0;
    kxMemoryArchive in(bytes);
    kxFrequencyBuffer src;
    in || src;
    ASSERT_EQ(src.height(), 256);
    ASSERT_EQ(Access::requestedHeight(src), 100);
    fillIndexed(src);
    Access::offset(src, kxPair<long>(3, 4));
    kx2XformCache t;
    t.xform(kx2XformLinear(kxXform<2>(kxMatrix<2>(1, 0, 0, 1), kxVector<2>(10, 20))));
    Access::transform(src, t);

    kxFrequencyBuffer crop(src, 64, 32);
    EXPECT_EQ(crop.width(), 64);
    EXPECT_EQ(crop.height(), 32);
    EXPECT_EQ(Access::requestedWidth(crop), 50);   // 200 x 0.25
    EXPECT_EQ(Access::requestedHeight(crop), 12);  // 100 x 0.125 = 12.5 truncated
    EXPECT_EQ(Access::offset(crop), kxPair<long>(3, 4));
    // The source transform on the left, the pure scale on the right.
    const kxXform<2> expected = t.linearXform() *
                                kxXform<2>(kxMatrix<2>(0.25, 0, 0, 0.125), kxVector<2>(0, 0));
    EXPECT_EQ(Access::transform(crop).linearXform(), expected);
    // Every centred frequency -32..31 x -16..15 keeps its value.
    for (long v = -16; v < 16; ++v)
        for (long u = -32; u < 32; ++u)
            ASSERT_EQ(crop.get(u, v, true), src.get(u, v, true)) << u << "," << v;
}

TEST(Buffer, CropCopyOfAnInverseComputedSourceCopiesTheFlag)
{
    kxFrequencyBuffer src(8, 8);
    Access::inverseComputed(src, true);
    kxFrequencyBuffer crop(src, 4, 4);
    EXPECT_TRUE(Access::inverseComputed(crop));
}

TEST(Buffer, FromRealAndImaginaryImages)
{
    kxPelBuffer<double> re(3, 2), im(3, 2);
    for (long y = 0; y < 2; ++y)
        for (long x = 0; x < 3; ++x) {
            re(x, y) = x + 10 * y;
            im(x, y) = -(x + 10 * y) - 0.5;
        }
    re.offset(kxPair<long>(1, 1));
    im.offset(kxPair<long>(1, 1));
    kxFrequencyBuffer b(re, im);
    EXPECT_EQ(b.width(), 4);
    EXPECT_EQ(b.height(), 2);
    EXPECT_EQ(Access::offset(b), kxPair<long>(1, 1));
    EXPECT_EQ(b.get(2, 1, false), kxPair<double>(12, -12.5));
    EXPECT_EQ(b.get(3, 0, false), kxPair<double>(0, 0));
    EXPECT_EQ(b.get(3, 1, false), kxPair<double>(0, 0));
}

TEST(Buffer, FromImagesChecksInOrder)
{
    kxPelBuffer<double> bound(4, 4), unbound;
    expectError<Defs::UnboundWindow>([&] { kxFrequencyBuffer(unbound, bound); }, "");
    expectError<Defs::UnboundWindow>([&] { kxFrequencyBuffer(bound, unbound); }, "");
    const char* msg = "Real and Imaginary PelBuffers must have the same dimensions and offset.";
    expectError<Defs::InvalidSize>([&] { kxFrequencyBuffer(bound, kxPelBuffer<double>(4, 5)); }, msg);
    expectError<Defs::InvalidSize>([&] { kxFrequencyBuffer(bound, kxPelBuffer<double>(5, 4)); }, msg);
    kxPelBuffer<double> shifted(4, 4);
    shifted.offset(kxPair<long>(0, 1));
    expectError<Defs::InvalidSize>([&] { kxFrequencyBuffer(bound, shifted); }, msg);
    kxPelBuffer<double> large(3000, 1);
    expectError<Defs::InvalidSize>([&] { kxFrequencyBuffer(large, large); },
                                   "Width and Height must be no larger than 2048.");
}

TEST(Buffer, ClearPaddingZeroesOnlyThePaddingAndPollsOnce)
{
    std::vector<float> data(2 * 8 * 4, 1.0f);
    kxAttention::Probe probe;
    kf_ClearPadding(5, 3, 8, 4, data.data());
    EXPECT_EQ(probe.count(), 1u);
    for (long y = 0; y < 4; ++y)
        for (long x = 0; x < 8; ++x) {
            const float expected = (y < 3 && x < 5) ? 1.0f : 0.0f;
            EXPECT_EQ(data[2 * (y * 8 + x)], expected);
            EXPECT_EQ(data[2 * (y * 8 + x) + 1], expected);
        }
}

// A crop-copy's requested size can round up to less than its grid: 513 x 513
// pads to 1024 x 1024, and reducing that to 256 x 256 asks for 128 x 128. A
// copy keeps the grid it copies.
TEST(Buffer, CopiesOfACropCopyKeepItsGrid)
{
    kxFrequencyBuffer src(513, 513);
    fillIndexed(src);
    const kxFrequencyBuffer reduced(src, 256, 256);
    ASSERT_EQ(Access::requestedWidth(reduced), 128);
    ASSERT_EQ(reduced.width(), 256);

    const kxFrequencyBuffer constructed(reduced);
    kxFrequencyBuffer assigned(8, 8);
    assigned = reduced;
    kxFrequencyBuffer sameGrid(256, 256);
    sameGrid = reduced;
    const kxFrequencyBuffer* copies[] = {&constructed, &assigned, &sameGrid};
    for (const kxFrequencyBuffer* copy : copies) {
        EXPECT_EQ(copy->width(), 256);
        EXPECT_EQ(copy->height(), 256);
        EXPECT_EQ(Access::requestedWidth(*copy), 128);
        EXPECT_EQ(Access::requestedHeight(*copy), 128);
        EXPECT_TRUE(*copy == reduced);
        EXPECT_EQ(std::memcmp(Access::data(*copy), Access::data(reduced), sizeof(float) * 2 * 256 * 256), 0);
    }
}

// A loaded buffer may hold a grid larger than a transform makes; copying it
// keeps that grid too instead of refusing it with the size limit's message.
TEST(Buffer, CopiesOfALargeLoadedGridKeepIt)
{
    // A 4096 x 1 grid in the buffer's archive format: version, sizes, band,
    // flag, transform, offset, data.
    kxMemoryArchive out;
    unsigned char version = 1, arrayVersion = 0;
    long paddedWidth = 4096, paddedHeight = 1, requestedWidth = 4096, requestedHeight = 1;
    long masked = 0, miny = 0, maxy = 0;
    bool inverse = false, hasData = true;
    kx2XformCache transform;
    kxPair<long> offset(0, 0);
    unsigned long count = 2 * 4096;
    out || version || paddedWidth || paddedHeight || requestedWidth || requestedHeight || masked || miny || maxy ||
        inverse || transform || offset || hasData || arrayVersion || count;
    for (unsigned long i = 0; i < count; ++i) {
        float value = static_cast<float>(i);
        out || value;
    }
    kxMemoryArchive in(out.bytes());
    kxFrequencyBuffer big;
    in || big;
    ASSERT_EQ(big.width(), 4096);
    const kxFrequencyBuffer copy(big);
    EXPECT_EQ(copy.width(), 4096);
    EXPECT_EQ(copy.height(), 1);
    EXPECT_EQ(copy.get(4095, 0, false), kxPair<double>(8190, 8191));
    EXPECT_TRUE(copy == big);
}

// The public element view: the same floats get() and put() reach, and an
// address that holds while the padded size does.
TEST(BufferElements, ViewAddressesTheElementsGetAndPutReach)
{
    kxFrequencyBuffer b(5, 3);   // padded 8 x 4
    fillIndexed(b);
    const kxFrequencyBuffer::ElementView<float> v = b.elements();
    ASSERT_NE(v.data, nullptr);
    EXPECT_EQ(v.width, 8);
    EXPECT_EQ(v.height, 4);
    EXPECT_EQ(v.rowStride, 16);
    EXPECT_EQ(v.requestedWidth, 5);
    EXPECT_EQ(v.requestedHeight, 3);
    EXPECT_FALSE(v.inverseComputed);
    EXPECT_FALSE(v.masked);
    for (long y = 0; y < v.height; ++y)
        for (long x = 0; x < v.width; ++x) {
            EXPECT_EQ(v.data[y * v.rowStride + 2 * x], 100.0f * y + x);
            EXPECT_EQ(v.data[y * v.rowStride + 2 * x + 1], -(100.0f * y + x));
        }
    v.data[3 * v.rowStride + 2 * 7 + 1] = 0.25f;
    EXPECT_EQ(b.getImaginary(7, 3, false), 0.25);

    const kxFrequencyBuffer& constant = b;
    const kxFrequencyBuffer::ElementView<const float> c = constant.elements();
    EXPECT_EQ(c.data, v.data);
    EXPECT_EQ(c.rowStride, v.rowStride);
}

TEST(BufferElements, ViewOfABufferWithoutDataIsEmpty)
{
    const kxFrequencyBuffer::ElementView<const float> fresh = static_cast<const kxFrequencyBuffer&>(kxFrequencyBuffer()).elements();
    EXPECT_EQ(fresh.data, nullptr);
    EXPECT_EQ(fresh.width, 0);
    EXPECT_EQ(fresh.height, 0);
    EXPECT_EQ(fresh.rowStride, 0);

    kxFrequencyBuffer b(4, 4);
    b = kxFrequencyBuffer();
    EXPECT_EQ(b.elements().data, nullptr);
}

TEST(BufferElements, ViewReportsTheBandAndTheInverseFlag)
{
    kxFrequencyBuffer b(8, 8);
    Access::band(b, 1, -2, 3);
    kxFrequencyBuffer::ElementView<float> v = b.elements();
    EXPECT_TRUE(v.masked);
    EXPECT_EQ(v.bandFirst, -2);
    EXPECT_EQ(v.bandLast, 3);

    kxPelBuffer<double> image;
    kfInverseFFT<double>(b, image, false, true);
    v = b.elements();
    EXPECT_TRUE(v.inverseComputed);
    EXPECT_NE(v.data, nullptr);
}

TEST(BufferElements, AddressHoldsWhileThePaddedSizeDoes)
{
    kxFrequencyBuffer b(6, 6);   // padded 8 x 8
    const float* address = b.elements().data;

    kxPelBuffer<unsigned char> image(7, 5, 32);
    for (long y = 0; y < image.height(); ++y)
        for (long x = 0; x < image.width(); ++x)
            image.pointToOffset()[y * image.rowUpdate() + x] = static_cast<unsigned char>(x * y);
    kfForwardFFT<unsigned char>(image, b);
    EXPECT_EQ(b.elements().data, address);
    EXPECT_EQ(b.elements().requestedWidth, 7);

    b = kxFrequencyBuffer(8, 8);
    EXPECT_EQ(b.elements().data, address);

    // A stopped transform leaves no data but keeps the store for the next one.
    Access::reset(b);
    EXPECT_EQ(b.elements().data, nullptr);
    kfForwardFFT<unsigned char>(image, b);
    EXPECT_EQ(b.elements().data, address);

    kxPelBuffer<double> out;
    kfInverseFFT<double>(b, out, false, true);
    EXPECT_EQ(b.elements().data, address);
}
