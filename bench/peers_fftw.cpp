// FFTW (single precision) on the same operations: plans made with
// FFTW_MEASURE outside the timed loop; conversion of the pixels to float is
// timed, as kxfreq's transforms include it.
#include "sizes.h"

#include <benchmark/benchmark.h>
#include <fftw3.h>

#include <cmath>
#include <vector>

namespace {

struct FloatArray {
    explicit FloatArray(std::size_t n) : data(static_cast<float*>(fftwf_malloc(sizeof(float) * n))) {}
    ~FloatArray() { fftwf_free(data); }
    FloatArray(const FloatArray&) = delete;
    FloatArray& operator=(const FloatArray&) = delete;
    float* data;
};

std::vector<unsigned char> pixels(long w, long h)
{
    std::vector<unsigned char> p(w * h);
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x)
            p[y * w + x] = static_cast<unsigned char>((x * 31 + y * 17 + x * y) % 251);
    return p;
}

void realForward(benchmark::State& state)
{
    const int w = static_cast<int>(state.range(0)), h = static_cast<int>(state.range(1));
    const auto image = pixels(w, h);
    FloatArray in(static_cast<std::size_t>(w) * h), out(2 * static_cast<std::size_t>(w / 2 + 1) * h);
    fftwf_plan plan = fftwf_plan_dft_r2c_2d(h, w, in.data, reinterpret_cast<fftwf_complex*>(out.data), FFTW_MEASURE);
    for (auto _ : state) {
        for (std::size_t i = 0; i < image.size(); ++i)
            in.data[i] = image[i];
        fftwf_execute(plan);
        benchmark::DoNotOptimize(out.data);
    }
    fftwf_destroy_plan(plan);
}

template <int Sign>
void complexTransform(benchmark::State& state)
{
    const int w = static_cast<int>(state.range(0)), h = static_cast<int>(state.range(1));
    const auto image = pixels(w, h);
    FloatArray data(2 * static_cast<std::size_t>(w) * h);
    auto* c = reinterpret_cast<fftwf_complex*>(data.data);
    fftwf_plan plan = fftwf_plan_dft_2d(h, w, c, c, Sign, FFTW_MEASURE);
    for (auto _ : state) {
        for (std::size_t i = 0; i < image.size(); ++i) {
            data.data[2 * i] = image[i];
            data.data[2 * i + 1] = image[i];
        }
        fftwf_execute(plan);
        benchmark::DoNotOptimize(data.data);
    }
    fftwf_destroy_plan(plan);
}

// r2c in place: rows padded to 2 (W/2 + 1) floats.
void realForwardInPlace(benchmark::State& state)
{
    const int w = static_cast<int>(state.range(0)), h = static_cast<int>(state.range(1));
    const auto image = pixels(w, h);
    const int stride = 2 * (w / 2 + 1);
    FloatArray data(static_cast<std::size_t>(stride) * h);
    fftwf_plan plan =
        fftwf_plan_dft_r2c_2d(h, w, data.data, reinterpret_cast<fftwf_complex*>(data.data), FFTW_MEASURE);
    for (auto _ : state) {
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                data.data[static_cast<std::size_t>(y) * stride + x] = image[static_cast<std::size_t>(y) * w + x];
        fftwf_execute(plan);
        benchmark::DoNotOptimize(data.data);
    }
    fftwf_destroy_plan(plan);
}

// c2c backward in place, then the scaled magnitude as 8-bit pixels.
void inverseMagnitude(benchmark::State& state)
{
    const int w = static_cast<int>(state.range(0)), h = static_cast<int>(state.range(1));
    const auto image = pixels(w, h);
    const std::size_t n = static_cast<std::size_t>(w) * h;
    FloatArray spectrum(2 * n), data(2 * n);
    auto* c = reinterpret_cast<fftwf_complex*>(data.data);
    fftwf_plan plan = fftwf_plan_dft_2d(h, w, c, c, FFTW_BACKWARD, FFTW_MEASURE);
    for (std::size_t i = 0; i < n; ++i) {
        spectrum.data[2 * i] = image[i];
        spectrum.data[2 * i + 1] = 0.0f;
    }
    std::vector<unsigned char> out(n);
    const float scale = 1.0f / static_cast<float>(n);
    for (auto _ : state) {
        for (std::size_t i = 0; i < 2 * n; ++i)
            data.data[i] = spectrum.data[i];
        fftwf_execute(plan);
        for (std::size_t i = 0; i < n; ++i) {
            const float re = data.data[2 * i], im = data.data[2 * i + 1];
            out[i] = static_cast<unsigned char>(static_cast<int>(std::sqrt(re * re + im * im) * scale + 0.5f));
        }
        benchmark::DoNotOptimize(out.data());
    }
    fftwf_destroy_plan(plan);
}

// The pipeline's data flow: r2c into a full W x H complex buffer, the
// conjugate half filled, a gain per element, c2c backward in place, the
// scaled magnitude as 8-bit pixels.
void pipeline(benchmark::State& state)
{
    const int w = static_cast<int>(state.range(0)), h = static_cast<int>(state.range(1));
    const auto image = pixels(w, h);
    const std::size_t n = static_cast<std::size_t>(w) * h;
    const int half = w / 2 + 1;
    FloatArray in(n), full(2 * n);
    auto* c = reinterpret_cast<fftwf_complex*>(full.data);
    // r2c writes rows of W/2 + 1 elements; they are spread to rows of W below.
    FloatArray packed(2 * static_cast<std::size_t>(half) * h);
    fftwf_plan forward =
        fftwf_plan_dft_r2c_2d(h, w, in.data, reinterpret_cast<fftwf_complex*>(packed.data), FFTW_MEASURE);
    fftwf_plan backward = fftwf_plan_dft_2d(h, w, c, c, FFTW_BACKWARD, FFTW_MEASURE);
    std::vector<float> gain(n);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const double u = (x < w / 2 ? x : x - w) / static_cast<double>(w);
            const double v = (y < h / 2 ? y : y - h) / static_cast<double>(h);
            const double r = std::sqrt(u * u + v * v);
            gain[static_cast<std::size_t>(y) * w + x] = std::fabs(r - 0.2) < 0.02 ? 0.0f : 1.0f;
        }
    std::vector<unsigned char> out(n);
    const float scale = 1.0f / static_cast<float>(n);
    for (auto _ : state) {
        for (std::size_t i = 0; i < n; ++i)
            in.data[i] = image[i];
        fftwf_execute(forward);
        for (int y = 0; y < h; ++y) {
            float* row = full.data + 2 * static_cast<std::size_t>(y) * w;
            const float* from = packed.data + 2 * static_cast<std::size_t>(y) * half;
            for (int x = 0; x < half && x < w; ++x) {
                row[2 * x] = from[2 * x];
                row[2 * x + 1] = from[2 * x + 1];
            }
            const float* partner = packed.data + 2 * static_cast<std::size_t>((h - y) % h) * half;
            for (int x = half; x < w; ++x) {
                row[2 * x] = partner[2 * (w - x)];
                row[2 * x + 1] = -partner[2 * (w - x) + 1];
            }
        }
        for (std::size_t i = 0; i < n; ++i) {
            full.data[2 * i] *= gain[i];
            full.data[2 * i + 1] *= gain[i];
        }
        fftwf_execute(backward);
        for (std::size_t i = 0; i < n; ++i) {
            const float re = full.data[2 * i], im = full.data[2 * i + 1];
            out[i] = static_cast<unsigned char>(static_cast<int>(std::sqrt(re * re + im * im) * scale + 0.5f));
        }
        benchmark::DoNotOptimize(out.data());
    }
    fftwf_destroy_plan(forward);
    fftwf_destroy_plan(backward);
}

}  // namespace

BENCHMARK(realForwardInPlace)->Name("forward_real_inplace/fftw")->Apply(kxPeerSizes);
BENCHMARK(inverseMagnitude)->Name("inverse_magnitude/fftw")->Apply(kxPeerSizes);
BENCHMARK(pipeline)->Name("pipeline/fftw")->Apply(kxPeerSizes);
BENCHMARK(realForward)->Name("forward_real/fftw")->Apply(kxPeerSizes);
BENCHMARK(complexTransform<FFTW_FORWARD>)->Name("forward_complex/fftw")->Apply(kxPeerSizes);
BENCHMARK(complexTransform<FFTW_BACKWARD>)->Name("inverse_complex/fftw")->Apply(kxPeerSizes);
