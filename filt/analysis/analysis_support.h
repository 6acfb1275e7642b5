#pragma once
// Internal: the checks the analysis functions share. Their messages are the
// library's (fft/checks.h), and they throw through the library's kf_Require.
#include "fft/checks.h"

#include <kx/analysis.h>

#include <cmath>

namespace kx_analysis {

using namespace kxfreq_detail;

// Bound, not empty, not above 2048 a side: what every image argument needs.
inline void requireImage(const kx_PelBuffer& image)
{
    kf_Require<kxFrequencyDefs::UnboundWindow>(image.isBound(), kImageUnbound);
    kf_Require<kxFrequencyDefs::InvalidSize>(image.width() >= 1 && image.height() >= 1, kImageEmpty);
    kf_Require<kxFrequencyDefs::InvalidSize>(image.width() <= kfMaxTransformSide && image.height() <= kfMaxTransformSide,
                                             kSizeTooLarge);
}

void requireWindow(const kxWindow& window);

// Notches wider than this (cycles per pixel, one standard deviation) are
// narrowed to it: wider is no longer a notch, and the cost of building the
// filter grows with the area each notch covers.
constexpr double kMaxNotchSigma = 0.1;

inline void requireWidths(double widthScale, double minSigma)
{
    kf_Require<kxFrequencyDefs::InvalidArgument>(
        widthScale >= 1.0 && widthScale <= 10.0 && minSigma > 0.0 && minSigma <= kMaxNotchSigma, kNotchWidths);
}

// The windowed image (kfApplyWindow's pixels) written into the top left
// corner of `destination`, which is at least as large; nothing else of it
// changes. The image and the window must have been checked.
void windowInto(const kxPelBuffer_const<unsigned char>& image, const kxWindow& window, bool removeMean,
                const kxPelBuffer<double>& destination);
void windowInto(const kxPelBuffer_const<unsigned short>& image, const kxWindow& window, bool removeMean,
                const kxPelBuffer<double>& destination);
void windowInto(const kxPelBuffer_const<double>& image, const kxWindow& window, bool removeMean,
                const kxPelBuffer<double>& destination);

}  // namespace kx_analysis
