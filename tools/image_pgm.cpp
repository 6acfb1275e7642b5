// PGM, binary (P5) and ASCII (P2), 8 and 16 bits: the reader and the
// writer. Pixels of 16 bits are big-endian in the file.
#include "image_detail.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <string>

namespace kxio {
namespace detail {

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
    sink.begin(width, height, bytesPerPixel * 8, 1, ascii ? Format::PgmAscii : Format::Pgm);

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

namespace {

class PgmEncoder : public Encoder {
public:
    PgmEncoder(ByteSink& sink, const ImageInfo& info, bool ascii) : sink_(sink), info_(info), ascii_(ascii)
    {
        const std::string header = std::string(ascii ? "P2" : "P5") + "\n" + std::to_string(info.width) + " " +
                                   std::to_string(info.height) + "\n" + (info.bits == 8 ? "255" : "65535") + "\n";
        put(header.data(), header.size());
    }

    void row(const void* samples) override
    {
        const long w = info_.width;
        const auto* row8 = static_cast<const unsigned char*>(samples);
        const auto* row16 = static_cast<const unsigned short*>(samples);
        bytes_.clear();
        for (long x = 0; x < w; ++x) {
            const unsigned value = info_.bits == 8 ? row8[x] : row16[x];
            if (ascii_) {
                const std::string v = std::to_string(value) + (x + 1 == w ? "\n" : " ");
                bytes_.insert(bytes_.end(), v.begin(), v.end());
            } else if (info_.bits == 8) {
                bytes_.push_back(static_cast<unsigned char>(value));
            } else {
                bytes_.push_back(static_cast<unsigned char>(value >> 8));
                bytes_.push_back(static_cast<unsigned char>(value & 0xFF));
            }
        }
        put(bytes_.data(), bytes_.size());
    }

    void finish() override {}

private:
    void put(const void* data, std::size_t n)
    {
        if (!sink_.write(data, n))
            fail(sink_.name(), std::string("write failed: ") + std::strerror(errno));
    }

    ByteSink& sink_;
    ImageInfo info_;
    bool ascii_;
    std::vector<unsigned char> bytes_;
};

}  // namespace

std::unique_ptr<Encoder> pgmEncoder(ByteSink& sink, const ImageInfo& info, bool ascii)
{
    return std::make_unique<PgmEncoder>(sink, info, ascii);
}

}  // namespace detail
}  // namespace kxio
