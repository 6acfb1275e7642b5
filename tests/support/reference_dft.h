#pragma once
// Test oracle: a plain double-precision 2-D DFT, separable (each row, then
// each column, O(N^2) per line). Independent of the engine: direct sums with
// angles taken from std::cos/std::sin of the exact index product.
#include <cmath>
#include <complex>
#include <cstdint>
#include <random>
#include <vector>

namespace kxtest {

using Spectrum = std::vector<std::complex<double>>;

inline void dft1d(std::complex<double>* line, long n, long stride, int sign)
{
    const double twoPi = 6.283185307179586476925286766559;
    std::vector<std::complex<double>> out(n);
    for (long k = 0; k < n; ++k) {
        std::complex<double> sum = 0;
        for (long j = 0; j < n; ++j) {
            const double angle = sign * twoPi * static_cast<double>((j * k) % n) / n;
            sum += line[j * stride] * std::complex<double>(std::cos(angle), std::sin(angle));
        }
        out[k] = sum;
    }
    for (long k = 0; k < n; ++k)
        line[k * stride] = out[k];
}

// Unscaled; forward uses e^-2pi i nk/N.
inline Spectrum referenceDft(const std::vector<float>& interleaved, long width, long height, bool forward)
{
    Spectrum s(width * height);
    for (long i = 0; i < width * height; ++i)
        s[i] = {interleaved[2 * i], interleaved[2 * i + 1]};
    const int sign = forward ? -1 : 1;
    for (long r = 0; r < height; ++r)
        dft1d(&s[r * width], width, 1, sign);
    for (long c = 0; c < width; ++c)
        dft1d(&s[c], height, width, sign);
    return s;
}

// sqrt(sum |a - b|^2 / sum |b|^2) over the interleaved floats.
inline double relativeRms(const float* got, const Spectrum& expected)
{
    double err = 0, norm = 0;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        const std::complex<double> g(got[2 * i], got[2 * i + 1]);
        err += std::norm(g - expected[i]);
        norm += std::norm(expected[i]);
    }
    return norm == 0 ? std::sqrt(err) : std::sqrt(err / norm);
}

// Fixed-seed uniform floats in [lo, hi).
inline std::vector<float> randomFloats(std::size_t count, std::uint32_t seed, float lo = -1.0f, float hi = 1.0f)
{
    std::mt19937 generator(seed);
    std::uniform_real_distribution<float> uniform(lo, hi);
    std::vector<float> v(count);
    for (float& f : v)
        f = uniform(generator);
    return v;
}

}  // namespace kxtest
