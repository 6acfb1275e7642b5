// The engine on AVX2: eight lines per instruction, with four for narrower
// matrices. Compiled with its own flags; see filt/CMakeLists.txt.
#include "fft/engine/lanes_128.h"
#include "fft/engine/lanes_256.h"
#include "fft/engine/line_group.h"
#include "fft/engine/pixel_rows.h"

namespace kf_avx2 {

struct Tag {};
using Lane8 = kf_Lane256<Tag>;
using Lane4 = kf_Lane128<Tag>;

}  // namespace kf_avx2

const kf_LaneWidth kf_Avx2Widths[4] = {kf_LaneWidthOf<kf_avx2::Lane8>(), kf_LaneWidthOf<kf_avx2::Lane4>(),
                                       kf_LaneWidth{}, kf_LaneWidth{}};

// Eight double pixels at a time: the squares' pairs summed as the scalar
// conversion sums them (re * re + im * im), the root scaled in single
// precision and widened.
void kf_Avx2MagnitudesDouble(const float* elements, long count, float s, double* out)
{
    const __m256 scale = _mm256_set1_ps(s);
    auto eight = [&](const float* p) {
        const __m256 a = _mm256_loadu_ps(p), b = _mm256_loadu_ps(p + 8);
        // hadd gives elements 0 1 4 5 | 2 3 6 7; the permutation restores 0 .. 7.
        const __m256 sums = _mm256_hadd_ps(_mm256_mul_ps(a, a), _mm256_mul_ps(b, b));
        const __m256 ordered = _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(sums), 0xD8));
        return _mm256_mul_ps(_mm256_sqrt_ps(ordered), scale);
    };
    long i = 0;
    for (; i + 8 <= count; i += 8) {
        const __m256 m = eight(elements + 2 * i);
        _mm256_storeu_pd(out + i, _mm256_cvtps_pd(_mm256_castps256_ps128(m)));
        _mm256_storeu_pd(out + i + 4, _mm256_cvtps_pd(_mm256_extractf128_ps(m, 1)));
    }
    if (i < count) {
        // The tail through a zero-padded copy; only its own pixels are kept.
        alignas(32) float tail[16] = {};
        for (long k = 0; k < 2 * (count - i); ++k)
            tail[k] = elements[2 * i + k];
        alignas(32) float m[8];
        _mm256_store_ps(m, eight(tail));
        for (long k = 0; k < count - i; ++k)
            out[i + k] = static_cast<double>(m[k]);
    }
}
