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
