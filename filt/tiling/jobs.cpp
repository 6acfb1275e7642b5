// Tiles on threads, the checks of the tiling options, and the row sources'
// and sinks' refusal of sample types they do not give or take.
#include "tiling/tiling_support.h"

#include <kx/core/attention.h>

#include <atomic>
#include <exception>
#include <mutex>
#include <thread>

namespace kx_tiling {

namespace {

// More threads than this would only cost memory (one tile's buffers each).
constexpr unsigned kMaxJobs = 256;

bool isPowerOfTwo(long n) { return n > 0 && (n & (n - 1)) == 0; }

}  // namespace

void checkTileSide(long tile, const char* what)
{
    if (!isPowerOfTwo(tile) || tile < kfMinTileSide || tile > kfMaxTileSide)
        throw kxFrequencyDefs::InvalidArgument(
            (std::string(what) + " must be a power of two from 64 to 2048, not " + std::to_string(tile) + ".")
                .c_str());
}

void refuseSampleType() { throw kxFrequencyDefs::InvalidArgument("Unknown sample type."); }

void checkJobs(unsigned jobs)
{
    if (jobs < 1 || jobs > kMaxJobs)
        throw kxFrequencyDefs::InvalidArgument("Jobs must be from 1 to 256.");
}

void checkSourceSize(const kxRowSource& source, long minSide)
{
    if (source.width() < minSide || source.height() < minSide)
        throw kxFrequencyDefs::InvalidSize(minSide == 1 ? "The image is empty." : "The image must be at least 8 x 8.");
    const long largest = 2147483647L;
    if (source.width() > largest || source.height() > largest)
        throw kxFrequencyDefs::InvalidSize("The image is larger than 2^31 - 1 in a side.");
}

void runJobs(unsigned jobs, long count, const std::function<void(unsigned job, long index)>& work,
             const std::function<void(long ended)>& afterEach)
{
    std::atomic<long> next{0};
    std::atomic<long> ended{0};
    std::atomic<bool> failed{false};
    std::exception_ptr first;
    std::mutex firstMutex;

    auto loop = [&](unsigned job) {
        while (!failed.load()) {
            const long index = next.fetch_add(1);
            if (index >= count)
                return;
            try {
                kxAttention::check();
                work(job, index);
                const long now = ended.fetch_add(1) + 1;
                if (job == 0 && afterEach)
                    afterEach(now);
            } catch (...) {
                const std::lock_guard<std::mutex> lock(firstMutex);
                if (!first)
                    first = std::current_exception();
                failed.store(true);
                return;
            }
        }
    };

    const unsigned helpers = static_cast<unsigned>(std::min<long>(jobs, count > 0 ? count : 1)) - 1;
    std::vector<std::thread> threads;
    threads.reserve(helpers);
    try {
        for (unsigned job = 1; job <= helpers; ++job)
            threads.emplace_back(loop, job);
    } catch (...) {   // no more threads to be had: the ones running do the work
        if (threads.empty())
            throw;
    }
    loop(0);
    for (std::thread& thread : threads)
        thread.join();
    if (first)
        std::rethrow_exception(first);
}

}  // namespace kx_tiling

// ---------------------------------------------------------------------------

namespace {

[[noreturn]] void refuseSourceType() { throw kxFrequencyDefs::InvalidArgument("The source does not give this sample type."); }
[[noreturn]] void refuseSinkType() { throw kxFrequencyDefs::InvalidArgument("The sink does not take this sample type."); }

}  // namespace

kxRowSource::~kxRowSource() = default;
void kxRowSource::read(unsigned char*, long) { refuseSourceType(); }
void kxRowSource::read(unsigned short*, long) { refuseSourceType(); }
void kxRowSource::read(float*, long) { refuseSourceType(); }
void kxRowSource::read(double*, long) { refuseSourceType(); }

kxRowSink::~kxRowSink() = default;
void kxRowSink::write(const unsigned char*, long) { refuseSinkType(); }
void kxRowSink::write(const unsigned short*, long) { refuseSinkType(); }
void kxRowSink::write(const float*, long) { refuseSinkType(); }
void kxRowSink::write(const double*, long) { refuseSinkType(); }
