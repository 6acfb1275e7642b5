#pragma once
// The picture of a result the page shows while the user works: an 8-bit
// grey BMP, which costs nothing to encode (a 2048 x 2048 PNG takes longer
// to compress than the filtering takes). 16-bit images are shown at 8 bits;
// the exports keep their depth.
#include "../image_io.h"

#include <vector>

namespace kxstudio {

std::vector<unsigned char> displayBitmap(const kxio::GreyImage& image);

}  // namespace kxstudio
