#pragma once
// Internal: sixteen floats per lane group (AVX-512 F and DQ). Tag keeps each
// variant's instantiations apart.
#include <immintrin.h>

template <typename Tag>
struct kf_Lane512 {
    static constexpr int width = 16;
    __m512 v;

    kf_Lane512() = default;
    explicit kf_Lane512(__m512 value) : v(value) {}
    explicit kf_Lane512(float value) : v(_mm512_set1_ps(value)) {}

    static kf_Lane512 load(const float* p) { return kf_Lane512(_mm512_load_ps(p)); }
    void store(float* p) const { _mm512_store_ps(p, v); }
    // The lanes in reverse order.
    kf_Lane512 reversed() const
    {
        return kf_Lane512(
            _mm512_permutexvar_ps(_mm512_setr_epi32(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0), v));
    }
    static kf_Lane512 loadu(const float* p) { return kf_Lane512(_mm512_loadu_ps(p)); }
    void storeu(float* p) const { _mm512_storeu_ps(p, v); }

    // Transposes the 16 x 16 matrix whose rows are r[0..15].
    static void transpose(kf_Lane512* r)
    {
        __m512 t[16];
        for (int i = 0; i < 8; ++i) {
            t[2 * i] = _mm512_unpacklo_ps(r[2 * i].v, r[2 * i + 1].v);
            t[2 * i + 1] = _mm512_unpackhi_ps(r[2 * i].v, r[2 * i + 1].v);
        }
        // q[4i + j], 128-bit quarter k: rows 4i .. 4i + 3 of column 4k + j.
        __m512 q[16];
        for (int i = 0; i < 4; ++i) {
            const __m512d a = _mm512_castps_pd(t[4 * i]), b = _mm512_castps_pd(t[4 * i + 2]);
            const __m512d c = _mm512_castps_pd(t[4 * i + 1]), d = _mm512_castps_pd(t[4 * i + 3]);
            q[4 * i] = _mm512_castpd_ps(_mm512_unpacklo_pd(a, b));
            q[4 * i + 1] = _mm512_castpd_ps(_mm512_unpackhi_pd(a, b));
            q[4 * i + 2] = _mm512_castpd_ps(_mm512_unpacklo_pd(c, d));
            q[4 * i + 3] = _mm512_castpd_ps(_mm512_unpackhi_pd(c, d));
        }
        for (int j = 0; j < 4; ++j) {
            const __m512 a = _mm512_shuffle_f32x4(q[j], q[4 + j], 0x88);
            const __m512 b = _mm512_shuffle_f32x4(q[j], q[4 + j], 0xDD);
            const __m512 c = _mm512_shuffle_f32x4(q[8 + j], q[12 + j], 0x88);
            const __m512 d = _mm512_shuffle_f32x4(q[8 + j], q[12 + j], 0xDD);
            r[j].v = _mm512_shuffle_f32x4(a, c, 0x88);
            r[4 + j].v = _mm512_shuffle_f32x4(b, d, 0x88);
            r[8 + j].v = _mm512_shuffle_f32x4(a, c, 0xDD);
            r[12 + j].v = _mm512_shuffle_f32x4(b, d, 0xDD);
        }
    }

    static void deinterleave(const float* p, kf_Lane512& re, kf_Lane512& im)
    {
        const __m512 a = _mm512_loadu_ps(p), b = _mm512_loadu_ps(p + 16);
        const __m512i even = _mm512_set_epi32(30, 28, 26, 24, 22, 20, 18, 16, 14, 12, 10, 8, 6, 4, 2, 0);
        const __m512i odd = _mm512_set_epi32(31, 29, 27, 25, 23, 21, 19, 17, 15, 13, 11, 9, 7, 5, 3, 1);
        re.v = _mm512_permutex2var_ps(a, even, b);
        im.v = _mm512_permutex2var_ps(a, odd, b);
    }
    static void interleave(float* p, const kf_Lane512& re, const kf_Lane512& im)
    {
        const __m512i lo = _mm512_set_epi32(23, 7, 22, 6, 21, 5, 20, 4, 19, 3, 18, 2, 17, 1, 16, 0);
        const __m512i hi = _mm512_set_epi32(31, 15, 30, 14, 29, 13, 28, 12, 27, 11, 26, 10, 25, 9, 24, 8);
        _mm512_storeu_ps(p, _mm512_permutex2var_ps(re.v, lo, im.v));
        _mm512_storeu_ps(p + 16, _mm512_permutex2var_ps(re.v, hi, im.v));
    }
};

template <typename T>
inline kf_Lane512<T> operator+(kf_Lane512<T> a, kf_Lane512<T> b) { return kf_Lane512<T>(_mm512_add_ps(a.v, b.v)); }
template <typename T>
inline kf_Lane512<T> operator-(kf_Lane512<T> a, kf_Lane512<T> b) { return kf_Lane512<T>(_mm512_sub_ps(a.v, b.v)); }
template <typename T>
inline kf_Lane512<T> operator*(kf_Lane512<T> a, kf_Lane512<T> b) { return kf_Lane512<T>(_mm512_mul_ps(a.v, b.v)); }
template <typename T>
inline kf_Lane512<T> operator*(kf_Lane512<T> a, float b)
{
    return kf_Lane512<T>(_mm512_mul_ps(a.v, _mm512_set1_ps(b)));
}
template <typename T>
inline kf_Lane512<T> operator*(float a, kf_Lane512<T> b)
{
    return kf_Lane512<T>(_mm512_mul_ps(_mm512_set1_ps(a), b.v));
}
// Negation flips the sign bit, as the scalar negation does.
template <typename T>
inline kf_Lane512<T> operator-(kf_Lane512<T> a)
{
    return kf_Lane512<T>(_mm512_xor_ps(a.v, _mm512_set1_ps(-0.0f)));
}
