#pragma once
// Internal: the pixels the const inverse's last pass writes
// (fft/engine/pixel_columns.h), and their conversion element by element.
#include "fft/buffer_access.h"

#include <cmath>

// The result pixels: pixel (x, y) of type `type` at pixels + y * rowPixels
// + x, written for x < w and y < h, each from the unscaled element (x, y)
// and the scale s. Integer pixels take the magnitude times s in single
// precision, plus 0.5 in double, truncated to 64 bits (the minimum for NaN
// and out-of-range values), their low bits kept; double pixels take the
// single-precision magnitude times s, widened.
enum class kf_PixelType { Byte, Word, Double };

struct kf_PixelTarget {
    void* pixels;
    long rowPixels;
    long w, h;
    float s;
    kf_PixelType type;
};

// The pixel of one element, as above.
template <typename Pixel>
Pixel kf_PixelOf(float re, float im, float s)
{
    const float m = std::sqrt(re * re + im * im) * s;
    return static_cast<Pixel>(kf_TruncateToInt64(m + 0.5));
}

template <>
inline double kf_PixelOf<double>(float re, float im, float s)
{
    return static_cast<double>(std::sqrt(re * re + im * im) * s);
}

// Writes the pixels of `count` adjacent elements of one row, x0 .. x0 +
// count - 1 at row y, from their real and imaginary parts.
template <typename Pixel>
void kf_PixelRun(const float* re, const float* im, int count, const kf_PixelTarget& target, long x0, long y)
{
    Pixel* out = static_cast<Pixel*>(target.pixels) + y * target.rowPixels + x0;
    for (int k = 0; k < count; ++k)
        out[k] = kf_PixelOf<Pixel>(re[k], im[k], target.s);
}

inline void kf_PixelRun(const float* re, const float* im, int count, const kf_PixelTarget& target, long x0, long y)
{
    switch (target.type) {
    case kf_PixelType::Byte: kf_PixelRun<unsigned char>(re, im, count, target, x0, y); break;
    case kf_PixelType::Word: kf_PixelRun<unsigned short>(re, im, count, target, x0, y); break;
    case kf_PixelType::Double: kf_PixelRun<double>(re, im, count, target, x0, y); break;
    }
}

// The pixels of one column transformed on its own (element e at
// column[e * stride]).
inline void kf_ColumnPixels(const float* column, long stride, long x, const kf_PixelTarget& target)
{
    if (x >= target.w)
        return;
    for (long y = 0; y < target.h; ++y)
        kf_PixelRun(column + y * stride, column + y * stride + 1, 1, target, x, y);
}
