#include "image_detail.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

namespace kxio {
namespace detail {

void fail(const std::string& name, const std::string& what) { throw ImageError(name + ": " + what); }

namespace {

class FileSource : public ByteSource {
public:
    FileSource(const std::string& path, std::FILE* file, std::uint64_t size)
        : ByteSource(path), file_(file), size_(size)
    {
    }
    ~FileSource() override { std::fclose(file_); }
    std::size_t read(void* destination, std::size_t n) override { return std::fread(destination, 1, n, file_); }
    bool seek(std::uint64_t offset) override
    {
        return offset <= size_ && fseeko(file_, static_cast<off_t>(offset), SEEK_SET) == 0;
    }
    std::uint64_t tell() const override
    {
        const off_t at = ftello(file_);
        return at < 0 ? size_ : static_cast<std::uint64_t>(at);
    }
    std::uint64_t size() const override { return size_; }

private:
    std::FILE* file_;
    std::uint64_t size_;
};

class MemorySource : public ByteSource {
public:
    MemorySource(const unsigned char* data, std::size_t size, const std::string& name)
        : ByteSource(name), data_(data), size_(size)
    {
    }
    std::size_t read(void* destination, std::size_t n) override
    {
        const std::size_t count = std::min(n, size_ - position_);
        if (count > 0)
            std::memcpy(destination, data_ + position_, count);
        position_ += count;
        return count;
    }
    bool seek(std::uint64_t offset) override
    {
        if (offset > size_)
            return false;
        position_ = static_cast<std::size_t>(offset);
        return true;
    }
    std::uint64_t tell() const override { return position_; }
    std::uint64_t size() const override { return size_; }

private:
    const unsigned char* data_;
    std::size_t size_;
    std::size_t position_ = 0;
};

}  // namespace

std::unique_ptr<ByteSource> openFile(const std::string& path)
{
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (!file)
        fail(path, std::string("cannot open: ") + std::strerror(errno));
    struct stat status {};
    if (fstat(fileno(file), &status) != 0 || !S_ISREG(status.st_mode)) {
        std::fclose(file);
        fail(path, S_ISDIR(status.st_mode) ? "cannot open: is a directory, not an image file"
                                           : "cannot open: not a regular file");
    }
    return std::make_unique<FileSource>(path, file, static_cast<std::uint64_t>(status.st_size));
}

std::unique_ptr<ByteSource> openMemory(const unsigned char* data, std::size_t size, const std::string& name)
{
    return std::make_unique<MemorySource>(data, size, name);
}

// ---------------------------------------------------------------- RowSink

void RowSink::begin(long width, long height, int bits, Format format)
{
    if (width < 1 || height < 1 || width > kMaxSide || height > kMaxSide)
        fail(name_, "invalid image size " + std::to_string(width) + " x " + std::to_string(height) +
                        " (sides from 1 to " + std::to_string(kMaxSide) + ")");
    info_ = ImageInfo{width, height, bits, format};
    if (headerOnly_)
        throw HeaderRead{};
    const std::string size = std::to_string(width) + " x " + std::to_string(height);
    if (region_.whole()) {
        if (width > limits_.maxSide || height > limits_.maxSide)
            fail(name_, "image is " + size + "; at most " + std::to_string(limits_.maxSide) +
                            " pixels in a side can be transformed" + limits_.hint);
        x0_ = 0, y0_ = 0, w_ = width, h_ = height;
    } else {
        const Region& r = region_;
        if (r.x < 0 || r.y < 0 || r.width < 1 || r.height < 1 || r.x > width - r.width || r.y > height - r.height)
            fail(name_, "region " + std::to_string(r.x) + "," + std::to_string(r.y) + "," + std::to_string(r.width) +
                            "," + std::to_string(r.height) + " does not lie inside the " + size + " image");
        if (r.width > limits_.maxSide || r.height > limits_.maxSide)
            fail(name_, "region is " + std::to_string(r.width) + " x " + std::to_string(r.height) + "; at most " +
                            std::to_string(limits_.maxSide) + " pixels in a side can be transformed");
        x0_ = r.x, y0_ = r.y, w_ = r.width, h_ = r.height;
    }
    image_.bits = bits;
    if (bits == 8)
        image_.pixels8 = kxPelBuffer<unsigned char>(w_, h_);
    else
        image_.pixels16 = kxPelBuffer<unsigned short>(w_, h_);
}

namespace {

template <typename T>
void putRow(kxPelBuffer<T>& image, long y, long x, long count, const T* pixels, long x0, long y0, long w, long h)
{
    if (y < y0 || y >= y0 + h)
        return;
    const long from = std::max(x, x0), to = std::min(x + count, x0 + w);
    if (from >= to)
        return;
    std::memcpy(&image(from - x0, y - y0), pixels + (from - x), static_cast<std::size_t>(to - from) * sizeof(T));
}

}  // namespace

void RowSink::put(long y, long x, long count, const unsigned char* pixels)
{
    putRow(image_.pixels8, y, x, count, pixels, x0_, y0_, w_, h_);
}

void RowSink::put(long y, long x, long count, const unsigned short* pixels)
{
    putRow(image_.pixels16, y, x, count, pixels, x0_, y0_, w_, h_);
}

// ---------------------------------------------------------------- PGM

namespace {

// Buffered byte reader with PGM header tokens: whitespace-separated, '#' to
// end of line is a comment.
class PgmScanner {
public:
    explicit PgmScanner(ByteSource& source) : source_(source) {}

    int peek()
    {
        if (pos_ == end_) {
            end_ = source_.read(buffer_, sizeof buffer_);
            pos_ = 0;
            if (end_ == 0)
                return -1;
        }
        return buffer_[pos_];
    }
    int get()
    {
        const int c = peek();
        if (c >= 0)
            ++pos_;
        return c;
    }

    long number(const char* what)
    {
        skipSpaceAndComments();
        long value = 0;
        std::size_t digits = 0;
        for (int c; (c = peek()) >= 0 && std::isdigit(c); get()) {
            value = value * 10 + (c - '0');
            if (value > 1000000000L)
                fail(source_.name(), std::string("corrupt PGM header: ") + what + " out of range");
            ++digits;
        }
        if (digits == 0)
            fail(source_.name(), std::string("corrupt or truncated PGM: expected ") + what);
        return value;
    }

    // The single whitespace byte that ends a binary header.
    void endOfHeader()
    {
        const int c = get();
        if (c < 0 || !std::isspace(c))
            fail(source_.name(), "corrupt PGM header");
    }

    // Bytes consumed from the source so far.
    std::uint64_t position() const { return source_.tell() - (end_ - pos_); }

    bool read(unsigned char* destination, std::size_t n)
    {
        while (n > 0) {
            if (peek() < 0)
                return false;
            const std::size_t count = std::min(n, end_ - pos_);
            std::memcpy(destination, buffer_ + pos_, count);
            pos_ += count;
            destination += count;
            n -= count;
        }
        return true;
    }

private:
    void skipSpaceAndComments()
    {
        for (int c; (c = peek()) >= 0;) {
            if (std::isspace(c)) {
                get();
            } else if (c == '#') {
                while ((c = get()) >= 0 && c != '\n') {
                }
            } else {
                break;
            }
        }
    }

    ByteSource& source_;
    unsigned char buffer_[65536];
    std::size_t pos_ = 0;
    std::size_t end_ = 0;
};

}  // namespace

void readPgm(ByteSource& source, RowSink& sink)
{
    const std::string& name = source.name();
    auto scanner = std::make_unique<PgmScanner>(source);
    PgmScanner& scan = *scanner;
    const int p = scan.get(), kind = scan.get();
    if (p != 'P' || (kind != '5' && kind != '2'))
        fail(name, "not a PGM image");
    const bool ascii = kind == '2';
    const long width = scan.number("width");
    const long height = scan.number("height");
    const long maxval = scan.number("maximum value");
    if (maxval < 1 || maxval > 65535)
        fail(name, "unsupported PGM maximum value " + std::to_string(maxval));
    const int bytesPerPixel = maxval < 256 ? 1 : 2;
    if (width < 1 || height < 1 || width > kMaxSide || height > kMaxSide)
        fail(name, "invalid image size " + std::to_string(width) + " x " + std::to_string(height) +
                       " (sides from 1 to " + std::to_string(kMaxSide) + ")");
    const std::uint64_t count = static_cast<std::uint64_t>(width) * static_cast<std::uint64_t>(height);
    if (!ascii) {
        scan.endOfHeader();
        if (source.size() - std::min(source.size(), scan.position()) < count * bytesPerPixel)
            fail(name, "truncated PGM pixel data");
    } else if (source.size() - std::min(source.size(), scan.position()) < count) {
        fail(name, "truncated PGM pixel data");   // at least one byte a pixel
    }
    sink.begin(width, height, bytesPerPixel * 8, ascii ? Format::PgmAscii : Format::Pgm);

    const std::size_t rowBytes = static_cast<std::size_t>(width) * bytesPerPixel;
    long y = 0;
    if (!ascii && sink.firstRow() > 0) {
        // Binary rows have a fixed size: go straight to the first row wanted.
        if (!source.seek(scan.position() + static_cast<std::uint64_t>(rowBytes) * sink.firstRow()))
            fail(name, "truncated PGM pixel data");
        scanner = std::make_unique<PgmScanner>(source);
        y = sink.firstRow();
    }
    std::vector<unsigned char> raw(ascii ? 0 : rowBytes);
    std::vector<unsigned char> row8(bytesPerPixel == 1 ? width : 0);
    std::vector<unsigned short> row16(bytesPerPixel == 2 ? width : 0);
    for (; y < sink.endRow(); ++y) {
        if (!ascii && !scanner->read(raw.data(), rowBytes))
            fail(name, "truncated PGM pixel data");
        for (long x = 0; x < width; ++x) {
            long value;
            if (ascii)
                value = scanner->number("pixel value");
            else
                value = bytesPerPixel == 1 ? raw[x] : (raw[2 * x] << 8) | raw[2 * x + 1];   // big-endian
            if (value > maxval)
                fail(name, "PGM pixel value above the maximum value");
            if (bytesPerPixel == 1)
                row8[x] = static_cast<unsigned char>(value);
            else
                row16[x] = static_cast<unsigned short>(value);
        }
        if (bytesPerPixel == 1)
            sink.put(y, 0, width, row8.data());
        else
            sink.put(y, 0, width, row16.data());
    }
}

std::vector<unsigned char> encodePgm(const GreyImage& image, bool ascii)
{
    std::ostringstream out;
    const long w = image.width(), h = image.height();
    out << (ascii ? "P2" : "P5") << "\n" << w << " " << h << "\n" << (image.bits == 8 ? 255 : 65535) << "\n";
    std::string text = out.str();
    std::vector<unsigned char> bytes(text.begin(), text.end());
    bytes.reserve(bytes.size() + static_cast<std::size_t>(w) * h * (image.bits / 8));
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

}  // namespace detail

using namespace detail;

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

// Runs the decoder the first bytes ask for.
void decode(ByteSource& source, RowSink& sink, const Notice& notice)
{
    unsigned char magic[8] = {0};
    const std::size_t got = source.read(magic, sizeof magic);
    if (!source.seek(0))
        fail(source.name(), "cannot read");
    if (got >= 8 && std::memcmp(magic, "\x89PNG\r\n\x1a\n", 8) == 0)
        return readPng(source, sink, notice);
    if (got >= 4 && (std::memcmp(magic, "II*\0", 4) == 0 || std::memcmp(magic, "MM\0*", 4) == 0))
        return readTiff(source, sink, notice);
    if (got >= 4 && (std::memcmp(magic, "II+\0", 4) == 0 || std::memcmp(magic, "MM\0+", 4) == 0))
        return readTiff(source, sink, notice);
    if (got >= 2 && magic[0] == 'P' && (magic[1] == '5' || magic[1] == '2'))
        return readPgm(source, sink);
    fail(source.name(), "not a PGM, PNG or TIFF image");
}

GreyImage readFrom(ByteSource& source, const Region& region, const ReadLimits& limits, const Notice& notice)
{
    RowSink sink(source.name(), region, limits, false);
    decode(source, sink, notice);
    return sink.take();
}

}  // namespace

Format formatFor(const std::string& path)
{
    const std::string p = lower(path);
    if (endsWith(p, ".png"))
        return Format::Png;
    if (endsWith(p, ".tif") || endsWith(p, ".tiff"))
        return Format::Tiff;
    if (endsWith(p, ".pgm") || endsWith(p, ".pnm"))
        return Format::Pgm;
    throw ImageError(path + ": unknown image format (use .png, .tif or .pgm)");
}

const char* extensionOf(Format format)
{
    switch (format) {
    case Format::Png:
        return ".png";
    case Format::Tiff:
        return ".tif";
    case Format::Pgm:
    case Format::PgmAscii:
        break;
    }
    return ".pgm";
}

ImageInfo readInfo(const std::string& path)
{
    const std::unique_ptr<ByteSource> source = openFile(path);
    RowSink sink(path, Region{}, ReadLimits{}, true);
    try {
        decode(*source, sink, Notice{});
    } catch (const RowSink::HeaderRead&) {
        return sink.info();
    }
    fail(path, "no image header");
}

GreyImage readImage(const std::string& path, const Notice& notice)
{
    return readImage(path, Region{}, ReadLimits{}, notice);
}

GreyImage readImage(const std::string& path, const Region& region, const ReadLimits& limits, const Notice& notice)
{
    const std::unique_ptr<ByteSource> source = openFile(path);
    return readFrom(*source, region, limits, notice);
}

GreyImage readImageFromMemory(const unsigned char* data, std::size_t size, const std::string& name,
                              const Region& region, const ReadLimits& limits, const Notice& notice)
{
    const std::unique_ptr<ByteSource> source = openMemory(data, size, name);
    return readFrom(*source, region, limits, notice);
}

std::vector<unsigned char> encodeImage(const std::string& path, const GreyImage& image, Format format)
{
    switch (format) {
    case Format::Png:
        return encodePng(path, image);
    case Format::Tiff:
        return encodeTiff(path, image);
    case Format::Pgm:
    case Format::PgmAscii:
        break;
    }
    return encodePgm(image, format == Format::PgmAscii);
}

void writeFileAtomically(const std::string& path, const std::vector<unsigned char>& bytes)
{
    // The temporary lives next to the destination so that the rename stays on
    // one file system.
    const std::string temporary = path + ".partial";
    std::FILE* out = std::fopen(temporary.c_str(), "wb");
    if (!out)
        fail(path, std::string("cannot write: ") + std::strerror(errno));
    const bool written = std::fwrite(bytes.data(), 1, bytes.size(), out) == bytes.size();
    const int savedErrno = errno;
    const bool closed = std::fclose(out) == 0;
    if (!written || !closed) {
        std::remove(temporary.c_str());
        fail(path, std::string("write failed: ") + std::strerror(written ? errno : savedErrno));
    }
    if (std::rename(temporary.c_str(), path.c_str()) != 0) {
        const int renameErrno = errno;
        std::remove(temporary.c_str());
        fail(path, std::string("cannot write: ") + std::strerror(renameErrno));
    }
}

void writeImage(const std::string& path, const GreyImage& image, Format format)
{
    writeFileAtomically(path, encodeImage(path, image, format));
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
