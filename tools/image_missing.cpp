// Stand-ins for the formats whose library was not found at build time
// (KXIO_NO_PNG, KXIO_NO_TIFF): their files are refused with a clear message.
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
void readPng(ByteSource& source, RowSink&, const Notice&) { notBuilt(source.name(), "PNG", "libpng", "PGM"); }
std::vector<unsigned char> encodePng(const std::string& path, const GreyImage&)
{
    notBuilt(path, "PNG", "libpng", "PGM");
}
#endif

#ifdef KXIO_NO_TIFF
void readTiff(ByteSource& source, RowSink&, const Notice&)
{
    notBuilt(source.name(), "TIFF", "libtiff", "PNG or PGM");
}
std::vector<unsigned char> encodeTiff(const std::string& path, const GreyImage&)
{
    notBuilt(path, "TIFF", "libtiff", "PNG or PGM");
}
#endif

}  // namespace detail

#ifdef KXIO_NO_PNG
bool pngSupported() { return false; }
#endif
#ifdef KXIO_NO_TIFF
bool tiffSupported() { return false; }
#endif

}  // namespace kxio
