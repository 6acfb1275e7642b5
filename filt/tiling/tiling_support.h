#pragma once
// What the tiled filter and the Welch spectrum share: the mirror at the
// image's borders, the window of rows read from a source, in-memory sources
// and sinks, where the tiles go, and the jobs that run them.
#include <kx/tiling.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace kx_tiling {

// Position p of an axis of n samples extended by mirroring with the border
// sample repeated (... 2 1 0 | 0 1 2 ... n-1 | n-1 n-2 ...), as often as it
// takes to reach p.
inline long mirrorIndex(long p, long n)
{
    const long period = 2 * n;
    long q = p % period;
    if (q < 0)
        q += period;
    return q < n ? q : period - 1 - q;
}

// The rows [first, last) of a source, read top to bottom: rows are only ever
// dropped from the top and read at the bottom, so each is read once and the
// memory is that of the rows covered.
template <typename S>
class RowWindow {
public:
    explicit RowWindow(kxRowSource& source) : source_(source), width_(source.width()) {}

    void cover(long first, long last)
    {
        if (first < first_)
            throw kxFrequencyDefs::InvalidArgument("Rows are read once, top to bottom.");
        if (last_ < first) {   // rows no tile needs: read and dropped
            std::vector<S> skipped(static_cast<std::size_t>((first - last_) * width_));
            source_.read(skipped.data(), first - last_);
            last_ = first;
        }
        if (first > first_ && last_ > first)   // the rows kept move to the front
            std::memmove(store_.data(), store_.data() + (first - first_) * width_,
                         static_cast<std::size_t>((last_ - first) * width_) * sizeof(S));
        first_ = first;
        store_.resize(static_cast<std::size_t>((std::max(last, last_) - first) * width_));
        if (last > last_) {
            source_.read(store_.data() + (last_ - first_) * width_, last - last_);
            last_ = last;
        }
    }
    const S* row(long y) const { return store_.data() + (y - first_) * width_; }

private:
    kxRowSource& source_;
    long width_;
    long first_ = 0, last_ = 0;
    std::vector<S> store_;
};

// The sample type of T.
template <typename T>
constexpr kxSampleType sampleTypeOf();
template <>
constexpr kxSampleType sampleTypeOf<unsigned char>() { return eSampleU8; }
template <>
constexpr kxSampleType sampleTypeOf<unsigned short>() { return eSampleU16; }
template <>
constexpr kxSampleType sampleTypeOf<float>() { return eSampleF32; }
template <>
constexpr kxSampleType sampleTypeOf<double>() { return eSampleF64; }

// The rows of an image in memory, any strides.
template <typename T>
class ViewSource : public kxRowSource {
public:
    explicit ViewSource(const kxImageView<const T>& view) : view_(view) {}
    long width() const override { return view_.width; }
    long height() const override { return view_.height; }
    kxSampleType type() const override { return sampleTypeOf<T>(); }
    using kxRowSource::read;
    void read(T* rows, long count) override
    {
        for (long i = 0; i < count; ++i, ++next_)
            for (long x = 0; x < view_.width; ++x)
                *rows++ = view_(x, next_);
    }

private:
    kxImageView<const T> view_;
    long next_ = 0;
};

// Rows written into an image in memory, any strides.
template <typename T>
class ViewSink : public kxRowSink {
public:
    explicit ViewSink(const kxImageView<T>& view) : view_(view) {}
    using kxRowSink::write;
    void write(const T* rows, long count) override
    {
        for (long i = 0; i < count; ++i, ++next_)
            for (long x = 0; x < view_.width; ++x)
                view_(x, next_) = *rows++;
    }

private:
    kxImageView<T> view_;
    long next_ = 0;
};

// One tile along an axis: it starts `start` - margin, and writes samples
// [writeStart, writeEnd) of the result.
struct TileSpan {
    long start;
    long writeStart;
    long writeEnd;
};

// Tiles of `core` samples along an axis of `length`, the last one moved back
// to end at the border (it then writes only what the one before left).
inline std::vector<TileSpan> tileSpans(long length, long core)
{
    std::vector<TileSpan> spans;
    for (long start = 0; start < length; start += core) {
        const long moved = std::max(0L, std::min(start, length - core));
        spans.push_back(TileSpan{moved, start, std::min(length, start + core)});
    }
    return spans;
}

// The tile side the options give, checked.
void checkTileSide(long tile, const char* what);
// Refuses a sample type outside kxSampleType.
[[noreturn]] void refuseSampleType();

// visit(static_cast<T*>(nullptr)) with T the type `type` names.
template <typename Visit>
auto withSampleType(kxSampleType type, Visit visit)
{
    switch (type) {
    case eSampleU8:
        return visit(static_cast<unsigned char*>(nullptr));
    case eSampleU16:
        return visit(static_cast<unsigned short*>(nullptr));
    case eSampleF32:
        return visit(static_cast<float*>(nullptr));
    case eSampleF64:
        return visit(static_cast<double*>(nullptr));
    }
    refuseSampleType();
}

// The jobs the options give, checked.
void checkJobs(unsigned jobs);
// A source's size, checked: at least minSide, below 2^31 (as pel buffers).
void checkSourceSize(const kxRowSource& source, long minSide);

// Runs work(job, index) for index 0 .. count-1 on `jobs` threads (the
// calling thread is job 0 and calls `afterEach` after each item it ends
// with the number of items ended so far). The first exception thrown stops
// the others from starting new items and is rethrown once all have ended.
void runJobs(unsigned jobs, long count, const std::function<void(unsigned job, long index)>& work,
             const std::function<void(long ended)>& afterEach);

}  // namespace kx_tiling
