#pragma once
// The window the spectrum and peaks commands apply against an image's
// edges, and what it changes: the spectrum of the windowed image, and peak
// positions measured for that window's lobe.
#include "image_io.h"
#include "options.h"

#include <kx/analysis.h>
#include <kx/fft.h>

#include <vector>

namespace kxcli {

// --window hann|tukey|none and --taper F, with the command's default window.
extern const OptionEntry kTaperOption;
kxWindow windowOption(const Options& options, const char* fallback);

// The spectrum of the image freed of its window-weighted mean and multiplied
// by the window, zero-padded to the power-of-two grid (the window has already
// brought the borders to zero).
void forwardWindowed(const kxio::GreyImage& image, const kxWindow& window, kxFrequencyBuffer& spectrum);

// The components' and harmonics' frequencies re-measured on `spectrum` (of a
// width x height image under `window`) for that window's own peak shape.
// The library fits a Gaussian to each peak, which suits a Hann window; the
// flat top of a Tukey window and no window at all give narrower lobes with
// other shapes, for which that fit is off by up to a sixth of a bin.
void refineForWindow(std::vector<kxPeriodicComponent>& components, const kxFrequencyBuffer& spectrum, long width,
                     long height, const kxWindow& window);

}  // namespace kxcli
