#pragma once
// Internal: large working areas whose first touch is cheap. On Linux a
// region advised for transparent huge pages is faulted in 2 MiB at a time
// instead of 4 KiB at a time, and its strided walks (the column passes) need
// far fewer TLB entries. Elsewhere this is a plain allocation.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>
#include <vector>

#ifdef __linux__
#include <sys/mman.h>
#endif

// Areas from this size on are advised.
constexpr std::size_t kf_HugePageThreshold = std::size_t(1) << 21;

// Advises the 2 MiB-aligned part of [begin, begin + bytes) for huge pages.
// Only advice: nothing changes if the system declines it.
inline void kf_AdviseHugePages(void* begin, std::size_t bytes)
{
#ifdef __linux__
    constexpr std::uintptr_t huge = std::uintptr_t(1) << 21;
    const std::uintptr_t from = (reinterpret_cast<std::uintptr_t>(begin) + huge - 1) & ~(huge - 1);
    const std::uintptr_t to = (reinterpret_cast<std::uintptr_t>(begin) + bytes) & ~(huge - 1);
    if (bytes >= kf_HugePageThreshold && to > from)
        madvise(reinterpret_cast<void*>(from), to - from, MADV_HUGEPAGE);
#else
    (void)begin;
    (void)bytes;
#endif
}

// Makes `store` a fresh vector of `count` zeros, advised for huge pages
// before any of it is touched. The old contents are released first.
inline void kf_AllocateZeroed(std::vector<float>& store, std::size_t count)
{
    store = std::vector<float>();
    store.reserve(count);
    kf_AdviseHugePages(store.data(), count * sizeof(float));
    store.resize(count);
}

// A float working area, not initialised: 2 MiB-aligned and advised for huge
// pages from kf_HugePageThreshold on, 64-byte aligned below. Released with
// the object.
class kf_WorkArea {
public:
    explicit kf_WorkArea(std::size_t floats)
    {
        std::size_t bytes = floats * sizeof(float);
        const std::size_t alignment = bytes >= kf_HugePageThreshold ? std::size_t(1) << 21 : 64;
        bytes = (bytes + alignment - 1) / alignment * alignment;
        store_.reset(static_cast<float*>(std::aligned_alloc(alignment, bytes)));
        if (!store_)
            throw std::bad_alloc();
        kf_AdviseHugePages(store_.get(), bytes);
    }
    float* data() const { return store_.get(); }

private:
    struct Free {
        void operator()(float* p) const { std::free(p); }
    };
    std::unique_ptr<float, Free> store_;
};
