// Items of one pass shared among the calling thread and helpers.
#include "fft/engine/shared_work.h"

#include <kx/core/attention.h>

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

namespace {

// kf_RunShared's work; `stops`: whether the calling thread polls when the
// items are shared.
void runShared(int threads, int count, const std::function<void(int item, int slot)>& work,
               const std::function<void(int item)>& poll, bool stops)
{
    threads = std::max(1, std::min(threads, count));
    if (threads == 1) {
        for (int item = 0; item < count; ++item) {
            poll(item);
            work(item, 0);
        }
        return;
    }

    // A stop already requested ends the call before any helper starts.
    if (stops)
        kxAttention::check();
    std::atomic<int> next{0};
    std::atomic<bool> stop{false};
    std::mutex failureMutex;
    std::exception_ptr failure;
    auto fail = [&] {
        std::lock_guard<std::mutex> lock(failureMutex);
        if (!failure)
            failure = std::current_exception();
        stop.store(true);
    };
    // Takes the next item, or -1 when none is left or a thread has failed.
    auto take = [&] {
        if (stop.load())
            return -1;
        const int item = next.fetch_add(1);
        return item < count ? item : -1;
    };
    auto helper = [&](int slot) {
        try {
            for (int item = take(); item >= 0; item = take())
                work(item, slot);
        } catch (...) {
            fail();
        }
    };

    std::vector<std::thread> helpers;
    helpers.reserve(static_cast<std::size_t>(threads - 1));
    for (int slot = 1; slot < threads; ++slot) {
        try {
            helpers.emplace_back(helper, slot);
        } catch (...) {
            break;
        }
    }
    try {
        for (int item = take(); item >= 0; item = take()) {
            if (stops)
                kxAttention::check();
            work(item, 0);
        }
    } catch (...) {
        fail();
    }
    for (std::thread& t : helpers)
        t.join();
    if (failure)
        std::rethrow_exception(failure);
}

}  // namespace

void kf_RunShared(int threads, int count, const std::function<void(int item, int slot)>& work,
                  const std::function<void(int item)>& poll)
{
    runShared(threads, count, work, poll, true);
}

void kf_RunSharedWithoutStops(int threads, int count, const std::function<void(int item, int slot)>& work)
{
    runShared(threads, count, work, [](int) {}, false);
}
