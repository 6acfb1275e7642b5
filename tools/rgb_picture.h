#pragma once
// Writing 8-bit RGB pictures (colour-mapped spectra): PNG when libpng was
// found at build time, and binary PPM always. Written through a temporary
// file like every other output of the tool.
#include <string>
#include <vector>

namespace kxcli {

struct RgbPicture {
    long width = 0, height = 0;
    std::vector<unsigned char> rgb;   // rows top to bottom, three bytes a pixel
};

// Refuses (kxio::ImageError) a path whose extension is not a format an RGB
// picture can be written in: .png with libpng, .ppm.
void requireRgbFormat(const std::string& path);

void writeRgbPicture(const std::string& path, const RgbPicture& picture);

}  // namespace kxcli
