// Built when libpng was not found: PNG files are refused with a clear message.
#include "image_detail.h"

namespace kxio {
namespace detail {

void readPng(ByteSource& source, RowSink&, const Notice&)
{
    fail(source.name(), "PNG support was not built in (libpng was not found); use PGM");
}

std::vector<unsigned char> encodePng(const std::string& path, const GreyImage&)
{
    fail(path, "PNG support was not built in (libpng was not found); use PGM");
}

}  // namespace detail

bool pngSupported() { return false; }

}  // namespace kxio
