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

// Sixteen single-precision magnitudes sqrt(re * re + im * im) * s at a
// time, each as the scalar conversion computes it, handed to store(at, m).
template <typename Store>
void magnitudes(const float* elements, long count, float s, Store store)
{
    const __m512i even = _mm512_set_epi32(30, 28, 26, 24, 22, 20, 18, 16, 14, 12, 10, 8, 6, 4, 2, 0);
    const __m512i odd = _mm512_set_epi32(31, 29, 27, 25, 23, 21, 19, 17, 15, 13, 11, 9, 7, 5, 3, 1);
    const __m512 scale = _mm512_set1_ps(s);
    auto sixteen = [&](const float* p, long at) {
        const __m512 a = _mm512_loadu_ps(p), b = _mm512_loadu_ps(p + 16);
        const __m512 re = _mm512_permutex2var_ps(a, even, b);
        const __m512 im = _mm512_permutex2var_ps(a, odd, b);
        store(at, _mm512_mul_ps(_mm512_sqrt_ps(_mm512_add_ps(_mm512_mul_ps(re, re), _mm512_mul_ps(im, im))),
                                scale));
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

// The magnitudes' halves widened to double.
inline __m512d lowHalf(__m512 m) { return _mm512_cvtps_pd(_mm512_castps512_ps256(m)); }
inline __m512d highHalf(__m512 m)
{
    return _mm512_cvtps_pd(_mm256_castpd_ps(_mm512_extractf64x4_pd(_mm512_castps_pd(m), 1)));
}

// The integer pixels' values: each magnitude widened to double, plus 0.5,
// truncated to 64 bits, handed to store(at, low eight, high eight).
template <typename Store>
void roundedMagnitudes(const float* elements, long count, float s, Store store)
{
    const __m512d half = _mm512_set1_pd(0.5);
    magnitudes(elements, count, s, [&](long at, __m512 m) {
        store(at, _mm512_cvttpd_epi64(_mm512_add_pd(lowHalf(m), half)),
              _mm512_cvttpd_epi64(_mm512_add_pd(highHalf(m), half)));
    });
}

// Sixteen pixels at a time: `narrow` turns eight 64-bit integers into eight
// pixels; only the first count - at of each sixteen are written.
template <typename Pixel, typename Narrow>
void magnitudesTo(const float* elements, long count, float s, Pixel* out, Narrow narrow)
{
    roundedMagnitudes(elements, count, s, [=](long at, __m512i low, __m512i high) {
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

void kf_Avx512MagnitudesDouble(const float* elements, long count, float s, double* out)
{
    kf_avx512::magnitudes(elements, count, s, [=](long at, __m512 m) {
        const long n = count - at < 16 ? count - at : 16;
        if (n == 16) {
            _mm512_storeu_pd(out + at, kf_avx512::lowHalf(m));
            _mm512_storeu_pd(out + at + 8, kf_avx512::highHalf(m));
            return;
        }
        alignas(64) float tail[16];
        _mm512_store_ps(tail, m);
        for (long k = 0; k < n; ++k)
            out[at + k] = static_cast<double>(tail[k]);
    });
}
