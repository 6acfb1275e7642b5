// Writes the images the command-line tests run on into a directory:
// textured 8- and 16-bit images as PGM and PNG, an ASCII PGM, and one image
// wider than the library's limit.
#include "image_io.h"

#include <cmath>
#include <iostream>
#include <string>

namespace {

template <typename T>
kxPelBuffer<T> textured(long w, long h, double scale, long seed)
{
    kxPelBuffer<T> image(w, h);
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x) {
            const double v = 100 + 60 * std::cos(0.8 * x) * std::cos(0.5 * y) + ((x * 7 + y * 13 + seed) % 11);
            image(x, y) = static_cast<T>(v * scale);
        }
    return image;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "usage: make_test_images DIR\n";
        return 2;
    }
    const std::string dir = std::string(argv[1]) + "/";
    using namespace kxio;
    writeImage(dir + "gray8.pgm", makeImage8(textured<unsigned char>(100, 60, 1, 0)));
    writeImage(dir + "second8.pgm", makeImage8(textured<unsigned char>(100, 60, 1, 5)));
    writeImage(dir + "third8.pgm", makeImage8(textured<unsigned char>(64, 64, 1, 9)));
    writeImage(dir + "gray16.pgm", makeImage16(textured<unsigned short>(70, 50, 200, 0)));
    writeImage(dir + "ascii8.pgm", makeImage8(textured<unsigned char>(20, 10, 1, 0)), Format::PgmAscii);
    writeImage(dir + "big.pgm", makeImage8(kxPelBuffer<unsigned char>(2049, 2)));
    writeImage(dir + "small.pgm", makeImage8(textured<unsigned char>(30, 30, 1, 0)));
    if (pngSupported()) {
        writeImage(dir + "gray8.png", makeImage8(textured<unsigned char>(100, 60, 1, 0)));
        writeImage(dir + "gray16.png", makeImage16(textured<unsigned short>(70, 50, 200, 0)));
    }
    return 0;
}
