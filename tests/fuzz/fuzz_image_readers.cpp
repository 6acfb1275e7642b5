// Fuzz target: the tool's image readers on untrusted files. The first byte
// picks the extension the file is given; the rest is the file.
#include "image_io.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <string>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 1)
        return 0;
    static const char* const extensions[] = {".pgm", ".png", ".tif", ".pnm"};
    const std::string path = "/tmp/kxfreq-fuzz-" + std::to_string(getpid()) + extensions[data[0] % 4];
    {
        std::ofstream file(path, std::ios::binary | std::ios::trunc);
        file.write(reinterpret_cast<const char*>(data + 1), static_cast<std::streamsize>(size - 1));
    }
    try {
        kxio::GreyImage image = kxio::readImage(path, [](const std::string&) {});
        (void)image.width();
    } catch (const kxio::ImageError&) {
    }
    std::remove(path.c_str());
    return 0;
}
