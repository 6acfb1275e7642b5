#include "fft/buffer_access.h"
#include "freqfilt/filter_support.h"

#include <kx/freqfilt.h>

kxFrequencyFilter::kxFrequencyFilter() : initialized_(false) {}

kxFrequencyFilter::kxFrequencyFilter(const kxFrequencyFilter&) : kxPersistent(), kxRepBase(), initialized_(false) {}

kxFrequencyFilter& kxFrequencyFilter::operator=(const kxFrequencyFilter& other)
{
    initialized_ = other.initialized_;
    return *this;
}

kxFrequencyFilter::~kxFrequencyFilter() = default;

bool kxFrequencyFilter::isInitialized() const { return initialized_; }

void kxFrequencyFilter::dispatchSerialize(kxArchive& archive)
{
    kfStreamVersioned(archive, this, sizeof(kxFrequencyFilter), [&](unsigned char version) {
        kxFrequencyFilter::serialize_(archive, version);
    });
}

void kxFrequencyFilter::serialize_(kxArchive& archive, unsigned char version)
{
    kxfreq_detail::kf_RequireFilterVersion(version, __LINE__);
    kxPersistent::dispatchSerialize(archive);
    archive || initialized_;
}

void kxFrequencyFilter::setAndAllocateFrequencyBuffer(kxFrequencyBuffer& buffer, long width, long height)
{
    buffer.setAndAllocate(width, height);
}

void kxFrequencyFilter::maskFrequencyBuffer(kxFrequencyBuffer& buffer, bool masked, long firstRow, long lastRow)
{
    buffer.masked(masked ? 1 : 0);
    buffer.maskedMiny(firstRow);
    buffer.maskedMaxy(lastRow);
}

float* kxFrequencyFilter::getFrequencyBufferData(kxFrequencyBuffer& buffer) { return buffer.data(); }

const float* kxFrequencyFilter::getFrequencyBufferData(const kxFrequencyBuffer& buffer) { return buffer.data(); }

void kxFrequencyFilter::invalidateFrequencyBuffer(kxFrequencyBuffer& buffer)
{
    kx_FrequencyBufferAccess::reset(buffer);
}

namespace kxfreq_detail {

void kf_RequireFilterVersion(unsigned char version, long line)
{
    if (version != 0)
        throw kxArchive::UnknownVersion("filt/freqfilt", line);
}

[[noreturn]] void kf_RefuseLoad(const std::string& why) { throw kxArchive::Error("kxFrequencyFilter: " + why); }

void kf_ClearDcSquare(kxFrequencyBuffer& buffer, long radius)
{
    const long r = radius - 1;
    for (long y = -r; y <= r; ++y)
        for (long x = -r; x <= r; ++x) {
            buffer.putReal(x, y, 0.0, true);
            buffer.putImaginary(x, y, 0.0, true);
        }
}

std::vector<kxPair<double>> kf_SaveDcSquare(const kxFrequencyBuffer& buffer, long radius)
{
    std::vector<kxPair<double>> saved;
    if (radius == 0)
        return saved;
    saved.reserve(static_cast<std::size_t>(2 * radius - 1) * static_cast<std::size_t>(2 * radius - 1));
    const long r = radius - 1;
    for (long y = -r; y <= r; ++y)
        for (long x = -r; x <= r; ++x)
            saved.push_back(buffer.get(x, y, true));
    return saved;
}

void kf_RestoreDcSquare(kxFrequencyBuffer& buffer, long radius, const std::vector<kxPair<double>>& saved)
{
    if (radius == 0)
        return;
    const long r = radius - 1;
    std::size_t i = 0;
    for (long y = -r; y <= r; ++y)
        for (long x = -r; x <= r; ++x)
            buffer.put(x, y, saved[i++], true);
}

}  // namespace kxfreq_detail
