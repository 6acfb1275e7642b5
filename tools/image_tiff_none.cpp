// Built when libtiff was not found: TIFF files are refused with a clear message.
#include "image_detail.h"

namespace kxio {
namespace detail {

void readTiff(ByteSource& source, RowSink&, const Notice&)
{
    fail(source.name(), "TIFF support was not built in (libtiff was not found); use PNG or PGM");
}

std::vector<unsigned char> encodeTiff(const std::string& path, const GreyImage&)
{
    fail(path, "TIFF support was not built in (libtiff was not found); use PNG or PGM");
}

}  // namespace detail

bool tiffSupported() { return false; }

}  // namespace kxio
