// The library has no threads and no state between calls: separate pipelines
// on separate buffers run concurrently, and one const filter (or one
// exception) may be shared by several threads. Run under ThreadSanitizer by
// the tsan preset; here the results are also compared with a serial run.
#include <kx/freqfilt.h>

#include <gtest/gtest.h>

#include <cstring>
#include <thread>
#include <vector>

namespace {

constexpr int kThreads = 4;

kxPelBuffer<unsigned char> image(long w, long h, int seed)
{
    kxPelBuffer<unsigned char> img(w, h);
    unsigned state = 12345u + static_cast<unsigned>(seed);
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x) {
            state = state * 1103515245u + 12345u;
            img(x, y) = static_cast<unsigned char>((x * 7 + y * 3 + (state >> 24)) & 0xff);
        }
    return img;
}

// Forward, a filter, inverse to 8 bits: the pixels as bytes.
std::vector<unsigned char> pipeline(const kxFrequencyFilter& filter, int seed)
{
    kxFrequencyBuffer spectrum;
    kfForwardFFT<unsigned char>(image(200, 120, seed), spectrum);
    kxFrequencyBuffer filtered;
    filter.apply(spectrum, filtered);
    filter.apply(spectrum);
    kxPelBuffer<unsigned char> out;
    kfInverseFFT<unsigned char>(filtered, out, true, true);
    std::vector<unsigned char> bytes;
    for (long y = 0; y < out.height(); ++y)
        for (long x = 0; x < out.width(); ++x)
            bytes.push_back(out(x, y));
    return bytes;
}

}  // namespace

TEST(Threads, SeparatePipelinesShareOneConstFilter)
{
    const kxFrequencyFilterBandReject shared(0.02, 0.01, 0.15, {256, 128}, 2);
    const kxFrequencyFilterGabor gabor({0.03, 0.03}, {0, 0}, kxRadian(0.4), 0.2, {256, 128}, 1);
    std::vector<std::vector<unsigned char>> serial, parallel(2 * kThreads);
    for (int t = 0; t < kThreads; ++t) {
        serial.push_back(pipeline(shared, t));
        serial.push_back(pipeline(gabor, t));
    }
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            for (int repeat = 0; repeat < 2; ++repeat) {
                parallel[2 * t] = pipeline(shared, t);
                parallel[2 * t + 1] = pipeline(gabor, t);
            }
        });
    for (std::thread& t : threads)
        t.join();
    for (std::size_t i = 0; i < serial.size(); ++i)
        EXPECT_TRUE(serial[i] == parallel[i]) << "pipeline " << i;
}

TEST(Threads, OneExceptionReadFromSeveralThreads)
{
    kxFrequencyDefs::InvalidArgument error("Frequency must be between 0.0 and 0.5.");
    std::vector<std::thread> threads;
    std::vector<int> same(kThreads, 0);
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 200; ++i)
                same[t] += std::strcmp(error.what(), "Frequency must be between 0.0 and 0.5.") == 0;
        });
    for (std::thread& t : threads)
        t.join();
    for (int t = 0; t < kThreads; ++t)
        EXPECT_EQ(same[t], 200);
}
