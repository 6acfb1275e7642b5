#include "freqfilt/filter_support.h"
#include "freqfilt/gabor_common.h"

#include <kx/freqfilt.h>

#include <new>

using GaborReject = kxFrequencyFilterGaborReject;

kx_Instantiator GaborReject::sExemplar(typeid(GaborReject), &GaborReject::make);

kxPersistent* GaborReject::make() { return new (std::nothrow) GaborReject(); }

GaborReject::kxFrequencyFilterGaborReject() = default;

GaborReject::kxFrequencyFilterGaborReject(const kxPair<double>& sigma, const kxPair<double>& plateau,
                                           kxRadian angle, double frequency, const kxPair<long>& size,
                                           long dcProtectionRadius)
{
    create(sigma, plateau, angle, frequency, size, dcProtectionRadius);
}

GaborReject::kxFrequencyFilterGaborReject(const GaborReject& other)
    : kxPersistent(), kxRepBase(), kxFrequencyFilter()
{
    *this = other;
}

GaborReject& GaborReject::operator=(const GaborReject& other)
{
    if (other.state_.table)
        kxFrequencyFilter::operator=(other);
    kf_GaborAssign(state_, other.state_);
    return *this;
}

GaborReject::~kxFrequencyFilterGaborReject() { state_.table = nullptr; }

kxFrequencyFilter* GaborReject::clone() const { return new GaborReject(*this); }

bool GaborReject::operator==(const GaborReject& other) const
{
    return isInitialized() == other.isInitialized() && kf_GaborEqual(state_, other.state_);
}

// The table holds 1 - the Gabor gain: 0 on the plateau, towards 1 at its edges.
void GaborReject::create(const kxPair<double>& sigma, const kxPair<double>& plateau, kxRadian angle,
                         double frequency, const kxPair<long>& size, long dcProtectionRadius)
{
    kf_GaborCreate(state_, {sigma, plateau, angle, frequency, size, dcProtectionRadius},
                   "DC Protection Radius cannot be negative.", 3, true, *this);
    setInitialized(true);
}

void GaborReject::set(const kxPair<double>& sigma, const kxPair<double>& plateau, kxRadian angle, double frequency,
                      const kxPair<long>& size, long dcProtectionRadius)
{
    create(sigma, plateau, angle, frequency, size, dcProtectionRadius);
}

KX_GABOR_SETTER(GaborReject, sigma, const kxPair<double>&, sigma)
KX_GABOR_SETTER(GaborReject, plateau, const kxPair<double>&, plateau)
KX_GABOR_SETTER(GaborReject, angle, kxRadian, angle)
KX_GABOR_SETTER(GaborReject, frequency, double, frequency)
KX_GABOR_SETTER(GaborReject, size, const kxPair<long>&, size)
KX_GABOR_SETTER(GaborReject, dcProtectionRadius, long, dcRadius)
KX_GABOR_GETTER(GaborReject, sigma, kxPair<double>, sigma)
KX_GABOR_GETTER(GaborReject, plateau, kxPair<double>, plateau)
KX_GABOR_GETTER(GaborReject, angle, kxRadian, angle)
KX_GABOR_GETTER(GaborReject, frequency, double, frequency)
KX_GABOR_GETTER(GaborReject, size, kxPair<long>, size)
KX_GABOR_GETTER(GaborReject, dcProtectionRadius, long, dcRadius)
KX_GABOR_GETTER(GaborReject, supportWidth, long, supportWidth)
KX_GABOR_GETTER(GaborReject, supportHeight, long, supportHeight)

namespace {

// dst = src x gain inside the support, dst = src elsewhere; no band is
// recorded, since every row may hold data.
void rejectFilter(const kx_GaborState& state, const float* in, kxFrequencyBuffer& out, float* outData)
{
    const long W = out.width(), H = out.height();
    kf_GaborWalk(
        state, kf_GaborRectangle(state, W, H), W, H, in, outData,
        kf_ScaleElement,
        kf_CopyElement);
}

}  // namespace

// The protected square is saved before anything changes and put back after
// the walk, so it ends with its values from before the call.
void GaborReject::apply(kxFrequencyBuffer& buffer) const
{
    float* data = getFrequencyBufferData(buffer);
    kf_RequireBufferData(data);
    kf_RequireTransferFunction(state_.table);
    kf_RequireFilterSize(buffer, state_.size);
    const std::vector<kxPair<double>> saved = kf_SaveDcSquare(buffer, state_.dcRadius);
    maskFrequencyBuffer(buffer, false, 0, 0);
    rejectFilter(state_, data, buffer, data);
    kf_RestoreDcSquare(buffer, state_.dcRadius, saved);
}

void GaborReject::apply(const kxFrequencyBuffer& src, kxFrequencyBuffer& dst) const
{
    kf_RequireBufferData(getFrequencyBufferData(src));
    kf_RequireTransferFunction(state_.table);
    kf_RequireFilterSize(src, state_.size);
    const std::vector<kxPair<double>> saved = kf_SaveDcSquare(src, state_.dcRadius);
    setAndAllocateFrequencyBuffer(dst, src.width(), src.height());
    maskFrequencyBuffer(dst, false, 0, 0);
    rejectFilter(state_, getFrequencyBufferData(src), dst, getFrequencyBufferData(dst));
    kf_RestoreDcSquare(dst, state_.dcRadius, saved);
}

void GaborReject::dispatchSerialize(kxArchive& archive)
{
    kf_DispatchFilter(archive, this, sizeof(GaborReject),
                      [&](unsigned char version) { GaborReject::serialize_(archive, version); });
}

void GaborReject::serialize_(kxArchive& archive, unsigned char version)
{
    if (version != 0)
        throw kxArchive::UnknownVersion("filt/freqfilt", __LINE__);
    kxFrequencyFilter::dispatchSerialize(archive);
    kf_GaborStream(archive, state_);
}
