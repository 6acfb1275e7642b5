#include "commands.h"

#include <iostream>

namespace kxcli {

kxio::GreyImage readInput(const std::string& path)
{
    kxio::GreyImage image = kxio::readImage(path, [](const std::string& notice) {
        std::cerr << "kxfreq: note: " << notice << "\n";
    });
    if (image.width() > 2048 || image.height() > 2048)
        throw CommandError(path + ": image is " + std::to_string(image.width()) + " x " +
                           std::to_string(image.height()) + "; kxfreq transforms at most 2048 pixels in a side");
    return image;
}

void forward(const kxio::GreyImage& image, kxFrequencyBuffer& spectrum)
{
    if (image.bits == 8)
        kfForwardFFT<unsigned char>(image.pixels8, spectrum);
    else
        kfForwardFFT<unsigned short>(image.pixels16, spectrum);
}

kxio::GreyImage inverse(kxFrequencyBuffer& spectrum, int bits, bool scale)
{
    if (bits == 8) {
        kxPelBuffer<unsigned char> out;
        kfInverseFFT<unsigned char>(spectrum, out, scale, true);
        return kxio::makeImage8(out);
    }
    kxPelBuffer<unsigned short> out;
    kfInverseFFT<unsigned short>(spectrum, out, scale, true);
    return kxio::makeImage16(out);
}

}  // namespace kxcli
