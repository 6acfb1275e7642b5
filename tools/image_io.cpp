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

// ---------------------------------------------------------------- sinks

namespace {

class FileSink : public ByteSink {
public:
    FileSink(std::FILE* file, const std::string& name) : ByteSink(name), file_(file) {}
    bool write(const void* data, std::size_t n) override { return std::fwrite(data, 1, n, file_) == n; }
    std::size_t read(void* destination, std::size_t n) override { return std::fread(destination, 1, n, file_); }
    bool seek(std::uint64_t offset) override { return fseeko(file_, static_cast<off_t>(offset), SEEK_SET) == 0; }
    std::uint64_t tell() const override
    {
        const off_t at = ftello(file_);
        return at < 0 ? 0 : static_cast<std::uint64_t>(at);
    }
    std::uint64_t size() const override
    {
        // What is still buffered counts too.
        struct stat status {};
        if (std::fflush(file_) != 0 || fstat(fileno(file_), &status) != 0)
            return 0;
        return static_cast<std::uint64_t>(status.st_size);
    }

private:
    std::FILE* file_;
};

class VectorSink : public ByteSink {
public:
    VectorSink(std::vector<unsigned char>& bytes, const std::string& name) : ByteSink(name), bytes_(bytes) {}
    bool write(const void* data, std::size_t n) override
    {
        try {
            if (position_ + n > bytes_.size())
                bytes_.resize(position_ + n);
        } catch (const std::bad_alloc&) {
            return false;
        }
        if (n > 0)
            std::memcpy(bytes_.data() + position_, data, n);
        position_ += n;
        return true;
    }
    std::size_t read(void* destination, std::size_t n) override
    {
        const std::size_t count = position_ >= bytes_.size() ? 0 : std::min(n, bytes_.size() - position_);
        if (count > 0)
            std::memcpy(destination, bytes_.data() + position_, count);
        position_ += count;
        return count;
    }
    bool seek(std::uint64_t offset) override
    {
        position_ = static_cast<std::size_t>(offset);
        return true;
    }
    std::uint64_t tell() const override { return position_; }
    std::uint64_t size() const override { return bytes_.size(); }

private:
    std::vector<unsigned char>& bytes_;
    std::size_t position_ = 0;
};

}  // namespace

std::unique_ptr<ByteSink> fileSink(std::FILE* file, const std::string& name)
{
    return std::make_unique<FileSink>(file, name);
}

std::unique_ptr<ByteSink> memorySink(std::vector<unsigned char>& bytes, const std::string& name)
{
    return std::make_unique<VectorSink>(bytes, name);
}

// ---------------------------------------------------------------- RowSink

void RowSink::begin(long width, long height, int bits, int channels, Format format)
{
    if (width < 1 || height < 1 || width > kMaxSide || height > kMaxSide)
        fail(name_, "invalid image size " + std::to_string(width) + " x " + std::to_string(height) +
                        " (sides from 1 to " + std::to_string(kMaxSide) + ")");
    outChannels_ = mode_ == Channels::Grey ? 1 : channels;
    info_ = ImageInfo{width, height, bits, format, channels};
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
    if (target_) {
        ImageInfo delivered = info_;
        delivered.channels = outChannels_;
        row_.assign(static_cast<std::size_t>(width) * outChannels_, 0);
        target_->start(delivered);
        return;
    }
    image_.planes.assign(static_cast<std::size_t>(outChannels_), GreyImage{});
    for (GreyImage& plane : image_.planes) {
        plane.bits = bits;
        if (bits == 8)
            plane.pixels8 = kxPelBuffer<unsigned char>(w_, h_);
        else
            plane.pixels16 = kxPelBuffer<unsigned short>(w_, h_);
    }
}

namespace {

template <typename T>
kxPelBuffer<T>& pixelsOf(GreyImage& plane);
template <>
kxPelBuffer<unsigned char>& pixelsOf(GreyImage& plane)
{
    return plane.pixels8;
}
template <>
kxPelBuffer<unsigned short>& pixelsOf(GreyImage& plane)
{
    return plane.pixels16;
}

// One pixel of `channels` samples as grey: colour by greyOf, alpha dropped.
template <typename T>
T greyPixel(const T* p, int channels)
{
    return static_cast<T>(channels >= 3 ? greyOf(p[0], p[1], p[2]) : p[0]);
}

}  // namespace

template <typename T>
void RowSink::store(long y, long x, long count, const T* samples)
{
    const int in = info_.channels;
    if (target_) {
        // Whole rows, in order.
        T* out = reinterpret_cast<T*>(row_.data());
        if (outChannels_ == in)
            std::memcpy(out + x * in, samples, static_cast<std::size_t>(count) * in * sizeof(T));
        else
            for (long i = 0; i < count; ++i)
                out[x + i] = greyPixel(samples + i * in, in);
        if (x + count == info_.width)
            target_->row(y, out);
        return;
    }
    if (y < y0_ || y >= y0_ + h_)
        return;
    const long from = std::max(x, x0_), to = std::min(x + count, x0_ + w_);
    for (long i = from; i < to; ++i) {
        const T* p = samples + (i - x) * in;
        if (outChannels_ == 1)
            pixelsOf<T>(image_.planes[0])(i - x0_, y - y0_) = greyPixel(p, in);
        else
            for (int c = 0; c < in; ++c)
                pixelsOf<T>(image_.planes[static_cast<std::size_t>(c)])(i - x0_, y - y0_) = p[c];
    }
}

void RowSink::put(long y, long x, long count, const unsigned char* samples) { store(y, x, count, samples); }

void RowSink::put(long y, long x, long count, const unsigned short* samples) { store(y, x, count, samples); }

std::string RowSink::conversion() const
{
    if (mode_ != Channels::Grey)
        return "";
    switch (info_.channels) {
    case 2:
        return "alpha channel dropped";
    case 3:
        return "colour image converted to grey";
    case 4:
        return "colour image converted to grey, alpha channel dropped";
    default:
        return "";
    }
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
void decode(ByteSource& source, RowSink& sink)
{
    unsigned char magic[8] = {0};
    const std::size_t got = source.read(magic, sizeof magic);
    if (!source.seek(0))
        fail(source.name(), "cannot read");
    if (got >= 8 && std::memcmp(magic, "\x89PNG\r\n\x1a\n", 8) == 0)
        return readPng(source, sink);
    if (got >= 4 && (std::memcmp(magic, "II*\0", 4) == 0 || std::memcmp(magic, "MM\0*", 4) == 0))
        return readTiff(source, sink);
    if (got >= 4 && (std::memcmp(magic, "II+\0", 4) == 0 || std::memcmp(magic, "MM\0+", 4) == 0))
        return readTiff(source, sink);
    if (got >= 3 && magic[0] == 0xFF && magic[1] == 0xD8 && magic[2] == 0xFF)
        return readJpeg(source, sink);
    if (got >= 2 && magic[0] == 'P' && (magic[1] == '5' || magic[1] == '2'))
        return readPgm(source, sink);
    fail(source.name(), "not a PGM, PNG, TIFF or JPEG image");
}

// Decodes into `sink` and tells what the grey conversion did.
void decodeWithNotice(ByteSource& source, RowSink& sink, const Notice& notice)
{
    decode(source, sink);
    const std::string conversion = sink.conversion();
    if (!conversion.empty() && notice)
        notice(source.name() + ": " + conversion);
}

Image readFrom(ByteSource& source, const Region& region, const ReadLimits& limits, Channels channels,
               const Notice& notice)
{
    RowSink sink(source.name(), region, limits, false, channels);
    decodeWithNotice(source, sink, notice);
    return sink.take();
}

GreyImage onlyPlane(Image image) { return std::move(image.planes.at(0)); }

std::unique_ptr<Encoder> encoderFor(ByteSink& sink, Format format, const ImageInfo& info, const WriteOptions& options)
{
    if (info.width < 1 || info.height < 1 || info.width > kMaxSide || info.height > kMaxSide ||
        (info.bits != 8 && info.bits != 16) || info.channels < 1 || info.channels > 4)
        fail(sink.name(), "cannot write an image of " + std::to_string(info.width) + " x " +
                              std::to_string(info.height) + " pixels, " + std::to_string(info.channels) +
                              " channels of " + std::to_string(info.bits) + " bits");
    if (info.channels > 1 && !holdsColour(format))
        fail(sink.name(), "PGM holds grey images only; write colour as .png, .tif or .jpg");
    switch (format) {
    case Format::Png:
        return pngEncoder(sink, info);
    case Format::Tiff:
        return tiffEncoder(sink, info);
    case Format::Jpeg:
        return jpegEncoder(sink, info, options.jpegQuality);
    case Format::Pgm:
    case Format::PgmAscii:
        break;
    }
    return pgmEncoder(sink, info, format == Format::PgmAscii);
}

ImageInfo shapeOf(const Image& image)
{
    if (image.planes.empty())
        throw ImageError("no image to write");
    return ImageInfo{image.width(), image.height(), image.bits(), Format::Pgm, image.channels()};
}

// Hands an image's rows, interleaved, to `emit`.
template <typename Emit>
void interleavedRows(const Image& image, Emit emit)
{
    const long w = image.width();
    const int channels = image.channels();
    std::vector<unsigned short> row(static_cast<std::size_t>(w) * channels);
    auto* row8 = reinterpret_cast<unsigned char*>(row.data());
    for (long y = 0; y < image.height(); ++y) {
        for (int c = 0; c < channels; ++c) {
            const GreyImage& plane = image.planes[static_cast<std::size_t>(c)];
            for (long x = 0; x < w; ++x) {
                if (image.bits() == 8)
                    row8[x * channels + c] = plane.pixels8(x, y);
                else
                    row[static_cast<std::size_t>(x * channels + c)] = plane.pixels16(x, y);
            }
        }
        emit(static_cast<const void*>(row.data()));
    }
}

}  // namespace

Format formatFor(const std::string& path)
{
    const std::string p = lower(path);
    if (endsWith(p, ".png"))
        return Format::Png;
    if (endsWith(p, ".tif") || endsWith(p, ".tiff"))
        return Format::Tiff;
    if (endsWith(p, ".jpg") || endsWith(p, ".jpeg"))
        return Format::Jpeg;
    if (endsWith(p, ".pgm") || endsWith(p, ".pnm"))
        return Format::Pgm;
    throw ImageError(path + ": unknown image format (use .png, .tif, .jpg or .pgm)");
}

const char* extensionOf(Format format)
{
    switch (format) {
    case Format::Png:
        return ".png";
    case Format::Tiff:
        return ".tif";
    case Format::Jpeg:
        return ".jpg";
    case Format::Pgm:
    case Format::PgmAscii:
        break;
    }
    return ".pgm";
}

bool holdsColour(Format format) { return format != Format::Pgm && format != Format::PgmAscii; }

ImageInfo readInfo(const std::string& path)
{
    const std::unique_ptr<ByteSource> source = openFile(path);
    RowSink sink(path, Region{}, ReadLimits{}, true, Channels::Keep);
    try {
        decode(*source, sink);
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
    return onlyPlane(readFrom(*source, region, limits, Channels::Grey, notice));
}

GreyImage readImageFromMemory(const unsigned char* data, std::size_t size, const std::string& name,
                              const Region& region, const ReadLimits& limits, const Notice& notice)
{
    const std::unique_ptr<ByteSource> source = openMemory(data, size, name);
    return onlyPlane(readFrom(*source, region, limits, Channels::Grey, notice));
}

Image readChannels(const std::string& path, const Region& region, const ReadLimits& limits, const Notice& notice)
{
    const std::unique_ptr<ByteSource> source = openFile(path);
    return readFrom(*source, region, limits, Channels::Keep, notice);
}

Image readChannelsFromMemory(const unsigned char* data, std::size_t size, const std::string& name,
                             const Region& region, const ReadLimits& limits)
{
    const std::unique_ptr<ByteSource> source = openMemory(data, size, name);
    return readFrom(*source, region, limits, Channels::Keep, Notice{});
}

namespace {

void streamFrom(ByteSource& source, RowTarget& target, Channels channels, const Notice& notice)
{
    ReadLimits limits;
    limits.maxSide = kMaxSide;
    RowSink sink(source.name(), Region{}, limits, false, channels, &target);
    decodeWithNotice(source, sink, notice);
}

}  // namespace

void streamImage(const std::string& path, RowTarget& target, Channels channels, const Notice& notice)
{
    const std::unique_ptr<ByteSource> source = openFile(path);
    streamFrom(*source, target, channels, notice);
}

void streamImageFromMemory(const unsigned char* data, std::size_t size, const std::string& name, RowTarget& target,
                           Channels channels)
{
    const std::unique_ptr<ByteSource> source = openMemory(data, size, name);
    streamFrom(*source, target, channels, Notice{});
}

// ---------------------------------------------------------------- writing

ImageWriter::ImageWriter(const std::string& path, Format format, const ImageInfo& info, const WriteOptions& options)
    : path_(path), height_(info.height)
{
    file_ = std::make_unique<TemporaryFile>(path);
    sink_ = fileSink(file_->file(), path);
    encoder_ = encoderFor(*sink_, format, info, options);
}

ImageWriter::~ImageWriter() = default;

void ImageWriter::row(const void* samples)
{
    if (rows_ >= height_)
        fail(path_, "more rows written than the image has");
    encoder_->row(samples);
    ++rows_;
}

void ImageWriter::commit()
{
    if (rows_ != height_)
        fail(path_, "only " + std::to_string(rows_) + " of " + std::to_string(height_) + " rows written");
    encoder_->finish();
    encoder_.reset();
    sink_.reset();
    file_->commit();
}

std::vector<unsigned char> encodeImage(const std::string& path, const Image& image, Format format,
                                       const WriteOptions& options)
{
    std::vector<unsigned char> bytes;
    const std::unique_ptr<ByteSink> sink = memorySink(bytes, path);
    {
        const std::unique_ptr<Encoder> encoder = encoderFor(*sink, format, shapeOf(image), options);
        interleavedRows(image, [&](const void* row) { encoder->row(row); });
        encoder->finish();
    }
    return bytes;
}

std::vector<unsigned char> encodeImage(const std::string& path, const GreyImage& image, Format format)
{
    return encodeImage(path, fromGrey(image), format);
}

void writeFileAtomically(const std::string& path, const std::vector<unsigned char>& bytes)
{
    TemporaryFile file(path);
    if (std::fwrite(bytes.data(), 1, bytes.size(), file.file()) != bytes.size())
        fail(path, std::string("write failed: ") + std::strerror(errno));
    file.commit();
}

void writeImage(const std::string& path, const Image& image, Format format, const WriteOptions& options)
{
    ImageWriter writer(path, format, shapeOf(image), options);
    interleavedRows(image, [&](const void* row) { writer.row(row); });
    writer.commit();
}

void writeImage(const std::string& path, const GreyImage& image, Format format)
{
    writeImage(path, fromGrey(image), format);
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

Image fromGrey(GreyImage grey)
{
    Image image;
    image.planes.push_back(std::move(grey));
    return image;
}

}  // namespace kxio
