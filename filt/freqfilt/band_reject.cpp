// The band-reject filter: the radial body in its reject role (see
// radial_filter.cpp).
#include "freqfilt/filter_support.h"

#include <kx/freqfilt.h>

KX_DEFINE_FILTER_CLASS(kxFrequencyFilterBandReject, kx_RadialFilter, eReject, dcProtectionRadius)

kxFrequencyFilterBandReject::kxFrequencyFilterBandReject(double sigma, double plateau, double frequency, const kxPair<long>& size, long dcProtectionRadius)
    : kx_RadialFilter(eReject)
{
    set(sigma, plateau, frequency, size, dcProtectionRadius);
}
