// TIFF reading and writing through libtiff, over our own byte sources (no
// file handles of libtiff's own). Reads 8- and 16-bit unsigned images in
// strips or tiles, one or more samples per pixel (colour converted to grey,
// extra samples such as alpha dropped); writes 8- and 16-bit grey in strips.
//
// libtiff reports errors through the handlers given at open time; their text
// becomes the ImageError's message. Warnings are ignored.
#include "image_detail.h"

#include <tiffio.h>

#include <cstdarg>
#include <cstring>

namespace kxio {
namespace detail {

namespace {

struct Messages {
    std::string error;
};

int onError(TIFF*, void* user, const char* module, const char* format, va_list args)
{
    auto* messages = static_cast<Messages*>(user);
    if (messages && messages->error.empty()) {
        char text[256];
        std::vsnprintf(text, sizeof text, format, args);
        messages->error = (module && *module ? std::string(module) + ": " : std::string()) + text;
    }
    return 1;
}

int onWarning(TIFF*, void*, const char*, const char*, va_list) { return 1; }

// Options shared by reading and writing: our handlers, a bound on single
// allocations.
class OpenOptions {
public:
    explicit OpenOptions(Messages* messages) : options_(TIFFOpenOptionsAlloc())
    {
        if (!options_)
            throw ImageError("out of memory");
        TIFFOpenOptionsSetErrorHandlerExtR(options_, onError, messages);
        TIFFOpenOptionsSetWarningHandlerExtR(options_, onWarning, nullptr);
        TIFFOpenOptionsSetMaxSingleMemAlloc(options_, 256 * 1024 * 1024);
    }
    ~OpenOptions() { TIFFOpenOptionsFree(options_); }
    OpenOptions(const OpenOptions&) = delete;
    OpenOptions& operator=(const OpenOptions&) = delete;
    TIFFOpenOptions* get() const { return options_; }

private:
    TIFFOpenOptions* options_;
};

class Handle {
public:
    explicit Handle(TIFF* tiff) : tiff_(tiff) {}
    ~Handle()
    {
        if (tiff_)
            TIFFClose(tiff_);
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    TIFF* get() const { return tiff_; }
    // Closing flushes a file being written; the result says whether it worked.
    bool close()
    {
        TIFF* tiff = tiff_;
        tiff_ = nullptr;
        if (!tiff)
            return false;
        const bool flushed = TIFFFlush(tiff) == 1;
        TIFFClose(tiff);
        return flushed;
    }

private:
    TIFF* tiff_;
};

// ---- reading: libtiff's client procedures over a ByteSource

tsize_t sourceRead(thandle_t h, tdata_t data, tsize_t size)
{
    return static_cast<tsize_t>(static_cast<ByteSource*>(h)->read(data, static_cast<std::size_t>(size)));
}

tsize_t sourceWrite(thandle_t, tdata_t, tsize_t) { return -1; }

toff_t sourceSeek(thandle_t h, toff_t offset, int whence)
{
    auto* source = static_cast<ByteSource*>(h);
    std::uint64_t to = offset;
    if (whence == SEEK_CUR)
        to = source->tell() + offset;
    else if (whence == SEEK_END)
        to = source->size() + offset;
    if (!source->seek(to))
        return static_cast<toff_t>(-1);
    return to;
}

int sourceClose(thandle_t) { return 0; }
toff_t sourceSize(thandle_t h) { return static_cast<ByteSource*>(h)->size(); }
int noMap(thandle_t, tdata_t*, toff_t*) { return 0; }
void noUnmap(thandle_t, tdata_t, toff_t) {}

// ---- writing: into a growing vector

struct MemoryFile {
    std::vector<unsigned char> bytes;
    std::uint64_t position = 0;
};

tsize_t memoryRead(thandle_t h, tdata_t data, tsize_t size)
{
    auto* file = static_cast<MemoryFile*>(h);
    if (file->position >= file->bytes.size())
        return 0;
    const std::size_t count = std::min<std::size_t>(static_cast<std::size_t>(size), file->bytes.size() - file->position);
    std::memcpy(data, file->bytes.data() + file->position, count);
    file->position += count;
    return static_cast<tsize_t>(count);
}

tsize_t memoryWrite(thandle_t h, tdata_t data, tsize_t size)
{
    auto* file = static_cast<MemoryFile*>(h);
    try {
        const std::size_t end = static_cast<std::size_t>(file->position) + static_cast<std::size_t>(size);
        if (end > file->bytes.size())
            file->bytes.resize(end);
        std::memcpy(file->bytes.data() + file->position, data, static_cast<std::size_t>(size));
        file->position = end;
        return size;
    } catch (...) {
        return -1;
    }
}

toff_t memorySeek(thandle_t h, toff_t offset, int whence)
{
    auto* file = static_cast<MemoryFile*>(h);
    if (whence == SEEK_CUR)
        offset += file->position;
    else if (whence == SEEK_END)
        offset += file->bytes.size();
    file->position = offset;
    return offset;
}

toff_t memorySize(thandle_t h) { return static_cast<MemoryFile*>(h)->bytes.size(); }

// A TIFF opened over client procedures, with what libtiff says about it:
// fail() gives libtiff's first error, or else `what`, after `failure` and the
// file's name.
class Session {
public:
    Session(const std::string& name, const char* mode, const char* failure, thandle_t client, TIFFReadWriteProc read,
            TIFFReadWriteProc write, TIFFSeekProc seek, TIFFSizeProc size)
        : name_(name), failure_(failure), options_(&messages_),
          handle_(TIFFClientOpenExt(name.c_str(), mode, client, read, write, seek, sourceClose, size, noMap, noUnmap,
                                    options_.get()))
    {
    }
    TIFF* get() const { return handle_.get(); }
    bool close() { return handle_.close(); }
    [[noreturn]] void fail(const char* what) const
    {
        detail::fail(name_, failure_ + (messages_.error.empty() ? what : messages_.error));
    }

private:
    std::string name_;
    std::string failure_;
    Messages messages_;   // before the options and the handle, which report into it
    OpenOptions options_;
    Handle handle_;
};

// One row of samples (8- or 16-bit) to grey.
template <typename S>
void toGrey(const S* samples, long count, int perPixel, bool colour, bool inverted, S* grey)
{
    const unsigned top = sizeof(S) == 1 ? 255u : 65535u;
    for (long i = 0; i < count; ++i) {
        const S* p = samples + i * perPixel;
        unsigned v = colour ? greyOf(p[0], p[1], p[2]) : p[0];
        if (inverted)
            v = top - v;
        grey[i] = static_cast<S>(v);
    }
}

}  // namespace

// The largest tile read: 64 MiB (a 2048 x 2048 tile of four 16-bit samples
// is 32 MiB).
constexpr std::uint64_t kMaxTileBytes = std::uint64_t(64) << 20;

void readTiff(ByteSource& source, RowSink& sink, const Notice& notice)
{
    const std::string& name = source.name();
    Session tiff(name, "rm", "corrupt TIFF: ", &source, sourceRead, sourceWrite, sourceSeek, sourceSize);
    auto corrupt = [&](const char* what) { tiff.fail(what); };
    if (!tiff.get())
        corrupt("cannot read the header");
    TIFF* t = tiff.get();
    uint32_t width = 0, height = 0;
    uint16_t bitsPerSample = 1, samplesPerPixel = 1, sampleFormat = SAMPLEFORMAT_UINT, planar = PLANARCONFIG_CONTIG,
             photometric = PHOTOMETRIC_MINISBLACK;
    if (!TIFFGetField(t, TIFFTAG_IMAGEWIDTH, &width) || !TIFFGetField(t, TIFFTAG_IMAGELENGTH, &height))
        corrupt("no image size");
    TIFFGetFieldDefaulted(t, TIFFTAG_BITSPERSAMPLE, &bitsPerSample);
    TIFFGetFieldDefaulted(t, TIFFTAG_SAMPLESPERPIXEL, &samplesPerPixel);
    TIFFGetFieldDefaulted(t, TIFFTAG_SAMPLEFORMAT, &sampleFormat);
    TIFFGetFieldDefaulted(t, TIFFTAG_PLANARCONFIG, &planar);
    if (!TIFFGetField(t, TIFFTAG_PHOTOMETRIC, &photometric))
        photometric = samplesPerPixel >= 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK;
    if (width > static_cast<uint32_t>(kMaxSide) || height > static_cast<uint32_t>(kMaxSide) || width == 0 ||
        height == 0)
        fail(name, "invalid image size " + std::to_string(width) + " x " + std::to_string(height) +
                       " (sides from 1 to " + std::to_string(kMaxSide) + ")");
    if ((bitsPerSample != 8 && bitsPerSample != 16) || sampleFormat != SAMPLEFORMAT_UINT)
        fail(name, "unsupported TIFF: " + std::to_string(bitsPerSample) +
                       "-bit samples (8- and 16-bit unsigned integers only)");
    const bool colour = photometric == PHOTOMETRIC_RGB && samplesPerPixel >= 3;
    if (!colour && photometric != PHOTOMETRIC_MINISBLACK && photometric != PHOTOMETRIC_MINISWHITE)
        fail(name, "unsupported TIFF photometric interpretation " + std::to_string(photometric) +
                       " (grey or RGB only)");
    if (samplesPerPixel < 1 || samplesPerPixel > 16 || (planar != PLANARCONFIG_CONTIG && samplesPerPixel > 1))
        fail(name, "unsupported TIFF sample layout (interleaved samples only)");
    const bool inverted = photometric == PHOTOMETRIC_MINISWHITE;
    const int bits = bitsPerSample;
    sink.begin(static_cast<long>(width), static_cast<long>(height), bits, Format::Tiff);

    const long w = static_cast<long>(width);
    const int bytes = bits / 8;
    auto deliver = [&](long y, long x, long count, const unsigned char* samples, std::vector<unsigned char>& grey) {
        if (bits == 8) {
            toGrey(samples, count, samplesPerPixel, colour, inverted, grey.data());
            sink.put(y, x, count, grey.data());
        } else {
            auto* grey16 = reinterpret_cast<unsigned short*>(grey.data());
            toGrey(reinterpret_cast<const unsigned short*>(samples), count, samplesPerPixel, colour, inverted, grey16);
            sink.put(y, x, count, grey16);
        }
    };

    if (TIFFIsTiled(t)) {
        uint32_t tileWidth = 0, tileHeight = 0;
        TIFFGetField(t, TIFFTAG_TILEWIDTH, &tileWidth);
        TIFFGetField(t, TIFFTAG_TILELENGTH, &tileHeight);
        // Tiles are multiples of 16 pixels and never need to reach beyond the
        // image rounded up to that; larger ones, or one tile of more than
        // kMaxTileBytes, would only make us allocate what the file claims.
        const auto roundUp16 = [](uint32_t v) { return (static_cast<std::uint64_t>(v) + 15) / 16 * 16; };
        if (tileWidth == 0 || tileHeight == 0 || tileWidth > roundUp16(width) || tileHeight > roundUp16(height))
            corrupt("bad tile size");
        const tmsize_t tileBytes = TIFFTileSize(t);
        const std::uint64_t expected = static_cast<std::uint64_t>(tileWidth) * tileHeight * samplesPerPixel * bytes;
        if (tileBytes <= 0 || static_cast<std::uint64_t>(tileBytes) < expected ||
            static_cast<std::uint64_t>(tileBytes) > kMaxTileBytes)
            corrupt("bad tile size");
        std::vector<unsigned char> tile(static_cast<std::size_t>(tileBytes));
        std::vector<unsigned char> grey(static_cast<std::size_t>(tileWidth) * 2);
        // Only the tiles that meet the region.
        const long tx0 = sink.firstColumn() / tileWidth * tileWidth;
        const long ty0 = sink.firstRow() / tileHeight * tileHeight;
        for (long ty = ty0; ty < sink.endRow(); ty += tileHeight)
            for (long tx = tx0; tx < sink.endColumn(); tx += tileWidth) {
                if (TIFFReadTile(t, tile.data(), static_cast<uint32_t>(tx), static_cast<uint32_t>(ty), 0, 0) < 0)
                    corrupt("cannot read a tile");
                const long count = std::min<long>(tileWidth, w - tx);
                for (long row = 0; row < static_cast<long>(tileHeight) && ty + row < sink.endRow(); ++row)
                    deliver(ty + row, tx, count,
                            tile.data() + static_cast<std::size_t>(row) * tileWidth * samplesPerPixel * bytes, grey);
            }
    } else {
        const tmsize_t lineBytes = TIFFScanlineSize(t);
        if (lineBytes <= 0 || static_cast<std::uint64_t>(lineBytes) <
                                  static_cast<std::uint64_t>(w) * samplesPerPixel * bytes)
            corrupt("bad row size");
        std::vector<unsigned char> line(static_cast<std::size_t>(lineBytes));
        std::vector<unsigned char> grey(static_cast<std::size_t>(w) * 2);
        for (long y = 0; y < sink.endRow(); ++y) {
            if (TIFFReadScanline(t, line.data(), static_cast<uint32_t>(y), 0) < 0)
                corrupt("cannot read a row");
            if (y >= sink.firstRow())
                deliver(y, 0, w, line.data(), grey);
        }
    }
    if (samplesPerPixel > 1 && notice)
        notice(name + ": " + std::to_string(samplesPerPixel) + " samples per pixel converted to grey");
}

std::vector<unsigned char> encodeTiff(const std::string& path, const GreyImage& image)
{
    MemoryFile file;
    Session tiff(path, "w", "TIFF encoding failed: ", &file, memoryRead, memoryWrite, memorySeek, memorySize);
    auto failed = [&](const char* what) { tiff.fail(what); };
    if (!tiff.get())
        failed("cannot start");
    TIFF* t = tiff.get();
    const long w = image.width(), h = image.height();
    const int bytes = image.bits / 8;
    const uint32_t rowsPerStrip = static_cast<uint32_t>(std::max<long>(1, 65536 / (w * bytes)));
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, static_cast<uint32_t>(w));
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, static_cast<uint32_t>(h));
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, static_cast<uint16_t>(image.bits));
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, static_cast<uint16_t>(1));
    TIFFSetField(t, TIFFTAG_SAMPLEFORMAT, static_cast<uint16_t>(SAMPLEFORMAT_UINT));
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, static_cast<uint16_t>(PHOTOMETRIC_MINISBLACK));
    TIFFSetField(t, TIFFTAG_PLANARCONFIG, static_cast<uint16_t>(PLANARCONFIG_CONTIG));
    TIFFSetField(t, TIFFTAG_COMPRESSION, static_cast<uint16_t>(COMPRESSION_ADOBE_DEFLATE));
    TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, rowsPerStrip);
    std::vector<unsigned char> row(static_cast<std::size_t>(w) * bytes);
    for (long y = 0; y < h; ++y) {
        if (image.bits == 8)
            std::memcpy(row.data(), &image.pixels8(0, y), row.size());
        else
            std::memcpy(row.data(), &image.pixels16(0, y), row.size());
        if (TIFFWriteScanline(t, row.data(), static_cast<uint32_t>(y), 0) < 0)
            failed("cannot write a row");
    }
    if (!tiff.close())
        failed("cannot finish the file");
    return std::move(file.bytes);
}

}  // namespace detail

bool tiffSupported() { return true; }

}  // namespace kxio
