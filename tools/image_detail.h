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

// Where an encoder's bytes go: a file or memory. Writers may seek back and
// read what they wrote (TIFF does).
class ByteSink {
public:
    explicit ByteSink(std::string name) : name_(std::move(name)) {}
    virtual ~ByteSink() = default;
    ByteSink(const ByteSink&) = delete;
    ByteSink& operator=(const ByteSink&) = delete;

    // False when not every byte could be written.
    virtual bool write(const void* data, std::size_t n) = 0;
    virtual std::size_t read(void* destination, std::size_t n) = 0;
    virtual bool seek(std::uint64_t offset) = 0;
    virtual std::uint64_t tell() const = 0;
    virtual std::uint64_t size() const = 0;
    const std::string& name() const { return name_; }

private:
    std::string name_;
};

// A sink over a FILE* it does not own, and one into memory.
std::unique_ptr<ByteSink> fileSink(std::FILE* file, const std::string& name);
std::unique_ptr<ByteSink> memorySink(std::vector<unsigned char>& bytes, const std::string& name);

// Receives what a decoder reads: the header's size, depth and channels first,
// then rows (or parts of rows) of interleaved samples, top to bottom within
// each column of tiles. Keeps only the region asked for, as grey or with its
// channels, or hands whole rows on to a RowTarget.
class RowSink {
public:
    RowSink(const std::string& name, const Region& region, const ReadLimits& limits, bool headerOnly,
            Channels channels, RowTarget* target = nullptr)
        : name_(name), region_(region), limits_(limits), headerOnly_(headerOnly), mode_(channels), target_(target)
    {
    }

    // Checks the size against the limits and the region, then allocates the
    // region's image. With headerOnly, records the header and throws
    // HeaderRead instead. `channels` is 1 to 4 as Image describes them.
    void begin(long width, long height, int bits, int channels, Format format);
    // The rows a decoder must deliver: [firstRow, endRow).
    long firstRow() const { return y0_; }
    long endRow() const { return y0_ + h_; }
    long firstColumn() const { return x0_; }
    long endColumn() const { return x0_ + w_; }
    // Row y of the file, pixels x .. x + count - 1 (host order for 16 bits),
    // each the number of samples begin() was given.
    void put(long y, long x, long count, const unsigned char* samples);
    void put(long y, long x, long count, const unsigned short* samples);

    const ImageInfo& info() const { return info_; }
    Image take() { return std::move(image_); }
    // What the grey conversion did, for the notice; empty when nothing.
    std::string conversion() const;

    struct HeaderRead {};

private:
    template <typename T>
    void store(long y, long x, long count, const T* samples);

    std::string name_;
    Region region_;
    ReadLimits limits_;
    bool headerOnly_;
    Channels mode_;
    RowTarget* target_;
    ImageInfo info_;
    int outChannels_ = 1;
    long x0_ = 0, y0_ = 0, w_ = 0, h_ = 0;
    Image image_;
    std::vector<unsigned short> row_;   // a converted row for the target
};

// The decoders. Each reads the header, calls sink.begin(), then delivers
// at least the sink's rows.
void readPgm(ByteSource& source, RowSink& sink);
void readPng(ByteSource& source, RowSink& sink);
void readTiff(ByteSource& source, RowSink& sink);
void readJpeg(ByteSource& source, RowSink& sink);

// An encoder takes the rows of one image, top to bottom, and writes them to
// a ByteSink; finish() completes the file. Errors are ImageErrors.
class Encoder {
public:
    virtual ~Encoder() = default;
    virtual void row(const void* samples) = 0;
    virtual void finish() = 0;
};

std::unique_ptr<Encoder> pgmEncoder(ByteSink& sink, const ImageInfo& info, bool ascii);
std::unique_ptr<Encoder> pngEncoder(ByteSink& sink, const ImageInfo& info);
std::unique_ptr<Encoder> tiffEncoder(ByteSink& sink, const ImageInfo& info);
std::unique_ptr<Encoder> jpegEncoder(ByteSink& sink, const ImageInfo& info, int quality);

// Grey from red, green and blue with the weights 0.2126, 0.7152, 0.0722
// (as 6968, 23434, 2366 / 32768), rounded.
inline unsigned greyOf(unsigned r, unsigned g, unsigned b)
{
    return static_cast<unsigned>((6968UL * r + 23434UL * g + 2366UL * b + 16384UL) >> 15);
}

}  // namespace detail
}  // namespace kxio

namespace kxio {
namespace detail {

// A temporary file beside `path` ("path.partial", opened for writing), which
// commit() closes and renames into place. It is removed when destroyed
// without commit(), and when the process is ended by SIGINT, SIGTERM or
// SIGHUP while it exists.
class TemporaryFile {
public:
    explicit TemporaryFile(const std::string& path);
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    std::FILE* file() const { return file_; }
    void commit();

private:
    std::string path_;
    std::string temporary_;
    std::FILE* file_ = nullptr;
    int slot_ = -1;   // in the table the signal handler empties
};

}  // namespace detail
}  // namespace kxio
