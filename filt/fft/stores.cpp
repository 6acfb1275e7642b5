// Recycled float stores; see stores.h.
#include "fft/stores.h"

#include <kx/fft.h>

#include <cstdint>
#include <mutex>
#include <utility>

#ifdef __linux__
#include <sys/mman.h>
#endif

namespace {

// Stores below this size come and go through the allocator's own free
// lists cheaply; they are not pooled and not advised.
constexpr std::size_t kSmallestPooledBytes = std::size_t(64) << 10;

// From this size on a new store is advised for huge pages.
constexpr std::size_t kHugePageBytes = std::size_t(1) << 21;

// The pool holds at most this many stores and this many bytes: two stores
// of the largest grid, enough for a buffer and a working area.
constexpr int kPoolSlots = 4;
const std::size_t kPoolBytes = 2 * sizeof(float) * kf_StoreFloats(kfMaxTransformSide, kfMaxTransformSide);

// Advises the 2 MiB-aligned part of [begin, begin + bytes) for huge pages:
// its first touch then faults 2 MiB at a time, and the column passes' strided
// walks need far fewer TLB entries. Only advice: nothing changes if the
// system declines it.
void adviseHugePages(void* begin, std::size_t bytes)
{
#ifdef __linux__
    constexpr std::uintptr_t huge = kHugePageBytes;
    const std::uintptr_t from = (reinterpret_cast<std::uintptr_t>(begin) + huge - 1) & ~(huge - 1);
    const std::uintptr_t to = (reinterpret_cast<std::uintptr_t>(begin) + bytes) & ~(huge - 1);
    if (bytes >= kHugePageBytes && to > from)
        madvise(reinterpret_cast<void*>(from), to - from, MADV_HUGEPAGE);
#else
    (void)begin;
    (void)bytes;
#endif
}

std::size_t bytesOf(const std::vector<float>& store) { return store.capacity() * sizeof(float); }

class Pool {
public:
    // Moves a pooled store of exactly `count` floats into `store` (which is
    // empty); false when there is none.
    bool take(std::vector<float>& store, std::size_t count)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        for (int i = used_ - 1; i >= 0; --i)
            if (slots_[i].size() == count) {
                store.swap(slots_[i]);
                bytes_ -= bytesOf(store);
                removeSlot(i);
                return true;
            }
        return false;
    }

    // Keeps `store`'s memory, dropping the oldest entries to make room; a
    // store that cannot fit is freed.
    void give(std::vector<float>& store) noexcept
    {
        std::vector<float> dropped[kPoolSlots];
        int droppedCount = 0;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            const std::size_t bytes = bytesOf(store);
            if (bytes > kPoolBytes)
                return freeNow(store);
            while (used_ == kPoolSlots || bytes_ + bytes > kPoolBytes) {
                bytes_ -= bytesOf(slots_[0]);
                dropped[droppedCount++].swap(slots_[0]);
                removeSlot(0);
            }
            slots_[used_++].swap(store);
            bytes_ += bytes;
        }
        // The dropped stores are freed here, outside the lock.
    }

private:
    static void freeNow(std::vector<float>& store) noexcept { std::vector<float>().swap(store); }

    void removeSlot(int i)
    {
        for (; i + 1 < used_; ++i)
            slots_[i].swap(slots_[i + 1]);
        --used_;
        freeNow(slots_[used_]);
    }

    std::mutex mutex_;
    std::vector<float> slots_[kPoolSlots];   // oldest first
    int used_ = 0;
    std::size_t bytes_ = 0;
};

// Never destroyed: buffers in static storage may give their stores back
// during exit.
Pool& pool()
{
    static Pool& instance = *new Pool;
    return instance;
}

}  // namespace

std::size_t kf_StoreFloats(long paddedWidth, long paddedHeight)
{
    return static_cast<std::size_t>(paddedWidth) * static_cast<std::size_t>(paddedHeight) * 2 + kStoreSpareFloats;
}

float* kf_AlignedStart(std::vector<float>& store)
{
    std::uintptr_t address = reinterpret_cast<std::uintptr_t>(store.data());
    address = (address + kStoreAlignment - 1) & ~static_cast<std::uintptr_t>(kStoreAlignment - 1);
    return reinterpret_cast<float*>(address);
}

void kf_TakeStore(std::vector<float>& store, std::size_t count)
{
    if (store.size() == count)
        return;
    // The old store is given up only once the new one is there, so a failed
    // allocation leaves `store` as it was.
    std::vector<float> taken;
    if (count * sizeof(float) < kSmallestPooledBytes || !pool().take(taken, count)) {
        taken.reserve(count);
        adviseHugePages(taken.data(), count * sizeof(float));
        taken.resize(count);
    }
    store.swap(taken);
    kf_ReleaseStore(taken);
}

void kf_ReleaseStore(std::vector<float>& store) noexcept
{
    if (bytesOf(store) >= kSmallestPooledBytes)
        pool().give(store);
    std::vector<float>().swap(store);
}

kf_WorkArea::kf_WorkArea(long paddedWidth, long paddedHeight)
{
    kf_TakeStore(store_, kf_StoreFloats(paddedWidth, paddedHeight));
    data_ = kf_AlignedStart(store_);
}

kf_WorkArea::~kf_WorkArea() { kf_ReleaseStore(store_); }
