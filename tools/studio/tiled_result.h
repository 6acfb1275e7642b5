#pragma once
// The full-size result of an image too large for one transform: each of the
// page's filters is applied in overlapping tiles with the library's own
// description of it, as 'kxfreq filter' and kxfreq's Python array functions
// apply it. One filter goes straight to the image's depth (what the filter
// command writes); several are applied one after another with floating-point
// results between them and rounded once at the end (what the exported
// Python code does), since the filter command takes one filter at a time.
#include "filter_set.h"

#include "../image_io.h"

#include <kx/tiling.h>

#include <memory>

namespace kxstudio {

// The library's size-independent description of one filter.
std::unique_ptr<kxFilterDescription> describeForTiles(const StudioFilter& filter);

// The image filtered by the set, tile by tile on `jobs` threads (the result
// is the same for any number). No filter: the image itself.
kxio::GreyImage filterTiled(const kxio::GreyImage& image, const FilterSet& filters, unsigned jobs);

}  // namespace kxstudio
