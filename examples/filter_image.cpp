// Remove a periodic texture from an 8-bit image with a band-reject filter.
#include <kx/freqfilt.h>

#include <cmath>
#include <cstdio>

int main()
{
    // A 256 x 256 image: a texture with a period of 8 pixels and a bright spot.
    kxPelBuffer<unsigned char> image(256, 256);
    for (long y = 0; y < 256; ++y)
        for (long x = 0; x < 256; ++x) {
            const double texture = 40 * std::cos(2 * 3.141592653589793 * x / 8);
            const bool spot = (x - 100) * (x - 100) + (y - 60) * (y - 60) < 20;
            image(x, y) = static_cast<unsigned char>(120 + texture + (spot ? 50 : 0));
        }

    kxFrequencyBuffer spectrum;
    kfForwardFFT<unsigned char>(image, spectrum);
    // Remove the ring at 1/8 cycle per pixel; keep the mean (DC) as it is.
    kxFrequencyFilterBandReject filter(0.004, 0.004, 1.0 / 8, kxPair<long>(256, 256), 1);
    filter.apply(spectrum);
    kxPelBuffer<unsigned char> result;
    kfInverseFFT<unsigned char>(spectrum, result, false, true);

    std::printf("spot %d, background %d (texture removed)\n", result(100, 60), result(20, 200));
    return result(100, 60) > result(20, 200) + 30 ? 0 : 1;
}
