#pragma once
// Internal: the FFT engine. None of these names is exported.
//
// The engine transforms, in place, the float store of a frequency buffer:
// paddedHeight rows of paddedWidth complex elements, (real, imaginary) floats,
// rows contiguous, both sizes powers of two from 1 to 2048. Results are
// unscaled and in natural order (zero frequency at element (0, 0)).
//
// Numerics are fixed bit for bit: a split-radix decimation-in-frequency
// kernel in single precision with rotation factors advanced by recurrence
// from a 16-entry table, so any faster path must give every element the
// scalar kernel's operations on the same values in the same order (only
// independent blocks of the transform may run in another order).
//
// Threads: each entry point may share its lines among `threads` threads,
// the calling thread included (1, the default: the calling thread alone).
// Every line is computed by the same operations whichever thread takes it,
// so the result does not depend on the count. The calling thread alone polls
// kxAttention::check(); with one thread the polls are those listed in
// docs and tests (every 16 lines), with more the calling thread polls before
// each group of lines it takes, and a stop there stops the other threads too.
#include "fft/engine/direction.h"
#include "fft/engine/pixels.h"

#include <kx/core/pair.h>

#include <cstdint>

// Rows of a complex matrix known to hold data: those whose centred index
// (storage row r of H: r + H/2 below H/2, r - H/2 from there) lies in
// [lo, hi]. The others are zero and the row pass skips them.
struct kf_RowBand {
    int lo, hi;
};

// Every row of a matrix of `height` rows.
inline kf_RowBand kf_AllRows(long height) { return kf_RowBand{0, static_cast<int>(height)}; }

// The calling thread alone.
constexpr int kf_CallingThreadOnly = 1;

// In-place 2-D complex DFT.
void kf_ComplexFFT2D(float* data, kxPair<long> size, kf_Direction direction, kf_RowBand band,
                     int threads = kf_CallingThreadOnly);

// kf_ComplexFFT2D of a copy of `source` made in `data`, which must not
// overlap it: `source` is only read, and the copy is folded into the first
// pass instead of being made beforehand.
void kf_ComplexFFT2DFrom(const float* source, float* data, kxPair<long> size, kf_Direction direction,
                         kf_RowBand band, int threads = kf_CallingThreadOnly);

// In-place forward 2-D DFT of real input: each row holds its paddedWidth
// samples packed in its first paddedWidth floats. On return the buffer holds
// what kf_ComplexFFT2D gives for those samples with zero imaginary parts.
void kf_RealFFT2D(float* data, kxPair<long> size, int threads = kf_CallingThreadOnly);

// kf_RealFFT2D of the samples of `pixels` (fft/engine/pixels.h), which must
// fit in `size`: the vectorised variants read the pixels in their first
// pass, the scalar engine writes the samples into `data` first.
void kf_RealFFT2DFromPixels(const kf_PixelRows& pixels, float* data, kxPair<long> size,
                            int threads = kf_CallingThreadOnly);

// The forward kf_ComplexFFT2D of every row of two images' samples as the
// real and imaginary parts (of one size and pixel type, fitting in `size`),
// read as kf_RealFFT2DFromPixels reads one image.
void kf_ComplexFFT2DFromPixels(const kf_PixelRows& real, const kf_PixelRows& imag, float* data, kxPair<long> size,
                               int threads = kf_CallingThreadOnly);

// Bit-reversal exchange table for rows of n elements, 1-based: entry i holds
// -1 (no exchange starts here) or 2*j, the 1-based float index of element j
// that element i is exchanged with.
void kf_BitReverseTable(std::int32_t* table, int n);

// src: rowCount rows of columnCount complex elements; dst receives
// columnCount rows of rowCount elements.
void kf_TransposeRect(const float* src, float* dst, int columnCount, int rowCount);

// Which half of a square matrix holds data after the real path's half-width
// pass: columns 0..n/2 (before the first transpose), or rows 0..n/2 (after).
enum class kf_DataHalf { LeftColumns, TopRows };

// In-place transpose of the part of an n x n matrix that holds data.
void kf_TransposeSquare(float* data, int n, kf_DataHalf half);

// In-place transpose of an n x n matrix that skips 4 x 4 block pairs whose
// rows all lie outside the centred band (they are zero).
void kf_TransposeSquareBanded(float* data, int n, kf_RowBand band);

// Rebuilds columns paddedWidth/2 + 1 .. paddedWidth - 1 of a real input's
// spectrum from conjugate symmetry.
void kf_FillConjugateHalf(float* data, kxPair<long> size);
