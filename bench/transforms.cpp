// kxfreq's forward and inverse transforms. Names follow the pattern
// <operation>/<width>/<height> so that compare.sh can line them up with the
// peers' timings of the same operation.
#include "sizes.h"

#include <kx/fft.h>
#include <kx/fft_threads.h>
#include <kx/freqfilt.h>

#include <benchmark/benchmark.h>

namespace {

template <typename T>
kxPelBuffer<T> benchImage(long w, long h)
{
    kxPelBuffer<T> image(w, h);
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x)
            image(x, y) = static_cast<T>((x * 31 + y * 17 + x * y) % 251);
    return image;
}

// Into a reused buffer.
template <typename T>
void forwardReal(benchmark::State& state)
{
    const auto image = benchImage<T>(state.range(0), state.range(1));
    kxFrequencyBuffer spectrum;
    for (auto _ : state) {
        kfForwardFFT<T>(image, spectrum);
        benchmark::DoNotOptimize(spectrum);
    }
}

// Into a new buffer per image, as users often write it.
template <typename T>
void forwardRealNew(benchmark::State& state)
{
    const auto image = benchImage<T>(state.range(0), state.range(1));
    for (auto _ : state) {
        kxFrequencyBuffer spectrum;
        kfForwardFFT<T>(image, spectrum);
        benchmark::DoNotOptimize(spectrum);
    }
}

void forwardComplex(benchmark::State& state)
{
    const auto re = benchImage<unsigned char>(state.range(0), state.range(1));
    const auto im = benchImage<unsigned char>(state.range(0), state.range(1));
    kxFrequencyBuffer spectrum;
    for (auto _ : state) {
        kfForwardFFT<unsigned char>(re, im, spectrum);
        benchmark::DoNotOptimize(spectrum);
    }
}

// The const form: each run transforms a private copy of the spectrum, as an
// application that keeps its frequency data would.
template <typename T>
void inverseTo(benchmark::State& state)
{
    const auto image = benchImage<T>(state.range(0), state.range(1));
    kxFrequencyBuffer spectrum;
    kfForwardFFT<T>(image, spectrum);
    const kxFrequencyBuffer& frozen = spectrum;
    kxPelBuffer<T> result(state.range(0), state.range(1));
    for (auto _ : state) {
        kfInverseFFT<T>(frozen, result, false);
        benchmark::DoNotOptimize(result.pointToOffset());
    }
}

// One transform on two threads, into a reused buffer.
void forwardRealTwoThreads(benchmark::State& state)
{
    const auto image = benchImage<unsigned char>(state.range(0), state.range(1));
    kxFrequencyBuffer spectrum;
    for (auto _ : state) {
        kfForwardFFT<unsigned char>(image, spectrum, kxTransformThreads(2));
        benchmark::DoNotOptimize(spectrum);
    }
}

void inverseTo8BitTwoThreads(benchmark::State& state)
{
    const auto image = benchImage<unsigned char>(state.range(0), state.range(1));
    kxFrequencyBuffer spectrum;
    kfForwardFFT<unsigned char>(image, spectrum);
    const kxFrequencyBuffer& frozen = spectrum;
    kxPelBuffer<unsigned char> result(state.range(0), state.range(1));
    for (auto _ : state) {
        kfInverseFFT<unsigned char>(frozen, result, false, kxTransformThreads(2));
        benchmark::DoNotOptimize(result.pointToOffset());
    }
}

// A filtering pipeline as users write it: a new spectrum per image, the
// forward transform, a band-reject filter, the inverse in place, 8-bit out.
void pipeline(benchmark::State& state)
{
    const long w = state.range(0), h = state.range(1);
    const auto image = benchImage<unsigned char>(w, h);
    const kxFrequencyFilterBandReject reject(0.02, 0.01, 0.2, {w, h}, 2);
    for (auto _ : state) {
        kxFrequencyBuffer spectrum;
        kfForwardFFT<unsigned char>(image, spectrum);
        reject.apply(spectrum);
        kxPelBuffer<unsigned char> result;
        kfInverseFFT<unsigned char>(spectrum, result, false, true);
        benchmark::DoNotOptimize(result.pointToOffset());
    }
}

}  // namespace

BENCHMARK(pipeline)->Name("pipeline/kxfreq")->Apply(kxBenchSizes);
BENCHMARK(forwardReal<unsigned char>)->Name("forward_real/kxfreq")->Apply(kxBenchSizes);
BENCHMARK(forwardRealNew<unsigned char>)->Name("forward_real_new/kxfreq")->Apply(kxBenchSizes);
BENCHMARK(forwardReal<unsigned short>)->Name("forward_real16/kxfreq")->Apply(kxBenchSizes);
BENCHMARK(forwardRealNew<unsigned short>)->Name("forward_real16_new/kxfreq")->Apply(kxBenchSizes);
BENCHMARK(forwardComplex)->Name("forward_complex/kxfreq")->Apply(kxBenchSizes);
BENCHMARK(inverseTo<unsigned char>)->Name("inverse_to_8bit/kxfreq")->Apply(kxBenchSizes);
BENCHMARK(forwardRealTwoThreads)->Name("forward_real_2threads/kxfreq")->Apply(kxBenchSizes);
BENCHMARK(inverseTo8BitTwoThreads)->Name("inverse_to_8bit_2threads/kxfreq")->Apply(kxBenchSizes);
BENCHMARK(inverseTo<double>)->Name("inverse_to_double/kxfreq")->Apply(kxBenchSizes);

BENCHMARK_MAIN();
