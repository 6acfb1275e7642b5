// PNG reading and writing through libpng's classic interface, with our own
// read and write callbacks over byte sources and sinks. Grey, grey and
// alpha, RGB and RGBA are read as they are (palettes expanded, transparency
// as alpha) and written row by row.
//
// libpng reports errors by longjmp. Every function that calls setjmp below
// holds only trivially destructible locals, the callbacks catch everything
// before they call png_error, and all C++ objects (buffers, strings) live in
// the callers, outside the jump's reach.
#include "image_detail.h"

#include <png.h>

#include <csetjmp>
#include <cstring>

namespace kxio {
namespace detail {

namespace {

struct ErrorSink {
    char message[256];
};

void onError(png_structp png, png_const_charp text)
{
    auto* sink = static_cast<ErrorSink*>(png_get_error_ptr(png));
    std::snprintf(sink->message, sizeof sink->message, "%s", text);
    png_longjmp(png, 1);
}

void onWarning(png_structp, png_const_charp) {}

void readBytes(png_structp png, png_bytep data, png_size_t length)
{
    auto* source = static_cast<ByteSource*>(png_get_io_ptr(png));
    if (source->read(data, length) != length)
        png_error(png, "truncated file");
}

void writeBytes(png_structp png, png_bytep data, png_size_t length)
{
    auto* sink = static_cast<ByteSink*>(png_get_io_ptr(png));
    if (!sink->write(data, length))
        png_error(png, "write failed");
}

void flushBytes(png_structp) {}

struct PngHeader {
    png_uint_32 width;
    png_uint_32 height;
    int bitDepth;
    int colorType;
    int interlace;
    int channels;   // after the transformations
};

// Reads the header only.
bool readHeader(png_structp png, png_infop info, PngHeader* header)
{
    if (setjmp(png_jmpbuf(png)))
        return false;
    png_read_info(png, info);
    png_get_IHDR(png, info, &header->width, &header->height, &header->bitDepth, &header->colorType,
                 &header->interlace, nullptr, nullptr);
    return true;
}

// Sets the transformations to 8- or 16-bit samples of grey, grey and alpha,
// RGB or RGBA.
bool setTransforms(png_structp png, png_infop info, PngHeader* header)
{
    if (setjmp(png_jmpbuf(png)))
        return false;
    if (header->colorType == PNG_COLOR_TYPE_PALETTE)
        png_set_palette_to_rgb(png);
    if (header->colorType == PNG_COLOR_TYPE_GRAY && header->bitDepth < 8)
        png_set_expand_gray_1_2_4_to_8(png);
    if (png_get_valid(png, info, PNG_INFO_tRNS))
        png_set_tRNS_to_alpha(png);
    if (header->bitDepth == 16)
        png_set_swap(png);   // host (little-endian) order
    if (header->interlace != PNG_INTERLACE_NONE)
        png_set_interlace_handling(png);
    png_read_update_info(png, info);
    header->channels = png_get_channels(png, info);
    return true;
}

bool readRow(png_structp png, png_bytep row)
{
    if (setjmp(png_jmpbuf(png)))
        return false;
    png_read_row(png, row, nullptr);
    return true;
}

bool readEnd(png_structp png, png_infop info)
{
    if (setjmp(png_jmpbuf(png)))
        return false;
    png_read_end(png, info);
    return true;
}

bool readAllRows(png_structp png, png_bytepp rows)
{
    if (setjmp(png_jmpbuf(png)))
        return false;
    png_read_image(png, rows);
    return true;
}

bool startWriting(png_structp png, png_infop info, ByteSink* sink, const ImageInfo* image)
{
    static const int kColourTypes[] = {PNG_COLOR_TYPE_GRAY, PNG_COLOR_TYPE_GRAY_ALPHA, PNG_COLOR_TYPE_RGB,
                                       PNG_COLOR_TYPE_RGB_ALPHA};
    if (setjmp(png_jmpbuf(png)))
        return false;
    png_set_write_fn(png, sink, writeBytes, flushBytes);
    png_set_IHDR(png, info, static_cast<png_uint_32>(image->width), static_cast<png_uint_32>(image->height),
                 image->bits, kColourTypes[image->channels - 1], PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    if (image->bits == 16)
        png_set_swap(png);
    return true;
}

bool writeRow(png_structp png, png_const_bytep row)
{
    if (setjmp(png_jmpbuf(png)))
        return false;
    png_write_row(png, row);
    return true;
}

bool endWriting(png_structp png, png_infop info)
{
    if (setjmp(png_jmpbuf(png)))
        return false;
    png_write_end(png, info);
    return true;
}

// libpng's read or write structure with its info, destroyed together.
template <bool Writing>
class PngStruct {
public:
    explicit PngStruct(ErrorSink* sink)
        : png_(Writing ? png_create_write_struct(PNG_LIBPNG_VER_STRING, sink, onError, onWarning)
                       : png_create_read_struct(PNG_LIBPNG_VER_STRING, sink, onError, onWarning)),
          info_(png_ ? png_create_info_struct(png_) : nullptr)
    {
    }
    ~PngStruct()
    {
        if (Writing)
            png_destroy_write_struct(&png_, &info_);
        else
            png_destroy_read_struct(&png_, &info_, nullptr);
    }
    PngStruct(const PngStruct&) = delete;
    PngStruct& operator=(const PngStruct&) = delete;
    png_structp png() const { return png_; }
    png_infop info() const { return info_; }

private:
    png_structp png_;
    png_infop info_;
};

using ReadStruct = PngStruct<false>;
using WriteStruct = PngStruct<true>;

void deliver(RowSink& sink, int bits, long y, long width, const unsigned char* row)
{
    if (bits == 8)
        sink.put(y, 0, width, row);
    else
        sink.put(y, 0, width, reinterpret_cast<const unsigned short*>(row));
}

}  // namespace

void readPng(ByteSource& source, RowSink& sink)
{
    const std::string& name = source.name();
    ErrorSink errors{};
    ReadStruct reader(&errors);
    if (!reader.png() || !reader.info())
        fail(name, "out of memory");
    png_set_read_fn(reader.png(), &source, readBytes);
    // Sizes beyond the tool's are refused by libpng itself, before it reads
    // any image data.
    png_set_user_limits(reader.png(), kMaxSide, kMaxSide);
    png_set_chunk_malloc_max(reader.png(), 8 * 1024 * 1024);
    PngHeader header{};
    if (!readHeader(reader.png(), reader.info(), &header))
        fail(name, std::string("corrupt PNG: ") + errors.message);
    const int bits = header.bitDepth == 16 ? 16 : 8;
    if (!setTransforms(reader.png(), reader.info(), &header))
        fail(name, std::string("corrupt PNG: ") + errors.message);
    if (header.channels < 1 || header.channels > 4)
        fail(name, "unsupported PNG layout");
    sink.begin(static_cast<long>(header.width), static_cast<long>(header.height), bits, header.channels,
               Format::Png);
    const std::size_t rowBytes = png_get_rowbytes(reader.png(), reader.info());
    if (rowBytes != header.width * static_cast<std::size_t>(bits / 8) * header.channels)
        fail(name, "unsupported PNG layout");
    const long width = static_cast<long>(header.width);

    if (header.interlace == PNG_INTERLACE_NONE) {
        // Row by row, stopping after the last row wanted.
        std::vector<unsigned char> row(rowBytes);
        for (long y = 0; y < sink.endRow(); ++y) {
            if (!readRow(reader.png(), row.data()))
                fail(name, std::string("corrupt PNG: ") + errors.message);
            deliver(sink, bits, y, width, row.data());
        }
    } else {
        // Interlaced images need every pass in memory: only whole images
        // within the limit, never a part of a large one.
        if (header.width > static_cast<png_uint_32>(kTransformMaxSide) ||
            header.height > static_cast<png_uint_32>(kTransformMaxSide))
            fail(name, "interlaced PNG larger than " + std::to_string(kTransformMaxSide) +
                           " pixels in a side; save it without interlacing to read a part of it");
        std::vector<unsigned char> pixels(rowBytes * header.height);
        std::vector<png_bytep> rows(header.height);
        for (png_uint_32 y = 0; y < header.height; ++y)
            rows[y] = pixels.data() + y * rowBytes;
        if (!readAllRows(reader.png(), rows.data()))
            fail(name, std::string("corrupt PNG: ") + errors.message);
        for (long y = sink.firstRow(); y < sink.endRow(); ++y) {
            deliver(sink, bits, y, width, rows[y]);
        }
    }
    // A whole image is checked to its end (a cut file fails here); a region
    // read stops after its last row.
    if (sink.endRow() == static_cast<long>(header.height) && !readEnd(reader.png(), reader.info()))
        fail(name, std::string("corrupt PNG: ") + errors.message);
}

namespace {

class PngEncoder : public Encoder {
public:
    PngEncoder(ByteSink& sink, const ImageInfo& info) : sink_(sink), errors_{}, writer_(&errors_)
    {
        if (!writer_.png() || !writer_.info())
            fail(sink.name(), "out of memory");
        if (!startWriting(writer_.png(), writer_.info(), &sink_, &info))
            failed();
    }
    void row(const void* samples) override
    {
        if (!writeRow(writer_.png(), static_cast<png_const_bytep>(samples)))
            failed();
    }
    void finish() override
    {
        if (!endWriting(writer_.png(), writer_.info()))
            failed();
    }

private:
    [[noreturn]] void failed() { fail(sink_.name(), std::string("PNG encoding failed: ") + errors_.message); }

    ByteSink& sink_;
    ErrorSink errors_;
    WriteStruct writer_;
};

}  // namespace

std::unique_ptr<Encoder> pngEncoder(ByteSink& sink, const ImageInfo& info)
{
    return std::make_unique<PngEncoder>(sink, info);
}

}  // namespace detail

bool pngSupported() { return true; }

}  // namespace kxio
