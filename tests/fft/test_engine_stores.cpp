// Recycled float stores: a store given up is handed out again for the same
// size, with its old floats, and everything that promises zeros or writes a
// whole grid gives the same results whatever a recycled store held.
#include "fft/buffer_access.h"
#include "fft/stores.h"

#include <kx/core/archive.h>
#include <kx/fft.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <thread>
#include <vector>

namespace {

using Access = kx_FrequencyBufferAccess;

const float kNaN = std::numeric_limits<float>::quiet_NaN();

// Puts a store of the grid's size, full of NaN, into the pool, and returns
// where its data start.
const float* poisonPool(long paddedWidth, long paddedHeight)
{
    std::vector<float> store;
    kf_TakeStore(store, kf_StoreFloats(paddedWidth, paddedHeight));
    std::fill(store.begin(), store.end(), kNaN);
    const float* start = kf_AlignedStart(store);
    kf_ReleaseStore(store);
    EXPECT_TRUE(store.empty());
    return start;
}

kxPelBuffer<unsigned char> testImage(long w, long h)
{
    kxPelBuffer<unsigned char> image(w, h);
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x)
            image(x, y) = static_cast<unsigned char>((x * 7 + y * 13 + x * y) % 256);
    return image;
}

bool sameFloats(const kxFrequencyBuffer& a, const kxFrequencyBuffer& b)
{
    const std::size_t floats = 2 * static_cast<std::size_t>(Access::paddedWidth(a)) * Access::paddedHeight(a);
    return Access::paddedWidth(a) == Access::paddedWidth(b) && Access::paddedHeight(a) == Access::paddedHeight(b) &&
           std::memcmp(Access::data(a), Access::data(b), floats * sizeof(float)) == 0;
}

TEST(EngineStores, AStoreGivenUpIsHandedOutAgainForTheSameSize)
{
    const std::size_t count = kf_StoreFloats(256, 256);
    std::vector<float> first;
    kf_TakeStore(first, count);
    ASSERT_EQ(first.size(), count);
    first[0] = 42.0f;
    const float* address = first.data();
    kf_ReleaseStore(first);
    EXPECT_TRUE(first.empty());

    std::vector<float> second;
    kf_TakeStore(second, count);
    ASSERT_EQ(second.size(), count);
    EXPECT_EQ(second.data(), address);
    EXPECT_EQ(second[0], 42.0f);   // not cleared
    kf_ReleaseStore(second);
}

TEST(EngineStores, AStoreOfTheRightSizeIsKept)
{
    std::vector<float> store;
    kf_TakeStore(store, kf_StoreFloats(128, 128));
    const float* address = store.data();
    kf_TakeStore(store, kf_StoreFloats(128, 128));
    EXPECT_EQ(store.data(), address);
    kf_TakeStore(store, kf_StoreFloats(64, 128));
    EXPECT_EQ(store.size(), kf_StoreFloats(64, 128));
    kf_ReleaseStore(store);
}

TEST(EngineStores, TheSizedConstructorGivesZerosInARecycledStore)
{
    const float* poisoned = poisonPool(512, 256);
    const kxFrequencyBuffer buffer(300, 200);
    ASSERT_EQ(Access::data(buffer), poisoned);   // the recycled store was used
    const long floats = 2 * 512 * 256;
    for (long i = 0; i < floats; ++i)
        ASSERT_EQ(Access::data(buffer)[i], 0.0f) << i;
}

TEST(EngineStores, AForwardIntoARecycledStoreGivesTheSameBits)
{
    for (const auto& size : {std::pair<long, long>{512, 512}, {1000, 750}, {2048, 8}, {8, 2048}}) {
        const auto image = testImage(size.first, size.second);
        kxFrequencyBuffer reused;
        kfForwardFFT<unsigned char>(image, reused);
        kfForwardFFT<unsigned char>(image, reused);

        const float* poisoned = poisonPool(kfPaddedSize(size.first), kfPaddedSize(size.second));
        kxFrequencyBuffer fresh;
        kfForwardFFT<unsigned char>(image, fresh);
        EXPECT_EQ(Access::data(fresh), poisoned);
        EXPECT_TRUE(sameFloats(fresh, reused)) << size.first << " x " << size.second;
    }
}

TEST(EngineStores, ConstInversesAndCopiesInRecycledStoresGiveTheSameResults)
{
    const auto image = testImage(640, 480);
    kxFrequencyBuffer spectrum;
    kfForwardFFT<unsigned char>(image, spectrum);
    const kxFrequencyBuffer& frozen = spectrum;

    kxPelBuffer<unsigned char> before;
    kfInverseFFT<unsigned char>(frozen, before, false);
    kxFrequencyBuffer spatialBefore;
    kfInverseFFT(frozen, spatialBefore);

    for (int i = 0; i < 3; ++i)
        poisonPool(1024, 512);
    kxPelBuffer<unsigned char> after;
    kfInverseFFT<unsigned char>(frozen, after, false);
    kxFrequencyBuffer spatialAfter;
    kfInverseFFT(frozen, spatialAfter);
    const kxFrequencyBuffer copy(spectrum);

    ASSERT_EQ(after.width(), before.width());
    for (long y = 0; y < before.height(); ++y)
        ASSERT_EQ(std::memcmp(&after(0, y), &before(0, y), static_cast<std::size_t>(before.width())), 0) << y;
    EXPECT_TRUE(sameFloats(spatialAfter, spatialBefore));
    EXPECT_TRUE(sameFloats(copy, spectrum));
}

TEST(EngineStores, ThreadsNeverShareAStore)
{
    // Each thread writes its own mark into every store it holds and checks
    // it is still there before giving the store up.
    auto run = [](int mark, bool* ok) {
        for (int round = 0; round < 50; ++round) {
            std::vector<float> store;
            kf_TakeStore(store, kf_StoreFloats(128 + 128 * (round % 2), 128));
            std::fill(store.begin(), store.end(), static_cast<float>(mark));
            std::this_thread::yield();
            for (float f : store)
                if (f != static_cast<float>(mark))
                    *ok = false;
            kf_ReleaseStore(store);
        }
    };
    bool ok[4] = {true, true, true, true};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back(run, t + 1, &ok[t]);
    for (auto& t : threads)
        t.join();
    for (bool b : ok)
        EXPECT_TRUE(b);
}

}  // namespace

// Buffers made every way (sized, transformed, copied, loaded, and the const
// inverse's working area) start their data at a cache line, where the column
// passes expect whole lines.
TEST(EngineStores, DataStartAtACacheLine)
{
    auto aligned = [](const void* p) { return reinterpret_cast<std::uintptr_t>(p) % kStoreAlignment == 0; };
    EXPECT_EQ(kStoreAlignment, 64u);
    for (long side : {1L, 2L, 3L, 64L, 100L, 512L}) {
        kxFrequencyBuffer sized(side, side);
        EXPECT_TRUE(aligned(sized.elements().data)) << side;
        kxFrequencyBuffer transformed;
        kfForwardFFT<unsigned char>(testImage(side, side + 1), transformed);
        EXPECT_TRUE(aligned(transformed.elements().data)) << side;
        const kxFrequencyBuffer copy = transformed;
        EXPECT_TRUE(aligned(copy.elements().data)) << side;
        kf_WorkArea area(Access::paddedWidth(transformed), Access::paddedHeight(transformed));
        EXPECT_TRUE(aligned(area.data())) << side;
        kxMemoryArchive out;
        out || transformed;
        kxMemoryArchive in(out.bytes());
        kxFrequencyBuffer loaded;
        in || loaded;
        EXPECT_TRUE(aligned(loaded.elements().data)) << side;
    }
}
