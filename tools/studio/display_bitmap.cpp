#include "display_bitmap.h"

namespace kxstudio {

namespace {

void putLittleEndian(std::vector<unsigned char>& out, std::size_t at, unsigned long value, int bytes)
{
    for (int i = 0; i < bytes; ++i)
        out[at + static_cast<std::size_t>(i)] = static_cast<unsigned char>(value >> (8 * i));
}

}  // namespace

std::vector<unsigned char> displayBitmap(const kxio::GreyImage& image)
{
    const long w = image.width(), h = image.height();
    const std::size_t stride = static_cast<std::size_t>((w + 3) / 4 * 4);   // rows fill whole 32-bit words
    const std::size_t header = 14 + 40 + 256 * 4;                          // file, info, grey palette
    std::vector<unsigned char> out(header + stride * static_cast<std::size_t>(h), 0);
    out[0] = 'B';
    out[1] = 'M';
    putLittleEndian(out, 2, out.size(), 4);
    putLittleEndian(out, 10, header, 4);
    putLittleEndian(out, 14, 40, 4);
    putLittleEndian(out, 18, static_cast<unsigned long>(w), 4);
    putLittleEndian(out, 22, static_cast<unsigned long>(h), 4);   // positive: bottom row first
    putLittleEndian(out, 26, 1, 2);                               // planes
    putLittleEndian(out, 28, 8, 2);                               // bits per pixel
    putLittleEndian(out, 46, 256, 4);                             // palette entries
    for (unsigned long i = 0; i < 256; ++i)
        putLittleEndian(out, 54 + 4 * i, i | i << 8 | i << 16, 4);
    for (long y = 0; y < h; ++y) {
        unsigned char* row = out.data() + header + stride * static_cast<std::size_t>(h - 1 - y);
        for (long x = 0; x < w; ++x)
            row[x] = image.bits == 8 ? image.pixels8(x, y)
                                     : static_cast<unsigned char>((image.pixels16(x, y) * 255UL + 32767) / 65535);
    }
    return out;
}

}  // namespace kxstudio
