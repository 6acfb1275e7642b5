#pragma once
// Internals shared by the image readers and writers of the kxfreq tool.
#include "image_io.h"

#include <cstdint>
#include <cstdio>
#include <memory>

namespace kxio {
namespace detail {

[[noreturn]] void fail(const std::string& name, const std::string& what);

// Where the bytes of an image come from: a file or memory.
class ByteSource {
public:
    explicit ByteSource(std::string name) : name_(std::move(name)) {}
    virtual ~ByteSource() = default;
    ByteSource(const ByteSource&) = delete;
    ByteSource& operator=(const ByteSource&) = delete;

    // Reads up to n bytes; returns how many were read (0 at the end).
    virtual std::size_t read(void* destination, std::size_t n) = 0;
    virtual bool seek(std::uint64_t offset) = 0;
    virtual std::uint64_t tell() const = 0;
    virtual std::uint64_t size() const = 0;
    const std::string& name() const { return name_; }

private:
    std::string name_;
};

std::unique_ptr<ByteSource> openFile(const std::string& path);
std::unique_ptr<ByteSource> openMemory(const unsigned char* data, std::size_t size, const std::string& name);

// Receives what a decoder reads: the header's size and depth first, then
// rows (or parts of rows) in any order. Keeps only the region asked for.
class RowSink {
public:
    RowSink(const std::string& name, const Region& region, const ReadLimits& limits, bool headerOnly)
        : name_(name), region_(region), limits_(limits), headerOnly_(headerOnly)
    {
    }

    // Checks the size against the limits and the region, then allocates the
    // region's image. With headerOnly, records the header and throws
    // HeaderRead instead.
    void begin(long width, long height, int bits, Format format);
    // The rows a decoder must deliver: [firstRow, endRow).
    long firstRow() const { return y0_; }
    long endRow() const { return y0_ + h_; }
    long firstColumn() const { return x0_; }
    long endColumn() const { return x0_ + w_; }
    // Row y of the file, pixels x .. x + count - 1 (host order for 16 bits).
    void put(long y, long x, long count, const unsigned char* pixels);
    void put(long y, long x, long count, const unsigned short* pixels);

    const ImageInfo& info() const { return info_; }
    GreyImage take() { return std::move(image_); }

    struct HeaderRead {};

private:
    std::string name_;
    Region region_;
    ReadLimits limits_;
    bool headerOnly_;
    ImageInfo info_;
    long x0_ = 0, y0_ = 0, w_ = 0, h_ = 0;
    GreyImage image_;
};

// The decoders. Each reads the header, calls sink.begin(), then delivers
// at least the sink's rows.
void readPgm(ByteSource& source, RowSink& sink);
void readPng(ByteSource& source, RowSink& sink, const Notice& notice);
void readTiff(ByteSource& source, RowSink& sink, const Notice& notice);

std::vector<unsigned char> encodePgm(const GreyImage& image, bool ascii);
std::vector<unsigned char> encodePng(const std::string& path, const GreyImage& image);
std::vector<unsigned char> encodeTiff(const std::string& path, const GreyImage& image);

// Grey from red, green and blue with the weights 0.2126, 0.7152, 0.0722
// (as 6968, 23434, 2366 / 32768), rounded.
inline unsigned greyOf(unsigned r, unsigned g, unsigned b)
{
    return static_cast<unsigned>((6968UL * r + 23434UL * g + 2366UL * b + 16384UL) >> 15);
}

}  // namespace detail
}  // namespace kxio
