#pragma once
// Internal: the forward row passes reading images' pixels (one image as
// real samples, two as real and imaginary parts), so that the floats they
// transform are never stored and read back. Included only by the variant
// files; templates on the lane type, as in line_group.h.
#include "fft/engine/line_group.h"
#include "fft/engine/pixels.h"

#include <immintrin.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <type_traits>

// L pixels from p as floats, exactly as static_cast converts them one by
// one: integers exactly, doubles rounded to nearest (the processor's
// rounding, as the scalar conversion uses it).
template <typename Lane, typename T>
Lane kf_LoadPixels(const T* p)
{
    constexpr int L = Lane::width;
    if constexpr (L == 4) {
        if constexpr (std::is_same_v<T, unsigned char>) {
            std::int32_t four;
            std::memcpy(&four, p, sizeof four);
            const __m128i zero = _mm_setzero_si128();
            const __m128i words = _mm_unpacklo_epi8(_mm_cvtsi32_si128(four), zero);
            return Lane(_mm_cvtepi32_ps(_mm_unpacklo_epi16(words, zero)));
        } else if constexpr (std::is_same_v<T, unsigned short>) {
            const __m128i words = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
            return Lane(_mm_cvtepi32_ps(_mm_unpacklo_epi16(words, _mm_setzero_si128())));
        } else {
            return Lane(_mm_movelh_ps(_mm_cvtpd_ps(_mm_loadu_pd(p)), _mm_cvtpd_ps(_mm_loadu_pd(p + 2))));
        }
    }
#ifdef __AVX2__
    else if constexpr (L == 8) {
        if constexpr (std::is_same_v<T, unsigned char>) {
            const __m128i bytes = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
            return Lane(_mm256_cvtepi32_ps(_mm256_cvtepu8_epi32(bytes)));
        } else if constexpr (std::is_same_v<T, unsigned short>) {
            const __m128i words = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
            return Lane(_mm256_cvtepi32_ps(_mm256_cvtepu16_epi32(words)));
        } else {
            const __m128 low = _mm256_cvtpd_ps(_mm256_loadu_pd(p)), high = _mm256_cvtpd_ps(_mm256_loadu_pd(p + 4));
            return Lane(_mm256_insertf128_ps(_mm256_castps128_ps256(low), high, 1));
        }
    }
#endif
#ifdef __AVX512F__
    else if constexpr (L == 16) {
        if constexpr (std::is_same_v<T, unsigned char>) {
            const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
            return Lane(_mm512_cvtepi32_ps(_mm512_cvtepu8_epi32(bytes)));
        } else if constexpr (std::is_same_v<T, unsigned short>) {
            const __m256i words = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
            return Lane(_mm512_cvtepi32_ps(_mm512_cvtepu16_epi32(words)));
        } else {
            const __m256d low = _mm256_castps_pd(_mm512_cvtpd_ps(_mm512_loadu_pd(p)));
            const __m256d high = _mm256_castps_pd(_mm512_cvtpd_ps(_mm512_loadu_pd(p + 8)));
            return Lane(_mm512_castpd_ps(_mm512_insertf64x4(_mm512_castpd256_pd512(low), high, 1)));
        }
    }
#endif
}

// Pixels x0 .. x0 + L - 1 of rows firstRow .. firstRow + L - 1 of
// `pixels` as samples (zeros past the image), transposed in registers:
// block[j] holds sample x0 + j of each row, one row per lane, as
// kf_GatherLines transposes floats.
template <typename Lane, typename T>
void kf_PixelBlock(const T* first, const kf_PixelRows& pixels, int firstRow, long x0, Lane* block)
{
    constexpr int L = Lane::width;
    const long rows = std::min<long>(L, pixels.height - firstRow);
    const long count = std::min<long>(L, pixels.width - x0);
    if (rows <= 0 || count <= 0) {
        for (int j = 0; j < L; ++j)
            block[j] = Lane(0.0f);
        return;
    }
    if (count == L) {
        for (int l = 0; l < L; ++l)
            block[l] = l < rows ? kf_LoadPixels<Lane>(first + (firstRow + l) * pixels.stride + x0) : Lane(0.0f);
    } else {
        // The block across the image's right edge: each row's pixels copied
        // into L zero pixels first, which convert to the zero samples.
        for (int l = 0; l < L; ++l) {
            T edge[L] = {};
            if (l < rows) {
                const T* from = first + (firstRow + l) * pixels.stride + x0;
                for (long f = 0; f < count; ++f)
                    edge[f] = from[f];
            }
            block[l] = kf_LoadPixels<Lane>(edge);
        }
    }
    Lane::transpose(block);
}

// The real row pass with rows firstRow .. of `pixels` as its samples (2n
// per row, a multiple of the lanes).
template <typename Lane>
void kf_RealRowsFromPixels(const kf_LineGroup& group, const kf_RealRowConstants& k, const kf_PixelRows& pixels,
                           int firstRow)
{
    Lane* lanes = reinterpret_cast<Lane*>(group.scratch);
    kf_WithPixels(pixels, [&](const auto* first) {
        for (int f0 = 0; f0 < 2 * group.n; f0 += Lane::width)
            kf_PixelBlock(first, pixels, firstRow, f0, lanes + f0);
    });
    kf_TransformRealRows(group, k, lanes);
}

// The forward complex row pass with rows firstRow .. of two images as the
// real and imaginary parts of its n elements.
template <typename Lane>
void kf_ComplexRowsFromPixels(const kf_LineGroup& group, const kf_PixelRows& real, const kf_PixelRows& imag,
                              int firstRow)
{
    constexpr int L = Lane::width;
    Lane* lanes = reinterpret_cast<Lane*>(group.scratch);
    kf_WithPixels(real, [&](const auto* realFirst) {
        const auto* imagFirst = static_cast<decltype(realFirst)>(imag.first);
        if (group.n < L) {
            // Rows shorter than the lanes: blocks of pixels would be mostly
            // padding, so the rows are written as floats and gathered as usual.
            for (int l = 0; l < L; ++l) {
                float* row = group.base + l * group.lineStride;
                const long y = firstRow + l;
                const long count = y < real.height ? std::min<long>(real.width, group.n) : 0;
                for (long x = 0; x < count; ++x) {
                    row[2 * x] = static_cast<float>(realFirst[y * real.stride + x]);
                    row[2 * x + 1] = static_cast<float>(imagFirst[y * imag.stride + x]);
                }
                for (long x = count; x < group.n; ++x) {
                    row[2 * x] = 0.0f;
                    row[2 * x + 1] = 0.0f;
                }
            }
            kf_GatherLines(group, lanes, group.n);
            return;
        }
        for (int e0 = 0; e0 < group.n; e0 += L) {
            Lane re[L], im[L];
            kf_PixelBlock(realFirst, real, firstRow, e0, re);
            kf_PixelBlock(imagFirst, imag, firstRow, e0, im);
            for (int j = 0; j < L; ++j) {
                lanes[2 * (e0 + j)] = re[j];
                lanes[2 * (e0 + j) + 1] = im[j];
            }
        }
    });
    kf_TransformComplexLines(group, lanes);
}
