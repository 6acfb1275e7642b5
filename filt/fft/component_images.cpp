// Real, imaginary, magnitude and phase images of a buffer.
#include "fft/buffer_access.h"
#include "fft/checks.h"
#include "fft/frequency_index.h"

#include <kx/fft.h>

#include <cmath>

namespace {

using Access = kx_FrequencyBufferAccess;

// One double image of the padded size, element (x, y) going to pixel (x, y)
// or, centred, to the quadrant-swapped place with the zero frequency at
// pixel (W/2, H/2):
//
//   storage        centred
//   +---+---+      +---+---+
//   | A | B |      | D | C |
//   +---+---+  ->  +---+---+
//   | C | D |      | B | A |
//   +---+---+      +---+---+
template <typename Component>
kxPelBuffer<double> componentImage(const kxFrequencyBuffer& buffer, bool centered, Component component)
{
    kxfreq_detail::kf_RequireFrequencyData(buffer);
    const long W = Access::paddedWidth(buffer);
    const long H = Access::paddedHeight(buffer);
    kxPelBuffer<double> image(W, H, 32);
    double* pixels = image.pointToOffset();
    const float* element = Access::data(buffer);
    for (long y = 0; y < H; ++y) {
        const long py = centered ? kf_CentredIndex(y, H) : y;
        double* row = pixels + py * image.rowUpdate();
        for (long x = 0; x < W; ++x, element += 2) {
            const long px = centered ? kf_CentredIndex(x, W) : x;
            row[px] = component(element[0], element[1]);
        }
    }
    return image;
}

}  // namespace

kxPelBuffer<double> kxFrequencyBuffer::getRealImage(bool centered) const
{
    return componentImage(*this, centered, [](float re, float) { return static_cast<double>(re); });
}

kxPelBuffer<double> kxFrequencyBuffer::getImaginaryImage(bool centered) const
{
    return componentImage(*this, centered, [](float, float im) { return static_cast<double>(im); });
}

// In single precision: float products, float sum, float square root.
kxPelBuffer<double> kxFrequencyBuffer::getMagnitudeImage(bool centered) const
{
    return componentImage(*this, centered,
                          [](float re, float im) { return static_cast<double>(std::sqrt(re * re + im * im)); });
}

// atan2 in double on the widened floats, normalised into (-pi, pi].
kxPelBuffer<double> kxFrequencyBuffer::getPhaseImage(bool centered) const
{
    return componentImage(*this, centered, [](float re, float im) {
        return kxRadian(std::atan2(static_cast<double>(im), static_cast<double>(re))).norm().toDouble();
    });
}
