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
#include "fft/engine/pixel_columns.h"

namespace kf_avx512 {

struct Tag {};
using Lane16 = kf_Lane512<Tag>;
using Lane8 = kf_Lane256<Tag>;
using Lane4 = kf_Lane128<Tag>;

}  // namespace kf_avx512

const kf_LaneWidth kf_Avx512Widths[4] = {
    {16, kf_ComplexLines<kf_avx512::Lane16>, kf_RealRows<kf_avx512::Lane16>,
     kf_RealColumns<kf_avx512::Lane16>},
    {8, kf_ComplexLines<kf_avx512::Lane8>, kf_RealRows<kf_avx512::Lane8>, kf_RealColumns<kf_avx512::Lane8>},
    {4, kf_ComplexLines<kf_avx512::Lane4>, kf_RealRows<kf_avx512::Lane4>, kf_RealColumns<kf_avx512::Lane4>},
    {0, nullptr, nullptr, nullptr}};

namespace kf_avx512 {

// The magnitudes of sixteen elements times s in single precision, widened
// to double: elements 0 .. 7 in `low`, 8 .. 15 in `high`.
inline void magnitudeHalves(__m512 re, __m512 im, __m512 scale, __m512d& low, __m512d& high)
{
    const __m512 m = _mm512_mul_ps(_mm512_sqrt_ps(_mm512_add_ps(_mm512_mul_ps(re, re), _mm512_mul_ps(im, im))),
                                   scale);
    low = _mm512_cvtps_pd(_mm512_castps512_ps256(m));
    high = _mm512_cvtps_pd(_mm256_castpd_ps(_mm512_extractf64x4_pd(_mm512_castps_pd(m), 1)));
}

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
        __m512d low, high;
        magnitudeHalves(_mm512_permutex2var_ps(a, even, b), _mm512_permutex2var_ps(a, odd, b), scale, low, high);
        store(at, _mm512_cvttpd_epi64(_mm512_add_pd(low, half)), _mm512_cvttpd_epi64(_mm512_add_pd(high, half)));
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

// The last pass's pixel rows on sixteen lanes: whole rows of sixteen in
// vectors, as kf_Avx512Magnitudes8/16 convert them; a shorter row through
// the table.
template <>
struct kf_PixelRow<kf_avx512::Lane16> {
    static void write(const kf_avx512::Lane16& re, const kf_avx512::Lane16& im, int count,
                      const kf_PixelTarget& target, long x0, long y)
    {
        if (count < 16) {
            alignas(64) float r[16];
            alignas(64) float i[16];
            re.store(r);
            im.store(i);
            kf_PixelRun(r, i, count, target, x0, y);
            return;
        }
        __m512d low, high;
        kf_avx512::magnitudeHalves(re.v, im.v, _mm512_set1_ps(target.s), low, high);
        const long at = y * target.rowPixels + x0;
        if (target.type == kf_PixelType::Double) {
            double* out = static_cast<double*>(target.pixels) + at;
            _mm512_storeu_pd(out, low);
            _mm512_storeu_pd(out + 8, high);
            return;
        }
        const __m512d half = _mm512_set1_pd(0.5);
        const __m512i lowInt = _mm512_cvttpd_epi64(_mm512_add_pd(low, half));
        const __m512i highInt = _mm512_cvttpd_epi64(_mm512_add_pd(high, half));
        if (target.type == kf_PixelType::Byte) {
            unsigned char* out = static_cast<unsigned char*>(target.pixels) + at;
            _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm512_cvtepi64_epi8(lowInt));
            _mm_storel_epi64(reinterpret_cast<__m128i*>(out + 8), _mm512_cvtepi64_epi8(highInt));
            return;
        }
        unsigned short* out = static_cast<unsigned short*>(target.pixels) + at;
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm512_cvtepi64_epi16(lowInt));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 8), _mm512_cvtepi64_epi16(highInt));
    }
};

const kf_PixelColumns kf_Avx512PixelColumns[3] = {kf_PixelColumnsOf<kf_avx512::Lane16>,
                                                  kf_PixelColumnsOf<kf_avx512::Lane8>,
                                                  kf_PixelColumnsOf<kf_avx512::Lane4>};
