#pragma once
// Images larger than one transform in the tool: files streamed row by row
// into the library's tiled filtering and Welch spectrum, results written row
// by row, a progress bar for long runs.
#include "image_io.h"

#include <kx/tiling.h>

#include <chrono>
#include <memory>
#include <string>

namespace kxcli {

// The rows of an image file, grey or one of its channels, as a
// kxRowSource: the file is decoded on a thread of its own a few rows ahead
// of the reader, so memory holds those rows and not the image. Read errors
// reach the reader as ImageErrors.
class FileRowSource : public kxRowSource {
public:
    // `channel` below 0: the image as grey; else that channel (0 to 3, as
    // kxio::Image numbers them).
    explicit FileRowSource(const std::string& path, const kxio::Notice& notice = {}, int channel = -1);
    ~FileRowSource() override;
    FileRowSource(const FileRowSource&) = delete;
    FileRowSource& operator=(const FileRowSource&) = delete;

    long width() const override { return info_.width; }
    long height() const override { return info_.height; }
    kxSampleType type() const override { return info_.bits == 8 ? eSampleU8 : eSampleU16; }
    void read(unsigned char* rows, long count) override;
    void read(unsigned short* rows, long count) override;
    int bits() const { return info_.bits; }

    class Queue;

private:
    void take(void* rows, long count);

    kxio::ImageInfo info_;
    std::unique_ptr<Queue> queue_;
};

// A kxRowSink that writes an image file row by row; commit() puts it in place.
class FileRowSink : public kxRowSink {
public:
    FileRowSink(const std::string& path, const kxio::ImageInfo& info, const kxio::WriteOptions& options);
    void write(const unsigned char* rows, long count) override;
    void write(const unsigned short* rows, long count) override;
    void commit() { writer_.commit(); }

private:
    kxio::ImageWriter writer_;
    std::size_t rowSamples_;
};

// A progress bar on standard error, drawn only when it is a terminal and the
// job has run for more than a second; erased when destroyed.
class ProgressBar {
public:
    explicit ProgressBar(std::string label);
    ~ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;
    void update(long done, long total);

private:
    std::string label_;
    std::chrono::steady_clock::time_point start_;
    bool terminal_;
    bool drawn_ = false;
};

// Whether an image (or the region of it, always within the limit) fits in
// one transform; larger ones are analysed on their Welch spectrum.
bool fitsOneTransform(const std::string& path, const kxio::Region& region);
// The Welch-averaged spectrum of an image file, streamed: its overlapping
// 1024 x 1024 tiles, each freed of its mean and multiplied by `window`.
kxFrequencyBuffer welchSpectrumOf(const std::string& path, const kxWindow& window);

// Each colour channel of a file streamed through tiled filtering, alone, into
// a temporary file of raw rows; then the channels (alpha copied from the
// input) interleaved into `out` row by row. Memory does not grow with the
// height; the temporaries hold one plane each. Returns the last report.
kxTileReport filterChannelsStreamed(const std::string& in, const std::string& out, const kxFilterDescription& filter,
                                    const kxTileOptions& options, const kxio::WriteOptions& write);

// One plane in memory filtered tile by tile into a plane of the same depth.
kxio::GreyImage filterPlaneTiled(const kxio::GreyImage& plane, const kxFilterDescription& filter,
                                 const kxTileOptions& options, kxTileReport& report);

}  // namespace kxcli
