// Built when libpng was not found: PNG files are refused with a clear message.
#include "image_io.h"

#include <vector>

namespace kxio {

bool pngSupported() { return false; }

GreyImage readPng(const std::string& path, const std::function<void(const std::string&)>&)
{
    throw ImageError(path + ": PNG support was not built in (libpng was not found); use PGM");
}

std::vector<unsigned char> encodePng(const std::string& path, const GreyImage&)
{
    throw ImageError(path + ": PNG support was not built in (libpng was not found); use PGM");
}

}  // namespace kxio
