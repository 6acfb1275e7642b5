// The Gabor filter: the Gabor body in its pass role (see gabor_filter.cpp).
#include "freqfilt/filter_support.h"

#include <kx/freqfilt.h>

KX_DEFINE_FILTER_CLASS(kxFrequencyFilterGabor, kx_GaborFilter, ePass, dcRemovalRadius)

kxFrequencyFilterGabor::kxFrequencyFilterGabor(const kxPair<double>& sigma, const kxPair<double>& plateau, kxRadian angle,
    double frequency, const kxPair<long>& size, long dcRemovalRadius)
    : kx_GaborFilter(ePass)
{
    set(sigma, plateau, angle, frequency, size, dcRemovalRadius);
}
