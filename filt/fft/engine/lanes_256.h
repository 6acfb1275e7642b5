#pragma once
// Internal: eight floats per lane group (AVX, with AVX2 for the element
// shuffles). Tag keeps each variant's instantiations apart.
#include <immintrin.h>

template <typename Tag>
struct kf_Lane256 {
    static constexpr int width = 8;
    __m256 v;

    kf_Lane256() = default;
    explicit kf_Lane256(__m256 value) : v(value) {}
    explicit kf_Lane256(float value) : v(_mm256_set1_ps(value)) {}

    static kf_Lane256 load(const float* p) { return kf_Lane256(_mm256_load_ps(p)); }
    void store(float* p) const { _mm256_store_ps(p, v); }
    // The lanes in reverse order.
    kf_Lane256 reversed() const
    {
        return kf_Lane256(_mm256_permutevar8x32_ps(v, _mm256_setr_epi32(7, 6, 5, 4, 3, 2, 1, 0)));
    }
    static kf_Lane256 loadu(const float* p) { return kf_Lane256(_mm256_loadu_ps(p)); }
    void storeu(float* p) const { _mm256_storeu_ps(p, v); }

    // Transposes the 8 x 8 matrix whose rows are r[0..7].
    static void transpose(kf_Lane256* r)
    {
        __m256 t[8];
        for (int i = 0; i < 4; ++i) {
            t[2 * i] = _mm256_unpacklo_ps(r[2 * i].v, r[2 * i + 1].v);
            t[2 * i + 1] = _mm256_unpackhi_ps(r[2 * i].v, r[2 * i + 1].v);
        }
        // q[4i + j], 128-bit half k: rows 4i .. 4i + 3 of column 4k + j.
        __m256 q[8];
        for (int i = 0; i < 2; ++i) {
            const __m256d a = _mm256_castps_pd(t[4 * i]), b = _mm256_castps_pd(t[4 * i + 2]);
            const __m256d c = _mm256_castps_pd(t[4 * i + 1]), d = _mm256_castps_pd(t[4 * i + 3]);
            q[4 * i] = _mm256_castpd_ps(_mm256_unpacklo_pd(a, b));
            q[4 * i + 1] = _mm256_castpd_ps(_mm256_unpackhi_pd(a, b));
            q[4 * i + 2] = _mm256_castpd_ps(_mm256_unpacklo_pd(c, d));
            q[4 * i + 3] = _mm256_castpd_ps(_mm256_unpackhi_pd(c, d));
        }
        for (int j = 0; j < 4; ++j) {
            r[j].v = _mm256_permute2f128_ps(q[j], q[4 + j], 0x20);
            r[4 + j].v = _mm256_permute2f128_ps(q[j], q[4 + j], 0x31);
        }
    }

    static void deinterleave(const float* p, kf_Lane256& re, kf_Lane256& im)
    {
        const __m256 a = _mm256_loadu_ps(p), b = _mm256_loadu_ps(p + 8);
        // (a0 a2 b0 b2 | a4 a6 b4 b6), then the middle 64-bit pairs swapped.
        const __m256 even = _mm256_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0));
        const __m256 odd = _mm256_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1));
        re.v = _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(even), _MM_SHUFFLE(3, 1, 2, 0)));
        im.v = _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(odd), _MM_SHUFFLE(3, 1, 2, 0)));
    }
    static void interleave(float* p, const kf_Lane256& re, const kf_Lane256& im)
    {
        const __m256 lo = _mm256_unpacklo_ps(re.v, im.v);   // r0 i0 r1 i1 | r4 i4 r5 i5
        const __m256 hi = _mm256_unpackhi_ps(re.v, im.v);   // r2 i2 r3 i3 | r6 i6 r7 i7
        _mm256_storeu_ps(p, _mm256_permute2f128_ps(lo, hi, 0x20));
        _mm256_storeu_ps(p + 8, _mm256_permute2f128_ps(lo, hi, 0x31));
    }
};

template <typename T>
inline kf_Lane256<T> operator+(kf_Lane256<T> a, kf_Lane256<T> b) { return kf_Lane256<T>(_mm256_add_ps(a.v, b.v)); }
template <typename T>
inline kf_Lane256<T> operator-(kf_Lane256<T> a, kf_Lane256<T> b) { return kf_Lane256<T>(_mm256_sub_ps(a.v, b.v)); }
template <typename T>
inline kf_Lane256<T> operator*(kf_Lane256<T> a, kf_Lane256<T> b) { return kf_Lane256<T>(_mm256_mul_ps(a.v, b.v)); }
template <typename T>
inline kf_Lane256<T> operator*(kf_Lane256<T> a, float b)
{
    return kf_Lane256<T>(_mm256_mul_ps(a.v, _mm256_set1_ps(b)));
}
template <typename T>
inline kf_Lane256<T> operator*(float a, kf_Lane256<T> b)
{
    return kf_Lane256<T>(_mm256_mul_ps(_mm256_set1_ps(a), b.v));
}
// Negation flips the sign bit, as the scalar negation does.
template <typename T>
inline kf_Lane256<T> operator-(kf_Lane256<T> a)
{
    return kf_Lane256<T>(_mm256_xor_ps(a.v, _mm256_set1_ps(-0.0f)));
}
