#include "freqfilt/filter_support.h"
#include "freqfilt/gabor_common.h"

#include <kx/freqfilt.h>

#include <new>

using Gabor = kxFrequencyFilterGabor;

kx_Instantiator Gabor::sExemplar(typeid(Gabor), &Gabor::make);

kxPersistent* Gabor::make() { return new (std::nothrow) Gabor(); }

Gabor::kxFrequencyFilterGabor() = default;

Gabor::kxFrequencyFilterGabor(const kxPair<double>& sigma, const kxPair<double>& plateau, kxRadian angle,
                              double frequency, const kxPair<long>& size, long dcRemovalRadius)
{
    create(sigma, plateau, angle, frequency, size, dcRemovalRadius);
}

Gabor::kxFrequencyFilterGabor(const Gabor& other) : kxPersistent(), kxRepBase(), kxFrequencyFilter() { *this = other; }

Gabor& Gabor::operator=(const Gabor& other)
{
    if (other.state_.table)
        kxFrequencyFilter::operator=(other);
    kf_GaborAssign(state_, other.state_);
    return *this;
}

Gabor::~kxFrequencyFilterGabor() { state_.table = nullptr; }

kxFrequencyFilter* Gabor::clone() const { return new Gabor(*this); }

bool Gabor::operator==(const Gabor& other) const
{
    return isInitialized() == other.isInitialized() && kf_GaborEqual(state_, other.state_);
}

void Gabor::create(const kxPair<double>& sigma, const kxPair<double>& plateau, kxRadian angle, double frequency,
                   const kxPair<long>& size, long dcRemovalRadius)
{
    kf_GaborCreate(state_, {sigma, plateau, angle, frequency, size, dcRemovalRadius},
                   "DC Removal Radius cannot be negative.", 7, false, *this);
    setInitialized(true);
}

void Gabor::set(const kxPair<double>& sigma, const kxPair<double>& plateau, kxRadian angle, double frequency,
                const kxPair<long>& size, long dcRemovalRadius)
{
    create(sigma, plateau, angle, frequency, size, dcRemovalRadius);
}

KX_GABOR_SETTER(Gabor, sigma, const kxPair<double>&, sigma)
KX_GABOR_SETTER(Gabor, plateau, const kxPair<double>&, plateau)
KX_GABOR_SETTER(Gabor, angle, kxRadian, angle)
KX_GABOR_SETTER(Gabor, frequency, double, frequency)
KX_GABOR_SETTER(Gabor, size, const kxPair<long>&, size)
KX_GABOR_SETTER(Gabor, dcRemovalRadius, long, dcRadius)
KX_GABOR_GETTER(Gabor, sigma, kxPair<double>, sigma)
KX_GABOR_GETTER(Gabor, plateau, kxPair<double>, plateau)
KX_GABOR_GETTER(Gabor, angle, kxRadian, angle)
KX_GABOR_GETTER(Gabor, frequency, double, frequency)
KX_GABOR_GETTER(Gabor, size, kxPair<long>, size)
KX_GABOR_GETTER(Gabor, dcRemovalRadius, long, dcRadius)
KX_GABOR_GETTER(Gabor, supportWidth, long, supportWidth)
KX_GABOR_GETTER(Gabor, supportHeight, long, supportHeight)

namespace {

// dst = src x gain inside the support, 0 elsewhere; the band of rows is
// recorded so that the inverse transform can skip the rest; then the square
// around the zero frequency is cleared.
void passFilter(const kx_GaborState& state, const float* in, kxFrequencyBuffer& out, float* outData,
                void (*mask)(kxFrequencyBuffer&, bool, long, long))
{
    const long W = out.width(), H = out.height();
    const kf_GaborRect rect = kf_GaborRectangle(state, W, H);
    mask(out, true, rect.top, rect.bottom);
    kf_GaborWalk(
        state, rect, W, H, in, outData,
        kf_ScaleElement,
        kf_ClearElement);
    if (state.dcRadius != 0)
        kf_ClearDcSquare(out, state.dcRadius);
}

}  // namespace

void Gabor::apply(kxFrequencyBuffer& buffer) const
{
    float* data = getFrequencyBufferData(buffer);
    kf_RequireBufferData(data);
    kf_RequireTransferFunction(state_.table);
    kf_RequireFilterSize(buffer, state_.size);
    passFilter(state_, data, buffer, data, &maskFrequencyBuffer);
}

void Gabor::apply(const kxFrequencyBuffer& src, kxFrequencyBuffer& dst) const
{
    kf_RequireBufferData(getFrequencyBufferData(src));
    kf_RequireTransferFunction(state_.table);
    kf_RequireFilterSize(src, state_.size);
    setAndAllocateFrequencyBuffer(dst, src.width(), src.height());
    passFilter(state_, getFrequencyBufferData(src), dst, getFrequencyBufferData(dst), &maskFrequencyBuffer);
}

void Gabor::dispatchSerialize(kxArchive& archive)
{
    kf_DispatchFilter(archive, this, sizeof(Gabor), [&](unsigned char version) { Gabor::serialize_(archive, version); });
}

void Gabor::serialize_(kxArchive& archive, unsigned char version)
{
    if (version != 0)
        throw kxArchive::UnknownVersion("filt/freqfilt", __LINE__);
    kxFrequencyFilter::dispatchSerialize(archive);
    kf_GaborStream(archive, state_);
}
