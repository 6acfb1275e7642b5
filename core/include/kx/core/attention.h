#pragma once
#include <kx/core/exception.h>
#include <kx/core/export.h>

#include <atomic>

// kxAttention: co-operative cancellation. Long computations call check() at
// regular points; when another thread has called request(), check() throws
// kxAttention::Stopped. The request stays in force until clear(), so every
// computation running or started meanwhile stops at its next poll.
//
// When nothing is pending, check() costs one atomic load.
class KXCORE_API kxAttention {
public:
    // What check() throws when a stop is requested.
    class KXCORE_API Stopped : public kxExceptionWithString {
    public:
        Stopped() : kxExceptionWithString("Operation stopped by an attention request") {}
    };

    // Throws Stopped when a stop is requested (or a Probe says so).
    static void check()
    {
        if (pending_.load(std::memory_order_acquire) != 0)
            checkSlow();
    }

    // request() asks every computation to stop at its next poll, clear() ends
    // the request, requested() tells whether one is in force.
    static void request();
    static void clear();
    static bool requested();

    // Counts this thread's polls while it exists, and optionally makes the
    // poll with number `throwAt` (1-based; 0 never) throw Stopped. For tests.
    // Probes nest; the innermost one counts.
    class KXCORE_API Probe {
    public:
        // Starts counting; count() is the number of polls so far.
        explicit Probe(unsigned long throwAt = 0);
        ~Probe();
        Probe(const Probe&) = delete;
        Probe& operator=(const Probe&) = delete;
        unsigned long count() const { return count_; }

    private:
        friend class kxAttention;
        unsigned long count_ = 0;
        unsigned long throwAt_;
        Probe* outer_;
    };

private:
    static void checkSlow();
    // Bit 0: a stop is requested. Higher bits: probes alive, in units of 2.
    static std::atomic<unsigned long> pending_;
};
