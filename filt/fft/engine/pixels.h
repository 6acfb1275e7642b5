#pragma once
// Internal: the pixels of an image that the real forward transform reads
// in place of its rows of floats.

// The pixel types an image can have.
enum class kf_PixelType { Byte, Word, Double };

inline kf_PixelType kf_PixelTypeOf(const unsigned char*) { return kf_PixelType::Byte; }
inline kf_PixelType kf_PixelTypeOf(const unsigned short*) { return kf_PixelType::Word; }
inline kf_PixelType kf_PixelTypeOf(const double*) { return kf_PixelType::Double; }

// `height` rows of `width` pixels: pixel x of row y at first[y * stride + x].
// As samples of a real transform they are the pixels as floats, with zeros
// after each row and in the rows below the last.
struct kf_PixelRows {
    const void* first;
    kf_PixelType type;
    long stride;   // in pixels
    long width;
    long height;
};

template <typename T>
kf_PixelRows kf_PixelRowsOf(const T* first, long stride, long width, long height)
{
    return kf_PixelRows{first, kf_PixelTypeOf(first), stride, width, height};
}

// Calls f with the rows' first pixel as a pointer of its own type.
template <typename F>
void kf_WithPixels(const kf_PixelRows& rows, F f)
{
    switch (rows.type) {
    case kf_PixelType::Byte:
        f(static_cast<const unsigned char*>(rows.first));
        break;
    case kf_PixelType::Word:
        f(static_cast<const unsigned short*>(rows.first));
        break;
    case kf_PixelType::Double:
        f(static_cast<const double*>(rows.first));
        break;
    }
}

// The row conversions below are for code built with the library's own
// flags (the scalar engine, the drivers): a variant file, built for another
// instruction set, must not call them, or the linker could keep its copy
// of these inline functions for every caller.

// Floats [0, count) of row y of the samples: its pixels, then zeros.
inline void kf_PixelsToRow(const kf_PixelRows& rows, long y, float* row, long count)
{
    kf_WithPixels(rows, [&](const auto* first) {
        long x = 0;
        if (y < rows.height) {
            const auto* pixels = first + y * rows.stride;
            for (; x < rows.width && x < count; ++x)
                row[x] = static_cast<float>(pixels[x]);
        }
        for (; x < count; ++x)
            row[x] = 0.0f;
    });
}

// Floats [0, 2 * elements) of row y of two images' samples as complex
// elements: (real, imaginary) pairs, then zeros.
inline void kf_PixelPairsToRow(const kf_PixelRows& real, const kf_PixelRows& imag, long y, float* row,
                               long elements)
{
    kf_WithPixels(real, [&](const auto* realFirst) {
        const auto* imagFirst = static_cast<decltype(realFirst)>(imag.first);
        long x = 0;
        if (y < real.height) {
            const auto* re = realFirst + y * real.stride;
            const auto* im = imagFirst + y * imag.stride;
            for (; x < real.width && x < elements; ++x) {
                row[2 * x] = static_cast<float>(re[x]);
                row[2 * x + 1] = static_cast<float>(im[x]);
            }
        }
        for (; x < elements; ++x) {
            row[2 * x] = 0.0f;
            row[2 * x + 1] = 0.0f;
        }
    });
}
