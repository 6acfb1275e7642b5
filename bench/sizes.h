#pragma once
// The image sizes every benchmark of this folder runs on.
#include <benchmark/benchmark.h>

inline void kxBenchSizes(benchmark::internal::Benchmark* b)
{
    for (auto size : {std::pair<long, long>{256, 256}, {512, 512}, {1024, 1024}, {2048, 2048}, {2048, 8}, {8, 2048}})
        b->Args({size.first, size.second});
    b->Unit(benchmark::kMicrosecond);
}
