// kxfreq's forward and inverse transforms. Names follow the pattern
// <operation>/<library>/<width>/<height> so that compare.sh can line them up
// with the peers' timings of the same operation. Rows ending in "_new" make
// a new buffer (or image) per call, as users often write it; the others
// reuse one.
#include "sizes.h"

#include <kx/fft.h>
#include <kx/fft_threads.h>
#include <kx/freqfilt.h>

#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

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

// One real image into a reused buffer, on `Threads` threads.
template <typename T, int Threads = 1>
void forwardReal(benchmark::State& state)
{
    const auto image = benchImage<T>(state.range(0), state.range(1));
    kxFrequencyBuffer spectrum;
    for (auto _ : state) {
        if (Threads == 1)
            kfForwardFFT<T>(image, spectrum);
        else
            kfForwardFFT<T>(image, spectrum, kxTransformThreads(Threads));
        benchmark::DoNotOptimize(spectrum);
    }
}

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

template <bool NewBuffer>
void forwardComplex(benchmark::State& state)
{
    const auto re = benchImage<unsigned char>(state.range(0), state.range(1));
    const auto im = benchImage<unsigned char>(state.range(0), state.range(1));
    kxFrequencyBuffer reused;
    for (auto _ : state) {
        kxFrequencyBuffer fresh;
        kfForwardFFT<unsigned char>(re, im, NewBuffer ? fresh : reused);
        benchmark::DoNotOptimize(NewBuffer ? fresh : reused);
    }
}

// The const form, reading a spectrum the application keeps, into a reused
// image (or a new one per call), on `Threads` threads.
template <typename T, bool NewImage, int Threads = 1>
void inverseTo(benchmark::State& state)
{
    const auto image = benchImage<T>(state.range(0), state.range(1));
    kxFrequencyBuffer spectrum;
    kfForwardFFT<T>(image, spectrum);
    const kxFrequencyBuffer& frozen = spectrum;
    kxPelBuffer<T> reused(state.range(0), state.range(1));
    for (auto _ : state) {
        kxPelBuffer<T> fresh;
        kxPelBuffer<T>& result = NewImage ? fresh : reused;
        if (Threads == 1)
            kfInverseFFT<T>(frozen, result, false);
        else
            kfInverseFFT<T>(frozen, result, false, kxTransformThreads(Threads));
        benchmark::DoNotOptimize(result.pointToOffset());
    }
}

// In place: each call first copies the kept spectrum into a reused working
// buffer (FFTW's inverse row copies its input the same way).
template <typename T>
void inverseInPlace(benchmark::State& state)
{
    const auto image = benchImage<T>(state.range(0), state.range(1));
    kxFrequencyBuffer spectrum;
    kfForwardFFT<T>(image, spectrum);
    kxFrequencyBuffer work = spectrum;
    kxPelBuffer<T> result(state.range(0), state.range(1));
    for (auto _ : state) {
        work = spectrum;
        kfInverseFFT<T>(work, result, false, true);
        benchmark::DoNotOptimize(result.pointToOffset());
    }
}

// A filtering pipeline as users write it: the forward transform, a
// band-reject filter, the inverse in place, 8-bit out; with a new spectrum
// and image per image, or reused ones.
template <bool NewBuffers>
void pipeline(benchmark::State& state)
{
    const long w = state.range(0), h = state.range(1);
    const auto image = benchImage<unsigned char>(w, h);
    const kxFrequencyFilterBandReject reject(0.02, 0.01, 0.2, {kfPaddedSize(w), kfPaddedSize(h)}, 2);
    kxFrequencyBuffer reusedSpectrum;
    kxPelBuffer<unsigned char> reusedResult;
    for (auto _ : state) {
        kxFrequencyBuffer freshSpectrum;
        kxPelBuffer<unsigned char> freshResult;
        kxFrequencyBuffer& spectrum = NewBuffers ? freshSpectrum : reusedSpectrum;
        kxPelBuffer<unsigned char>& result = NewBuffers ? freshResult : reusedResult;
        kfForwardFFT<unsigned char>(image, spectrum);
        reject.apply(spectrum);
        kfInverseFFT<unsigned char>(spectrum, result, false, true);
        benchmark::DoNotOptimize(result.pointToOffset());
    }
}

// The memory-bandwidth floor of the real forward: a streaming copy that
// moves as many bytes as the transform must (the 8-bit pixels read, one
// intermediate pass over the float spectrum read and written, the spectrum
// written: 25 bytes per element), through buffers touched beforehand.
void memoryFloor(benchmark::State& state)
{
    const std::size_t elements = static_cast<std::size_t>(state.range(0)) * static_cast<std::size_t>(state.range(1));
    const std::size_t bytes = elements * 25 / 2;   // a copy reads and writes each byte
    std::vector<char> from(bytes, 1), to(bytes, 0);
    for (auto _ : state) {
        std::memcpy(to.data(), from.data(), bytes);
        benchmark::DoNotOptimize(to.data());
        benchmark::ClobberMemory();
    }
}

}  // namespace

BENCHMARK(pipeline<true>)->Name("pipeline_new/kxfreq")->Apply(kxBenchSizes);
BENCHMARK(pipeline<false>)->Name("pipeline/kxfreq")->Apply(kxBenchSizes);
BENCHMARK(forwardReal<unsigned char>)->Name("forward_real/kxfreq")->Apply(kxBenchSizes);
BENCHMARK(forwardRealNew<unsigned char>)->Name("forward_real_new/kxfreq")->Apply(kxBenchSizes);
BENCHMARK(forwardReal<unsigned short>)->Name("forward_real16/kxfreq")->Apply(kxBenchSizes);
BENCHMARK(forwardRealNew<unsigned short>)->Name("forward_real16_new/kxfreq")->Apply(kxBenchSizes);
BENCHMARK(forwardComplex<false>)->Name("forward_complex/kxfreq")->Apply(kxBenchSizes);
BENCHMARK(forwardComplex<true>)->Name("forward_complex_new/kxfreq")->Apply(kxBenchSizes);
BENCHMARK(inverseTo<unsigned char, false>)->Name("inverse_to_8bit/kxfreq")->Apply(kxBenchSizes);
BENCHMARK(inverseTo<unsigned char, true>)->Name("inverse_to_8bit_new/kxfreq")->Apply(kxBenchSizes);
BENCHMARK(inverseInPlace<unsigned char>)->Name("inverse_to_8bit_inplace/kxfreq")->Apply(kxBenchSizes);
BENCHMARK(inverseTo<double, false>)->Name("inverse_to_double/kxfreq")->Apply(kxBenchSizes);
BENCHMARK(inverseTo<double, true>)->Name("inverse_to_double_new/kxfreq")->Apply(kxBenchSizes);
BENCHMARK(inverseInPlace<double>)->Name("inverse_to_double_inplace/kxfreq")->Apply(kxBenchSizes);
BENCHMARK(forwardReal<unsigned char, 2>)->Name("forward_real_2threads/kxfreq")->Args({2048, 2048})
    ->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(inverseTo<unsigned char, false, 2>)->Name("inverse_to_8bit_2threads/kxfreq")->Args({2048, 2048})
    ->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(forwardReal<unsigned char>)->Name("forward_real_1thread/kxfreq")->Args({2048, 2048})
    ->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(inverseTo<unsigned char, false>)->Name("inverse_to_8bit_1thread/kxfreq")->Args({2048, 2048})
    ->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(memoryFloor)->Name("memory_floor/copy")->Args({2048, 2048})->Unit(benchmark::kMicrosecond);

BENCHMARK_MAIN();
