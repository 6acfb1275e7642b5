#include "image_io.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <vector>

namespace kxio {

namespace {

std::string lower(std::string s)
{
    std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return s;
}

bool endsWith(const std::string& s, const std::string& tail)
{
    return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

[[noreturn]] void fail(const std::string& path, const std::string& what) { throw ImageError(path + ": " + what); }

std::vector<unsigned char> readAll(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        fail(path, std::string("cannot open: ") + std::strerror(errno));
    std::vector<unsigned char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (in.bad())
        fail(path, "read error");
    return bytes;
}

void checkSize(const std::string& path, long width, long height)
{
    if (width < 1 || height < 1 || width > kMaxSide || height > kMaxSide)
        fail(path, "invalid image size " + std::to_string(width) + " x " + std::to_string(height));
}

// ---------------------------------------------------------------- PGM

// Header tokens of a PGM file: whitespace-separated, '#' to end of line is a
// comment.
class PgmScanner {
public:
    PgmScanner(const std::string& path, const std::vector<unsigned char>& bytes) : path_(path), bytes_(bytes) {}

    long number(const char* what)
    {
        skipSpaceAndComments();
        long value = 0;
        std::size_t digits = 0;
        while (pos_ < bytes_.size() && std::isdigit(bytes_[pos_])) {
            value = value * 10 + (bytes_[pos_++] - '0');
            if (value > 1000000000L)
                fail(path_, std::string("corrupt PGM header: ") + what + " out of range");
            ++digits;
        }
        if (digits == 0)
            fail(path_, std::string("corrupt or truncated PGM: expected ") + what);
        return value;
    }

    // The single whitespace byte that ends a binary header.
    void endOfHeader()
    {
        if (pos_ >= bytes_.size() || !std::isspace(bytes_[pos_]))
            fail(path_, "corrupt PGM header");
        ++pos_;
    }

    std::size_t position() const { return pos_; }

private:
    void skipSpaceAndComments()
    {
        while (pos_ < bytes_.size()) {
            if (std::isspace(bytes_[pos_])) {
                ++pos_;
            } else if (bytes_[pos_] == '#') {
                while (pos_ < bytes_.size() && bytes_[pos_] != '\n')
                    ++pos_;
            } else {
                break;
            }
        }
    }

    const std::string& path_;
    const std::vector<unsigned char>& bytes_;
    std::size_t pos_ = 2;
};

GreyImage readPgm(const std::string& path, const std::vector<unsigned char>& bytes)
{
    const bool ascii = bytes[1] == '2';
    PgmScanner scan(path, bytes);
    const long width = scan.number("width");
    const long height = scan.number("height");
    checkSize(path, width, height);
    const long maxval = scan.number("maximum value");
    if (maxval < 1 || maxval > 65535)
        fail(path, "unsupported PGM maximum value " + std::to_string(maxval));
    const int bytesPerPixel = maxval < 256 ? 1 : 2;
    const std::size_t count = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    if (!ascii) {
        scan.endOfHeader();
        if (bytes.size() - scan.position() < count * bytesPerPixel)
            fail(path, "truncated PGM pixel data");
    } else if (bytes.size() - scan.position() < count) {
        fail(path, "truncated PGM pixel data");   // at least one byte a pixel
    }

    GreyImage image;
    image.bits = bytesPerPixel * 8;
    if (image.bits == 8)
        image.pixels8 = kxPelBuffer<unsigned char>(width, height);
    else
        image.pixels16 = kxPelBuffer<unsigned short>(width, height);
    const unsigned char* data = bytes.data() + scan.position();
    for (long y = 0; y < height; ++y)
        for (long x = 0; x < width; ++x) {
            long value;
            if (ascii) {
                value = scan.number("pixel value");
            } else {
                const std::size_t i = static_cast<std::size_t>(y * width + x) * bytesPerPixel;
                value = bytesPerPixel == 1 ? data[i] : (data[i] << 8) | data[i + 1];   // big-endian
            }
            if (value > maxval)
                fail(path, "PGM pixel value above the maximum value");
            if (image.bits == 8)
                image.pixels8(x, y) = static_cast<unsigned char>(value);
            else
                image.pixels16(x, y) = static_cast<unsigned short>(value);
        }
    return image;
}

std::vector<unsigned char> encodePgm(const GreyImage& image, bool ascii)
{
    std::ostringstream out;
    const long w = image.width(), h = image.height();
    out << (ascii ? "P2" : "P5") << "\n" << w << " " << h << "\n" << (image.bits == 8 ? 255 : 65535) << "\n";
    std::string text = out.str();
    std::vector<unsigned char> bytes(text.begin(), text.end());
    for (long y = 0; y < h; ++y) {
        for (long x = 0; x < w; ++x) {
            const unsigned value = image.bits == 8 ? image.pixels8(x, y) : image.pixels16(x, y);
            if (ascii) {
                const std::string v = std::to_string(value) + (x + 1 == w ? "\n" : " ");
                bytes.insert(bytes.end(), v.begin(), v.end());
            } else if (image.bits == 8) {
                bytes.push_back(static_cast<unsigned char>(value));
            } else {
                bytes.push_back(static_cast<unsigned char>(value >> 8));
                bytes.push_back(static_cast<unsigned char>(value & 0xFF));
            }
        }
    }
    return bytes;
}

}  // namespace

// PNG support lives in image_png.cpp (built only with libpng).
GreyImage readPng(const std::string& path, const std::function<void(const std::string&)>& notice);
std::vector<unsigned char> encodePng(const std::string& path, const GreyImage& image);

Format formatFor(const std::string& path)
{
    const std::string p = lower(path);
    if (endsWith(p, ".png"))
        return Format::Png;
    if (endsWith(p, ".pgm") || endsWith(p, ".pnm"))
        return Format::Pgm;
    throw ImageError(path + ": unknown image format (use .png or .pgm)");
}

GreyImage readImage(const std::string& path, const std::function<void(const std::string&)>& notice)
{
    {
        std::ifstream probe(path, std::ios::binary);
        if (!probe)
            fail(path, std::string("cannot open: ") + std::strerror(errno));
        unsigned char magic[8] = {0};
        probe.read(reinterpret_cast<char*>(magic), 8);
        if (probe.gcount() >= 8 && std::memcmp(magic, "\x89PNG\r\n\x1a\n", 8) == 0)
            return readPng(path, notice);
    }
    const std::vector<unsigned char> bytes = readAll(path);
    if (bytes.size() >= 2 && bytes[0] == 'P' && (bytes[1] == '5' || bytes[1] == '2'))
        return readPgm(path, bytes);
    fail(path, "not a PGM or PNG image");
}

void writeImage(const std::string& path, const GreyImage& image, Format format)
{
    const std::vector<unsigned char> bytes =
        format == Format::Png ? encodePng(path, image) : encodePgm(image, format == Format::PgmAscii);
    const std::string temporary = path + ".partial";
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        if (!out)
            fail(path, std::string("cannot write: ") + std::strerror(errno));
        out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        out.close();
        if (!out) {
            std::remove(temporary.c_str());
            fail(path, "write failed");
        }
    }
    if (std::rename(temporary.c_str(), path.c_str()) != 0) {
        std::remove(temporary.c_str());
        fail(path, std::string("cannot write: ") + std::strerror(errno));
    }
}

GreyImage makeImage8(const kxPelBuffer<unsigned char>& pixels)
{
    GreyImage image;
    image.bits = 8;
    image.pixels8 = pixels;
    return image;
}

GreyImage makeImage16(const kxPelBuffer<unsigned short>& pixels)
{
    GreyImage image;
    image.bits = 16;
    image.pixels16 = pixels;
    return image;
}

}  // namespace kxio
