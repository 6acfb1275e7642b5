#pragma once
// Reading and writing grey images for the kxfreq tool: binary (P5) and ASCII
// (P2) PGM of 8 and 16 bits always, PNG (8- and 16-bit grey; colour and
// palette images converted to grey) when libpng was found at build time.
//
// Every failure is an ImageError with a one-line message naming the file.
// Reading never allocates more than the size the header announces, and
// refuses sizes above kMaxSide before allocating. Writing goes to a temporary
// file renamed into place only when complete, so a failed write leaves no
// partial output behind.
#include <kx/core/pel_buffer.h>

#include <functional>
#include <stdexcept>
#include <string>

namespace kxio {

class ImageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Larger sides are refused by the readers (the library itself stops at 2048).
constexpr long kMaxSide = 65535;

// A grey image of 8 or 16 bits per pixel; exactly one buffer is bound.
struct GreyImage {
    int bits = 8;
    kxPelBuffer<unsigned char> pixels8;
    kxPelBuffer<unsigned short> pixels16;

    long width() const { return bits == 8 ? pixels8.width() : pixels16.width(); }
    long height() const { return bits == 8 ? pixels8.height() : pixels16.height(); }
};

enum class Format { Pgm, PgmAscii, Png };

// The format a file name asks for: .png, or .pgm / .pnm (binary).
Format formatFor(const std::string& path);
bool pngSupported();

// `notice` receives a message when the image is converted (colour to grey).
GreyImage readImage(const std::string& path, const std::function<void(const std::string&)>& notice = {});
void writeImage(const std::string& path, const GreyImage& image, Format format);
inline void writeImage(const std::string& path, const GreyImage& image) { writeImage(path, image, formatFor(path)); }

GreyImage makeImage8(const kxPelBuffer<unsigned char>& pixels);
GreyImage makeImage16(const kxPelBuffer<unsigned short>& pixels);

}  // namespace kxio
