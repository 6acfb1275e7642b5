#include "rgb_picture.h"

#include "image_io.h"

#include <algorithm>
#include <cctype>
#include <string>

#ifdef KXCLI_RGB_PNG
#include <png.h>
#endif

namespace kxcli {

namespace {

std::string extension(const std::string& path)
{
    const std::size_t dot = path.find_last_of('.');
    const std::size_t slash = path.find_last_of('/');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash))
        return "";
    std::string ext = path.substr(dot);
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return std::tolower(c); });
    return ext;
}

bool pngBuilt()
{
#ifdef KXCLI_RGB_PNG
    return true;
#else
    return false;
#endif
}

std::vector<unsigned char> encodePpm(const RgbPicture& picture)
{
    const std::string header =
        "P6\n" + std::to_string(picture.width) + " " + std::to_string(picture.height) + "\n255\n";
    std::vector<unsigned char> bytes(header.begin(), header.end());
    bytes.insert(bytes.end(), picture.rgb.begin(), picture.rgb.end());
    return bytes;
}

#ifdef KXCLI_RGB_PNG
std::vector<unsigned char> encodePng(const std::string& path, const RgbPicture& picture)
{
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(picture.width);
    image.height = static_cast<png_uint_32>(picture.height);
    image.format = PNG_FORMAT_RGB;
    png_alloc_size_t size = 0;
    std::vector<unsigned char> bytes;
    // The first call measures, the second writes.
    bool ok = png_image_write_to_memory(&image, nullptr, &size, 0, picture.rgb.data(), 0, nullptr) != 0;
    if (ok) {
        bytes.resize(size);
        ok = png_image_write_to_memory(&image, bytes.data(), &size, 0, picture.rgb.data(), 0, nullptr) != 0;
        bytes.resize(size);
    }
    if (!ok) {
        const std::string why = image.message;
        png_image_free(&image);
        throw kxio::ImageError(path + ": PNG encoding failed: " + why);
    }
    return bytes;
}
#endif

}  // namespace

void requireRgbFormat(const std::string& path)
{
    const std::string ext = extension(path);
    if (ext == ".ppm" || (ext == ".png" && pngBuilt()))
        return;
    throw kxio::ImageError(path + ": colour pictures are written as " +
                           (pngBuilt() ? ".png or .ppm" : ".ppm (this build has no libpng)"));
}

void writeRgbPicture(const std::string& path, const RgbPicture& picture)
{
    requireRgbFormat(path);
#ifdef KXCLI_RGB_PNG
    if (extension(path) == ".png") {
        kxio::writeFileAtomically(path, encodePng(path, picture));
        return;
    }
#endif
    kxio::writeFileAtomically(path, encodePpm(picture));
}

}  // namespace kxcli
