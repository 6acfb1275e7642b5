#include "freqfilt/radial_common.h"

#include <kx/freqfilt.h>

#include <new>

using BandPass = kxFrequencyFilterBandPass;

kx_Instantiator BandPass::sExemplar(typeid(BandPass), &BandPass::make);

kxPersistent* BandPass::make() { return new (std::nothrow) BandPass(); }

BandPass::kxFrequencyFilterBandPass() = default;

BandPass::kxFrequencyFilterBandPass(double sigma, double plateau, double frequency, const kxPair<long>& size,
                                     long dcRemovalRadius)
{
    create(sigma, plateau, frequency, size, dcRemovalRadius);
}

BandPass::kxFrequencyFilterBandPass(const BandPass& other) : kxPersistent(), kxRepBase(), kxFrequencyFilter()
{
    *this = other;
}

BandPass& BandPass::operator=(const BandPass& other)
{
    if (other.state_.profile)
        kxFrequencyFilter::operator=(other);
    kf_RadialAssign(state_, other.state_);
    return *this;
}

BandPass::~kxFrequencyFilterBandPass() { state_.profile = nullptr; }

kxFrequencyFilter* BandPass::clone() const { return new BandPass(*this); }

bool BandPass::operator==(const BandPass& other) const
{
    return isInitialized() == other.isInitialized() && kf_RadialEqual(state_, other.state_);
}

void BandPass::create(double sigma, double plateau, double frequency, const kxPair<long>& size, long dcRemovalRadius)
{
    kf_RadialCreate(state_, {sigma, plateau, frequency, size, dcRemovalRadius}, "DC Removal Radius cannot be negative.",
                    false, *this);
    setInitialized(true);
}

void BandPass::set(double sigma, double plateau, double frequency, const kxPair<long>& size, long dcRemovalRadius)
{
    create(sigma, plateau, frequency, size, dcRemovalRadius);
}

KX_RADIAL_SETTER(BandPass, sigma, double, sigma)
KX_RADIAL_SETTER(BandPass, plateau, double, plateau)
KX_RADIAL_SETTER(BandPass, frequency, double, frequency)
KX_RADIAL_SETTER(BandPass, size, const kxPair<long>&, size)
KX_RADIAL_SETTER(BandPass, dcRemovalRadius, long, dcRadius)
KX_RADIAL_GETTER(BandPass, sigma, double, sigma)
KX_RADIAL_GETTER(BandPass, plateau, double, plateau)
KX_RADIAL_GETTER(BandPass, frequency, double, frequency)
KX_RADIAL_GETTER(BandPass, size, kxPair<long>, size)
KX_RADIAL_GETTER(BandPass, dcRemovalRadius, long, dcRadius)
KX_RADIAL_GETTER(BandPass, supportWidth, long, supportWidth)

namespace {

// dst = src x gain on the band, 0.0 elsewhere (whole far rows without any
// arithmetic), then the square around the zero frequency is cleared.
void passBand(const kx_RadialState& state, const float* in, kxFrequencyBuffer& out, float* outData)
{
    kf_RadialWalk(
        state, out.width(), out.height(), in, outData,
        kf_ScaleElement,
        kf_ClearElement);
    if (state.dcRadius != 0)
        kf_ClearDcSquare(out, state.dcRadius);
}

}  // namespace

void BandPass::apply(kxFrequencyBuffer& buffer) const
{
    float* data = getFrequencyBufferData(buffer);
    kf_RequireBufferData(data);
    kf_RequireTransferFunction(state_.profile);
    kf_RequireFilterSize(buffer, state_.size);
    maskFrequencyBuffer(buffer, false, 0, 0);
    passBand(state_, data, buffer, data);
}

// dst takes the padded size as its requested size; src's offset and
// transform are not carried over.
void BandPass::apply(const kxFrequencyBuffer& src, kxFrequencyBuffer& dst) const
{
    kf_RequireBufferData(getFrequencyBufferData(src));
    kf_RequireTransferFunction(state_.profile);
    kf_RequireFilterSize(src, state_.size);
    setAndAllocateFrequencyBuffer(dst, src.width(), src.height());
    maskFrequencyBuffer(dst, false, 0, 0);
    passBand(state_, getFrequencyBufferData(src), dst, getFrequencyBufferData(dst));
}

void BandPass::dispatchSerialize(kxArchive& archive)
{
    kf_DispatchFilter(archive, this, sizeof(BandPass),
                      [&](unsigned char version) { BandPass::serialize_(archive, version); });
}

void BandPass::serialize_(kxArchive& archive, unsigned char version)
{
    if (version != 0)
        throw kxArchive::UnknownVersion("filt/freqfilt", __LINE__);
    kxFrequencyFilter::dispatchSerialize(archive);
    kf_RadialStream(archive, state_);
}
