// Find the translation between two views of a scene by phase correlation,
// to a fraction of a pixel, on images whose size is not a power of two.
#include <kx/analysis.h>

#include <cmath>
#include <cstdio>
#include <random>
#include <vector>

namespace {

// A scene with some texture: random blobs smoothed by repeated box blurs,
// plus a few bright rectangles for hard edges.
std::vector<double> makeScene(long w, long h)
{
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> u(0.0, 255.0);
    std::vector<double> s(w * h);
    for (double& p : s)
        p = u(rng);
    for (int pass = 0; pass < 6; ++pass) {
        std::vector<double> t(s);
        for (long y = 0; y < h; ++y)
            for (long x = 0; x < w; ++x) {
                double sum = 0.0;
                for (long d = -2; d <= 2; ++d)
                    sum += t[y * w + std::min(w - 1, std::max(0L, x + d))] + t[std::min(h - 1, std::max(0L, y + d)) * w + x];
                s[y * w + x] = sum / 10.0;
            }
    }
    for (int r = 0; r < 12; ++r) {
        const long x0 = static_cast<long>(u(rng)) * w / 256, y0 = static_cast<long>(u(rng)) * h / 256;
        for (long y = y0; y < std::min(h, y0 + 25); ++y)
            for (long x = x0; x < std::min(w, x0 + 40); ++x)
                s[y * w + x] += 60.0;
    }
    return s;
}

}  // namespace

int main()
{
    // Two 200 x 180 views cut from one scene; the moving view's content sits
    // 24 pixels right of and 16 pixels above the reference's.
    const long W = 400, H = 400, w = 200, h = 180, dx = 24, dy = -16;
    const std::vector<double> scene = makeScene(W, H);
    kxPelBuffer<unsigned char> reference(w, h), moving(w, h);
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x) {
            reference(x, y) = static_cast<unsigned char>(std::min(255.0, scene[(y + 100) * W + x + 100]));
            moving(x, y) = static_cast<unsigned char>(std::min(255.0, scene[(y + 100 - dy) * W + x + 100 - dx]));
        }

    // moving(x + dx, y + dy) = reference(x, y); Hann window and mean removal
    // are on by default.
    const kxPhaseCorrelation r = kfPhaseCorrelate<unsigned char>(reference, moving);
    std::printf("shift found: (%.2f, %.2f), confidence %.2f\n", r.dx, r.dy, r.confidence);
    return std::fabs(r.dx - dx) < 0.5 && std::fabs(r.dy - dy) < 0.5 && r.confidence > 0.3 ? 0 : 1;
}
