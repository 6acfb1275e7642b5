#pragma once
// Internal: how the transforms, the arithmetic and the persistence code reach
// the private parts of kxFrequencyBuffer. Not installed.
#include <kx/fft.h>

#include <limits>
#include <vector>

struct kx_FrequencyBufferAccess {
    using Buffer = kxFrequencyBuffer;

    static float* data(const Buffer& b) { return b.data_; }
    static void setAndAllocate(Buffer& b, long width, long height) { b.setAndAllocate(width, height); }
    // Leaves the buffer not initialized: every read throws Uninitialized
    // until it is filled again. The store is kept, so memory that a caller
    // still sees (a Python view) stays valid, and the next setAndAllocate of
    // the same size reuses it.
    static void reset(Buffer& b)
    {
        b.data_ = nullptr;
        b.inverseComputed_ = false;
        b.masked_ = 0;
    }

    static long paddedWidth(const Buffer& b) { return b.paddedWidth_; }
    static long paddedHeight(const Buffer& b) { return b.paddedHeight_; }
    static long requestedWidth(const Buffer& b) { return b.requestedWidth_; }
    static long requestedHeight(const Buffer& b) { return b.requestedHeight_; }

    static long masked(const Buffer& b) { return b.masked_; }
    static long maskedMiny(const Buffer& b) { return b.maskedMiny_; }
    static long maskedMaxy(const Buffer& b) { return b.maskedMaxy_; }
    static void masked(Buffer& b, long value) { b.masked_ = value; }
    static void band(Buffer& b, long masked, long miny, long maxy)
    {
        b.masked_ = masked;
        b.maskedMiny_ = miny;
        b.maskedMaxy_ = maxy;
    }

    static bool inverseComputed(const Buffer& b) { return b.inverseComputed_; }
    static void inverseComputed(Buffer& b, bool value) { b.inverseComputed_ = value; }

    static const kx2XformCache& transform(const Buffer& b) { return b.transform_; }
    static void transform(Buffer& b, const kx2XformCache& t) { b.transform_ = t; }
    static kxPair<long> offset(const Buffer& b) { return b.offset_; }
    static void offset(Buffer& b, const kxPair<long>& o) { b.offset_ = o; }
};

// Resets the buffer a transform writes unless the transform completes: a
// transform stopped part way (an attention request, or any other exception)
// leaves its destination not initialized rather than half written.
class kf_ResetUnlessDone {
public:
    explicit kf_ResetUnlessDone(kxFrequencyBuffer* buffer) : buffer_(buffer) {}
    ~kf_ResetUnlessDone()
    {
        if (buffer_)
            kx_FrequencyBufferAccess::reset(*buffer_);
    }
    kf_ResetUnlessDone(const kf_ResetUnlessDone&) = delete;
    kf_ResetUnlessDone& operator=(const kf_ResetUnlessDone&) = delete;
    void done() { buffer_ = nullptr; }

private:
    kxFrequencyBuffer* buffer_;
};

// Zeroes the padding of a buffer filled from an image of the requested size:
// columns requestedWidth.. of the first requestedHeight rows, then every
// following row. Polls kxAttention::check() once.
void kf_ClearPadding(long requestedWidth, long requestedHeight, long paddedWidth, long paddedHeight,
                     float* data);

// The smallest power of two not below `value` (1 for value <= 1). Values
// above the largest power of two a long holds give that power, which is
// below them, so the power-of-two test below refuses them.
inline long kf_PaddedSize(long value)
{
    constexpr long largest = std::numeric_limits<long>::max() / 2 + 1;
    long size = 1;
    while (size < value && size < largest)
        size *= 2;
    return size;
}

// The library's power-of-two test: doubles a counter from 1 while it is
// below the value, then compares; 1 passes, 0 and negatives fail.
inline bool kf_IsPowerOfTwo(long value)
{
    return kf_PaddedSize(value) == value;
}

// Truncation toward zero to a 64-bit integer, as the pixel conversions use
// it before keeping the low bits. NaN and values outside the 64-bit range,
// undefined for a plain cast, give INT64_MIN (low bits all zero), the value
// the hardware conversion produces.
inline long long kf_TruncateToInt64(double value)
{
    if (!(value > -9223372036854775808.0 && value < 9223372036854775808.0))
        return std::numeric_limits<long long>::min();
    return static_cast<long long>(value);
}
