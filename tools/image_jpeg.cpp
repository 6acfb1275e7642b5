// JPEG reading and writing through libjpeg (libjpeg-turbo), over our own
// byte sources and sinks. Reads 8-bit grey and colour (YCbCr or RGB, given
// as RGB) and turns the image upright as its EXIF orientation says; writes
// 8-bit grey and RGB row by row.
//
// libjpeg reports errors through error_exit, which must not return: ours
// longjmps back. As in the PNG code, every function that calls setjmp holds
// only trivially destructible locals, and the callbacks own no C++ objects.
// Warnings (corrupt or missing data, which libjpeg would otherwise paper
// over with grey) are errors too.
#include "image_detail.h"

#include <jpeglib.h>

#include <jerror.h>

#include <algorithm>
#include <csetjmp>
#include <cstring>

namespace kxio {
namespace detail {

namespace {

struct ErrorManager {
    jpeg_error_mgr base;   // first: libjpeg sees only this part
    std::jmp_buf jump;
    char message[JMSG_LENGTH_MAX];
};

[[noreturn]] void onError(j_common_ptr info)
{
    auto* errors = reinterpret_cast<ErrorManager*>(info->err);
    (*info->err->format_message)(info, errors->message);
    std::longjmp(errors->jump, 1);
}

void onMessage(j_common_ptr info, int level)
{
    if (level < 0)   // a warning: the data is damaged
        onError(info);
}

// Beyond this many scans a progressive file is refused: each scan passes
// over the whole image, so a small file with thousands of scans would only
// burn time.
constexpr int kMaxScans = 1000;

void onProgress(j_common_ptr info)
{
    if (info->is_decompressor && reinterpret_cast<j_decompress_ptr>(info)->input_scan_number > kMaxScans) {
        std::snprintf(reinterpret_cast<ErrorManager*>(info->err)->message, JMSG_LENGTH_MAX,
                      "more than %d progressive scans", kMaxScans);
        std::longjmp(reinterpret_cast<ErrorManager*>(info->err)->jump, 1);
    }
}

// The memory libjpeg may take for its own buffers (a progressive image's
// coefficients): past it, it fails instead of allocating what a header
// claims.
constexpr long kMaxDecoderMemory = 512L << 20;

// ---- the source manager over a ByteSource

struct Source {
    jpeg_source_mgr base;   // first
    ByteSource* bytes;
    JOCTET buffer[65536];
};

void initSource(j_decompress_ptr) {}

boolean fillInput(j_decompress_ptr info)
{
    auto* source = reinterpret_cast<Source*>(info->src);
    const std::size_t got = source->bytes->read(source->buffer, sizeof source->buffer);
    if (got == 0)
        ERREXIT(info, JERR_INPUT_EOF);   // a cut file is an error, not grey
    source->base.next_input_byte = source->buffer;
    source->base.bytes_in_buffer = got;
    return TRUE;
}

void skipInput(j_decompress_ptr info, long count)
{
    auto* source = reinterpret_cast<Source*>(info->src);
    while (count > 0) {
        if (source->base.bytes_in_buffer == 0)
            fillInput(info);
        const std::size_t step = std::min<std::size_t>(static_cast<std::size_t>(count), source->base.bytes_in_buffer);
        source->base.next_input_byte += step;
        source->base.bytes_in_buffer -= step;
        count -= static_cast<long>(step);
    }
}

void termSource(j_decompress_ptr) {}

// ---- the destination manager over a ByteSink

struct Destination {
    jpeg_destination_mgr base;   // first
    ByteSink* bytes;
    JOCTET buffer[65536];
};

void initDestination(j_compress_ptr info)
{
    auto* destination = reinterpret_cast<Destination*>(info->dest);
    destination->base.next_output_byte = destination->buffer;
    destination->base.free_in_buffer = sizeof destination->buffer;
}

boolean emptyOutput(j_compress_ptr info)
{
    auto* destination = reinterpret_cast<Destination*>(info->dest);
    if (!destination->bytes->write(destination->buffer, sizeof destination->buffer))
        ERREXIT(info, JERR_FILE_WRITE);
    initDestination(info);
    return TRUE;
}

void termDestination(j_compress_ptr info)
{
    auto* destination = reinterpret_cast<Destination*>(info->dest);
    const std::size_t used = sizeof destination->buffer - destination->base.free_in_buffer;
    if (!destination->bytes->write(destination->buffer, used))
        ERREXIT(info, JERR_FILE_WRITE);
}

// ---- the steps of a read, each behind its own setjmp

bool readHeader(jpeg_decompress_struct* info, ErrorManager* errors)
{
    if (setjmp(errors->jump))
        return false;
    jpeg_save_markers(info, JPEG_APP0 + 1, 0xFFFF);
    jpeg_read_header(info, TRUE);
    return true;
}

bool startDecompress(jpeg_decompress_struct* info, ErrorManager* errors, J_COLOR_SPACE space)
{
    if (setjmp(errors->jump))
        return false;
    info->out_color_space = space;
    jpeg_start_decompress(info);
    return true;
}

bool readScanline(jpeg_decompress_struct* info, ErrorManager* errors, JSAMPROW row)
{
    if (setjmp(errors->jump))
        return false;
    JSAMPROW rows[1] = {row};
    if (jpeg_read_scanlines(info, rows, 1) != 1) {
        std::snprintf(errors->message, sizeof errors->message, "truncated image data");
        return false;
    }
    return true;
}

bool finishDecompress(jpeg_decompress_struct* info, ErrorManager* errors)
{
    if (setjmp(errors->jump))
        return false;
    jpeg_finish_decompress(info);
    return true;
}

// A decompressor, destroyed however the read ends.
class Decompressor {
public:
    explicit Decompressor(ByteSource& bytes)
    {
        std::memset(&info_, 0, sizeof info_);
        info_.err = jpeg_std_error(&errors_.base);
        errors_.base.error_exit = onError;
        errors_.base.emit_message = onMessage;
        errors_.message[0] = '\0';
        progress_.progress_monitor = onProgress;
        created_ = create(&info_, &errors_);
        if (!created_)
            return;
        info_.progress = &progress_;
        info_.mem->max_memory_to_use = kMaxDecoderMemory;
        source_ = std::make_unique<Source>();
        source_->bytes = &bytes;
        source_->base.init_source = initSource;
        source_->base.fill_input_buffer = fillInput;
        source_->base.skip_input_data = skipInput;
        source_->base.resync_to_restart = jpeg_resync_to_restart;
        source_->base.term_source = termSource;
        source_->base.bytes_in_buffer = 0;
        source_->base.next_input_byte = nullptr;
        info_.src = &source_->base;
    }
    ~Decompressor()
    {
        if (created_)
            jpeg_destroy_decompress(&info_);
    }
    Decompressor(const Decompressor&) = delete;
    Decompressor& operator=(const Decompressor&) = delete;

    bool created() const { return created_; }
    jpeg_decompress_struct* info() { return &info_; }
    ErrorManager* errors() { return &errors_; }
    const char* message() const { return errors_.message; }

private:
    static bool create(jpeg_decompress_struct* info, ErrorManager* errors)
    {
        if (setjmp(errors->jump))
            return false;
        jpeg_create_decompress(info);
        return true;
    }

    jpeg_decompress_struct info_;
    ErrorManager errors_;
    jpeg_progress_mgr progress_{};
    std::unique_ptr<Source> source_;
    bool created_ = false;
};

// The EXIF orientation (1 to 8) from an APP1 "Exif" segment; 1 when absent
// or unreadable.
int exifOrientation(jpeg_decompress_struct* info)
{
    for (jpeg_saved_marker_ptr m = info->marker_list; m; m = m->next) {
        if (m->marker != JPEG_APP0 + 1 || m->data_length < 14 || std::memcmp(m->data, "Exif\0\0", 6) != 0)
            continue;
        const unsigned char* tiff = m->data + 6;
        const std::size_t size = m->data_length - 6;
        const bool little = tiff[0] == 'I' && tiff[1] == 'I';
        if (!little && !(tiff[0] == 'M' && tiff[1] == 'M'))
            return 1;
        auto u16 = [&](std::size_t at) -> unsigned {
            return little ? tiff[at] | tiff[at + 1] << 8 : tiff[at] << 8 | tiff[at + 1];
        };
        auto u32 = [&](std::size_t at) -> std::uint32_t {
            return little ? (std::uint32_t(u16(at + 2)) << 16) | u16(at) : (std::uint32_t(u16(at)) << 16) | u16(at + 2);
        };
        if (u16(2) != 42)
            return 1;
        const std::uint32_t ifd = u32(4);
        if (ifd > size || size - ifd < 2)
            return 1;
        const unsigned entries = u16(ifd);
        for (unsigned i = 0; i < entries; ++i) {
            const std::size_t at = ifd + 2 + static_cast<std::size_t>(i) * 12;
            if (at + 12 > size)
                return 1;
            if (u16(at) == 0x0112 && u16(at + 2) == 3) {   // Orientation, SHORT
                const unsigned v = u16(at + 8);
                return v >= 1 && v <= 8 ? static_cast<int>(v) : 1;
            }
        }
        return 1;
    }
    return 1;
}

// The stored pixel (sx, sy) that shows at (x, y) of the upright image, for
// a stored image of w x h.
void storedPosition(int orientation, long x, long y, long w, long h, long& sx, long& sy)
{
    switch (orientation) {
    case 2: sx = w - 1 - x, sy = y; break;
    case 3: sx = w - 1 - x, sy = h - 1 - y; break;
    case 4: sx = x, sy = h - 1 - y; break;
    case 5: sx = y, sy = x; break;
    case 6: sx = y, sy = h - 1 - x; break;
    case 7: sx = w - 1 - y, sy = h - 1 - x; break;
    case 8: sx = w - 1 - y, sy = x; break;
    default: sx = x, sy = y; break;
    }
}

// The most a turned image may take in memory (it is turned whole).
constexpr std::uint64_t kMaxTurnedBytes = std::uint64_t(1) << 30;

}  // namespace

void readJpeg(ByteSource& source, RowSink& sink)
{
    const std::string& name = source.name();
    Decompressor jpeg(source);
    if (!jpeg.created())
        fail(name, std::string("corrupt JPEG: ") + jpeg.message());
    jpeg_decompress_struct* info = jpeg.info();
    if (!readHeader(info, jpeg.errors()))
        fail(name, std::string("corrupt JPEG: ") + jpeg.message());
    J_COLOR_SPACE space = JCS_RGB;
    if (info->jpeg_color_space == JCS_GRAYSCALE)
        space = JCS_GRAYSCALE;
    else if (info->jpeg_color_space != JCS_YCbCr && info->jpeg_color_space != JCS_RGB)
        fail(name, "unsupported JPEG colour space (grey, YCbCr and RGB only; CMYK is not read)");
    const int channels = space == JCS_GRAYSCALE ? 1 : 3;
    const long w = static_cast<long>(info->image_width), h = static_cast<long>(info->image_height);
    const int orientation = exifOrientation(info);
    const bool swapped = orientation >= 5;
    // The upright size is checked (limits, region) before anything of the
    // image's size is allocated.
    sink.begin(swapped ? h : w, swapped ? w : h, 8, channels, Format::Jpeg);
    if (!startDecompress(info, jpeg.errors(), space))
        fail(name, std::string("corrupt JPEG: ") + jpeg.message());
    if (static_cast<long>(info->output_width) != w || static_cast<long>(info->output_height) != h ||
        info->output_components != channels)
        fail(name, "unsupported JPEG layout");
    const std::size_t rowBytes = static_cast<std::size_t>(w) * channels;

    if (orientation == 1) {
        std::vector<unsigned char> row(rowBytes);
        for (long y = 0; y < sink.endRow(); ++y) {
            if (!readScanline(info, jpeg.errors(), row.data()))
                fail(name, std::string("corrupt JPEG: ") + jpeg.message());
            sink.put(y, 0, w, row.data());
        }
        if (sink.endRow() == h && !finishDecompress(info, jpeg.errors()))
            fail(name, std::string("corrupt JPEG: ") + jpeg.message());
        return;
    }
    // Turned upright: the whole stored image first.
    if (static_cast<std::uint64_t>(rowBytes) * h > kMaxTurnedBytes)
        fail(name, "JPEG too large to turn upright as its EXIF orientation asks (at most 1 GiB of pixels)");
    std::vector<unsigned char> stored(rowBytes * static_cast<std::size_t>(h));
    for (long y = 0; y < h; ++y)
        if (!readScanline(info, jpeg.errors(), stored.data() + rowBytes * static_cast<std::size_t>(y)))
            fail(name, std::string("corrupt JPEG: ") + jpeg.message());
    if (!finishDecompress(info, jpeg.errors()))
        fail(name, std::string("corrupt JPEG: ") + jpeg.message());
    const long uw = swapped ? h : w;
    std::vector<unsigned char> row(static_cast<std::size_t>(uw) * channels);
    for (long y = sink.firstRow(); y < sink.endRow(); ++y) {
        for (long x = 0; x < uw; ++x) {
            long sx = 0, sy = 0;
            storedPosition(orientation, x, y, w, h, sx, sy);
            std::memcpy(&row[static_cast<std::size_t>(x) * channels],
                        &stored[rowBytes * static_cast<std::size_t>(sy) + static_cast<std::size_t>(sx) * channels],
                        static_cast<std::size_t>(channels));
        }
        sink.put(y, 0, uw, row.data());
    }
}

// ---------------------------------------------------------------- writing

namespace {

bool startCompress(jpeg_compress_struct* info, ErrorManager* errors, const ImageInfo* image, int quality)
{
    if (setjmp(errors->jump))
        return false;
    info->image_width = static_cast<JDIMENSION>(image->width);
    info->image_height = static_cast<JDIMENSION>(image->height);
    info->input_components = image->channels;
    info->in_color_space = image->channels == 1 ? JCS_GRAYSCALE : JCS_RGB;
    jpeg_set_defaults(info);
    jpeg_set_quality(info, quality, TRUE);
    // At high quality colour keeps its full resolution (no 2 x 2 chroma
    // subsampling), so that a filtered channel is not blurred by the file.
    if (quality >= 90)
        for (int c = 0; c < info->num_components; ++c)
            info->comp_info[c].h_samp_factor = info->comp_info[c].v_samp_factor = 1;
    jpeg_start_compress(info, TRUE);
    return true;
}

bool writeScanline(jpeg_compress_struct* info, ErrorManager* errors, JSAMPROW row)
{
    if (setjmp(errors->jump))
        return false;
    JSAMPROW rows[1] = {row};
    jpeg_write_scanlines(info, rows, 1);
    return true;
}

bool finishCompress(jpeg_compress_struct* info, ErrorManager* errors)
{
    if (setjmp(errors->jump))
        return false;
    jpeg_finish_compress(info);
    return true;
}

bool createCompress(jpeg_compress_struct* info, ErrorManager* errors)
{
    if (setjmp(errors->jump))
        return false;
    jpeg_create_compress(info);
    return true;
}

class JpegEncoder : public Encoder {
public:
    JpegEncoder(ByteSink& sink, const ImageInfo& image, int quality) : name_(sink.name())
    {
        if (image.bits != 8)
            fail(name_, "JPEG holds 8-bit images only; write 16-bit results as .png, .tif or .pgm");
        if (image.channels == 2 || image.channels == 4)
            fail(name_, "JPEG holds no alpha channel; write images with alpha as .png or .tif");
        if (quality < 1 || quality > 100)
            fail(name_, "JPEG quality must be from 1 to 100");
        std::memset(&info_, 0, sizeof info_);
        info_.err = jpeg_std_error(&errors_.base);
        errors_.base.error_exit = onError;
        errors_.message[0] = '\0';
        created_ = createCompress(&info_, &errors_);
        if (!created_)
            failed();
        destination_ = std::make_unique<Destination>();
        destination_->bytes = &sink;
        destination_->base.init_destination = initDestination;
        destination_->base.empty_output_buffer = emptyOutput;
        destination_->base.term_destination = termDestination;
        info_.dest = &destination_->base;
        row_.resize(static_cast<std::size_t>(image.width) * image.channels);
        if (!startCompress(&info_, &errors_, &image, quality))
            failed();
    }
    ~JpegEncoder() override
    {
        if (created_)
            jpeg_destroy_compress(&info_);
    }
    JpegEncoder(const JpegEncoder&) = delete;
    JpegEncoder& operator=(const JpegEncoder&) = delete;

    void row(const void* samples) override
    {
        std::memcpy(row_.data(), samples, row_.size());   // libjpeg takes a writable row
        if (!writeScanline(&info_, &errors_, row_.data()))
            failed();
    }
    void finish() override
    {
        if (!finishCompress(&info_, &errors_))
            failed();
    }

private:
    [[noreturn]] void failed() const { fail(name_, std::string("JPEG encoding failed: ") + errors_.message); }

    std::string name_;
    jpeg_compress_struct info_;
    ErrorManager errors_;
    std::unique_ptr<Destination> destination_;
    std::vector<unsigned char> row_;
    bool created_ = false;
};

}  // namespace

std::unique_ptr<Encoder> jpegEncoder(ByteSink& sink, const ImageInfo& info, int quality)
{
    return std::make_unique<JpegEncoder>(sink, info, quality);
}

}  // namespace detail

bool jpegSupported() { return true; }

}  // namespace kxio
