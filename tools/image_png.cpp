// PNG reading and writing through libpng's classic interface, with our own
// read and write callbacks (no FILE*, no temporary file).
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

struct WriteTarget {
    std::vector<unsigned char>* bytes;
    bool failed;
};

void writeBytes(png_structp png, png_bytep data, png_size_t length)
{
    auto* target = static_cast<WriteTarget*>(png_get_io_ptr(png));
    try {
        target->bytes->insert(target->bytes->end(), data, data + length);
    } catch (...) {
        target->failed = true;
    }
    if (target->failed)
        png_error(png, "out of memory");
}

void flushBytes(png_structp) {}

struct PngHeader {
    png_uint_32 width;
    png_uint_32 height;
    int bitDepth;
    int colorType;
    int interlace;
    bool converted;   // colour data turned into grey
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

// Sets the transformations to 8- or 16-bit grey.
bool setTransforms(png_structp png, png_infop info, PngHeader* header)
{
    if (setjmp(png_jmpbuf(png)))
        return false;
    header->converted = false;
    if (header->colorType == PNG_COLOR_TYPE_PALETTE)
        png_set_palette_to_rgb(png);
    if (header->colorType == PNG_COLOR_TYPE_GRAY && header->bitDepth < 8)
        png_set_expand_gray_1_2_4_to_8(png);
    if (png_get_valid(png, info, PNG_INFO_tRNS))
        png_set_tRNS_to_alpha(png);
    if (header->colorType & PNG_COLOR_MASK_ALPHA || png_get_valid(png, info, PNG_INFO_tRNS))
        png_set_strip_alpha(png);
    if (header->colorType & PNG_COLOR_MASK_COLOR) {
        png_set_rgb_to_gray_fixed(png, 1, -1, -1);
        header->converted = true;
    }
    if (header->bitDepth == 16)
        png_set_swap(png);   // host (little-endian) order
    if (header->interlace != PNG_INTERLACE_NONE)
        png_set_interlace_handling(png);
    png_read_update_info(png, info);
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

bool writeAll(png_structp png, png_infop info, WriteTarget* target, png_uint_32 width, png_uint_32 height, int bits,
              png_bytepp rows)
{
    if (setjmp(png_jmpbuf(png)))
        return false;
    png_set_write_fn(png, target, writeBytes, flushBytes);
    png_set_IHDR(png, info, width, height, bits, PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    if (bits == 16)
        png_set_swap(png);
    png_write_image(png, rows);
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

template <typename T>
void deliver(RowSink& sink, long y, long width, const unsigned char* row)
{
    sink.put(y, 0, width, reinterpret_cast<const T*>(row));
}

}  // namespace

void readPng(ByteSource& source, RowSink& sink, const Notice& notice)
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
    sink.begin(static_cast<long>(header.width), static_cast<long>(header.height), bits, Format::Png);
    if (!setTransforms(reader.png(), reader.info(), &header))
        fail(name, std::string("corrupt PNG: ") + errors.message);
    const std::size_t rowBytes = png_get_rowbytes(reader.png(), reader.info());
    if (rowBytes != header.width * static_cast<std::size_t>(bits / 8))
        fail(name, "unsupported PNG layout");
    const long width = static_cast<long>(header.width);

    if (header.interlace == PNG_INTERLACE_NONE) {
        // Row by row, stopping after the last row wanted.
        std::vector<unsigned char> row(rowBytes);
        for (long y = 0; y < sink.endRow(); ++y) {
            if (!readRow(reader.png(), row.data()))
                fail(name, std::string("corrupt PNG: ") + errors.message);
            if (bits == 8)
                deliver<unsigned char>(sink, y, width, row.data());
            else
                deliver<unsigned short>(sink, y, width, row.data());
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
            if (bits == 8)
                deliver<unsigned char>(sink, y, width, rows[y]);
            else
                deliver<unsigned short>(sink, y, width, rows[y]);
        }
    }
    // A whole image is checked to its end (a cut file fails here); a region
    // read stops after its last row.
    if (sink.endRow() == static_cast<long>(header.height) && !readEnd(reader.png(), reader.info()))
        fail(name, std::string("corrupt PNG: ") + errors.message);
    if (header.converted && notice)
        notice(name + ": colour image converted to grey");
}

std::vector<unsigned char> encodePng(const std::string& path, const GreyImage& image)
{
    const long w = image.width(), h = image.height();
    std::vector<png_bytep> rows(h);
    for (long y = 0; y < h; ++y) {
        // libpng only reads the rows.
        if (image.bits == 8)
            rows[y] = const_cast<png_bytep>(&image.pixels8(0, y));
        else
            rows[y] = reinterpret_cast<png_bytep>(const_cast<unsigned short*>(&image.pixels16(0, y)));
    }
    std::vector<unsigned char> bytes;
    WriteTarget target{&bytes, false};
    ErrorSink errors{};
    WriteStruct writer(&errors);
    const bool ok = writer.png() && writer.info() &&
                    writeAll(writer.png(), writer.info(), &target, static_cast<png_uint_32>(w),
                             static_cast<png_uint_32>(h), image.bits, rows.data());
    if (!ok)
        fail(path, std::string("PNG encoding failed: ") + errors.message);
    return bytes;
}

}  // namespace detail

bool pngSupported() { return true; }

}  // namespace kxio
