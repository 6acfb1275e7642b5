// Phase correlation of two 8-bit images: kfPhaseCorrelate beside OpenCV's
// cv::phaseCorrelate with its Hanning window (cv::createHanningWindow), in
// the same run. Before the timings, both are run on test pairs with known
// shifts and their errors are printed, so that time and accuracy come from
// one program on one machine.
//
// Test pairs: a natural-looking scene (smoothed noise at two scales with
// hard-edged rectangles) made at twice the size, two views cut from it
// with an offset of an odd or even number of fine pixels and halved by
// averaging 2 x 2 blocks (so the true shifts are multiples of half a
// pixel), the moving view with a brightness and contrast change and
// Gaussian noise of 3 grey levels.
#include <kx/analysis.h>

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>
#include <vector>

namespace {

struct TestPair {
    kxPelBuffer<unsigned char> reference, moving;
    cv::Mat referenceMat, movingMat;
    double dx = 0.0, dy = 0.0;
};

// Separable box blur of radius r over a w x h float image, clamped borders.
void boxBlur(std::vector<float>& f, long w, long h, long r)
{
    std::vector<float> line;
    for (int pass = 0; pass < 2; ++pass) {
        const long n = pass == 0 ? w : h, lines = pass == 0 ? h : w;
        line.resize(n);
        for (long l = 0; l < lines; ++l) {
            auto idx = [&](long i) { return pass == 0 ? l * w + i : i * w + l; };
            for (long i = 0; i < n; ++i)
                line[i] = f[idx(i)];
            double sum = 0.0;
            for (long i = -r; i <= r; ++i)
                sum += line[std::clamp(i, 0L, n - 1)];
            for (long i = 0; i < n; ++i) {
                f[idx(i)] = static_cast<float>(sum / (2 * r + 1));
                sum += line[std::clamp(i + r + 1, 0L, n - 1)] - line[std::clamp(i - r, 0L, n - 1)];
            }
        }
    }
}

std::vector<float> scene(long w, long h, unsigned seed)
{
    std::mt19937 rng(seed);
    std::normal_distribution<float> normal(0.0f, 1.0f);
    std::uniform_real_distribution<double> uniform(0.0, 1.0);
    std::vector<float> out(w * h, 128.0f), layer(w * h);
    const long radii[] = {20, 4};
    const float gains[] = {35.0f, 12.0f};
    for (int s = 0; s < 2; ++s) {
        for (float& p : layer)
            p = normal(rng);
        for (int i = 0; i < 3; ++i)
            boxBlur(layer, w, h, radii[s]);
        double sd = 0.0;
        for (float p : layer)
            sd += double(p) * p;
        sd = std::sqrt(sd / layer.size());
        for (long i = 0; i < w * h; ++i)
            out[i] += gains[s] * static_cast<float>(layer[i] / sd);
    }
    for (long k = 0; k < w * h / 20000; ++k) {
        const long x0 = static_cast<long>(uniform(rng) * w), y0 = static_cast<long>(uniform(rng) * h);
        const long rw = 8 + static_cast<long>(uniform(rng) * 80), rh = 8 + static_cast<long>(uniform(rng) * 80);
        const float level = static_cast<float>((uniform(rng) - 0.5) * 100.0);
        for (long y = y0; y < std::min(h, y0 + rh); ++y)
            for (long x = x0; x < std::min(w, x0 + rw); ++x)
                out[y * w + x] += level;
    }
    return out;
}

// n pairs of size x size pixels with shifts up to +-40 px in half pixels.
std::vector<TestPair> testPairs(long size, int n, unsigned seed)
{
    const long margin = 96, fine = 2 * (size + 2 * margin);
    const std::vector<float> s = scene(fine, fine, seed);
    std::mt19937 rng(seed + 1);
    std::uniform_int_distribution<long> shift(-80, 80);
    std::normal_distribution<double> noise(0.0, 3.0);
    std::vector<TestPair> pairs;
    for (int i = 0; i < n; ++i) {
        TestPair p;
        const long kx = shift(rng), ky = shift(rng);
        p.dx = kx / 2.0;
        p.dy = ky / 2.0;
        p.reference = kxPelBuffer<unsigned char>(size, size);
        p.moving = kxPelBuffer<unsigned char>(size, size);
        p.referenceMat = cv::Mat(static_cast<int>(size), static_cast<int>(size), CV_8U);
        p.movingMat = cv::Mat(static_cast<int>(size), static_cast<int>(size), CV_8U);
        // moving(x + dx, y + dy) = reference(x, y): the moving view starts
        // (kx, ky) fine pixels before the reference's.
        const long rx = 2 * margin, ry = 2 * margin, mx = rx - kx, my = ry - ky;
        for (long y = 0; y < size; ++y)
            for (long x = 0; x < size; ++x) {
                auto block = [&](long ox, long oy) {
                    const long fx = ox + 2 * x, fy = oy + 2 * y;
                    return 0.25 * (s[fy * fine + fx] + s[fy * fine + fx + 1] + s[(fy + 1) * fine + fx] +
                                   s[(fy + 1) * fine + fx + 1]);
                };
                const auto px = [](double v) { return static_cast<unsigned char>(std::clamp(std::floor(v + 0.5), 0.0, 255.0)); };
                const unsigned char a = px(block(rx, ry) + noise(rng));
                const unsigned char b = px(0.85 * block(mx, my) + 20.0 + noise(rng));
                p.reference(x, y) = a;
                p.moving(x, y) = b;
                p.referenceMat.at<unsigned char>(static_cast<int>(y), static_cast<int>(x)) = a;
                p.movingMat.at<unsigned char>(static_cast<int>(y), static_cast<int>(x)) = b;
            }
        pairs.push_back(std::move(p));
    }
    return pairs;
}

const std::vector<TestPair>& pairsOf(long size)
{
    static const std::vector<TestPair> p512 = testPairs(512, 20, 512u);
    static const std::vector<TestPair> p2048 = testPairs(2048, 10, 2048u);
    return size == 512 ? p512 : p2048;
}

// OpenCV as a user calls it on 8-bit images: convert to double, the
// Hanning window made once per size.
cv::Point2d opencvShift(const TestPair& p, const cv::Mat& window)
{
    cv::Mat a, b;
    p.referenceMat.convertTo(a, CV_64F);
    p.movingMat.convertTo(b, CV_64F);
    return cv::phaseCorrelate(a, b, window);
}

void accuracyTable()
{
    cv::setNumThreads(1);
    std::printf("| size | pairs | kxfreq mean error (px) | kxfreq max error (px) | OpenCV mean error (px) | OpenCV max error (px) |\n");
    std::printf("|---|---:|---:|---:|---:|---:|\n");
    for (long size : {512L, 2048L}) {
        const auto& pairs = pairsOf(size);
        cv::Mat window;
        cv::createHanningWindow(window, cv::Size(static_cast<int>(size), static_cast<int>(size)), CV_64F);
        double kxSum = 0.0, kxMax = 0.0, cvSum = 0.0, cvMax = 0.0;
        for (const TestPair& p : pairs) {
            const kxPhaseCorrelation r = kfPhaseCorrelate<unsigned char>(p.reference, p.moving);
            const double e1 = std::hypot(r.dx - p.dx, r.dy - p.dy);
            // OpenCV reports the same direction as our convention.
            const cv::Point2d c = opencvShift(p, window);
            const double e2 = std::hypot(c.x - p.dx, c.y - p.dy);
            kxSum += e1;
            kxMax = std::max(kxMax, e1);
            cvSum += e2;
            cvMax = std::max(cvMax, e2);
        }
        std::printf("| %ld x %ld | %zu | %.3f | %.3f | %.3f | %.3f |\n", size, size, pairs.size(), kxSum / pairs.size(),
                    kxMax, cvSum / pairs.size(), cvMax);
    }
    std::printf("\n");
}

void kxfreqCorrelate(benchmark::State& state)
{
    const TestPair& p = pairsOf(state.range(0))[0];
    for (auto _ : state) {
        const kxPhaseCorrelation r = kfPhaseCorrelate<unsigned char>(p.reference, p.moving);
        benchmark::DoNotOptimize(r.dx);
    }
}

void opencvCorrelate(benchmark::State& state)
{
    cv::setNumThreads(1);
    const TestPair& p = pairsOf(state.range(0))[0];
    const int n = static_cast<int>(state.range(0));
    cv::Mat window;
    cv::createHanningWindow(window, cv::Size(n, n), CV_64F);
    for (auto _ : state) {
        const cv::Point2d c = opencvShift(p, window);
        benchmark::DoNotOptimize(c.x);
    }
}

}  // namespace

BENCHMARK(kxfreqCorrelate)->Name("phase_correlate/kxfreq")->Arg(512)->Arg(2048)->Unit(benchmark::kMillisecond);
BENCHMARK(opencvCorrelate)->Name("phase_correlate/opencv")->Arg(512)->Arg(2048)->Unit(benchmark::kMillisecond);

int main(int argc, char** argv)
{
    accuracyTable();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
