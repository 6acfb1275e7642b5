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
// from a 16-entry table, so any faster path must reproduce the scalar
// kernel's every operation in the same order.
#include <kx/core/pair.h>

#include <cstdint>

// In-place 2-D complex DFT. direction >= 0 forward (kernel e^-2pi i nk/N),
// < 0 inverse (e^+2pi i nk/N), both unscaled. Rows whose centred index lies
// outside [bandLo, bandHi] are known to be zero and skipped in the row pass.
void kf_ComplexFFT2D(float* data, kxPair<long> size, int direction, int bandLo, int bandHi);

// kf_ComplexFFT2D of a copy of `source` made in `data`, which must not
// overlap it: `source` is only read, and the copy is folded into the first
// pass instead of being made beforehand.
void kf_ComplexFFT2DFrom(const float* source, float* data, kxPair<long> size, int direction, int bandLo,
                         int bandHi);

// In-place forward 2-D DFT of real input: each row holds its paddedWidth
// samples packed in its first paddedWidth floats. On return the buffer holds
// what kf_ComplexFFT2D gives for those samples with zero imaginary parts.
// Called with direction 1 only; the band is accepted and ignored.
void kf_RealFFT2D(float* data, kxPair<long> size, int direction, int bandLo, int bandHi);

// Bit-reversal exchange table for rows of n elements, 1-based: entry i holds
// -1 (no exchange starts here) or 2*j, the 1-based float index of element j
// that element i is exchanged with.
void kf_BitReverseTable(std::int32_t* table, int n);

// src: rowCount rows of columnCount complex elements; dst receives
// columnCount rows of rowCount elements.
void kf_TransposeRect(const float* src, float* dst, int columnCount, int rowCount);

// In-place transpose of the part of an n x n matrix that holds data after a
// half-spectrum pass (halfRows: only columns 0..n/2 hold data; otherwise only
// rows 0..n/2).
void kf_TransposeSquare(float* data, int n, bool halfRows);

// In-place transpose of an n x n matrix that skips 4 x 4 block pairs whose
// rows all lie outside the centred band [bandLo, bandHi] (they are zero).
void kf_TransposeSquareBanded(float* data, int n, int bandLo, int bandHi);

// Rebuilds columns paddedWidth/2 + 1 .. paddedWidth - 1 of a real input's
// spectrum from conjugate symmetry.
void kf_FillConjugateHalf(float* data, kxPair<long> size);
