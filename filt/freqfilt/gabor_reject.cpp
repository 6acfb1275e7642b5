// The Gabor reject filter: the Gabor body in its reject role (see
// gabor_filter.cpp).
#include "freqfilt/filter_support.h"

#include <kx/freqfilt.h>

KX_DEFINE_FILTER_CLASS(kxFrequencyFilterGaborReject, kx_GaborFilter, eReject, dcProtectionRadius)

kxFrequencyFilterGaborReject::kxFrequencyFilterGaborReject(const kxPair<double>& sigma, const kxPair<double>& plateau, kxRadian angle,
    double frequency, const kxPair<long>& size, long dcProtectionRadius)
    : kx_GaborFilter(eReject)
{
    set(sigma, plateau, angle, frequency, size, dcProtectionRadius);
}
