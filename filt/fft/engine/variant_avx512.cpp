// The engine on AVX-512 (F and DQ): sixteen lines per instruction, with
// eight and four for narrower matrices. Compiled with its own flags; see
// filt/CMakeLists.txt.
// g++ 12 reports the AVX-512 intrinsics' own undefined placeholder operands
// as (maybe) uninitialized; they are not. (clang has no such warning.)
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#pragma GCC diagnostic ignored "-Wuninitialized"
#endif

#include "fft/engine/lanes_128.h"
#include "fft/engine/lanes_256.h"
#include "fft/engine/lanes_512.h"
#include "fft/engine/line_group.h"
#include "fft/engine/pixel_rows.h"

namespace kf_avx512 {

struct Tag {};
using Lane16 = kf_Lane512<Tag>;
using Lane8 = kf_Lane256<Tag>;
using Lane4 = kf_Lane128<Tag>;

}  // namespace kf_avx512

const kf_LaneWidth kf_Avx512Widths[4] = {kf_LaneWidthOf<kf_avx512::Lane16>(), kf_LaneWidthOf<kf_avx512::Lane8>(),
                                         kf_LaneWidthOf<kf_avx512::Lane4>(), kf_LaneWidth{}};

namespace kf_avx512 {

// Sixteen magnitudes, each as the scalar conversion computes it: the single
// precision magnitude, widened to double, plus 0.5, truncated to 64 bits.
template <typename Store>
void magnitudes(const float* elements, long count, float s, Store store)
{
    const __m512i even = _mm512_set_epi32(30, 28, 26, 24, 22, 20, 18, 16, 14, 12, 10, 8, 6, 4, 2, 0);
    const __m512i odd = _mm512_set_epi32(31, 29, 27, 25, 23, 21, 19, 17, 15, 13, 11, 9, 7, 5, 3, 1);
    const __m512 scale = _mm512_set1_ps(s);
    const __m512d half = _mm512_set1_pd(0.5);
    auto sixteen = [&](const float* p, long at) {
        const __m512 a = _mm512_loadu_ps(p), b = _mm512_loadu_ps(p + 16);
        const __m512 re = _mm512_permutex2var_ps(a, even, b);
        const __m512 im = _mm512_permutex2var_ps(a, odd, b);
        const __m512 m = _mm512_mul_ps(_mm512_sqrt_ps(_mm512_add_ps(_mm512_mul_ps(re, re), _mm512_mul_ps(im, im))),
                                       scale);
        const __m512d low = _mm512_add_pd(_mm512_cvtps_pd(_mm512_castps512_ps256(m)), half);
        const __m512d high = _mm512_add_pd(
            _mm512_cvtps_pd(_mm256_castpd_ps(_mm512_extractf64x4_pd(_mm512_castps_pd(m), 1))), half);
        store(at, _mm512_cvttpd_epi64(low), _mm512_cvttpd_epi64(high));
    };
    long i = 0;
    for (; i + 16 <= count; i += 16)
        sixteen(elements + 2 * i, i);
    if (i < count) {
        // The tail through a zero-padded copy; only its own pixels are kept.
        alignas(64) float tail[32] = {};
        for (long k = 0; k < 2 * (count - i); ++k)
            tail[k] = elements[2 * i + k];
        sixteen(tail, i);
    }
}

}  // namespace kf_avx512

namespace kf_avx512 {

// Sixteen pixels at a time: `narrow` turns eight 64-bit integers into eight
// pixels; only the first count - at of each sixteen are written.
template <typename Pixel, typename Narrow>
void magnitudesTo(const float* elements, long count, float s, Pixel* out, Narrow narrow)
{
    magnitudes(elements, count, s, [=](long at, __m512i low, __m512i high) {
        alignas(32) Pixel pixels[16];
        narrow(low, pixels);
        narrow(high, pixels + 8);
        const long n = count - at < 16 ? count - at : 16;
        for (long k = 0; k < n; ++k)
            out[at + k] = pixels[k];
    });
}

}  // namespace kf_avx512

void kf_Avx512Magnitudes8(const float* elements, long count, float s, unsigned char* out)
{
    kf_avx512::magnitudesTo(elements, count, s, out, [](__m512i v, unsigned char* to) {
        _mm_storel_epi64(reinterpret_cast<__m128i*>(to), _mm512_cvtepi64_epi8(v));
    });
}

void kf_Avx512Magnitudes16(const float* elements, long count, float s, unsigned short* out)
{
    kf_avx512::magnitudesTo(elements, count, s, out, [](__m512i v, unsigned short* to) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to), _mm512_cvtepi64_epi16(v));
    });
}
