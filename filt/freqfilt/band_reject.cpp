#include "freqfilt/radial_common.h"

#include <kx/freqfilt.h>

#include <new>

using BandReject = kxFrequencyFilterBandReject;

kx_Instantiator BandReject::sExemplar(typeid(BandReject), &BandReject::make);

kxPersistent* BandReject::make() { return new (std::nothrow) BandReject(); }

BandReject::kxFrequencyFilterBandReject() = default;

BandReject::kxFrequencyFilterBandReject(double sigma, double plateau, double frequency, const kxPair<long>& size,
                                         long dcProtectionRadius)
{
    create(sigma, plateau, frequency, size, dcProtectionRadius);
}

BandReject::kxFrequencyFilterBandReject(const BandReject& other) : kxPersistent(), kxRepBase(), kxFrequencyFilter()
{
    *this = other;
}

BandReject& BandReject::operator=(const BandReject& other)
{
    if (other.state_.profile)
        kxFrequencyFilter::operator=(other);
    kf_RadialAssign(state_, other.state_);
    return *this;
}

BandReject::~kxFrequencyFilterBandReject() { state_.profile = nullptr; }

kxFrequencyFilter* BandReject::clone() const { return new BandReject(*this); }

bool BandReject::operator==(const BandReject& other) const
{
    return isInitialized() == other.isInitialized() && kf_RadialEqual(state_, other.state_);
}

// The profile is 1 - the band-pass gain: 0 on the plateau, towards 1 away
// from the ring.
void BandReject::create(double sigma, double plateau, double frequency, const kxPair<long>& size,
                        long dcProtectionRadius)
{
    kf_RadialCreate(state_, {sigma, plateau, frequency, size, dcProtectionRadius},
                    "DC Protection Radius cannot be negative.", true, *this);
    setInitialized(true);
}

void BandReject::set(double sigma, double plateau, double frequency, const kxPair<long>& size,
                     long dcProtectionRadius)
{
    create(sigma, plateau, frequency, size, dcProtectionRadius);
}

KX_RADIAL_SETTER(BandReject, sigma, double, sigma)
KX_RADIAL_SETTER(BandReject, plateau, double, plateau)
KX_RADIAL_SETTER(BandReject, frequency, double, frequency)
KX_RADIAL_SETTER(BandReject, size, const kxPair<long>&, size)
KX_RADIAL_SETTER(BandReject, dcProtectionRadius, long, dcRadius)
KX_RADIAL_GETTER(BandReject, sigma, double, sigma)
KX_RADIAL_GETTER(BandReject, plateau, double, plateau)
KX_RADIAL_GETTER(BandReject, frequency, double, frequency)
KX_RADIAL_GETTER(BandReject, size, kxPair<long>, size)
KX_RADIAL_GETTER(BandReject, dcProtectionRadius, long, dcRadius)
KX_RADIAL_GETTER(BandReject, supportWidth, long, supportWidth)

namespace {

// dst = src x gain on the band, dst = src everywhere else.
void rejectBand(const kx_RadialState& state, const float* in, kxFrequencyBuffer& out, float* outData)
{
    kf_RadialWalk(
        state, out.width(), out.height(), in, outData,
        kf_ScaleElement,
        kf_CopyElement);
}

}  // namespace

// The protected square is saved before filtering and put back after.
void BandReject::apply(kxFrequencyBuffer& buffer) const
{
    float* data = getFrequencyBufferData(buffer);
    kf_RequireBufferData(data);
    kf_RequireTransferFunction(state_.profile);
    kf_RequireFilterSize(buffer, state_.size);
    const std::vector<kxPair<double>> saved = kf_SaveDcSquare(buffer, state_.dcRadius);
    maskFrequencyBuffer(buffer, false, 0, 0);
    rejectBand(state_, data, buffer, data);
    kf_RestoreDcSquare(buffer, state_.dcRadius, saved);
}

void BandReject::apply(const kxFrequencyBuffer& src, kxFrequencyBuffer& dst) const
{
    kf_RequireBufferData(getFrequencyBufferData(src));
    kf_RequireTransferFunction(state_.profile);
    kf_RequireFilterSize(src, state_.size);
    setAndAllocateFrequencyBuffer(dst, src.width(), src.height());
    maskFrequencyBuffer(dst, false, 0, 0);
    const std::vector<kxPair<double>> saved = kf_SaveDcSquare(src, state_.dcRadius);
    rejectBand(state_, getFrequencyBufferData(src), dst, getFrequencyBufferData(dst));
    kf_RestoreDcSquare(dst, state_.dcRadius, saved);
}

void BandReject::dispatchSerialize(kxArchive& archive)
{
    kf_DispatchFilter(archive, this, sizeof(BandReject),
                      [&](unsigned char version) { BandReject::serialize_(archive, version); });
}

void BandReject::serialize_(kxArchive& archive, unsigned char version)
{
    if (version != 0)
        throw kxArchive::UnknownVersion("filt/freqfilt", __LINE__);
    kxFrequencyFilter::dispatchSerialize(archive);
    kf_RadialStream(archive, state_);
}
