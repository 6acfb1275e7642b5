#pragma once
// Reading and writing grey images for the kxfreq tool: binary (P5) and ASCII
// (P2) PGM of 8 and 16 bits always; PNG (8- and 16-bit grey; colour and
// palette images converted to grey) when libpng was found at build time; TIFF
// (8- and 16-bit, strips or tiles; several samples per pixel converted to
// grey) when libtiff was found.
//
// Every failure is an ImageError with a one-line message naming the file.
// Readers look at the header first and refuse, before allocating anything of
// the image's size, images whose sides exceed the caller's limit. A region
// read keeps only the region: the file is read row by row (tile row by tile
// row for tiled TIFF) and reading stops after the region's last row, so the
// memory used is the region plus one row (or one row of tiles) of the file.
// Writing encodes in memory, writes a temporary file in the destination's
// directory and renames it into place only when complete, so a failed write
// leaves no partial output behind.
#include <kx/core/pel_buffer.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace kxio {

class ImageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The largest side any reader accepts (a region may be cut out of it).
constexpr long kMaxSide = 65535;
// The largest side the library transforms, and so the default limit of a read.
constexpr long kTransformMaxSide = 2048;

// A grey image of 8 or 16 bits per pixel; exactly one buffer is bound.
struct GreyImage {
    int bits = 8;
    kxPelBuffer<unsigned char> pixels8;
    kxPelBuffer<unsigned short> pixels16;

    long width() const { return bits == 8 ? pixels8.width() : pixels16.width(); }
    long height() const { return bits == 8 ? pixels8.height() : pixels16.height(); }
};

enum class Format { Pgm, PgmAscii, Png, Tiff };

// A rectangle of an image: left, top, width, height. Empty (width 0) means
// the whole image.
struct Region {
    long x = 0, y = 0, width = 0, height = 0;
    bool whole() const { return width == 0; }
};

// What a header says.
struct ImageInfo {
    long width = 0;
    long height = 0;
    int bits = 8;
    Format format = Format::Pgm;
};

using Notice = std::function<void(const std::string&)>;

// The format a file name asks for: .png, .tif / .tiff, or .pgm / .pnm
// (binary).
Format formatFor(const std::string& path);
// The usual file extension of a format (".pgm", ".png", ".tif").
const char* extensionOf(Format format);
bool pngSupported();
bool tiffSupported();

// Limits on what a read may return. A whole-image read refuses an image with
// a side above maxSide; a region read refuses a region with a side above
// maxSide and a region outside the image. Both are decided from the header.
struct ReadLimits {
    long maxSide = kTransformMaxSide;
    std::string hint;   // appended to the message of a refused size
};

// The header only.
ImageInfo readInfo(const std::string& path);

// The whole image, or `region` of it. `notice` receives a message when the
// image is converted (colour to grey).
GreyImage readImage(const std::string& path, const Notice& notice = {});
GreyImage readImage(const std::string& path, const Region& region, const ReadLimits& limits,
                    const Notice& notice = {});
// The same from bytes in memory; `name` is used in messages.
GreyImage readImageFromMemory(const unsigned char* data, std::size_t size, const std::string& name = "<memory>",
                              const Region& region = {}, const ReadLimits& limits = {}, const Notice& notice = {});

// The file's bytes in `format`.
std::vector<unsigned char> encodeImage(const std::string& path, const GreyImage& image, Format format);
void writeImage(const std::string& path, const GreyImage& image, Format format);
inline void writeImage(const std::string& path, const GreyImage& image) { writeImage(path, image, formatFor(path)); }
// Writes bytes to `path` through a temporary file in the same directory.
void writeFileAtomically(const std::string& path, const std::vector<unsigned char>& bytes);

// A w x h image of `bits` (8 or 16) bits whose pixel (x, y) is value(x, y),
// rounded and clamped to the pixel range: nothing wraps round.
template <typename F>
GreyImage roundedImage(int bits, long w, long h, F value)
{
    GreyImage out;
    out.bits = bits;
    const double top = bits == 8 ? 255.0 : 65535.0;
    if (bits == 8)
        out.pixels8 = kxPelBuffer<unsigned char>(w, h);
    else
        out.pixels16 = kxPelBuffer<unsigned short>(w, h);
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x) {
            const double v = std::min(top, std::max(0.0, std::round(value(x, y))));
            if (bits == 8)
                out.pixels8(x, y) = static_cast<unsigned char>(v);
            else
                out.pixels16(x, y) = static_cast<unsigned short>(v);
        }
    return out;
}

GreyImage makeImage8(const kxPelBuffer<unsigned char>& pixels);
GreyImage makeImage16(const kxPelBuffer<unsigned short>& pixels);

}  // namespace kxio
