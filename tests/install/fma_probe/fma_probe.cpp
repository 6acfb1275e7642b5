// A library that does hold a fused multiply-add, to show that the check
// finds one.
#include <immintrin.h>

__attribute__((visibility("default"))) float kx_fma_probe(float a, float b, float c)
{
    return _mm_cvtss_f32(_mm_fmadd_ss(_mm_set_ss(a), _mm_set_ss(b), _mm_set_ss(c)));
}

__attribute__((visibility("default"))) float kx_mul_probe(float a, float b, float c)
{
    return a * b + c;
}

__attribute__((visibility("default"))) void kx_mul_probe_padding(float* a, int n)
{
    // Enough code for the listing to count as a real one.
    for (int i = 0; i < n; ++i)
        a[i] = a[i] * a[(i * 7) % n] - a[(i * 3) % n] * 0.5f;
}
