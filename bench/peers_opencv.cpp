// OpenCV's cv::dft / cv::idft on one thread, on the same operations.
#include "sizes.h"

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>

#include <cmath>

namespace {

cv::Mat pixels(int w, int h)
{
    cv::Mat image(h, w, CV_8U);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            image.at<unsigned char>(y, x) = static_cast<unsigned char>((x * 31 + y * 17 + x * y) % 251);
    return image;
}

void realForward(benchmark::State& state)
{
    cv::setNumThreads(1);
    const cv::Mat image = pixels(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
    cv::Mat input, spectrum;
    for (auto _ : state) {
        image.convertTo(input, CV_32F);
        cv::dft(input, spectrum, cv::DFT_COMPLEX_OUTPUT);
        benchmark::DoNotOptimize(spectrum.data);
    }
}

void complexForward(benchmark::State& state)
{
    cv::setNumThreads(1);
    const cv::Mat image = pixels(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
    cv::Mat part, input, spectrum;
    for (auto _ : state) {
        image.convertTo(part, CV_32F);
        cv::Mat planes[] = {part, part};
        cv::merge(planes, 2, input);
        cv::dft(input, spectrum);
        benchmark::DoNotOptimize(spectrum.data);
    }
}

// Inverse to a real image, scaled: the closest peer of an inverse to pixels.
void inverseReal(benchmark::State& state)
{
    cv::setNumThreads(1);
    const cv::Mat image = pixels(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
    cv::Mat input, spectrum, result;
    image.convertTo(input, CV_32F);
    cv::dft(input, spectrum, cv::DFT_COMPLEX_OUTPUT);
    for (auto _ : state) {
        cv::idft(spectrum, result, cv::DFT_SCALE | cv::DFT_REAL_OUTPUT);
        benchmark::DoNotOptimize(result.data);
    }
}

// The pipeline's data flow: dft to a full complex spectrum, a gain per
// element, idft, the magnitude as 8-bit pixels.
void pipeline(benchmark::State& state)
{
    cv::setNumThreads(1);
    const int w = static_cast<int>(state.range(0)), h = static_cast<int>(state.range(1));
    const cv::Mat image = pixels(w, h);
    cv::Mat gain(h, w, CV_32FC2);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const double u = (x < w / 2 ? x : x - w) / static_cast<double>(w);
            const double v = (y < h / 2 ? y : y - h) / static_cast<double>(h);
            const float g = std::abs(std::sqrt(u * u + v * v) - 0.2) < 0.02 ? 0.0f : 1.0f;
            gain.at<cv::Vec2f>(y, x) = cv::Vec2f(g, g);
        }
    cv::Mat input, spectrum, spatial, planes[2], magnitude, out;
    for (auto _ : state) {
        image.convertTo(input, CV_32F);
        cv::dft(input, spectrum, cv::DFT_COMPLEX_OUTPUT);
        cv::multiply(spectrum, gain, spectrum);
        cv::idft(spectrum, spatial, cv::DFT_SCALE | cv::DFT_COMPLEX_OUTPUT);
        cv::split(spatial, planes);
        cv::magnitude(planes[0], planes[1], magnitude);
        magnitude.convertTo(out, CV_8U);
        benchmark::DoNotOptimize(out.data);
    }
}

}  // namespace

BENCHMARK(pipeline)->Name("pipeline/opencv")->Apply(kxPeerSizes);
BENCHMARK(realForward)->Name("forward_real/opencv")->Apply(kxPeerSizes);
BENCHMARK(complexForward)->Name("forward_complex/opencv")->Apply(kxPeerSizes);
BENCHMARK(inverseReal)->Name("inverse_real/opencv")->Apply(kxPeerSizes);
