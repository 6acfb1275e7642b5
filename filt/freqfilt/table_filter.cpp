// The two apply() forms of every filter with a table of gains. The body's
// walk does the table's work; around it, by role:
//
//   pass     the square around the zero frequency is cleared after the walk
//   reject   the square is saved before the walk and put back after it
//
// Everything that can be refused is checked before the destination changes,
// and a walk stopped part way leaves the destination not initialized.
#include "freqfilt/filter_support.h"

#include <kx/freqfilt.h>

using namespace kxfreq_detail;

kx_TableFilter::kx_TableFilter(const kx_TableFilter& other)
    : kxPersistent(), kxRepBase(), kxFrequencyFilter(other), role_(other.role_)
{
}

kx_TableFilter& kx_TableFilter::operator=(const kx_TableFilter& other)
{
    kxFrequencyFilter::operator=(other);
    return *this;
}

kx_TableFilter::~kx_TableFilter() = default;

bool kx_TableFilter::assignTable(const kx_TableFilter& other)
{
    if (!other.table_.data()) {
        table_.drop();
        return false;
    }
    kxFrequencyFilter::operator=(other);
    table_ = other.table_;
    return true;
}

bool kx_TableFilter::equals(const kx_TableFilter& other) const
{
    if (isInitialized() != other.isInitialized())
        return false;
    if (!table_.data() || !other.table_.data())
        return !table_.data() && !other.table_.data();
    return sameParameters(other) && table_.sameGains(other.table_);
}

void kx_TableFilter::apply(kxFrequencyBuffer& buffer) const { applyInto(buffer, buffer, false); }

// dst takes the padded size as its requested size; src's offset and
// transform are not carried over.
void kx_TableFilter::apply(const kxFrequencyBuffer& src, kxFrequencyBuffer& dst) const { applyInto(src, dst, true); }

void kx_TableFilter::applyInto(const kxFrequencyBuffer& src, kxFrequencyBuffer& dst, bool sizeDestination) const
{
    const long radius = gainsDcRadius();
    kf_RequireInitialized(src);
    kf_RequireTransferFunction(table_.data());
    kf_RequireFilterSize(src, gainsSize());
    kf_RequireDcSquareInside(src, radius);
    const std::vector<kxPair<double>> saved =
        role_ == eReject ? kf_SaveDcSquare(src, radius) : std::vector<kxPair<double>>();
    writeOrInvalidate(dst, [&] {
        if (sizeDestination)
            setAndAllocateFrequencyBuffer(dst, src.width(), src.height());
        walk(getFrequencyBufferData(src), dst);
        if (role_ == ePass)
            kf_ClearDcSquare(dst, radius);
        else
            kf_RestoreDcSquare(dst, radius, saved);
    });
}
