// Stand-ins for the formats whose library was not found at build time
// (KXIO_NO_PNG, KXIO_NO_TIFF, KXIO_NO_JPEG): their files are refused with a
// clear message.
#include "image_detail.h"

namespace kxio {
namespace detail {

namespace {

[[maybe_unused]] [[noreturn]] void notBuilt(const std::string& name, const char* format, const char* library,
                                            const char* instead)
{
    fail(name, std::string(format) + " support was not built in (" + library + " was not found); use " + instead);
}

}  // namespace

#ifdef KXIO_NO_PNG
void readPng(ByteSource& source, RowSink&) { notBuilt(source.name(), "PNG", "libpng", "PGM"); }
std::unique_ptr<Encoder> pngEncoder(ByteSink& sink, const ImageInfo&) { notBuilt(sink.name(), "PNG", "libpng", "PGM"); }
#endif

#ifdef KXIO_NO_TIFF
void readTiff(ByteSource& source, RowSink&) { notBuilt(source.name(), "TIFF", "libtiff", "PNG or PGM"); }
std::unique_ptr<Encoder> tiffEncoder(ByteSink& sink, const ImageInfo&)
{
    notBuilt(sink.name(), "TIFF", "libtiff", "PNG or PGM");
}
#endif

#ifdef KXIO_NO_JPEG
void readJpeg(ByteSource& source, RowSink&) { notBuilt(source.name(), "JPEG", "libjpeg", "PNG, TIFF or PGM"); }
std::unique_ptr<Encoder> jpegEncoder(ByteSink& sink, const ImageInfo&, int)
{
    notBuilt(sink.name(), "JPEG", "libjpeg", "PNG, TIFF or PGM");
}
#endif

}  // namespace detail

#ifdef KXIO_NO_PNG
bool pngSupported() { return false; }
#endif
#ifdef KXIO_NO_TIFF
bool tiffSupported() { return false; }
#endif
#ifdef KXIO_NO_JPEG
bool jpegSupported() { return false; }
#endif

}  // namespace kxio
