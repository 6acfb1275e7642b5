#pragma once
// Internal: the items of one pass shared among threads.
#include <functional>

// Runs work(item, slot) for every item of [0, count), the items taken in
// order from a shared counter by up to `threads` threads: the calling thread
// (slot 0) and helpers started for this call (slots 1 ..), ended before
// return. With one thread everything runs on the calling thread, in order,
// with poll(item) before each item (the engine's fixed polling points).
// With more, the calling thread calls kxAttention::check() once before the
// helpers start and before every item it takes instead (the helpers do not poll: a stop belongs to the calling
// thread). Once anything throws, no further item is started; the first
// exception is rethrown on the calling thread after every helper has ended.
// A helper the system refuses to start leaves its share to the others.
void kf_RunShared(int threads, int count, const std::function<void(int item, int slot)>& work,
                  const std::function<void(int item)>& poll);

// As kf_RunShared, never polling: for work that must not stop part way
// (it writes into the caller's own result).
void kf_RunSharedWithoutStops(int threads, int count, const std::function<void(int item, int slot)>& work);
