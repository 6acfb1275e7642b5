// Images of any size: tiled band-reject filtering of 8-bit images from 1 to
// 200 megapixels, one and two jobs, reported per megapixel (it should stay
// flat: the cost is linear in the pixels), and the peak memory of a streamed
// run against the image's height.
//
//   kxfreq_bench_large [Google Benchmark flags]    the timings
//   kxfreq_bench_large --run W H JOBS [TILE]        one in-memory run: seconds, peak MB
//   kxfreq_bench_large --stream W H [TILE]          one streamed run: seconds, peak MB
//
// large_images_scipy.py runs the last two beside scipy's whole-image
// filtering of the same image, each in its own process.
#include <kx/tiling.h>

#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

// The filter of the comparison: a band-reject ring at 0.1 cycle per pixel.
kxBandRejectDescription benchFilter()
{
    kxBandRejectDescription filter;
    filter.frequency = 0.1;
    filter.sigma = 0.01;
    return filter;
}

unsigned char benchPixel(long x, long y) { return static_cast<unsigned char>((x * 31 + y * 17 + x * y) % 251); }

std::vector<unsigned char> benchImage(long w, long h)
{
    std::vector<unsigned char> pixels(static_cast<std::size_t>(w * h));
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x)
            pixels[static_cast<std::size_t>(y * w + x)] = benchPixel(x, y);
    return pixels;
}

kxImageView<unsigned char> viewOf(std::vector<unsigned char>& pixels, long w, long h)
{
    return kxImageView<unsigned char>{pixels.data(), w, h, static_cast<std::ptrdiff_t>(w), 1};
}

// Images of 4:3, from the megapixels asked for.
long widthFor(long megapixels) { return static_cast<long>(std::lround(std::sqrt(megapixels * 1e6 * 4.0 / 3.0))); }
long heightFor(long megapixels) { return static_cast<long>(std::lround(widthFor(megapixels) * 3.0 / 4.0)); }

void tiledBandReject(benchmark::State& state)
{
    const long w = widthFor(state.range(0)), h = heightFor(state.range(0));
    std::vector<unsigned char> image = benchImage(w, h), result(image.size());
    kxTileOptions options;
    options.jobs = static_cast<unsigned>(state.range(1));
    for (auto _ : state) {
        kfFilterTiled(viewOf(image, w, h), benchFilter(), viewOf(result, w, h), options);
        benchmark::DoNotOptimize(result.data());
    }
    state.counters["ms_per_MP"] = benchmark::Counter(static_cast<double>(w * h) / 1e6 / 1e3,
                                                     benchmark::Counter::kIsIterationInvariantRate |
                                                         benchmark::Counter::kInvert);
    state.SetLabel(std::to_string(w) + " x " + std::to_string(h));
}

// Rows made on the fly and dropped: only the filter's own memory counts.
class SyntheticSource : public kxRowSource {
public:
    SyntheticSource(long w, long h) : w_(w), h_(h) {}
    long width() const override { return w_; }
    long height() const override { return h_; }
    kxSampleType type() const override { return eSampleU8; }
    using kxRowSource::read;
    void read(unsigned char* rows, long count) override
    {
        for (long i = 0; i < count; ++i, ++next_)
            for (long x = 0; x < w_; ++x)
                *rows++ = benchPixel(x, next_);
    }

private:
    long w_, h_, next_ = 0;
};

class DroppingSink : public kxRowSink {
public:
    using kxRowSink::write;
    void write(const unsigned char* rows, long count) override
    {
        benchmark::DoNotOptimize(rows);
        written += count;
    }
    long written = 0;
};

double peakMegabytes()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024.0;
}

int runOnce(int argc, char** argv)
{
    const bool stream = std::strcmp(argv[1], "--stream") == 0;
    const long w = std::atol(argv[2]), h = std::atol(argv[3]);
    kxTileOptions options;
    options.jobs = stream ? 1u : static_cast<unsigned>(std::atol(argv[4]));
    const int tileArg = stream ? 4 : 5;
    if (argc > tileArg)
        options.tile = std::atol(argv[tileArg]);
    const auto start = std::chrono::steady_clock::now();
    if (stream) {
        SyntheticSource source(w, h);
        DroppingSink sink;
        kfFilterTiled(source, benchFilter(), sink, eSampleU8, options);
    } else {
        std::vector<unsigned char> image = benchImage(w, h), result(image.size());
        kfFilterTiled(viewOf(image, w, h), benchFilter(), viewOf(result, w, h), options);
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::printf("%.3f %.1f\n", seconds, peakMegabytes());
    return 0;
}

}  // namespace

BENCHMARK(tiledBandReject)
    ->ArgNames({"MP", "jobs"})
    ->ArgsProduct({{1, 4, 12, 48, 100, 200}, {1, 2}})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->UseRealTime();

int main(int argc, char** argv)
{
    if (argc >= 4 && (std::strcmp(argv[1], "--run") == 0 || std::strcmp(argv[1], "--stream") == 0)) {
        if (std::strcmp(argv[1], "--run") == 0 && argc < 5) {
            std::fprintf(stderr, "usage: %s --run W H JOBS [TILE]\n", argv[0]);
            return 2;
        }
        return runOnce(argc, argv);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
