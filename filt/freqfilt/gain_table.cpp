// The gain table the Gabor and radial filters keep their gains in.
#include "freqfilt/filter_support.h"

#include <kx/freqfilt.h>

#include <algorithm>
#include <cstdint>

using namespace kxfreq_detail;

kx_GainTable::kx_GainTable(std::size_t count) { allocate(count); }

kx_GainTable::kx_GainTable(const kx_GainTable& other) { *this = other; }

// Copies into the table's own store (resized, so possibly moved); from an
// empty table only the gains are dropped.
kx_GainTable& kx_GainTable::operator=(const kx_GainTable& other)
{
    if (&other == this)
        return *this;
    if (!other.gains_) {
        drop();
        return *this;
    }
    allocate(other.count_);
    std::copy(other.gains_, other.gains_ + count_, gains_);
    return *this;
}

kx_GainTable::~kx_GainTable() = default;

// A vector of floats is at least 4-byte aligned, so rounding up to 16 bytes
// skips at most three floats: three spare floats are all any table needs.
void kx_GainTable::allocate(std::size_t count)
{
    store_.resize(count + 3);
    std::uintptr_t address = reinterpret_cast<std::uintptr_t>(store_.data());
    address = (address + 15) & ~static_cast<std::uintptr_t>(15);
    gains_ = reinterpret_cast<float*>(address);
    count_ = count;
}

void kx_GainTable::commit(kx_GainTable& built)
{
    if (gains_ && count_ == built.count_) {
        std::copy(built.gains_, built.gains_ + count_, gains_);
        return;
    }
    store_.swap(built.store_);
    gains_ = built.gains_;
    count_ = built.count_;
    built.drop();
}

bool kx_GainTable::sameGains(const kx_GainTable& other) const
{
    if (count_ != other.count_)
        return false;
    for (std::size_t i = 0; i < count_; ++i)
        if (kf_Differs(gains_[i], other.gains_[i]))
            return false;
    return true;
}

std::vector<float> kx_GainTable::stored() const
{
    if (!gains_)
        return std::vector<float>();
    return std::vector<float>(gains_, gains_ + count_);
}

void kx_GainTable::load(bool hasTable, std::size_t expected, const std::vector<float>& loaded)
{
    if (!hasTable) {
        if (!loaded.empty())
            kf_RefuseLoad("gains stored for a filter without a table");
        store_.clear();
        store_.shrink_to_fit();
        gains_ = nullptr;
        return;
    }
    if (expected == 0 || loaded.size() < expected)
        kf_RefuseLoad("stored gain table does not match its stored size");
    allocate(loaded.size());
    std::fill(store_.begin(), store_.end(), 0.0f);
    std::copy(loaded.begin(), loaded.end(), gains_);
    count_ = expected;
}
