// The band-pass filter: the radial body in its pass role (see
// radial_filter.cpp).
#include "freqfilt/filter_support.h"

#include <kx/freqfilt.h>

KX_DEFINE_FILTER_CLASS(kxFrequencyFilterBandPass, kx_RadialFilter, ePass, dcRemovalRadius)

kxFrequencyFilterBandPass::kxFrequencyFilterBandPass(double sigma, double plateau, double frequency, const kxPair<long>& size, long dcRemovalRadius)
    : kx_RadialFilter(ePass)
{
    set(sigma, plateau, frequency, size, dcRemovalRadius);
}
