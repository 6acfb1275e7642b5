// Fuzz target: the tool's image readers (PGM, PNG, TIFF, told apart by their
// signatures) on untrusted bytes. The first byte chooses between reading the
// whole image and reading a small region of it; the rest is the file.
#include "image_io.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 1)
        return 0;
    kxio::Region region;
    if (data[0] & 1) {
        region.x = (data[0] >> 1) & 3;
        region.y = (data[0] >> 3) & 3;
        region.width = 1 + ((data[0] >> 5) & 7);
        region.height = 2;
    }
    try {
        kxio::GreyImage image = kxio::readImageFromMemory(data + 1, size - 1, "fuzz", region, {}, [](const std::string&) {});
        (void)image.width();
    } catch (const kxio::ImageError&) {
    }
    return 0;
}
