// TIFF reading and writing through libtiff, over our own byte sources and
// sinks (no file handles of libtiff's own). Reads 8- and 16-bit unsigned
// images in strips or tiles: grey or RGB, each with or without alpha (other
// extra samples dropped). Writes the same in strips, row by row, as BigTIFF
// when the pixels alone come near 4 GiB.
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

// ---- writing: libtiff's client procedures over a ByteSink

tsize_t sinkRead(thandle_t h, tdata_t data, tsize_t size)
{
    return static_cast<tsize_t>(static_cast<ByteSink*>(h)->read(data, static_cast<std::size_t>(size)));
}

tsize_t sinkWrite(thandle_t h, tdata_t data, tsize_t size)
{
    return static_cast<ByteSink*>(h)->write(data, static_cast<std::size_t>(size)) ? size : -1;
}

toff_t sinkSeek(thandle_t h, toff_t offset, int whence)
{
    auto* sink = static_cast<ByteSink*>(h);
    std::uint64_t to = offset;
    if (whence == SEEK_CUR)
        to = sink->tell() + offset;
    else if (whence == SEEK_END)
        to = sink->size() + offset;
    if (!sink->seek(to))
        return static_cast<toff_t>(-1);
    return to;
}

toff_t sinkSize(thandle_t h) { return static_cast<ByteSink*>(h)->size(); }

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

// Picks the samples kept of each pixel (grey or RGB, then alpha when the
// file has it) and inverts a white-is-zero grey.
template <typename S>
void pickSamples(const S* samples, long count, int perPixel, const std::vector<int>& kept, bool inverted, S* out)
{
    const int n = static_cast<int>(kept.size());
    for (long i = 0; i < count; ++i) {
        const S* p = samples + i * perPixel;
        for (int c = 0; c < n; ++c)
            out[i * n + c] = p[kept[static_cast<std::size_t>(c)]];
        if (inverted)
            out[i * n] = static_cast<S>((sizeof(S) == 1 ? 255u : 65535u) - out[i * n]);
    }
}

bool isAlpha(uint16_t extra) { return extra == EXTRASAMPLE_ASSOCALPHA || extra == EXTRASAMPLE_UNASSALPHA; }

}  // namespace

// The largest tile read: 64 MiB (a 2048 x 2048 tile of four 16-bit samples
// is 32 MiB).
constexpr std::uint64_t kMaxTileBytes = std::uint64_t(64) << 20;

void readTiff(ByteSource& source, RowSink& sink)
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
    // The samples kept: grey or red, green, blue; then the first extra
    // sample when it is alpha.
    std::vector<int> kept = colour ? std::vector<int>{0, 1, 2} : std::vector<int>{0};
    uint16_t extraCount = 0;
    uint16_t* extras = nullptr;
    if (TIFFGetField(t, TIFFTAG_EXTRASAMPLES, &extraCount, &extras) && extraCount > 0 && extras &&
        static_cast<int>(kept.size()) < samplesPerPixel && isAlpha(extras[0]))
        kept.push_back(static_cast<int>(kept.size()));
    const int channels = static_cast<int>(kept.size());
    const int bits = bitsPerSample;
    sink.begin(static_cast<long>(width), static_cast<long>(height), bits, channels, Format::Tiff);

    const long w = static_cast<long>(width);
    const int bytes = bits / 8;
    std::vector<unsigned char> picked(static_cast<std::size_t>(w) * channels * bytes);
    auto deliver = [&](long y, long x, long count, const unsigned char* samples) {
        if (bits == 8) {
            pickSamples(samples, count, samplesPerPixel, kept, inverted, picked.data());
            sink.put(y, x, count, picked.data());
        } else {
            auto* picked16 = reinterpret_cast<unsigned short*>(picked.data());
            pickSamples(reinterpret_cast<const unsigned short*>(samples), count, samplesPerPixel, kept, inverted,
                        picked16);
            sink.put(y, x, count, picked16);
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
        const std::size_t pixelBytes = static_cast<std::size_t>(samplesPerPixel) * bytes;
        const std::uint64_t expected = static_cast<std::uint64_t>(tileWidth) * tileHeight * pixelBytes;
        if (tileBytes <= 0 || static_cast<std::uint64_t>(tileBytes) < expected ||
            static_cast<std::uint64_t>(tileBytes) > kMaxTileBytes)
            corrupt("bad tile size");
        std::vector<unsigned char> tile(static_cast<std::size_t>(tileBytes));
        // One row of tiles, as whole rows of the columns wanted, so that rows
        // leave in order.
        const long tx0 = sink.firstColumn() / tileWidth * tileWidth;
        const long bandWidth = std::min<long>(w, (sink.endColumn() + tileWidth - 1) / tileWidth * tileWidth) - tx0;
        if (static_cast<std::uint64_t>(bandWidth) * tileHeight * pixelBytes > 4 * kMaxTileBytes)
            fail(name, "TIFF tiles too tall for an image this wide: a row of them would take more than 256 MiB");
        std::vector<unsigned char> band(static_cast<std::size_t>(bandWidth) * tileHeight * pixelBytes);
        const long ty0 = sink.firstRow() / tileHeight * tileHeight;
        for (long ty = ty0; ty < sink.endRow(); ty += tileHeight) {
            const long rows = std::min<long>(tileHeight, sink.endRow() - ty);
            for (long tx = tx0; tx < tx0 + bandWidth; tx += tileWidth) {
                if (TIFFReadTile(t, tile.data(), static_cast<uint32_t>(tx), static_cast<uint32_t>(ty), 0, 0) < 0)
                    corrupt("cannot read a tile");
                const long count = std::min<long>(tileWidth, w - tx);
                for (long row = 0; row < rows; ++row)
                    std::memcpy(band.data() + (static_cast<std::size_t>(row) * bandWidth + (tx - tx0)) * pixelBytes,
                                tile.data() + static_cast<std::size_t>(row) * tileWidth * pixelBytes,
                                static_cast<std::size_t>(count) * pixelBytes);
            }
            for (long row = 0; row < rows; ++row)
                deliver(ty + row, tx0, bandWidth, band.data() + static_cast<std::size_t>(row) * bandWidth * pixelBytes);
        }
    } else {
        const tmsize_t lineBytes = TIFFScanlineSize(t);
        if (lineBytes <= 0 || static_cast<std::uint64_t>(lineBytes) <
                                  static_cast<std::uint64_t>(w) * samplesPerPixel * bytes)
            corrupt("bad row size");
        std::vector<unsigned char> line(static_cast<std::size_t>(lineBytes));
        for (long y = 0; y < sink.endRow(); ++y) {
            if (TIFFReadScanline(t, line.data(), static_cast<uint32_t>(y), 0) < 0)
                corrupt("cannot read a row");
            if (y >= sink.firstRow())
                deliver(y, 0, w, line.data());
        }
    }
}

namespace {

// Pixels beyond this many bytes are written as BigTIFF: classic TIFF's
// offsets end at 4 GiB, and compression is not counted on.
constexpr std::uint64_t kBigTiffFrom = (std::uint64_t(1) << 32) - (std::uint64_t(64) << 20);

class TiffEncoder : public Encoder {
public:
    TiffEncoder(ByteSink& sink, const ImageInfo& info)
        : info_(info),
          tiff_(sink.name(), bigTiff(info) ? "w8" : "w", "TIFF encoding failed: ", &sink, sinkRead, sinkWrite,
                sinkSeek, sinkSize)
    {
        if (!tiff_.get())
            tiff_.fail("cannot start");
        TIFF* t = tiff_.get();
        const std::size_t rowBytes = static_cast<std::size_t>(info.width) * info.channels * (info.bits / 8);
        const bool colour = info.channels >= 3;
        const uint32_t rowsPerStrip = static_cast<uint32_t>(std::max<std::size_t>(1, 65536 / rowBytes));
        TIFFSetField(t, TIFFTAG_IMAGEWIDTH, static_cast<uint32_t>(info.width));
        TIFFSetField(t, TIFFTAG_IMAGELENGTH, static_cast<uint32_t>(info.height));
        TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, static_cast<uint16_t>(info.bits));
        TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, static_cast<uint16_t>(info.channels));
        TIFFSetField(t, TIFFTAG_SAMPLEFORMAT, static_cast<uint16_t>(SAMPLEFORMAT_UINT));
        TIFFSetField(t, TIFFTAG_PHOTOMETRIC,
                     static_cast<uint16_t>(colour ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK));
        if (info.channels == 2 || info.channels == 4) {
            uint16_t alpha = EXTRASAMPLE_UNASSALPHA;
            TIFFSetField(t, TIFFTAG_EXTRASAMPLES, static_cast<uint16_t>(1), &alpha);
        }
        TIFFSetField(t, TIFFTAG_PLANARCONFIG, static_cast<uint16_t>(PLANARCONFIG_CONTIG));
        TIFFSetField(t, TIFFTAG_COMPRESSION, static_cast<uint16_t>(COMPRESSION_ADOBE_DEFLATE));
        TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, rowsPerStrip);
        row_.resize(rowBytes);
    }

    void row(const void* samples) override
    {
        // libtiff may change the row it is given (byte swapping): a copy.
        std::memcpy(row_.data(), samples, row_.size());
        if (TIFFWriteScanline(tiff_.get(), row_.data(), static_cast<uint32_t>(y_++), 0) < 0)
            tiff_.fail("cannot write a row");
    }

    void finish() override
    {
        if (!tiff_.close())
            tiff_.fail("cannot finish the file");
    }

private:
    static bool bigTiff(const ImageInfo& info)
    {
        return static_cast<std::uint64_t>(info.width) * info.height * info.channels * (info.bits / 8) >= kBigTiffFrom;
    }

    ImageInfo info_;
    Session tiff_;
    std::vector<unsigned char> row_;
    long y_ = 0;
};

}  // namespace

std::unique_ptr<Encoder> tiffEncoder(ByteSink& sink, const ImageInfo& info)
{
    return std::make_unique<TiffEncoder>(sink, info);
}

}  // namespace detail

bool tiffSupported() { return true; }

}  // namespace kxio
