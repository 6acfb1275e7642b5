#pragma once
// The image sizes the benchmarks of this folder run on.
#include <benchmark/benchmark.h>

#include <utility>

// Every size kxfreq is timed on: squares, an image padded to 1024 x 1024,
// and thin shapes.
inline void kxBenchSizes(benchmark::internal::Benchmark* b)
{
    for (auto size : {std::pair<long, long>{256, 256}, {512, 512}, {1024, 1024}, {2048, 2048}, {1000, 750},
                      {2048, 8}, {8, 2048}, {64, 2048}})
        b->Args({size.first, size.second});
    b->Unit(benchmark::kMicrosecond);
}

// The peers run on the padded grids only: kxfreq's 1000 x 750 row is
// compared with their 1024 x 1024, the grid it transforms.
inline void kxPeerSizes(benchmark::internal::Benchmark* b)
{
    for (auto size : {std::pair<long, long>{256, 256}, {512, 512}, {1024, 1024}, {2048, 2048}, {2048, 8},
                      {8, 2048}, {64, 2048}})
        b->Args({size.first, size.second});
    b->Unit(benchmark::kMicrosecond);
}
