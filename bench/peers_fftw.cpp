// FFTW (single precision) on the same operations: plans made with
// FFTW_MEASURE outside the timed loop; conversion of the pixels to float is
// timed, as kxfreq's transforms include it.
#include "sizes.h"

#include <benchmark/benchmark.h>
#include <fftw3.h>

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

}  // namespace

BENCHMARK(realForward)->Name("forward_real/fftw")->Apply(kxBenchSizes);
BENCHMARK(complexTransform<FFTW_FORWARD>)->Name("forward_complex/fftw")->Apply(kxBenchSizes);
BENCHMARK(complexTransform<FFTW_BACKWARD>)->Name("inverse_complex/fftw")->Apply(kxBenchSizes);
