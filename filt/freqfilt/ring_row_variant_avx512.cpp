// The ring row on AVX-512 (F and DQ): sixteen elements per step, the profile
// read with a masked gather. Compiled with its own flags; see
// filt/CMakeLists.txt.
#include "freqfilt/ring_row.h"

#include <immintrin.h>

// g++ 12 reports the AVX-512 intrinsics' own undefined placeholder operands
// as (maybe) uninitialized; they are not.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#pragma GCC diagnostic ignored "-Wuninitialized"
#endif

void kf_Avx512RingRow(const kf_RingRow& row)
{
    const long W = row.width;
    long x = 0;
    if (W >= 32) {
        // Each step's sixteen indices lie on one side of W/2 (both multiples
        // of sixteen), so the step's ring frequencies are x .. x + 15 shifted
        // by W or not at all.
        const __m512i lanes = _mm512_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
        const __m512i yterm = _mm512_set1_epi32(row.yterm);
        const __m512i inner = _mm512_set1_epi32(row.inner);
        const __m512i outer = _mm512_set1_epi32(row.outer);
        const __m512d f0 = _mm512_set1_pd(static_cast<double>(row.f0));
        const __m512d bins = _mm512_set1_pd(32.0);
        const __m512i lowPairs = _mm512_setr_epi32(0, 0, 1, 1, 2, 2, 3, 3, 4, 4, 5, 5, 6, 6, 7, 7);
        const __m512i highPairs = _mm512_setr_epi32(8, 8, 9, 9, 10, 10, 11, 11, 12, 12, 13, 13, 14, 14, 15, 15);
        const __m512 zero = _mm512_setzero_ps();
        for (; x + 16 <= W; x += 16) {
            const long shift = 2 * x < W ? 0 : W;
            const __m512i u = _mm512_add_epi32(_mm512_set1_epi32(static_cast<std::int32_t>(x - shift)), lanes);
            const __m512i r2 = _mm512_add_epi32(_mm512_mullo_epi32(u, u), yterm);
            const __mmask16 on = _mm512_cmpgt_epi32_mask(r2, inner) & _mm512_cmpgt_epi32_mask(outer, r2);
            const float* s = row.src + 2 * x;
            float* d = row.dst + 2 * x;
            const __m512 s0 = _mm512_loadu_ps(s), s1 = _mm512_loadu_ps(s + 16);
            const __m512 off0 = row.clearOutside ? zero : s0;
            const __m512 off1 = row.clearOutside ? zero : s1;
            if (on == 0) {
                _mm512_storeu_ps(d, off0);
                _mm512_storeu_ps(d + 16, off1);
                continue;
            }
            const __m512d low = _mm512_mul_pd(
                _mm512_sub_pd(_mm512_sqrt_pd(_mm512_cvtepi32_pd(_mm512_castsi512_si256(r2))), f0), bins);
            const __m512d high = _mm512_mul_pd(
                _mm512_sub_pd(_mm512_sqrt_pd(_mm512_cvtepi32_pd(_mm512_extracti64x4_epi64(r2, 1))), f0), bins);
            const __m512i index = _mm512_abs_epi32(
                _mm512_inserti64x4(_mm512_castsi256_si512(_mm512_cvttpd_epi32(low)), _mm512_cvttpd_epi32(high), 1));
            const __m512 gain = _mm512_mask_i32gather_ps(zero, on, index, row.profile, 4);
            // Element k's mask bit twice, for its real and imaginary floats.
            const __m512i onLanes = _mm512_movm_epi32(on);
            const __mmask16 on0 = _mm512_movepi32_mask(_mm512_permutexvar_epi32(lowPairs, onLanes));
            const __mmask16 on1 = _mm512_movepi32_mask(_mm512_permutexvar_epi32(highPairs, onLanes));
            const __m512 g0 = _mm512_permutexvar_ps(lowPairs, gain);
            const __m512 g1 = _mm512_permutexvar_ps(highPairs, gain);
            _mm512_storeu_ps(d, _mm512_mask_mul_ps(off0, on0, s0, g0));
            _mm512_storeu_ps(d + 16, _mm512_mask_mul_ps(off1, on1, s1, g1));
        }
    }
    kf_RingRowScalar(row, x, W);
}
