#pragma once
// Internal: the float stores of frequency buffers and of the transforms'
// working areas.
//
// A fresh store of a large image costs more than the transform that fills
// it: every page faults in and is cleared by the system, then cleared again
// by the vector. So stores are recycled: a store a buffer or a call gives up
// goes into a small process-wide pool (a few entries, at most two stores of
// the largest grid), and the next request of the same size takes it back.
// New large stores are advised for transparent huge pages before first
// touch. Every function here is safe to call from several threads at once.
#include <cstddef>
#include <vector>

// The data of a store start at a cache-line boundary: the column passes
// read and write each row in pieces of whole cache lines (16 lanes of
// complex floats are two lines), which a 16-byte start would spread over
// three.
constexpr std::size_t kStoreAlignment = 64;
constexpr std::size_t kStoreSpareFloats = kStoreAlignment / sizeof(float) - 1;

// The floats a buffer store holds for a padded grid: two per element and
// the spare floats that leave room to round the data pointer up.
std::size_t kf_StoreFloats(long paddedWidth, long paddedHeight);

// The first float of `store` at a kStoreAlignment boundary.
float* kf_AlignedStart(std::vector<float>& store);

// Makes `store` exactly `count` floats long, keeping it when it already is.
// Otherwise it takes a pooled store of that size, whose floats are left from
// earlier use (the callers overwrite them, or clear them where zeros are
// promised), or else a fresh store of zeros, and its old memory goes to the
// pool. A failed allocation leaves `store` as it was.
void kf_TakeStore(std::vector<float>& store, std::size_t count);

// Hands `store`'s memory to the pool (or frees it) and leaves `store` empty.
// Never throws.
void kf_ReleaseStore(std::vector<float>& store) noexcept;

// A working area for the spatial data of one padded grid, taken from the
// pool for the duration of a call (the same size as a buffer store, so the
// two recycle each other). Its floats are not initialised.
class kf_WorkArea {
public:
    kf_WorkArea(long paddedWidth, long paddedHeight);
    ~kf_WorkArea();
    kf_WorkArea(const kf_WorkArea&) = delete;
    kf_WorkArea& operator=(const kf_WorkArea&) = delete;
    float* data() const { return data_; }

private:
    std::vector<float> store_;
    float* data_;
};
