#pragma once
// Internal: four floats per lane group (SSE2). Tag keeps each variant's
// instantiations apart.
#include <immintrin.h>

template <typename Tag>
struct kf_Lane128 {
    static constexpr int width = 4;
    __m128 v;

    kf_Lane128() = default;
    explicit kf_Lane128(__m128 value) : v(value) {}
    explicit kf_Lane128(float value) : v(_mm_set1_ps(value)) {}

    static kf_Lane128 load(const float* p) { return kf_Lane128(_mm_load_ps(p)); }
    void store(float* p) const { _mm_store_ps(p, v); }
    // The lanes in reverse order.
    kf_Lane128 reversed() const { return kf_Lane128(_mm_shuffle_ps(v, v, _MM_SHUFFLE(0, 1, 2, 3))); }
    static kf_Lane128 loadu(const float* p) { return kf_Lane128(_mm_loadu_ps(p)); }
    void storeu(float* p) const { _mm_storeu_ps(p, v); }

    // Transposes the 4 x 4 matrix whose rows are v[0..3].
    static void transpose(kf_Lane128* r) { _MM_TRANSPOSE4_PS(r[0].v, r[1].v, r[2].v, r[3].v); }

    static void deinterleave(const float* p, kf_Lane128& re, kf_Lane128& im)
    {
        const __m128 a = _mm_loadu_ps(p), b = _mm_loadu_ps(p + 4);
        re.v = _mm_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0));
        im.v = _mm_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1));
    }
    static void interleave(float* p, const kf_Lane128& re, const kf_Lane128& im)
    {
        _mm_storeu_ps(p, _mm_unpacklo_ps(re.v, im.v));
        _mm_storeu_ps(p + 4, _mm_unpackhi_ps(re.v, im.v));
    }
};

template <typename T>
inline kf_Lane128<T> operator+(kf_Lane128<T> a, kf_Lane128<T> b) { return kf_Lane128<T>(_mm_add_ps(a.v, b.v)); }
template <typename T>
inline kf_Lane128<T> operator-(kf_Lane128<T> a, kf_Lane128<T> b) { return kf_Lane128<T>(_mm_sub_ps(a.v, b.v)); }
template <typename T>
inline kf_Lane128<T> operator*(kf_Lane128<T> a, kf_Lane128<T> b) { return kf_Lane128<T>(_mm_mul_ps(a.v, b.v)); }
template <typename T>
inline kf_Lane128<T> operator*(kf_Lane128<T> a, float b) { return kf_Lane128<T>(_mm_mul_ps(a.v, _mm_set1_ps(b))); }
template <typename T>
inline kf_Lane128<T> operator*(float a, kf_Lane128<T> b) { return kf_Lane128<T>(_mm_mul_ps(_mm_set1_ps(a), b.v)); }
// Negation flips the sign bit, as the scalar negation does.
template <typename T>
inline kf_Lane128<T> operator-(kf_Lane128<T> a) { return kf_Lane128<T>(_mm_xor_ps(a.v, _mm_set1_ps(-0.0f))); }
