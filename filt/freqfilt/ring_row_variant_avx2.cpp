// The ring row on AVX2: eight elements per step, the profile read with a
// masked gather. Compiled with its own flags; see filt/CMakeLists.txt.
#include "freqfilt/ring_row.h"

#include <immintrin.h>

void kf_Avx2RingRow(const kf_RingRow& row)
{
    const long W = row.width;
    long x = 0;
    if (W >= 16) {
        // Each step's eight indices lie on one side of W/2 (both multiples of
        // eight), so the step's ring frequencies are x .. x + 7 shifted by W
        // or not at all.
        const __m256i lanes = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
        const __m256i yterm = _mm256_set1_epi32(row.yterm);
        const __m256i inner = _mm256_set1_epi32(row.inner);
        const __m256i outer = _mm256_set1_epi32(row.outer);
        const __m256d f0 = _mm256_set1_pd(static_cast<double>(row.f0));
        const __m256d bins = _mm256_set1_pd(32.0);
        const __m256i lowPairs = _mm256_setr_epi32(0, 0, 1, 1, 2, 2, 3, 3);
        const __m256i highPairs = _mm256_setr_epi32(4, 4, 5, 5, 6, 6, 7, 7);
        const __m256 zero = _mm256_setzero_ps();
        for (; x + 8 <= W; x += 8) {
            const long shift = 2 * x < W ? 0 : W;
            const __m256i u = _mm256_add_epi32(_mm256_set1_epi32(static_cast<std::int32_t>(x - shift)), lanes);
            const __m256i r2 = _mm256_add_epi32(_mm256_mullo_epi32(u, u), yterm);
            const __m256i on = _mm256_and_si256(_mm256_cmpgt_epi32(r2, inner), _mm256_cmpgt_epi32(outer, r2));
            const float* s = row.src + 2 * x;
            float* d = row.dst + 2 * x;
            const __m256 s0 = _mm256_loadu_ps(s), s1 = _mm256_loadu_ps(s + 8);
            const __m256 off0 = row.clearOutside ? zero : s0;
            const __m256 off1 = row.clearOutside ? zero : s1;
            if (_mm256_testz_si256(on, on)) {
                _mm256_storeu_ps(d, off0);
                _mm256_storeu_ps(d + 8, off1);
                continue;
            }
            const __m256d low = _mm256_mul_pd(
                _mm256_sub_pd(_mm256_sqrt_pd(_mm256_cvtepi32_pd(_mm256_castsi256_si128(r2))), f0), bins);
            const __m256d high = _mm256_mul_pd(
                _mm256_sub_pd(_mm256_sqrt_pd(_mm256_cvtepi32_pd(_mm256_extracti128_si256(r2, 1))), f0), bins);
            const __m256i index =
                _mm256_abs_epi32(_mm256_set_m128i(_mm256_cvttpd_epi32(high), _mm256_cvttpd_epi32(low)));
            const __m256 gain = _mm256_mask_i32gather_ps(zero, row.profile, index, _mm256_castsi256_ps(on), 4);
            const __m256 on0 = _mm256_castsi256_ps(_mm256_permutevar8x32_epi32(on, lowPairs));
            const __m256 on1 = _mm256_castsi256_ps(_mm256_permutevar8x32_epi32(on, highPairs));
            const __m256 g0 = _mm256_permutevar8x32_ps(gain, lowPairs);
            const __m256 g1 = _mm256_permutevar8x32_ps(gain, highPairs);
            _mm256_storeu_ps(d, _mm256_blendv_ps(off0, _mm256_mul_ps(s0, g0), on0));
            _mm256_storeu_ps(d + 8, _mm256_blendv_ps(off1, _mm256_mul_ps(s1, g1), on1));
        }
    }
    kf_RingRowScalar(row, x, W);
}
