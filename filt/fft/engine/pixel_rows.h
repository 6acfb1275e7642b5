#pragma once
// Internal: the real row pass reading an image's pixels, so that the floats
// it transforms are never stored and read back. Included only by the
// variant files; templates on the lane type, as in line_group.h.
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

// Rows firstRow .. firstRow + L - 1 of the samples of `pixels`, `floats`
// (a multiple of L) of each, into lanes[0 .. floats): L x L blocks of
// pixels converted to floats and transposed in registers, as
// kf_GatherLines does with floats. Blocks wholly past the image are zeros.
template <typename Lane, typename T>
void kf_GatherPixelRows(const T* first, const kf_PixelRows& pixels, int firstRow, Lane* lanes, int floats)
{
    constexpr int L = Lane::width;
    const long rows = std::min<long>(L, pixels.height - firstRow);
    for (int f0 = 0; f0 < floats; f0 += L) {
        const long count = std::min<long>(L, pixels.width - f0);
        if (rows <= 0 || count <= 0) {
            for (int f = 0; f < L; ++f)
                lanes[f0 + f] = Lane(0.0f);
            continue;
        }
        Lane block[L];
        if (count == L) {
            for (int l = 0; l < L; ++l)
                block[l] = l < rows ? kf_LoadPixels<Lane>(first + (firstRow + l) * pixels.stride + f0) : Lane(0.0f);
        } else {
            // The block across the image's right edge, pixel by pixel.
            alignas(64) float table[L * L];
            for (int l = 0; l < L; ++l) {
                float* to = table + l * L;
                long f = 0;
                if (l < rows) {
                    const T* from = first + (firstRow + l) * pixels.stride + f0;
                    for (; f < count; ++f)
                        to[f] = static_cast<float>(from[f]);
                }
                for (; f < L; ++f)
                    to[f] = 0.0f;
                block[l] = Lane::load(to);
            }
        }
        Lane::transpose(block);
        for (int f = 0; f < L; ++f)
            lanes[f0 + f] = block[f];
    }
}

template <typename Lane>
void kf_RealRowsFromPixels(const kf_LineGroup& group, const kf_RealRowConstants& k, const kf_PixelRows& pixels,
                           int firstRow)
{
    Lane* lanes = reinterpret_cast<Lane*>(group.scratch);
    kf_WithPixels(pixels,
                  [&](const auto* first) { kf_GatherPixelRows(first, pixels, firstRow, lanes, 2 * group.n); });
    kf_TransformRealRows(group, k, lanes);
}
