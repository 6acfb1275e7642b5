#include "large_images.h"

#include "commands.h"

#include <condition_variable>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <deque>
#include <exception>
#include <iostream>
#include <mutex>
#include <thread>

#include <unistd.h>

namespace kxcli {

// Rows handed from the decoding thread to the reader, at most kDepth at a
// time. Either side may stop the other: the reader by closing (its
// destructor), the decoder by failing.
class FileRowSource::Queue : public kxio::RowTarget {
public:
    static constexpr std::size_t kDepth = 64;

    // `shape`: the image as the decoder will deliver it, from its header.
    Queue(const std::string& path, const kxio::Notice& notice, int channel, const kxio::ImageInfo& shape)
        : path_(path), notice_(notice), channel_(channel), width_(shape.width), bytes_(shape.bits / 8),
          channels_(shape.channels), rowBytes_(static_cast<std::size_t>(width_) * bytes_)
    {
    }

    // On the decoding thread: the shape is only compared, never written, as
    // the reader uses it meanwhile.
    void start(const kxio::ImageInfo& info) override
    {
        if (info.width != width_ || info.bits / 8 != bytes_ || info.channels != channels_)
            throw kxio::ImageError(path_ + ": the image changed while it was read");
    }

    void row(long, const void* samples) override
    {
        // One channel of interleaved samples, or the grey row as it is.
        const auto* bytes = static_cast<const unsigned char*>(samples);
        std::vector<unsigned char> copy(rowBytes_);
        const int c = channel_ < 0 ? 0 : channel_;
        for (long x = 0; x < width_; ++x)
            std::memcpy(&copy[static_cast<std::size_t>(x * bytes_)], bytes + (x * channels_ + c) * bytes_,
                        static_cast<std::size_t>(bytes_));
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait(lock, [&] { return rows_.size() < kDepth || closed_; });
        if (closed_)
            throw Closed{};
        rows_.push_back(std::move(copy));
        changed_.notify_all();
    }

    void run()
    {
        thread_ = std::thread([this] {
            try {
                streamImage(path_, *this, channel_ < 0 ? kxio::Channels::Grey : kxio::Channels::Keep, notice_);
            } catch (const Closed&) {
            } catch (...) {
                const std::lock_guard<std::mutex> lock(mutex_);
                failure_ = std::current_exception();
            }
            const std::lock_guard<std::mutex> lock(mutex_);
            finished_ = true;
            changed_.notify_all();
        });
    }

    // The next row into `destination`; rethrows the decoder's failure.
    void pop(unsigned char* destination)
    {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait(lock, [&] { return !rows_.empty() || finished_; });
        if (rows_.empty()) {
            if (failure_)
                std::rethrow_exception(failure_);
            throw kxio::ImageError(path_ + ": fewer rows than its header says");
        }
        std::memcpy(destination, rows_.front().data(), rowBytes_);
        rows_.pop_front();
        changed_.notify_all();
    }

    void close()
    {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            closed_ = true;
            changed_.notify_all();
        }
        if (thread_.joinable())
            thread_.join();
    }

    std::size_t rowBytes() const { return rowBytes_; }

private:
    struct Closed {};

    std::string path_;
    kxio::Notice notice_;
    const int channel_;
    const long width_;
    const int bytes_, channels_;
    const std::size_t rowBytes_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::vector<unsigned char>> rows_;
    bool closed_ = false;
    bool finished_ = false;
    std::exception_ptr failure_;
    std::thread thread_;
};

namespace {

// The shape a decoder delivers a file in: grey, or with all its channels.
kxio::ImageInfo deliveredShape(const std::string& path, const kxio::ImageInfo& header, int channel)
{
    if (channel >= header.channels)
        throw kxio::ImageError(path + ": has no channel " + std::to_string(channel));
    kxio::ImageInfo shape = header;
    shape.channels = channel < 0 ? 1 : header.channels;
    return shape;
}

}  // namespace

FileRowSource::FileRowSource(const std::string& path, const kxio::Notice& notice, int channel)
    : info_(kxio::readInfo(path)),
      queue_(std::make_unique<Queue>(path, notice, channel, deliveredShape(path, info_, channel)))
{
    queue_->run();
}

FileRowSource::~FileRowSource() { queue_->close(); }

void FileRowSource::take(void* rows, long count)
{
    auto* out = static_cast<unsigned char*>(rows);
    for (long i = 0; i < count; ++i)
        queue_->pop(out + static_cast<std::size_t>(i) * queue_->rowBytes());
}

void FileRowSource::read(unsigned char* rows, long count)
{
    if (info_.bits != 8)
        kxRowSource::read(rows, count);   // refuses the type
    take(rows, count);
}

void FileRowSource::read(unsigned short* rows, long count)
{
    if (info_.bits != 16)
        kxRowSource::read(rows, count);
    take(rows, count);
}

// ---------------------------------------------------------------------------

FileRowSink::FileRowSink(const std::string& path, const kxio::ImageInfo& info, const kxio::WriteOptions& options)
    : writer_(path, kxio::formatFor(path), info, options),
      rowSamples_(static_cast<std::size_t>(info.width) * info.channels)
{
}

void FileRowSink::write(const unsigned char* rows, long count)
{
    for (long i = 0; i < count; ++i)
        writer_.row(rows + static_cast<std::size_t>(i) * rowSamples_);
}

void FileRowSink::write(const unsigned short* rows, long count)
{
    for (long i = 0; i < count; ++i)
        writer_.row(rows + static_cast<std::size_t>(i) * rowSamples_);
}

// ---------------------------------------------------------------------------

ProgressBar::ProgressBar(std::string label)
    : label_(std::move(label)), start_(std::chrono::steady_clock::now()), terminal_(isatty(STDERR_FILENO) == 1)
{
}

ProgressBar::~ProgressBar()
{
    if (drawn_)
        std::cerr << "\r\033[K" << std::flush;
}

void ProgressBar::update(long done, long total)
{
    if (!terminal_ || total <= 0)
        return;
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    if (seconds < 1.0)
        return;
    constexpr int kWidth = 30;
    const int filled = static_cast<int>(kWidth * done / total);
    std::cerr << "\r" << label_ << " [" << std::string(static_cast<std::size_t>(filled), '#')
              << std::string(static_cast<std::size_t>(kWidth - filled), '.') << "] " << done << "/" << total
              << " tiles" << std::flush;
    drawn_ = true;
}

// ---------------------------------------------------------------------------

bool fitsOneTransform(const std::string& path, const kxio::Region& region)
{
    if (!region.whole())
        return true;   // read as a region, within the transform's limit
    const kxio::ImageInfo info = kxio::readInfo(path);
    return info.width <= kfMaxTransformSide && info.height <= kfMaxTransformSide;
}

kxFrequencyBuffer welchSpectrumOf(const std::string& path, const kxWindow& window)
{
    FileRowSource source(path, printNote);
    kxWelchOptions options;
    options.window = window;
    try {
        return kfWelchSpectrum(source, options);
    } catch (const kxException& e) {
        throw CommandError(path + ": " + e.what());
    }
}

namespace {

// The rows of one plane in an anonymous temporary file (removed by the
// system when closed, also when the process dies).
class SpilledPlane : public kxRowSink {
public:
    explicit SpilledPlane(std::size_t rowBytes) : file_(std::tmpfile()), rowBytes_(rowBytes)
    {
        if (!file_)
            throw kxio::ImageError(std::string("cannot make a temporary file: ") + std::strerror(errno));
    }
    ~SpilledPlane() override { std::fclose(file_); }
    SpilledPlane(const SpilledPlane&) = delete;
    SpilledPlane& operator=(const SpilledPlane&) = delete;

    void write(const unsigned char* rows, long count) override { put(rows, count); }
    void write(const unsigned short* rows, long count) override { put(rows, count); }
    // From the first row again, for next().
    void rewind()
    {
        if (std::fflush(file_) != 0 || std::fseek(file_, 0, SEEK_SET) != 0)
            throw kxio::ImageError(std::string("temporary file: ") + std::strerror(errno));
    }
    void next(unsigned char* row)
    {
        if (std::fread(row, 1, rowBytes_, file_) != rowBytes_)
            throw kxio::ImageError("temporary file: cannot read a row back");
    }

private:
    void put(const void* rows, long count)
    {
        if (std::fwrite(rows, rowBytes_, static_cast<std::size_t>(count), file_) != static_cast<std::size_t>(count))
            throw kxio::ImageError(std::string("temporary file: ") + std::strerror(errno));
    }

    std::FILE* file_;
    std::size_t rowBytes_;
};

}  // namespace

kxTileReport filterChannelsStreamed(const std::string& in, const std::string& out, const kxFilterDescription& filter,
                                    const kxTileOptions& options, const kxio::WriteOptions& write)
{
    const kxio::ImageInfo info = kxio::readInfo(in);
    const bool alpha = info.channels == 2 || info.channels == 4;
    const int colourPlanes = alpha ? info.channels - 1 : info.channels;
    const int bytes = info.bits / 8;
    const std::size_t rowBytes = static_cast<std::size_t>(info.width) * bytes;
    const kxSampleType type = info.bits == 8 ? eSampleU8 : eSampleU16;
    std::vector<std::unique_ptr<SpilledPlane>> planes;
    kxTileReport report;
    for (int c = 0; c < colourPlanes; ++c) {
        FileRowSource source(in, {}, c);
        planes.push_back(std::make_unique<SpilledPlane>(rowBytes));
        report = kfFilterTiled(source, filter, *planes.back(), type, options);
        planes.back()->rewind();
    }
    std::unique_ptr<FileRowSource> alphaSource;
    if (alpha)
        alphaSource = std::make_unique<FileRowSource>(in, kxio::Notice{}, info.channels - 1);
    kxio::ImageInfo shape = info;
    shape.format = kxio::formatFor(out);
    kxio::ImageWriter writer(out, shape.format, shape, write);
    std::vector<unsigned char> plane(rowBytes), row(rowBytes * static_cast<std::size_t>(info.channels));
    auto interleave = [&](int c) {
        for (long x = 0; x < info.width; ++x)
            std::memcpy(&row[static_cast<std::size_t>((x * info.channels + c) * bytes)],
                        &plane[static_cast<std::size_t>(x * bytes)], static_cast<std::size_t>(bytes));
    };
    for (long y = 0; y < info.height; ++y) {
        for (int c = 0; c < colourPlanes; ++c) {
            planes[static_cast<std::size_t>(c)]->next(plane.data());
            interleave(c);
        }
        if (alphaSource) {
            if (bytes == 1)
                alphaSource->read(plane.data(), 1);
            else
                alphaSource->read(reinterpret_cast<unsigned short*>(plane.data()), 1);
            interleave(info.channels - 1);
        }
        writer.row(row.data());
    }
    writer.commit();
    return report;
}

kxio::GreyImage filterPlaneTiled(const kxio::GreyImage& plane, const kxFilterDescription& filter,
                                 const kxTileOptions& options, kxTileReport& report)
{
    kxio::GreyImage out;
    out.bits = plane.bits;
    if (plane.bits == 8) {
        out.pixels8 = kxPelBuffer<unsigned char>(plane.width(), plane.height());
        report = kf_FilterTiled(kxImageView<const unsigned char>(kfImageView<unsigned char>(plane.pixels8)), filter,
                                kfImageView<unsigned char>(out.pixels8), options);
    } else {
        out.pixels16 = kxPelBuffer<unsigned short>(plane.width(), plane.height());
        report = kf_FilterTiled(kxImageView<const unsigned short>(kfImageView<unsigned short>(plane.pixels16)),
                                filter, kfImageView<unsigned short>(out.pixels16), options);
    }
    return out;
}

}  // namespace kxcli
