#pragma once
// Reading and writing images for the kxfreq tool: binary (P5) and ASCII (P2)
// PGM of 8 and 16 bits always; PNG (8- and 16-bit grey, grey and alpha, RGB,
// RGBA; palettes expanded) when libpng was found at build time; TIFF (8- and
// 16-bit, strips or tiles, grey or RGB with or without alpha, BigTIFF) when
// libtiff was found; JPEG (8-bit grey and colour, EXIF orientation applied)
// when libjpeg was found.
//
// An image is read either as grey (colour converted with the weights of
// greyOf, alpha dropped, with a notice) or with its channels kept.
//
// Every failure is an ImageError with a one-line message naming the file.
// Readers look at the header first and refuse, before allocating anything of
// the image's size, images whose sides exceed the caller's limit. A region
// read keeps only the region: the file is read row by row (tile row by tile
// row for tiled TIFF) and reading stops after the region's last row, so the
// memory used is the region plus one row (or one row of tiles) of the file.
// streamImage() hands the rows on in order instead of keeping them.
// Writers write row by row into a temporary file in the destination's
// directory and rename it into place only when complete; a failed write, or
// a run stopped by SIGINT, SIGTERM or SIGHUP, leaves no partial output behind.
#include <kx/core/pel_buffer.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <functional>
#include <memory>
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

// One plane of samples or several planes of one image: grey; grey and
// alpha; red, green and blue; red, green, blue and alpha. All planes have
// the same size and depth.
struct Image {
    std::vector<GreyImage> planes;

    int bits() const { return planes.empty() ? 8 : planes[0].bits; }
    long width() const { return planes.empty() ? 0 : planes[0].width(); }
    long height() const { return planes.empty() ? 0 : planes[0].height(); }
    int channels() const { return static_cast<int>(planes.size()); }
    bool colour() const { return planes.size() >= 3; }
    bool hasAlpha() const { return planes.size() == 2 || planes.size() == 4; }
    // The planes that carry the picture: all but alpha.
    int colourPlanes() const { return hasAlpha() ? channels() - 1 : channels(); }
};

enum class Format { Pgm, PgmAscii, Png, Tiff, Jpeg };

// Whether a read keeps an image's channels or converts it to grey.
enum class Channels { Grey, Keep };

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
    int channels = 1;   // as described by Image
};

// Options of a write.
struct WriteOptions {
    int jpegQuality = 95;   // 1 to 100
};

using Notice = std::function<void(const std::string&)>;

// The format a file name asks for: .png, .tif / .tiff, .jpg / .jpeg, or
// .pgm / .pnm (binary).
Format formatFor(const std::string& path);
// The usual file extension of a format (".pgm", ".png", ".tif", ".jpg").
const char* extensionOf(Format format);
bool pngSupported();
bool tiffSupported();
bool jpegSupported();
// Whether a format holds channels beyond grey (PGM does not).
bool holdsColour(Format format);

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
// The same with the image's channels kept.
Image readChannels(const std::string& path, const Region& region, const ReadLimits& limits,
                   const Notice& notice = {});
Image readChannelsFromMemory(const unsigned char* data, std::size_t size, const std::string& name,
                             const Region& region = {}, const ReadLimits& limits = {});

// Receives an image's rows in order, top to bottom, each as interleaved
// samples (unsigned char for 8 bits, unsigned short for 16, host order).
class RowTarget {
public:
    virtual ~RowTarget() = default;
    // The image as it will be delivered (channels after any conversion).
    virtual void start(const ImageInfo& info) = 0;
    virtual void row(long y, const void* samples) = 0;
};
// Reads a whole image of any size (up to kMaxSide in a side) row by row into
// `target`, keeping only a row (or a row of TIFF tiles) in memory.
void streamImage(const std::string& path, RowTarget& target, Channels channels, const Notice& notice = {});
void streamImageFromMemory(const unsigned char* data, std::size_t size, const std::string& name, RowTarget& target,
                           Channels channels);

namespace detail {
class ByteSink;
class Encoder;
class TemporaryFile;
}  // namespace detail

// Writes an image row by row. The rows go into a temporary file beside
// `path`; commit() renames it into place. Destroyed without commit() (a
// failure), the temporary is removed.
class ImageWriter {
public:
    // `info` gives the size, depth and channels; its format is ignored.
    ImageWriter(const std::string& path, Format format, const ImageInfo& info, const WriteOptions& options = {});
    ~ImageWriter();
    ImageWriter(const ImageWriter&) = delete;
    ImageWriter& operator=(const ImageWriter&) = delete;
    // The next row: width x channels interleaved samples of the depth given.
    void row(const void* samples);
    void commit();

private:
    std::string path_;
    std::unique_ptr<detail::TemporaryFile> file_;
    std::unique_ptr<detail::ByteSink> sink_;
    std::unique_ptr<detail::Encoder> encoder_;
    long rows_ = 0;
    long height_ = 0;
};

// The file's bytes in `format`.
std::vector<unsigned char> encodeImage(const std::string& path, const Image& image, Format format,
                                       const WriteOptions& options = {});
std::vector<unsigned char> encodeImage(const std::string& path, const GreyImage& image, Format format);
void writeImage(const std::string& path, const Image& image, Format format, const WriteOptions& options = {});
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
// An image of one grey plane.
Image fromGrey(GreyImage grey);

}  // namespace kxio
