// PNG reading and writing through libpng's classic interface.
//
// libpng reports errors by longjmp. Every function that calls setjmp below
// holds only trivially destructible locals, and all C++ objects (buffers,
// strings) live in the callers, outside the jump's reach.
#include "image_io.h"

#include <png.h>

#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <vector>

namespace kxio {

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

struct PngHeader {
    png_uint_32 width;
    png_uint_32 height;
    int bitDepth;
    int colorType;
    bool converted;   // colour data turned into grey
};

// Reads the header and sets the transformations to 8- or 16-bit grey.
// Returns false with sink->message on failure.
bool readHeader(png_structp png, png_infop info, std::FILE* file, PngHeader* header)
{
    if (setjmp(png_jmpbuf(png)))
        return false;
    png_init_io(png, file);
    png_read_info(png, info);
    png_get_IHDR(png, info, &header->width, &header->height, &header->bitDepth, &header->colorType, nullptr,
                 nullptr, nullptr);
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
    png_read_update_info(png, info);
    return true;
}

bool readRows(png_structp png, png_infop info, png_bytepp rows)
{
    if (setjmp(png_jmpbuf(png)))
        return false;
    png_read_image(png, rows);
    png_read_end(png, info);
    return true;
}

bool writeAll(png_structp png, png_infop info, std::FILE* file, png_uint_32 width, png_uint_32 height, int bits,
              png_bytepp rows)
{
    if (setjmp(png_jmpbuf(png)))
        return false;
    png_init_io(png, file);
    png_set_IHDR(png, info, width, height, bits, PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    if (bits == 16)
        png_set_swap(png);
    png_write_image(png, rows);
    png_write_end(png, info);
    return true;
}

class File {
public:
    File(const char* path, const char* mode) : file_(std::fopen(path, mode)) {}
    ~File()
    {
        if (file_)
            std::fclose(file_);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    std::FILE* get() const { return file_; }

private:
    std::FILE* file_;
};

class ReadStruct {
public:
    explicit ReadStruct(ErrorSink* sink)
        : png_(png_create_read_struct(PNG_LIBPNG_VER_STRING, sink, onError, onWarning)),
          info_(png_ ? png_create_info_struct(png_) : nullptr)
    {
    }
    ~ReadStruct() { png_destroy_read_struct(&png_, &info_, nullptr); }
    ReadStruct(const ReadStruct&) = delete;
    ReadStruct& operator=(const ReadStruct&) = delete;
    png_structp png() const { return png_; }
    png_infop info() const { return info_; }

private:
    png_structp png_;
    png_infop info_;
};

class WriteStruct {
public:
    explicit WriteStruct(ErrorSink* sink)
        : png_(png_create_write_struct(PNG_LIBPNG_VER_STRING, sink, onError, onWarning)),
          info_(png_ ? png_create_info_struct(png_) : nullptr)
    {
    }
    ~WriteStruct() { png_destroy_write_struct(&png_, &info_); }
    WriteStruct(const WriteStruct&) = delete;
    WriteStruct& operator=(const WriteStruct&) = delete;
    png_structp png() const { return png_; }
    png_infop info() const { return info_; }

private:
    png_structp png_;
    png_infop info_;
};

}  // namespace

bool pngSupported() { return true; }

GreyImage readPng(const std::string& path, const std::function<void(const std::string&)>& notice)
{
    File file(path.c_str(), "rb");
    if (!file.get())
        throw ImageError(path + ": cannot open: " + std::strerror(errno));
    ErrorSink sink{};
    ReadStruct reader(&sink);
    if (!reader.png() || !reader.info())
        throw ImageError(path + ": out of memory");
    PngHeader header{};
    if (!readHeader(reader.png(), reader.info(), file.get(), &header))
        throw ImageError(path + ": corrupt PNG: " + sink.message);
    if (header.width < 1 || header.height < 1 || header.width > kMaxSide || header.height > kMaxSide)
        throw ImageError(path + ": invalid image size " + std::to_string(header.width) + " x " +
                         std::to_string(header.height));
    const int bits = header.bitDepth == 16 ? 16 : 8;
    const std::size_t rowBytes = png_get_rowbytes(reader.png(), reader.info());
    if (rowBytes != header.width * static_cast<std::size_t>(bits / 8))
        throw ImageError(path + ": unsupported PNG layout");
    std::vector<unsigned char> pixels(rowBytes * header.height);
    std::vector<png_bytep> rows(header.height);
    for (png_uint_32 y = 0; y < header.height; ++y)
        rows[y] = pixels.data() + y * rowBytes;
    if (!readRows(reader.png(), reader.info(), rows.data()))
        throw ImageError(path + ": corrupt PNG: " + sink.message);
    if (header.converted && notice)
        notice(path + ": colour image converted to grey");

    GreyImage image;
    image.bits = bits;
    const long w = header.width, h = header.height;
    if (bits == 8) {
        image.pixels8 = kxPelBuffer<unsigned char>(w, h);
        for (long y = 0; y < h; ++y)
            std::memcpy(&image.pixels8(0, y), rows[y], w);
    } else {
        image.pixels16 = kxPelBuffer<unsigned short>(w, h);
        for (long y = 0; y < h; ++y)
            std::memcpy(&image.pixels16(0, y), rows[y], 2 * w);
    }
    return image;
}

std::vector<unsigned char> encodePng(const std::string& path, const GreyImage& image)
{
    // libpng writes to a FILE*: encode into a temporary file in memory.
    const long w = image.width(), h = image.height();
    const int bytesPerPixel = image.bits / 8;
    std::vector<unsigned char> pixels(static_cast<std::size_t>(w) * h * bytesPerPixel);
    std::vector<png_bytep> rows(h);
    for (long y = 0; y < h; ++y) {
        rows[y] = pixels.data() + static_cast<std::size_t>(y) * w * bytesPerPixel;
        if (image.bits == 8)
            std::memcpy(rows[y], &image.pixels8(0, y), w);
        else
            std::memcpy(rows[y], &image.pixels16(0, y), 2 * w);
    }
    std::FILE* memory = std::tmpfile();
    if (!memory)
        throw ImageError(path + ": cannot create a temporary file");
    ErrorSink sink{};
    bool ok;
    {
        WriteStruct writer(&sink);
        ok = writer.png() && writer.info() &&
             writeAll(writer.png(), writer.info(), memory, static_cast<png_uint_32>(w), static_cast<png_uint_32>(h),
                      image.bits, rows.data());
    }
    std::vector<unsigned char> bytes;
    if (ok) {
        std::fflush(memory);
        std::rewind(memory);
        unsigned char chunk[65536];
        std::size_t got;
        while ((got = std::fread(chunk, 1, sizeof chunk, memory)) > 0)
            bytes.insert(bytes.end(), chunk, chunk + got);
    }
    std::fclose(memory);
    if (!ok)
        throw ImageError(path + ": PNG encoding failed: " + sink.message);
    return bytes;
}

}  // namespace kxio
