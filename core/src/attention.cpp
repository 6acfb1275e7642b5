#include <kx/core/attention.h>

std::atomic<unsigned long> kxAttention::pending_{0};

namespace {
thread_local kxAttention::Probe* tProbe = nullptr;
}

void kxAttention::request() { pending_.fetch_or(1, std::memory_order_release); }
void kxAttention::clear() { pending_.fetch_and(~1ul, std::memory_order_release); }
bool kxAttention::requested() { return (pending_.load(std::memory_order_acquire) & 1) != 0; }

void kxAttention::checkSlow()
{
    if (Probe* probe = tProbe) {
        ++probe->count_;
        if (probe->throwAt_ != 0 && probe->count_ == probe->throwAt_)
            throw Stopped();
    }
    if (requested())
        throw Stopped();
}

kxAttention::Probe::Probe(unsigned long throwAt) : throwAt_(throwAt), outer_(tProbe)
{
    tProbe = this;
    pending_.fetch_add(2, std::memory_order_acq_rel);
}

kxAttention::Probe::~Probe()
{
    tProbe = outer_;
    pending_.fetch_sub(2, std::memory_order_acq_rel);
}
